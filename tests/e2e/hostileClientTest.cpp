// Clients of every bad kind at once, and a good one beside them that must not notice.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <deque>
#include <optional>
#include <random>
#include <thread>

#include "daemon.h"
#include "files.h"
#include "goodClient.h"
#include "hostileClients.h"
#include "text.h"

namespace {

using namespace std::chrono_literals;

class HostileClients : public testing::Test {
protected:
    HostileClients() {
        daemon.factory(GoodClient::defaults(0) + GoodClient::defaults(1) + hostile::defaults(),
                       GoodClient::templates() + hostile::templates());
        daemon.verbose = false;
    }

    Daemon daemon;
};

// Every end of a sequence and of a read, every place in them overwritten by every extreme, urgent data at
// every place; then at random.
void misbehave(uint32_t seed) {
    const std::string sequence = hostile::sequence(1);
    hostile::sendAndLeave(sequence, true);
    EXPECT_EQ(Client().number("h.number"), 1U) << "a whole sequence is committed";
    hostile::sendAndLeave(hostile::sequence(2), false);  // committed unless the answer came too late
    hostile::sendAndLeave(hostile::sequence(0), true);
    for (size_t end = 0; end < sequence.size(); ++end)
        hostile::sendAndLeave(sequence.substr(0, end), end % 2 == 0);
    EXPECT_EQ(Client().number("h.number"), 0U) << "no sequence was whole";
    const std::string both = hostile::reads() + sequence;
    for (size_t at = 0; at < both.size(); ++at) {
        hostile::sendUrgently(both, at);
        for (const uint32_t extreme : {0U, 128U, 4097U, 0x7FFFFFFFU, 0xFFFFFFFFU})
            hostile::sendAndLeave(std::string(both).replace(at, 4, word(extreme)), at % 2 == 0);
    }
    std::mt19937 random(seed);
    for (int i = 0; i < 2000; ++i)
        hostile::randomSession(random);
    hostile::sendAndLeave(hostile::sequence(0), true);
}

TEST_F(HostileClients, DisturbNobodyAndLeaveNothingBehind) {
    const uint32_t seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    daemon.start();
    misbehave(seed);
    const Daemon::Usage before = daemon.usage();
    {
        GoodClient good(0);
        misbehave(seed + 1);
        EXPECT_LT(good.slowest(), 3s);
    }
    EXPECT_TRUE(eventually([&] { return daemon.usage().descriptors <= before.descriptors; }));
    EXPECT_TRUE(isSanitized || daemon.usage().memory <= before.memory + memorySlack);
    EXPECT_EQ(daemon.stop(), 0);
}

TEST_F(HostileClients, StallersAreDroppedOneAfterTheOther) {
    daemon.start();
    std::optional<GoodClient> good(0);
    ASSERT_TRUE(eventually([&] { return good->committed() > 10; }));
    const size_t before = daemon.usage().descriptors;
    const std::vector<Client> stallers = hostile::stallers();
    // Takes a little each second; its first answer has filled the socket when the second is sent.
    const Client slow;
    for (const size_t keys : {48U, 130U})
        slow.send(list(code::read, std::vector<Entry>(keys, question("h.long"))));
    const std::jthread reading([&](const std::stop_token& stop) {
        for (std::string piece(16384, ' '); !stop.stop_requested(); std::this_thread::sleep_for(1s))
            recv(slow.fd(), piece.data(), piece.size(), MSG_DONTWAIT);
    });
    EXPECT_TRUE(eventually(
        [&] {
            return occurrences(daemon.log(), " 5000 ms\n") == 3 &&
                   occurrences(daemon.log(), "Peer takes less than 65536 bytes per second\n") == 1;
        },
        40s));
    EXPECT_TRUE(eventually([&] { return daemon.usage().descriptors == before; }));
    EXPECT_EQ(occurrences(daemon.log(), "[ostrLink::sendData] Peer has taken nothing for 5000 ms\n"), 1U);
    EXPECT_EQ(occurrences(daemon.log(), "[ostrLink::rxData] Frame not complete after 5000 ms\n"), 2U);
    EXPECT_EQ(occurrences(daemon.log(), "[ostrelEvent:read] Send message failed\n"), 2U);
    EXPECT_LT(good->slowest(), 3 * 5s + 10s + 3s);
    good.reset();
    EXPECT_EQ(daemon.stop(), 0);
}

// Sequences without end, of changes that take memory each in another way.
class Endless : public HostileClients, public testing::WithParamInterface<const char*> {
protected:
    // Until the daemon has had enough, or so many messages.
    static void change(const Client& client, uint32_t messages = UINT32_MAX) {
        const std::string kind = GetParam();
        const std::vector<Entry> instances(80, {.name = "hall", .owner = 7, .tpltName = "hall"});
        std::vector<Entry> elements(80, dword("h.list", 9));
        for (uint32_t sent = 0, last = 0; sent < messages; ++sent) {
            for (Entry& element : elements)
                element.pKey = ++last;
            if (kind == "Instances" && !client.ask(list(code::instanciate, instances)))
                return;
            const std::string bytes = frame(kind == "Writes" ? list(code::notify, elements)
                                                             : list(code::deinstanciateOwner, instances));
            if (kind != "Instances" && ::send(client.fd(), bytes.data(), bytes.size(), MSG_NOSIGNAL) == -1)
                return;
        }
    }
    void expectRefusal(const std::string& line) {
        {
            const Client client;
            client.send(list(code::startWriting));
            change(client);
        }
        EXPECT_TRUE(daemon.logged(line));
        EXPECT_TRUE(Client().set("h.number", 5)) << "others are served";
        EXPECT_EQ(Client().number("h.list", 2), std::nullopt);
        EXPECT_EQ(Client().count("hall", 7), 0U);
    }
};

TEST_P(Endless, SequenceIsRefused) {
    daemon.start();
    const size_t before = daemon.usage().memory;
    expectRefusal("[OstrelServer] The write sequence takes more than 67108864 bytes\n");
    EXPECT_TRUE(daemon.logged(" failed for <h"));
    EXPECT_TRUE(isSanitized || daemon.usage().peak <= before + (size_t{64} << 20U));
    const Client client;
    client.send(list(code::startWriting));
    change(client, 1000);
    client.send(list(code::startWriting));
    change(client, 1000);
    client.send(list(code::rollback));
    EXPECT_EQ(client.number("h.number"), 5U) << "each start begins the count anew";
}

TEST_P(Endless, SequenceIsRefusedWhenMemoryEnds) {
    if (isSanitized)
        GTEST_SKIP() << "the sanitizers take all the address space";
    daemon.start();
    daemon.limitMemory(size_t{8} << 20U);
    expectRefusal("[OstrelServer] Out of memory\n");
    EXPECT_EQ(daemon.stop(), 0);
}

INSTANTIATE_TEST_SUITE_P(, Endless, testing::Values("Writes", "Instances", "Removals"),
                         [](const auto& kind) { return kind.param; });

// 600 times a thousand elements are too many, 300 times are not.
TEST_F(HostileClients, RemovalsCountWhatTheyRemove) {
    std::string elements;
    for (int i = 1; i <= 1000; ++i)
        elements += "h.many[" + std::to_string(i) + "] Dword 1\n";
    daemon.factory(elements);
    daemon.start();
    const std::string write = frame(list(code::notify, {dword("h.many", 1, 1)}));
    for (const std::string& removal : {frame(list(code::deinstanciateOwner, {{.name = "h.many"}})),
                                       write + frame(list(code::erase, {{"h.many"}}))}) {
        for (const int times : {600, 300}) {
            std::string bytes = frame(list(code::startWriting));
            for (int i = 0; i < times; ++i)
                bytes += removal;
            const Client client;
            client.sendRaw(bytes + frame(list(code::rollback)));
            EXPECT_EQ(client.number("h.many", 5), times == 300 ? std::optional(1U) : std::nullopt);
        }
    }
}

// With descriptors for all, then without: those that do not fit wait, and harm nobody.
TEST_F(HostileClients, TwoThousandComeAtOnceAndGo) {
    for (const unsigned int round : {0U, 1U}) {
        daemon.descriptorLimit = round == 0 ? 8192 : 256;
        daemon.start();
        {
            GoodClient good(round);
            ASSERT_TRUE(eventually([&] { return good.committed() > 10; }));
            const auto [before, memory, peak] = daemon.usage();
            std::deque<Client> crowd;
            // The good one is there already, and is one of the 256 - 64 that there is room for; the one that
            // saw the start may have been, too.
            const size_t expected = before + (round == 0 ? 2000 : 256 - 64 - 2);
            while (daemon.usage().descriptors < expected && crowd.size() < 15000)
                for (int i = 0; i < 20; ++i)
                    crowd.emplace_back(SOCK_NONBLOCK);
            EXPECT_GE(daemon.usage().descriptors, expected);
            EXPECT_TRUE(eventually([&, now = good.committed()] { return good.committed() > now + 10; }));
            crowd.clear();
            EXPECT_TRUE(eventually([&, wanted = before] { return daemon.usage().descriptors == wanted; }));
            EXPECT_TRUE(isSanitized || daemon.usage().memory <= memory + memorySlack);
            EXPECT_EQ(Client().number("h.number"), 0U) << "new ones are served";
            EXPECT_LT(good.slowest(), 3s);
        }
        EXPECT_EQ(daemon.stop(), 0);
    }
}

// What is below their own numbers is left to the store and the plug-ins, and one descriptor to the log.
TEST_F(HostileClients, ThatAreAsManyAsThereMayBeLeaveDescriptorsForTheDaemonsWork) {
    daemon.script("p",
                  "watch h.number\nrestart execute ulimit -S -n >/tmp/limit\ntriggerOn h.gone\n"
                  "trigger hog descriptors\n");
    daemon.descriptorLimit = 256;
    daemon.softDescriptorLimit = 99;
    daemon.verbose = true;
    daemon.start();
    EXPECT_TRUE(daemon.logged("got new incoming connection, fd=64\n"));
    const Client good;
    ASSERT_EQ(good.number("h.number"), 0U);
    const size_t before = daemon.usage().descriptors;
    std::deque<Client> crowd;
    const std::string full = "[ostrelServer] 192 clients are connected: more have to wait until one leaves\n";
    while (daemon.usage().descriptors < before + 256 - 64 - 1 && crowd.size() < 15000)
        crowd.emplace_back(SOCK_NONBLOCK);
    EXPECT_TRUE(daemon.logged(full));
    EXPECT_TRUE(good.set("h.number", 2));
    EXPECT_EQ(readFile("/tmp/limit"), "99\n") << "programs get the old limit back";
    EXPECT_TRUE(good.set("h.gone", 2));
    EXPECT_EQ(occurrences(daemon.log(), full), 1U) << "and the listener does not spin";
    daemon.signal(SIGHUP);
    EXPECT_TRUE(eventually([&] { return !contains(daemon.log(), "starting"); })) << "emptied";
    EXPECT_EQ(good.number("h.number"), 2U);
    crowd.clear();
    EXPECT_TRUE(good.set("h.number", 3)) << "the plug-in gives them back";
    EXPECT_TRUE(eventually([] { return Client().number("h.number") == 3U; }));
    EXPECT_EQ(daemon.stop(), 0);
}

}  // namespace
