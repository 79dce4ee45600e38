// libostrelClient against the real daemon, and against one that dies in every state.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <future>
#include <thread>

#include "client.h"
#include "common/marshalling.h"
#include "daemon.h"
#include "ostrel/client.hpp"
#include "tool.h"

namespace {

using namespace std::chrono_literals;
using ostrel::Transaction;

ostrel::Value number(uint32_t value, ostrelValueType type = ostrelTypeDword) { return {type, value}; }

ostrel::Value text(const std::string& value, ostrelValueType type) { return {type, 0, value}; }

Transaction setting(uint32_t value) {
    Transaction transaction;
    transaction.set("a", 0, number(value));
    return transaction;
}

// What a call throws; OSTREL_DONE when it does not.
template <class Call>
ostrel::Error errorOf(Call call) {
    try {
        call();
    } catch (const ostrel::Error& error) {
        return error;
    }
    return {OSTREL_DONE, ""};
}

class ClientLibrary : public testing::Test {
protected:
    ClientLibrary() {
        daemon.factory("a Dword 1\ntext String \"old\"\nb Bool 1\nv[1] Dword 1\n",
                       "[wlan]\nssid String \"home\"\nchannel Byte 6\n");
    }
    ostrelStatus connect() {
        return errorOf([&] { session.connect(); }).status();
    }
    ostrelStatus apply(Transaction& transaction) {
        return errorOf([&] { session.apply(transaction); }).status();
    }

    Daemon daemon;
    ostrel::Session session{"test\nprogram"};
};

TEST_F(ClientLibrary, ReadsAnyNumberOfKeysAndNamesTheMissingOnes) {
    std::string defaults = "long String \"" + std::string(4000, 'x') + "\"\n";
    std::vector<ostrel::Key> keys(500, ostrel::Key{"long"});
    for (int i = 0; i < 3000; ++i) {
        defaults += "key." + std::to_string(i) + " Dword " + std::to_string(i) + "\n";
        keys.push_back({"key." + std::to_string(i)});
    }
    daemon.factory(defaults);
    daemon.start();
    keys.insert(keys.begin() + 700, {{"none"}, {"v", 3}});
    auto values = session.readMany(keys);
    EXPECT_EQ(values.front()->text, std::string(4000, 'x'));
    EXPECT_FALSE(values[700] || values[701]);
    EXPECT_EQ(values[702]->number, 200U);
    EXPECT_EQ(values.back()->number, 2999U);
    EXPECT_TRUE(contains(ostrelSessionError(session.get()), "too long to be read: none, v[3]"));
    EXPECT_TRUE(daemon.logged("Got connect from test?program ")) << "one line per client";
}

TEST_F(ClientLibrary, StagingRefusesWhatTheDaemonWould) {
    const std::function<void(Transaction&)> faults[] = {
        [](auto& t) { t.set(std::string(128, 'n'), 0, number(1)); },
        [](auto& t) { t.set("", 0, number(1)); },
        [](auto& t) { t.set("a", 0, number(256, ostrelTypeByte)); },
        [](auto& t) { t.set("a", 0, number(1, ostrelTypeNone)); },
        [](auto& t) { t.set("a", 0, text("10.0.0", ostrelTypeIP)); },
        [](auto& t) { t.set("a", 0, text(std::string(4096, 'x'), ostrelTypeString)); },
        [](auto& t) { t.set("wifi.x", ostrelIndex{1} << 32U, number(1)); },
        [](auto& t) { t.set("host.x", t.newInstance("wlan", "wifi", 0), number(1)); },
        [](auto& t) { t.newInstance("", "wifi", 0); },
        [](auto& t) { t.remove("a", 0); },
    };
    for (const auto& fault : faults) {
        Transaction transaction;
        transaction.setLine(12);
        const ostrel::Error staged = errorOf([&] { fault(transaction); });
        EXPECT_EQ(staged.status(), OSTREL_INVALID) << staged.what();
        EXPECT_TRUE(staged.fault() && staged.fault()->line == 12);
        transaction.set("a", 0, number(1));
        EXPECT_EQ(apply(transaction), OSTREL_INVALID) << "no daemon runs: nothing may be sent";
    }
    EXPECT_EQ(ostrelTransactionErase(nullptr, "a"), OSTREL_INVALID);
    EXPECT_EQ(ostrelSessionApply(session.get(), nullptr), OSTREL_INVALID);
    EXPECT_EQ(ostrelSessionRead(session.get(), nullptr, 1, nullptr), OSTREL_INVALID);
    Transaction transaction;
    EXPECT_EQ(ostrelTransactionSetText(transaction.get(), "a", 0, ostrelTypeIP, nullptr), OSTREL_INVALID);
    EXPECT_EQ(apply(transaction), OSTREL_INVALID);
}

TEST_F(ClientLibrary, LongTrialsAndCommitsNeitherBlockNorLeaveTraces) {
    daemon.start();
    constexpr uint32_t all = 5000;
    Transaction transaction;
    for (uint32_t i = 1; i <= all; ++i)
        transaction.set("v", i, number(i));
    size_t last = 0;
    static int handled = 0;
    signal(SIGUSR1, [](int) { ++handled; });
    session.onProgress([&](size_t sent, size_t changes) {
        EXPECT_TRUE(sent >= last && sent <= changes);
        last = sent;
        raise(SIGUSR1);
        EXPECT_EQ(handled, 0) << "no signal while the daemon waits";
    });
    session.check(transaction);
    EXPECT_EQ(last, all);
    EXPECT_EQ(handled, 1);
    EXPECT_EQ(session.count("v", 0), 1U);
    session.onProgress({});
    session.apply(transaction);
    EXPECT_EQ(session.count("v", 0), all);
    EXPECT_EQ(apply(transaction), OSTREL_INVALID) << "twice";
}

TEST_F(ClientLibrary, ReconnectsToARestartedDaemon) {
    daemon.endsEarly = true;
    daemon.start();
    Transaction transaction = setting(2);
    session.apply(transaction);
    daemon.signal(SIGKILL);
    daemon.wait();
    daemon.start();
    EXPECT_EQ(session.read("a").number, 2U);
}

enum class End { dies, talksNonsense, readsOn /* but only once the client has left */ };

// In place of the daemon: answers one client up to a number of its frames, and ends. Gives what it read on.
std::future<std::string> standIn(int frames, End end) {
    ostrelSetPrintLevel(0);
    auto listening = std::make_unique<ostrelLink>();
    EXPECT_TRUE(listening->bindTo(0));
    return std::async(std::launch::async, [=, listening = std::move(listening)]() mutable {
        ostrelLink client(listening->getNewConnection());
        listening.reset();
        unsigned char bytes[receiveBufferSize];
        unsigned int size = 0;
        for (int i = 1; i <= frames && client.receiveMessage(sizeof bytes, &size, bytes); ++i) {
            const uint32_t code = readWord(bytes);
            std::string answer = code == code::instanciate
                                     ? list(code::instanciateAnswer, {{"wifi", word(3)}})
                                     : list(code::readAnswer);
            if (end == End::talksNonsense)
                answer = word(code::readAnswer) + word(1000) + "?";
            if ((code == code::read || code == code::instanciate) && (i < frames || end != End::dies))
                ::send(client.fd, frame(answer).data(), 8 + answer.size(), MSG_NOSIGNAL);
        }
        std::string rest;
        if (end != End::readsOn)
            return rest;
        pollfd left{client.fd, 0, 0};
        poll(&left, 1, 5000);
        for (ssize_t got = 0; (got = recv(client.fd, bytes, sizeof bytes, 0)) > 0;)
            rest.append(bytes, bytes + got);
        return rest;
    });
}

TEST_F(ClientLibrary, KnowsWhatADyingDaemonMayHaveDone) {
    // connect, read, start, write, instantiate (answered), write, commit, read
    for (int frames = 1; frames <= 8; ++frames) {
        const auto mortal = standIn(frames, End::dies);
        Transaction transaction = setting(2);
        transaction.set("wifi.channel", transaction.newInstance("wlan", "wifi", 0),
                        number(1, ostrelTypeByte));
        EXPECT_EQ(apply(transaction), OSTREL_GONE) << frames;
        EXPECT_EQ(transaction.mayBeApplied(), frames > 5) << frames;
    }
    const auto mortal = standIn(2, End::talksNonsense);
    EXPECT_EQ(connect(), OSTREL_FAILED);
}

// Returns what left of a transaction when the daemon takes nothing of it.
std::string leftOf(Transaction& transaction, size_t writes, size_t lastSize) {
    auto mortal = standIn(2, End::readsOn);
    for (size_t i = 0; i < writes; ++i)
        transaction.set("a", 0, text(std::string(3000, 'x'), ostrelTypeString));
    transaction.erase("a");  // so that the last write does not share a frame
    transaction.set("a", 0, text(std::string(lastSize, 'x'), ostrelTypeString));
    {
        ostrel::Session session("test");
        session.setTimeout(60ms);
        EXPECT_EQ(errorOf([&] { session.apply(transaction); }).status(), OSTREL_BUSY);
    }
    return mortal.get();
}

// The system may take the commit of a long transaction, but not the read after it.
TEST_F(ClientLibrary, KnowsThatACommitHasLeftWhenTheRestHasNot) {
    Transaction endless;
    const size_t room = leftOf(endless, 200, 1).size();
    constexpr size_t write = 3000 + 39;
    constexpr size_t others = 16 + 38 + 39 + 16;  // start, erasure, the last write but its text, commit
    const size_t writes = (room - others - 100) / write;
    const size_t lastSize = room - others - writes * write;
    for (const int behind : {20, 16, 8, 1, 0, -1}) {
        // So many bytes more than commit and what stands before it are taken.
        Transaction transaction;
        const std::string left = leftOf(transaction, writes, lastSize - static_cast<size_t>(behind));
        EXPECT_EQ(contains(left, list(code::commit)), behind >= 0);
        EXPECT_EQ(transaction.mayBeApplied(), behind >= 0) << behind;
    }
}

// The daemon shall not have to wait for us to take its answers.
TEST_F(ClientLibrary, AsksForLittleAtATime) {
    auto mortal = standIn(2, End::readsOn);
    session.connect();
    session.setTimeout(200ms);
    const std::vector<ostrel::Key> keys(5000, ostrel::Key{"a"});
    EXPECT_EQ(errorOf([&] { session.readMany(keys); }).status(), OSTREL_BUSY);
    session = ostrel::Session("other");
    EXPECT_LE(mortal.get().size(), 4 * (8 + receiveBufferSize));
}

// Somebody who may have come before the daemon. False: this appliance has only one user.
bool listenAs(uid_t user, std::initializer_list<std::pair<const char*, int>> places) {
    std::vector<int> sockets;
    for (const auto& [path, type] : places) {
        sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
        unlink(path);
        std::string_view(path).copy(address.sun_path, sizeof address.sun_path - 1);
        sockets.push_back(socket(AF_UNIX, type, 0));
        EXPECT_EQ(bind(sockets.back(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    const pid_t child = fork();
    if (child == 0) {
        // The system tells who called listen.
        const bool isOther = setuid(user) == 0;
        for (const int each : sockets)
            listen(each, 5);
        _exit(isOther ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status == 0;
}

TEST_F(ClientLibrary, AsksNothingOfAUserWhoMayNotBeTheDaemon) {
    if (!listenAs(1, {{"/tmp/ostrel.sock", SOCK_STREAM}, {"/run/ostrelWatch.sock", SOCK_SEQPACKET}}))
        GTEST_SKIP();
    const std::string reason = " is served by user daemon (1), and user root (0) trusts only root";
    const ostrel::Error refused = errorOf([&] { session.connect(); });
    EXPECT_EQ(refused.status(), OSTREL_FAILED);
    EXPECT_EQ(std::string(refused.what()).find("/tmp/ostrel.sock" + reason), 0U) << refused.what();
    session.setTimeout(50ms);
    session.setDaemonUser("nobody");
    EXPECT_TRUE(contains(errorOf([&] { session.connect(); }).what(), " only root or nobody (65534) there"));
    session.setDaemonUser("daemon");
    EXPECT_EQ(connect(), OSTREL_BUSY) << "who is trusted does not answer";
    EXPECT_TRUE(contains(runTool("ostrelCtl get a").errors, "ostrelCtl: /tmp/ostrel.sock" + reason));
    EXPECT_TRUE(contains(runTool("../../usr/bin/timeout 5 /vemra/bin/ostrelCtl watch").errors,
                         "ostrelCtl: /run/ostrelWatch.sock" + reason));
    EXPECT_TRUE(contains(runTool("ostrelCtl doctor").output, ", user 1, who is neither root"));
    setenv("OSTREL_DAEMON_USER", "1", 1);
    EXPECT_TRUE(contains(runTool("ostrelCtl get a --timeout 0.05").errors, "no answer within"));
    unsetenv("OSTREL_DAEMON_USER");
    unlink("/run/ostrelWatch.sock");
}

// A client of ours that is stopped or killed at any moment does not hold the daemon.
TEST_F(ClientLibrary, StoppedAndKilledClientsHoldNobodyUp) {
    daemon.start();
    session.setTimeout(3s);
    for (int round = 0; round < 40; ++round) {
        const pid_t child = fork();
        if (child == 0) {
            ostrel::Session own("child");
            for (uint32_t i = 0;; ++i) {
                Transaction transaction = setting(i);
                for (uint32_t k = 1; k < 500; ++k)
                    transaction.set("v", k, number(i));
                own.apply(transaction);
            }
        }
        std::this_thread::sleep_for(std::chrono::microseconds(2000 + 137 * round));
        kill(child, round % 2 == 0 ? SIGSTOP : SIGKILL);
        const auto seen = session.readMany({{"a"}, {"v", 1}, {"v", 499}});
        EXPECT_TRUE(!seen[2] || (seen[0]->number == seen[1]->number && seen[1]->number == seen[2]->number));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
}

}  // namespace
