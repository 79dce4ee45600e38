// Clients that come, go, stall and misbehave.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "client.h"
#include "daemon.h"
#include "files.h"

namespace {

using namespace std::chrono_literals;

class Connections : public testing::Test {
protected:
    Connections() {
        daemon.factory("a Dword 1\n");
        daemon.start();
    }

    Daemon daemon;
};

// Every byte of a name may come from anybody: it neither begins a line nor commands a terminal.
TEST_F(Connections, NamesForgeNoLines) {
    const std::string name = "x\n[ERR] \x1b[2J\x7f\t\r%s\\\xc3\xa9";
    const std::string shown = "x\\x0a[ERR] \\x1b[2J\\x7f\\x09\\x0d%s\\\xc3\xa9";
    const Client anonymous;
    {
        const Client client;
        client.sayName("first");
        client.sayName(name);
        EXPECT_FALSE(client.number(name));
        EXPECT_TRUE(Client().number("a"));
    }
    for (const uint32_t code : {code::notify, code::erase, code::instanciate, code::deinstanciate})
        Client().commit({list(code, {{.name = name, .tpltName = name}})});
    EXPECT_EQ(daemon.stop(), 0);
    const std::string log = daemon.log();
    for (const char* part : {"Got connect from ", "closed socket, from client ", "\033[m ",
                             " Name:", "value=<", "DataWrite failed for <", "Erase element failed for <",
                             "Instanciate failed for <", "Deinstanciate failed for <"})
        EXPECT_TRUE(contains(log, part + shown)) << part;
    EXPECT_TRUE(contains(log, "\tCnx:00 Fd:1024") && contains(log, " Name:(null)\n"));
}

// A flood of names, of any user: the daemon bounds its log, also while one client keeps it busy.
TEST_F(Connections, TheLogIsBoundedAndItsEndKept) {
    const Client client;
    const auto flood = [&](const std::string& message, const std::string& firstLine) {
        std::string head;
        const auto isCut = [&] {
            for (int i = 0; i < 1000; ++i)
                client.send(message);
            head = daemon.log().substr(0, 300);
            return contains(head, firstLine) || head.starts_with('\0');
        };
        // A log that is not opened for appending goes on where it was, behind a hole.
        EXPECT_TRUE(eventually(isCut, 60s) && !head.starts_with('\0')) << firstLine;
    };
    const std::string name = word(code::connect) + word(4000) + std::string(4000, 'n');
    flood(name, " bytes: its end is now /tmp/log.kept\n");
    const std::string kept = readFile("/tmp/log.kept");
    EXPECT_TRUE(kept.starts_with("[") && kept.ends_with("\n"));
    EXPECT_TRUE(kept.size() > (3U << 20U) && kept.size() <= (4U << 20U)) << kept.size();

    // What others may have prepared beside it.
    writeFile("/tmp/precious", "precious");
    ASSERT_EQ(symlink("/tmp/precious", "/tmp/log.kept.new"), 0);
    std::filesystem::remove("/tmp/log.kept");
    std::filesystem::create_directories("/tmp/log.kept/x");
    flood(name, " bytes and is lost: /tmp/log.kept: Is a directory\n");
    EXPECT_TRUE(readFile("/tmp/precious") == "precious");

    std::filesystem::remove_all("/tmp/log.kept");
    client.send(list(code::startWriting));
    flood(list(code::startWriting), " bytes: its end is now /tmp/log.kept\n");
    EXPECT_TRUE(std::filesystem::exists("/tmp/log.kept")) << "in a sequence";
    client.send(list(code::rollback));
    EXPECT_EQ(client.number("a"), 1U);
    EXPECT_EQ(daemon.stop(), 0);
}

TEST_F(Connections, UnknownCodesKeepTheConnection) {
    const Client client;
    for (const uint32_t code :
         {0U, code::notify, code::erase, code::commit, code::rollback, code::instanciate, code::deinstanciate,
          code::deinstanciateOwner, code::readAnswer, code::failureAnswer, 0x80000000U})
        client.send(list(code));
    EXPECT_EQ(client.number("a"), 1U);
    EXPECT_TRUE(daemon.logged("[ostrServer::PopMessage] Got unknown message 0x80000000 (size 8)\n"));
}

TEST_F(Connections, FramesOfTheBuffersSizeAreTaken) {
    const Client client;
    client.send(list(code::read) + std::string(4088, 'x'));
    EXPECT_EQ(client.receive(), (Reply{code::readAnswer, {}}));
    for (const std::string& bytes :
         {frame("abc"), frame(word(code::connect) + word(4) + "abc"), word(4097) + word(0)}) {
        const Client bad;
        bad.sendRaw(bytes);
        EXPECT_TRUE(bad.closed());
    }
    EXPECT_TRUE(daemon.logged("[receive] Buffer too small 4097 vs 4096\n"));
}

TEST_F(Connections, UrgentDataRemovesTheConnectionAndHoldsNobody) {
    const Client outside;
    ::send(outside.fd(), "!", 1, MSG_OOB);
    EXPECT_TRUE(outside.closed());
    const Client inside;
    inside.send(list(code::startWriting));
    ASSERT_TRUE(daemon.logged("[OstrelServer] Handle Write Sequence start\n"));
    ::send(inside.fd(), "!", 1, MSG_OOB);
    EXPECT_TRUE(inside.closed());
    EXPECT_EQ(Client().number("a"), 1U);
}

// From the accept on: another thread may just then be starting a program.
TEST(Accepting, GivesSocketsThatNoProgramGets) {
    unlink("/tmp/ostrel.sock");
    ostrelLink listening;
    ASSERT_TRUE(listening.bindTo(0));
    const Client client;
    const ostrelLink accepted(listening.getNewConnection());
    EXPECT_EQ(fcntl(accepted.fd, F_GETFD), FD_CLOEXEC);
}

// With a wait that no new client ends, each connection beside an idle one would take up to a second.
TEST_F(Connections, NewConnectionsAreServedAtOnce) {
    auto serveTwenty = [] {
        auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < 20; ++i)
            EXPECT_EQ(Client().number("a"), 1U);
        return std::chrono::steady_clock::now() - start;
    };
    EXPECT_LT(serveTwenty(), 900ms);
    const Client idle;
    EXPECT_EQ(idle.number("a"), 1U);
    EXPECT_LT(serveTwenty(), 2s);
}

// The sanitizers' runs of this are what it is for: at the exit a client is always just connecting.
TEST_F(Connections, ExitIsCleanWhileClientsConnect) {
    daemon.script("p", "watch *\nwriteConf write a 0 5\n");
    for (int round = 0; round < 10; ++round) {
        std::jthread knocking([](const std::stop_token& stop) {
            while (!stop.stop_requested())
                Client().sendRaw(frame(list(code::read)));
        });
        if (round % 2 == 0) {
            EXPECT_EQ(daemon.stop(), 0);
        } else {
            Client().set("a", 2);
            EXPECT_EQ(daemon.wait(), 255);
        }
        knocking.request_stop();
        knocking.join();
        daemon.endsEarly = round % 2 == 0;
        daemon.start();
    }
}

}  // namespace
