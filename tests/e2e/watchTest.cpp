// The plug-in watch and its readers: ostrelCtl watch, and ones that do not read.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <list>

#include "client.h"
#include "daemon.h"
#include "files.h"
#include "ostrel/watch.h"
#include "text.h"
#include "tool.h"

namespace {

namespace fs = std::filesystem;

constexpr sockaddr_un address{AF_UNIX, OSTREL_WATCH_SOCKET};

class Reader {
public:
    Reader() : fd_(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
        EXPECT_EQ(connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    ~Reader() { close(fd_); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    // KIND NUMBER NAME; "closed"; "none" when nothing has come.
    std::string next() const {
        std::array<uint32_t, 50> packet{};
        if (const ssize_t size = recv(fd_, packet.data(), sizeof packet, MSG_DONTWAIT); size <= 0)
            return size == 0 ? "closed" : "none";
        return std::to_string(packet[0]) + " " + std::to_string(packet[1]) + " " +
               reinterpret_cast<const char*>(&packet[2]);
    }

private:
    int fd_;
};

class Watching : public testing::Test {
protected:
    Watching() {
        daemon.factory("a Dword 1\nb Dword 1\nv[2] Byte 2\n", "[wlan]\nssid String \"home\"\n");
        daemon.plugin("watch", "", IMAGE "/default/ostrPlugins/watch");
        daemon.verbose = false;
    }

    // ostrelCtl watch, from now on; what it prints goes to /tmp/NAME, behind it its exit status.
    static void watch(const std::string& name, const std::string& arguments) {
        auto sockets = [] { return occurrences(readFile("/proc/net/unix"), OSTREL_WATCH_SOCKET); };
        const size_t before = sockets();
        std::system(("(/vemra/bin/ostrelCtl watch " + arguments +
                     " & echo $! >/tmp/pid; wait $!; echo $?) >/tmp/" + name + " 2>&1 &")
                        .c_str());
        EXPECT_TRUE(eventually([&] { return sockets() > before; }));
    }

    // A commit of so many changes of a.
    static void change(int changes = 1) {
        std::vector<std::string> messages;
        for (; changes > 0; changes -= 100)
            messages.push_back(
                list(code::notify,
                     std::vector<Entry>(static_cast<size_t>(std::min(changes, 100)), dword("a", 2))));
        EXPECT_TRUE(Client().commit(messages));
    }

    Daemon daemon;
};

TEST_F(Watching, PrintsWhatEachKindOfChangeLeaves) {
    daemon.plugin("p", "watch a\nrestart write b 0 9\n");
    daemon.start();
    watch("all", "a b 'v*' 'wifi*' --owner dns --owner net");
    watch("json", "--json --count 2 v");
    const std::array<std::string, 3> steps[] = {
        {"set a 5", "a Dword 5\nb Dword 9\n"},
        {"apply -", "v[2] Byte 2\nv[7] Byte 3\na Dword 6\nb Dword 9\n", "v[7] Byte 3\na Dword 6\n"},
        {"erase v", "v changed\n"},
        {"new wlan wifi net", "wifi changed\n"},
        {"set 'wifi[1].ssid' x", "wifi[1].ssid String \"x\"\n"},
        {"remove 'wifi[1]'", "wifi changed\n"},
        {"shutdown", "ostrelCtl: the daemon has ended\n3\n"},
    };
    std::string expected;
    for (const auto& [command, printed, input] : steps) {
        expected += printed;
        EXPECT_EQ(runTool("ostrelCtl " + command, input).status, 0) << command;
        EXPECT_TRUE(eventually([&] { return readFile("/tmp/all") == expected; })) << readFile("/tmp/all");
    }
    const std::string json = R"({"name":"v","values":[{"index":2,"type":"Byte","value":2},)"
                             R"({"index":7,"type":"Byte","value":3}]})";
    EXPECT_EQ(readFile("/tmp/json"), json + "\n{\"name\":\"v\",\"values\":[]}\n0\n");
    EXPECT_FALSE(fs::exists(OSTREL_WATCH_SOCKET));
}

TEST_F(Watching, WhoDoesNotReadHoldsNobodyUpAndIsToldWhatItLost) {
    daemon.start();
    watch("slow", "a");
    EXPECT_EQ(std::system("kill -STOP $(cat /tmp/pid)"), 0);
    const Reader reader;
    for (int i = 0; i < 20; ++i)
        change(1000);
    size_t told = 0;
    std::string packet = reader.next();
    for (; packet == "1 " + std::to_string(told + 1) + " a"; packet = reader.next())
        ++told;
    EXPECT_GT(told, 100U);
    EXPECT_LT(told, 20000U);
    EXPECT_EQ(packet, "2 " + std::to_string(told + 1) + " ");
    EXPECT_EQ(reader.next(), "none");
    EXPECT_EQ(std::system("kill -CONT $(cat /tmp/pid)"), 0);
    EXPECT_TRUE(
        eventually([] { return contains(readFile("/tmp/slow"), "a Dword 2\nostrelCtl: changes are"); }));
    change();
    EXPECT_EQ(reader.next(), "1 20001 a");
    const std::string lost = "\nostrelCtl: " + std::to_string(20000 - told) + " changes were lost";
    EXPECT_TRUE(eventually([&] { return contains(readFile("/tmp/slow"), lost); })) << readFile("/tmp/slow");
}

TEST_F(Watching, ReadersAreBoundedAndThoseThatLeaveMakeRoom) {
    daemon.start();
    const size_t before = daemon.usage().descriptors;
    {
        std::list<Reader> readers(32);
        const Reader tooMany;
        EXPECT_TRUE(eventually([&] { return tooMany.next() == "3 0 "; })) << "without a change";
        EXPECT_EQ(tooMany.next(), "closed");
        std::system("timeout 9 /vemra/bin/ostrelCtl watch 2>/tmp/refused");
        EXPECT_EQ(readFile("/tmp/refused"), "ostrelCtl: too many others watch already\n");
        change();
        EXPECT_EQ(readers.back().next(), "1 1 a");
        readers.pop_front();  // makes room
        readers.emplace_back();
        change();
        EXPECT_EQ(readers.back().next(), "1 1 a");
    }
    change();
    EXPECT_TRUE(eventually([&] { return daemon.usage().descriptors <= before; }));
}

TEST_F(Watching, ShortVisitsLockNobodyOut) {
    daemon.start();
    const auto visit = [] {
        const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        const bool isIn = connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
        close(fd);
        return isIn;
    };
    int visits = 0;
    while (visits < 3000 && eventually(visit))
        ++visits;
    EXPECT_EQ(visits, 3000);
    const Reader reader;
    change();
    EXPECT_EQ(reader.next(), "1 1 a");

    daemon.signal(SIGSTOP);
    while (visit()) {
    }
    EXPECT_EQ(runTool("ostrelCtl watch"),
              (Outcome{1, "", "ostrelCtl: too many others want to watch already\n"}));
    daemon.signal(SIGCONT);
    EXPECT_TRUE(eventually([] { return Reader().next() == "none"; }));
    EXPECT_EQ(daemon.stop(), 0);
}

TEST_F(Watching, TakesTheSocketOfADeadDaemonNotOneThatIsServed) {
    daemon.start();
    daemon.signal(SIGKILL);
    EXPECT_EQ(daemon.wait(), -SIGKILL);
    EXPECT_EQ(runTool("ostrelCtl watch").status, 3);
    daemon.start();
    const Reader reader;
    change();
    EXPECT_EQ(reader.next(), "1 1 a");
    EXPECT_EQ(daemon.stop(), 0);
    const int other = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    EXPECT_EQ(bind(other, reinterpret_cast<const sockaddr*>(&address), sizeof address) + listen(other, 5), 0);
    daemon.start();
    EXPECT_TRUE(daemon.logged("error: /run/ostrelWatch.sock: Address already in use; no reader can come"));
    fs::rename(OSTREL_WATCH_SOCKET, "/run/moved");
    const Outcome refused = runTool("ostrelCtl watch");
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(contains(refused.errors, "without its plug-in watch")) << refused.errors;
    close(other);
}

}  // namespace
