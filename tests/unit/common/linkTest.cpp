#include "common/ostrelLink.h"

#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <numeric>
#include <optional>
#include <thread>
#include <vector>

#include "unit/capture.h"

namespace {

using namespace std::chrono_literals;
using Bytes = std::vector<unsigned char>;

class Link : public testing::Test {
protected:
    Link() {
        int fds[2] = {-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
        link.emplace(fds[0]);
        peer.emplace(fds[1]);
    }
    void TearDown() override { ostrelLink::limits = {}; }

    void fromPeer(const Bytes& bytes) const {
        EXPECT_EQ(write(peer->fd, bytes.data(), bytes.size()), ssize_t(bytes.size()));
    }
    Bytes atPeer(std::size_t wanted) {
        Bytes bytes(wanted);
        EXPECT_TRUE(peer->receiveData(static_cast<unsigned int>(wanted), bytes.data()));
        return bytes;
    }
    bool receive(unsigned int room) {
        buffer.assign(room, 0);
        log = outputOf([&] { received = link->receiveMessage(room, &size, buffer.data()); });
        return received;
    }
    bool send(Bytes bytes) {
        bool sent = false;
        log = outputOf(
            [&] { sent = link->sendMessage(static_cast<unsigned int>(bytes.size()), bytes.data()); });
        return sent;
    }

    std::optional<ostrelLink> link;
    std::optional<ostrelLink> peer;
    Bytes buffer;
    unsigned int size = 0;
    bool received = false;
    std::string log;
};

TEST_F(Link, FramesCarryACounterThatWraps) {
    EXPECT_TRUE(send({}));
    EXPECT_EQ(atPeer(8), Bytes(8, 0));
    link->ostrCounter = 65279;
    EXPECT_TRUE(send({'x'}));
    EXPECT_EQ(atPeer(9), Bytes({1, 0, 0, 0, 0xFF, 0xFE, 0, 0, 'x'}));
    EXPECT_EQ(link->ostrCounter, 0U);
}

TEST_F(Link, PeerThatClosesInsideAFrameIsAFailure) {
    fromPeer({3, 0, 0, 0, 0, 0, 0, 0, 'a'});
    peer.reset();
    EXPECT_FALSE(receive(8));
    EXPECT_EQ(log, "[ostrLink::rxData] Rx Error or socket closed\n");
    EXPECT_FALSE(send({'x'}));
    EXPECT_TRUE(contains(log, "[ostrLink::sendData] SendData Error :%w\n"));
    EXPECT_FALSE(link->usable());
}

// A silent peer is waited for, a begun frame is not, however often a byte of it comes.
TEST_F(Link, DribbledFrameIsGivenUp) {
    ostrelLink::limits.stall = 200ms;
    std::jthread dribble([this](const std::stop_token& stop) {
        for (auto pause = 300ms; !stop.stop_requested(); pause = 60ms) {
            std::this_thread::sleep_for(pause);
            fromPeer({0});
        }
    });
    auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(receive(4096));
    auto took = std::chrono::steady_clock::now() - start;
    EXPECT_TRUE(took > 500ms && took < 750ms) << took / 1ms;
    EXPECT_TRUE(contains(log, "[ostrLink::rxData] Frame not complete after 200 ms\n")) << log;
}

TEST_F(Link, SlowReaderGetsAll) {
    ostrelLink::limits.stall = 300ms;
    Bytes answer(600000);
    std::iota(answer.begin(), answer.end(), static_cast<unsigned char>(1));
    Bytes got;
    std::jthread reader([&] {
        while (got.size() < answer.size() + 8) {
            Bytes piece = atPeer(std::min<std::size_t>(6000, answer.size() + 8 - got.size()));
            got.insert(got.end(), piece.begin(), piece.end());
            std::this_thread::sleep_for(15ms);
        }
    });
    EXPECT_TRUE(send(answer));
    reader.join();
    EXPECT_TRUE(std::equal(answer.begin(), answer.end(), got.begin() + 8));
}

}  // namespace
