#include "common/ostrelLink.h"

#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>

#include <chrono>
#include <optional>
#include <sstream>
#include <thread>
#include <vector>

#include "common/ostrelUtils.h"
#include "unit/capture.h"

namespace {

using namespace std::chrono_literals;
using Bytes = std::vector<unsigned char>;

// The lines of the body without their prefixes, which must name the public function that a line belongs to.
template <typename Body>
std::string linesOf(Body body) {
    showPrefix = 1;
    std::istringstream log(outputOf(body));
    showPrefix = 0;
    std::string lines;
    for (std::string line; std::getline(log, line);) {
        EXPECT_TRUE(!contains(line, "::rxData]") || contains(line, ":receiveData():")) << line;
        EXPECT_TRUE(!contains(line, "endData]") || contains(line, ":sendData():")) << line;
        lines += line.substr(line.find_first_not_of(' ', line.find("():") + 3)) + '\n';
    }
    return lines;
}

class Link : public testing::Test {
protected:
    Link() {
        int fds[2] = {-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
        link.emplace(fds[0]);
        peer.emplace(fds[1]);
        ostrelLink::limits.stall = 300ms;
    }
    void TearDown() override { ostrelLink::limits = {}; }

    void fromPeer(Bytes bytes) {
        EXPECT_TRUE(peer->sendData(static_cast<unsigned int>(bytes.size()), bytes.data()));
    }
    Bytes atPeer(size_t wanted) {
        Bytes bytes(wanted);
        EXPECT_TRUE(peer->receiveData(static_cast<unsigned int>(wanted), bytes.data()));
        return bytes;
    }
    bool receive(unsigned int room) {
        Bytes buffer(room);
        return link->receiveMessage(room, &room, buffer.data());
    }
    bool send(Bytes bytes) {
        return link->sendMessage(static_cast<unsigned int>(bytes.size()), bytes.data());
    }

    std::optional<ostrelLink> link;
    std::optional<ostrelLink> peer;
};

TEST_F(Link, FramesCarryACounterThatWraps) {
    link->ostrCounter = 65278;
    EXPECT_TRUE(send({}) && send({'x'}));
    EXPECT_EQ(atPeer(17), Bytes({0, 0, 0, 0, 0xFE, 0xFE, 0, 0, 1, 0, 0, 0, 0xFF, 0xFE, 0, 0, 'x'}));
    EXPECT_EQ(link->ostrCounter, 0U);
}

TEST_F(Link, ATooLongFrameAndAPeerThatClosesInsideOneAreFailures) {
    fromPeer({3, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(linesOf([&] { EXPECT_FALSE(receive(2)); }),
              "\033[41m**** ERROR ****\033[m [receive] Buffer too small 3 vs 2\n");
    fromPeer({3, 0, 0, 0, 0, 0, 0, 0, 'a'});
    peer.reset();
    EXPECT_EQ(linesOf([&] { EXPECT_FALSE(receive(8)); }), "[ostrLink::rxData] Rx Error or socket closed\n");
    EXPECT_TRUE(
        contains(linesOf([&] { EXPECT_FALSE(send({'x'})); }), "[ostrLink::sendData] SendData Error :%w\n"));
    EXPECT_TRUE(link->peerGone() && link->usable());
}

TEST_F(Link, WithoutASocketAllFails) {
    ostrelLink none;
    unsigned int word = 0;
    const std::string lines = linesOf([&] { EXPECT_FALSE(none.read32(&word) || none.write32(word)); });
    EXPECT_TRUE(contains(lines, "[ostrLink::rxData] No socket opened\n"));
    EXPECT_TRUE(contains(lines, "[ostrLink::SendData] No socket opened\n"));
}

// A silent peer is waited for, a begun frame is not, however often a byte of it comes.
TEST_F(Link, DribbledFrameIsGivenUp) {
    ostrelLink::limits.stall = 200ms;
    const std::jthread dribble([this](const std::stop_token& stop) {
        std::this_thread::sleep_for(300ms);
        fromPeer({0});
        for (unsigned char byte = 1; !stop.stop_requested(); byte = 0) {
            std::this_thread::sleep_for(10ms);
            fromPeer({byte});
        }
    });
    auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(contains(linesOf([&] { EXPECT_FALSE(receive(4096)); }),
                         "[ostrLink::rxData] Frame not complete after 200 ms\n"));
    auto took = std::chrono::steady_clock::now() - start;
    EXPECT_TRUE(took > 400ms && took < 2s) << took / 1ms;
}

TEST_F(Link, ASignalBetweenTheFramesPartsLosesNothing) {
    signal(SIGUSR1, [](int) {});
    const std::jthread parts([this, reader = pthread_self()] {
        fromPeer({1, 0, 0, 0});
        for (int i = 0; i < 10; ++i) {
            std::this_thread::sleep_for(5ms);
            pthread_kill(reader, SIGUSR1);
        }
        fromPeer({0, 0, 0, 0, 'x'});
    });
    EXPECT_TRUE(receive(1));
}

class SlowReader : public Link {
protected:
    SlowReader() : answer(600000) {
        for (size_t i = 0; i < answer.size(); ++i)
            answer[i] = static_cast<unsigned char>(i % 251);
        ostrelLink::limits.stall = 1s;
    }
    // Sends the answer to a peer that takes so many bytes every 15 ms at best. Returns what the link logs
    // when it does not send all; else the peer has got it.
    std::string sendSlowly(size_t portion) {
        std::jthread reader([&](const std::stop_token& stop) {
            Bytes got = atPeer(8);
            for (got.clear(); got.size() < answer.size() && !stop.stop_requested();
                 std::this_thread::sleep_for(15ms)) {
                const Bytes piece = atPeer(portion);
                got.insert(got.end(), piece.begin(), piece.end());
            }
            EXPECT_TRUE(stop.stop_requested() || got == answer);
        });
        return linesOf([&] {
            if (!send(answer)) {
                EXPECT_FALSE(link->usable() || link->peerGone());
                reader.request_stop();
            }
        });
    }

    Bytes answer;
};

TEST_F(SlowReader, GetsAllAtTheRateThatIsWanted) {
    ostrelLink::limits.sendRate = 20000;
    EXPECT_EQ(sendSlowly(6000), "");
    ostrelLink::limits.stall = 300ms;
    EXPECT_TRUE(contains(linesOf([&] { EXPECT_FALSE(send(answer)); }),
                         "[ostrLink::sendData] Peer has taken nothing for 300 ms\n"));
    EXPECT_FALSE(link->usable());
}

// Not in its first second, and what the socket holds counts as taken.
TEST_F(SlowReader, IsGivenUpBelowThatRate) {
    const auto start = std::chrono::steady_clock::now();
    ostrelLink::limits.sendRate = 4000000;
    EXPECT_TRUE(
        contains(sendSlowly(1500), "[ostrLink::sendData] Peer takes less than 4000000 bytes per second\n"));
    EXPECT_GT(std::chrono::steady_clock::now() - start, 1s);
}

}  // namespace
