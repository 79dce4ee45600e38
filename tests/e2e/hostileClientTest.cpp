// Clients of every bad kind at once, and a good one beside them that must not notice.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <deque>
#include <optional>
#include <random>
#include <thread>

#include "daemon.h"
#include "goodClient.h"
#include "hostileClients.h"

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
void misbehave(std::uint32_t seed) {
    const std::string sequence = hostile::sequence(1);
    hostile::sendAndLeave(sequence, true);
    EXPECT_EQ(Client().number("h.number"), 1U) << "a whole sequence is committed";
    hostile::sendAndLeave(hostile::sequence(2), false);  // committed unless the answer came too late
    hostile::sendAndLeave(hostile::sequence(0), true);
    for (std::size_t end = 0; end < sequence.size(); ++end)
        hostile::sendAndLeave(sequence.substr(0, end), end % 2 == 0);
    EXPECT_EQ(Client().number("h.number"), 0U) << "no sequence was whole";
    const std::string both = hostile::reads() + sequence;
    for (std::size_t at = 0; at < both.size(); ++at) {
        hostile::sendUrgently(both, at);
        for (std::uint32_t extreme : {0U, 128U, 4097U, 0x7FFFFFFFU, 0xFFFFFFFFU})
            hostile::sendAndLeave(std::string(both).replace(at, 4, word(extreme)), at % 2 == 0);
    }
    std::mt19937 random(seed);
    for (int i = 0; i < 2000; ++i)
        hostile::randomSession(random);
    hostile::sendAndLeave(hostile::sequence(0), true);
}

TEST_F(HostileClients, DisturbNobodyAndLeaveNothingBehind) {
    const std::uint32_t seed = std::random_device{}();
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
    const std::size_t before = daemon.usage().descriptors;
    const std::vector<Client> stallers = hostile::stallers();
    // Takes a little each second; its first answer has filled the socket when the second is sent.
    const Client slow;
    for (std::size_t keys : {48U, 130U})
        slow.send(list(20, std::vector<Entry>(keys, question("h.long"))));
    std::jthread reading([&](const std::stop_token& stop) {
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

// With descriptors for all, then without: those that do not fit wait, and harm nobody.
TEST_F(HostileClients, TwoThousandComeAtOnceAndGo) {
    for (unsigned int round : {0U, 1U}) {
        daemon.descriptorLimit = round == 0 ? 8192 : 256;
        daemon.start();
        {
            GoodClient good(round);
            ASSERT_TRUE(eventually([&] { return good.committed() > 10; }));
            const auto [before, memory] = daemon.usage();
            std::deque<Client> crowd;
            const std::size_t expected = round == 0 ? before + 2000 : daemon.descriptorLimit;
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

}  // namespace
