// libostrelClient against the real daemon, and against one that dies in every state.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <thread>

#include "client.h"
#include "common/marshalling.h"
#include "daemon.h"
#include "ostrel/client.hpp"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

ostrel::Value dwordValue(std::uint32_t number) { return {ostrelTypeDword, number}; }

// What a call throws; OSTREL_DONE when it does not.
struct Outcome {
    ostrelStatus status = OSTREL_DONE;
    std::string text{};
    std::optional<ostrel::Fault> fault{};
};

template <class Call>
Outcome outcomeOf(Call call) {
    try {
        call();
    } catch (const ostrel::Error& error) {
        return {error.status(), error.what(), error.fault()};
    }
    return {};
}

class ClientLibrary : public testing::Test {
protected:
    ClientLibrary() {
        daemon.factory("a Dword 1\ntext String \"old\"\nb Bool 1\nv[1] Dword 1\n",
                       "[wlan]\nssid String \"home\"\nchannel Byte 6\n");
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
    for (int i = 1; i <= 500; ++i)
        defaults += "v[" + std::to_string(2 * i) + "] Byte 1\n";
    daemon.factory(defaults);
    daemon.start();
    auto values = session.readMany(keys);
    EXPECT_EQ(values.front()->text, std::string(4000, 'x'));
    EXPECT_EQ(values.back()->number, 2999U);
    keys.insert(keys.begin() + 700, {{"none"}, {"v", 3}});
    values = session.readMany(keys);
    EXPECT_FALSE(values[700] || values[701]);
    EXPECT_EQ(values[702]->number, 200U);
    EXPECT_TRUE(contains(ostrelSessionError(session.get()), "too long to be read: none, v[3]"));
    EXPECT_EQ(session.count("v", 0), 500U);
    auto list = session.list("v", 0);
    EXPECT_FALSE(list.complete);
    EXPECT_GT(list.keys.size(), 180U);
    EXPECT_EQ(list.keys.at(180), 362U);
    EXPECT_TRUE(session.list("none", 0).complete);
    EXPECT_TRUE(daemon.logged("Got connect from test?program ")) << "one line per client";
}

TEST_F(ClientLibrary, AppliesWithNewInstancesAndWaitsForThePlugins) {
    daemon.script("p", "watch *\nrestart write a 0 7\n");
    daemon.start();
    ostrel::Transaction transaction;
    ostrelIndex first = transaction.newInstance("wlan", "wifi", ostrelOwner("web"));
    transaction.set("wifi.ssid", first, {ostrelTypeString, 0, "one"});
    ostrelIndex second = transaction.newInstance("wlan", "wifi", ostrelOwner("web"));
    ostrelIndex third = transaction.newInstance("wlan", "wifi", ostrelOwner("web"));
    transaction.set("wifi.ssid", third, {ostrelTypeString, 0, "three"});
    transaction.remove("wifi", second);
    transaction.erase("b");
    transaction.remove("v", 1);
    daemon.script("p", "restart write text 0 5\nrestart write a 0 7\n");
    daemon.calls();
    session.apply(transaction);
    EXPECT_EQ(session.list("wifi", ostrelOwner("web")).keys,
              (std::vector<std::uint32_t>{transaction.key(first), transaction.key(third)}));
    EXPECT_EQ(session.read("wifi.ssid", transaction.key(third)).text, "three");
    EXPECT_FALSE(session.readMany({{"b"}}).front());
    EXPECT_TRUE(contains(daemon.calls(), "p restart")) << "told when apply returns";
    EXPECT_EQ(outcomeOf([&] { session.apply(transaction); }).status, OSTREL_INVALID) << "twice";
}

TEST_F(ClientLibrary, StagingRefusesWhatTheDaemonWould) {
    const std::string longName(128, 'n');
    const std::function<void(ostrel::Transaction&)> faults[] = {
        [&](auto& t) { t.set(longName, 0, dwordValue(1)); },
        [](auto& t) { t.set("", 0, dwordValue(1)); },
        [](auto& t) {
            t.set("a", 0, {ostrelTypeByte, 256});
        },
        [](auto& t) {
            t.set("a", 0, {ostrelTypeIP, 0, "10.0.0"});
        },
        [](auto& t) {
            t.set("a", 0, {ostrelTypeString, 0, std::string(4096, 'x')});
        },
        [](auto& t) {
            t.set("a", 0, {ostrelTypeNone, 1});
        },
        [](auto& t) { t.remove("a", 0); },
        [](auto& t) { t.set("wifi.x", ostrelIndex{1} << 32U, dwordValue(1)); },
        [](auto& t) { t.set("host.x", t.newInstance("wlan", "wifi", 0), dwordValue(1)); },
        [](auto& t) { t.newInstance("", "wifi", 0); }};
    for (const auto& fault : faults) {
        ostrel::Transaction transaction;
        transaction.setLine(12);
        Outcome staged = outcomeOf([&] { fault(transaction); });
        EXPECT_EQ(staged.status, OSTREL_INVALID) << staged.text;
        EXPECT_TRUE(staged.fault && staged.fault->line == 12);
        transaction.set("a", 0, dwordValue(1));
        Outcome applied = outcomeOf([&] { session.apply(transaction); });
        EXPECT_EQ(applied.status, OSTREL_INVALID) << "no daemon runs: nothing may be sent";
    }
    EXPECT_EQ(ostrelTransactionErase(nullptr, "a"), OSTREL_INVALID);
    EXPECT_EQ(ostrelSessionRead(session.get(), nullptr, 1, nullptr), OSTREL_INVALID);
    ostrel::Transaction transaction;
    EXPECT_EQ(ostrelTransactionSetText(transaction.get(), "a", 0, ostrelTypeIP, nullptr), OSTREL_INVALID);
    EXPECT_EQ(ostrelSessionApply(session.get(), transaction.get()), OSTREL_INVALID);
}

TEST_F(ClientLibrary, NamesTheRefusedChangeAndLeavesNothing) {
    daemon.start();
    const std::pair<std::function<void(ostrel::Transaction&)>, const char*> faults[] = {
        {[](auto& t) {
             t.set("text", 0, {ostrelTypeByte, 5});
         },
         "text: the key is a String"},
        {[](auto& t) {
             t.set("none", 0, {ostrelTypeByte, 5});
         },
         "none: there is no such key"},
        {[](auto& t) {
             t.set("wifi.x", t.newInstance("wlan", "wifi", 0), {ostrelTypeByte, 5});
         },
         "wifi.x: the new instance has no such member"},
        {[](auto& t) { t.newInstance("none", "wifi", 0); }, "wifi: there is no template none"},
        {[](auto& t) { t.remove("v", 7); }, "v[7]: there is no such instance"},
        {[](auto& t) { t.erase("wifi"); }, "wifi: there is nothing to erase"}};
    daemon.calls();
    for (const auto& [fault, text] : faults) {
        ostrel::Transaction transaction;
        transaction.set("a", 0, dwordValue(5));
        transaction.setLine(3);
        fault(transaction);
        transaction.setLine(4);
        transaction.set("a", 0, dwordValue(6));
        for (bool trial : {true, false}) {
            Outcome outcome =
                outcomeOf([&] { trial ? session.check(transaction) : session.apply(transaction); });
            EXPECT_EQ(outcome.status, OSTREL_REFUSED);
            EXPECT_TRUE(contains(outcome.text, std::string("line 3: ") + text)) << outcome.text;
            EXPECT_TRUE(outcome.fault && outcome.fault->line == 3);
            EXPECT_FALSE(transaction.mayBeApplied());
        }
    }
    EXPECT_EQ(session.read("a").number, 1U);
    EXPECT_EQ(daemon.calls(), "");
}

TEST_F(ClientLibrary, LongTrialsAndCommitsNeitherBlockNorLeaveTraces) {
    daemon.start();
    ostrel::Transaction transaction;
    for (std::uint32_t i = 1; i <= 20000; ++i)
        transaction.set("v", i, dwordValue(i));
    std::size_t last = 0;
    static int handled = 0;
    signal(SIGUSR1, [](int) { ++handled; });
    session.onProgress([&](std::size_t sent, std::size_t changes) {
        EXPECT_TRUE(sent >= last && sent <= changes);
        last = sent;
        raise(SIGUSR1);
        EXPECT_EQ(handled, 0) << "no signal while the daemon waits";
    });
    session.check(transaction);
    EXPECT_EQ(last, 20000U);
    EXPECT_EQ(handled, 1);
    EXPECT_EQ(session.count("v", 0), 1U);
    session.onProgress({});
    session.apply(transaction);
    EXPECT_EQ(session.count("v", 0), 20000U);
}

// Somebody holds a write sequence, and the queue of connections is full.
TEST_F(ClientLibrary, BusyMeansThatNothingWillBeApplied) {
    daemon.start();
    session.connect();
    session.setTimeout(300ms);
    Client holder;
    holder.send(list(29));
    ASSERT_TRUE(holder.ask(list(40))) << "the sequence is open";
    for (int queued = 0; queued < 2; ++queued) {
        ostrel::Session other("other");
        other.setTimeout(300ms);
        for (ostrel::Session* waiting : {&session, &other}) {
            ostrel::Transaction transaction;
            transaction.set("a", 0, dwordValue(9));
            auto start = Clock::now();
            EXPECT_EQ(outcomeOf([&] { waiting->apply(transaction); }).status, OSTREL_BUSY);
            EXPECT_LT(Clock::now() - start, 2s);
            EXPECT_FALSE(transaction.mayBeApplied());
        }
        std::vector<int> queue;
        for (int i = 0; i < 20; ++i) {
            queue.push_back(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
            sockaddr_un address{AF_UNIX, "/tmp/ostrel.sock"};
            (void)connect(queue.back(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
        }
        if (queued == 1) {
            holder.send(list(31));
            EXPECT_EQ(Client().number("a"), 1U);
        }
        for (int fd : queue)
            close(fd);
    }
    // A plug-in works: the transaction has left, and is applied later.
    daemon.script("p", "writeConf sleep 1000\n");
    ostrel::Transaction transaction;
    transaction.set("a", 0, dwordValue(9));
    EXPECT_EQ(outcomeOf([&] { session.apply(transaction); }).status, OSTREL_BUSY);
    EXPECT_TRUE(transaction.mayBeApplied());
    session.setTimeout(10s);
    EXPECT_EQ(session.read("a").number, 9U);
}

TEST_F(ClientLibrary, TellsAbsentFromStaleAndSurvivesRestarts) {
    EXPECT_EQ(outcomeOf([&] { session.connect(); }).status, OSTREL_NOT_RUNNING);
    daemon.endsEarly = true;
    daemon.start();
    EXPECT_EQ(session.read("a").number, 1U);
    daemon.signal(SIGKILL);
    daemon.wait();
    EXPECT_EQ(outcomeOf([&] { session.connect(); }).status, OSTREL_STALE_SOCKET);
    daemon.start();
    ostrel::Transaction transaction;
    transaction.set("a", 0, dwordValue(2));
    session.apply(transaction);
    daemon.signal(SIGKILL);
    daemon.wait();
    daemon.start();
    EXPECT_EQ(session.read("a").number, 2U) << "reconnects";
    session.shutdown();
    EXPECT_EQ(daemon.wait(), 0);
    // The daemon dies with the transaction stored, but not answered.
    daemon.start();
    daemon.script("p", "writeConf kill\n");
    ostrel::Transaction last;
    last.set("a", 0, dwordValue(3));
    EXPECT_EQ(outcomeOf([&] { session.apply(last); }).status, OSTREL_GONE);
    EXPECT_TRUE(last.mayBeApplied());
    daemon.wait();
    daemon.start();
    EXPECT_EQ(session.read("a").number, 3U);
}

// Answers the frames of one client up to a number of them, and then ends.
class MortalDaemon {
public:
    enum class End { dies, talksNonsense, readsOn /* but only once the client has left */ };

    MortalDaemon(int frames, End end) : frames_(frames), end_(end) {
        unlink("/tmp/ostrel.sock");
        sockaddr_un address{AF_UNIX, "/tmp/ostrel.sock"};
        EXPECT_EQ(bind(listening_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(listening_, 5), 0);
        thread_ = std::thread([this] { serve(); });
    }
    MortalDaemon(const MortalDaemon&) = delete;
    MortalDaemon& operator=(const MortalDaemon&) = delete;
    ~MortalDaemon() { join(); }

    // What it read on; call after the client has left.
    const std::string& rest() {
        join();
        return rest_;
    }

private:
    void join() {
        if (thread_.joinable())
            thread_.join();
    }
    // The code of the next frame; 0 when there is none.
    static std::uint32_t receive(int fd) {
        unsigned char bytes[4096];
        bool whole = recv(fd, bytes, 8, MSG_WAITALL) == 8;
        std::uint32_t size = whole ? readWord(bytes) : 0;
        return whole && recv(fd, bytes, size, MSG_WAITALL) == size ? readWord(bytes) : 0;
    }
    void serve() {
        int fd = accept(listening_, nullptr, nullptr);
        for (int i = 1; i <= frames_; ++i) {
            std::uint32_t code = receive(fd);
            std::string answer = code == 40 ? list(41, {{"wifi", word(3)}}) : list(21);
            if (end_ == End::talksNonsense)
                answer = word(21) + word(1000) + "?";
            if ((code == 20 || code == 40) && (i < frames_ || end_ != End::dies))
                ::send(fd, frame(answer).data(), 8 + answer.size(), MSG_NOSIGNAL);
        }
        pollfd left{fd, 0, 0};
        if (end_ == End::readsOn)
            poll(&left, 1, 5000);
        char bytes[4096];
        ssize_t size = 0;
        while (end_ == End::readsOn && (size = recv(fd, bytes, sizeof bytes, 0)) > 0)
            rest_.append(bytes, static_cast<std::size_t>(size));
        close(listening_);
        close(fd);
    }

    int frames_;
    End end_;
    std::string rest_;
    int listening_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::thread thread_;
};

TEST_F(ClientLibrary, KnowsWhatADyingDaemonMayHaveDone) {
    // connect, read, start, write, instantiate (answered), write, commit, read
    for (int frames = 1; frames <= 8; ++frames) {
        MortalDaemon mortal(frames, MortalDaemon::End::dies);
        ostrel::Transaction transaction;
        transaction.set("a", 0, dwordValue(2));
        transaction.set("wifi.channel", transaction.newInstance("wlan", "wifi", 0), {ostrelTypeByte, 1});
        EXPECT_EQ(outcomeOf([&] { session.apply(transaction); }).status, OSTREL_GONE) << frames;
        EXPECT_EQ(transaction.mayBeApplied(), frames > 5) << frames;
    }
    MortalDaemon mortal(3, MortalDaemon::End::talksNonsense);
    EXPECT_EQ(outcomeOf([&] { session.read("a"); }).status, OSTREL_FAILED);
}

// Returns what left of a transaction when the daemon takes nothing of it.
std::string leftOf(ostrel::Transaction& transaction, std::size_t writes, std::size_t lastSize) {
    MortalDaemon mortal(2, MortalDaemon::End::readsOn);
    for (std::size_t i = 0; i < writes; ++i)
        transaction.set("a", 0, {ostrelTypeString, 0, std::string(3000, 'x')});
    transaction.erase("a");  // so that the last write does not share a frame
    transaction.set("a", 0, {ostrelTypeString, 0, std::string(lastSize, 'x')});
    {
        ostrel::Session session("test");
        session.setTimeout(60ms);
        EXPECT_EQ(outcomeOf([&] { session.apply(transaction); }).status, OSTREL_BUSY);
    }
    return mortal.rest();
}

// The system may take the commit of a long transaction, but not the read behind it.
TEST_F(ClientLibrary, KnowsThatACommitHasLeftWhenTheRestHasNot) {
    ostrel::Transaction endless;
    std::size_t room = leftOf(endless, 200, 1).size();
    constexpr std::size_t write = 3000 + 39;
    constexpr std::size_t others = 16 + 38 + 39 + 16;  // start, erasure, the last write but its text, commit
    std::size_t writes = (room - others - 100) / write;
    std::size_t lastSize = room - others - writes * write;
    for (std::size_t behind : {20U, 16U, 8U, 1U, 0U}) {
        // So many bytes more than commit and what stands before it are taken.
        ostrel::Transaction transaction;
        std::string left = leftOf(transaction, writes, lastSize - behind);
        EXPECT_TRUE(contains(left, list(30)) && transaction.mayBeApplied()) << behind;
    }
    ostrel::Transaction cut;
    EXPECT_FALSE(contains(leftOf(cut, writes, lastSize + 1), list(30)));
    EXPECT_FALSE(cut.mayBeApplied());
}

// A client of ours that is stopped or killed at any moment does not hold the daemon.
TEST_F(ClientLibrary, StoppedAndKilledClientsHoldNobodyUp) {
    daemon.start();
    session.setTimeout(3s);
    for (int round = 0; round < 40; ++round) {
        pid_t child = fork();
        if (child == 0) {
            ostrel::Session own("child");
            for (std::uint32_t i = 0;; ++i) {
                ostrel::Transaction transaction;
                transaction.set("a", 0, dwordValue(i));
                for (std::uint32_t k = 1; k < 500; ++k)
                    transaction.set("v", k, dwordValue(i));
                own.apply(transaction);
            }
        }
        std::this_thread::sleep_for(std::chrono::microseconds(2000 + 137 * round));
        kill(child, round % 2 == 0 ? SIGSTOP : SIGKILL);
        EXPECT_EQ(outcomeOf([&] { session.read("a"); }).status, OSTREL_DONE);
        auto pair = session.readMany({{"a"}, {"v", 1}, {"v", 499}});
        if (pair[2]) {
            EXPECT_TRUE(pair[0]->number == pair[1]->number && pair[1]->number == pair[2]->number);
        }
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
}

}  // namespace
