#include "common/ostrelLink.h"

#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <numeric>
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
        link = std::make_unique<ostrelLink>(fds[0]);
        peer = fds[1];
    }
    ~Link() override {
        ostrelLink::limits = {};
        closePeer();
    }
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    void closePeer() {
        if (peer != -1)
            close(std::exchange(peer, -1));
    }
    void fromPeer(const Bytes& bytes) const {
        EXPECT_EQ(write(peer, bytes.data(), bytes.size()), ssize_t(bytes.size()));
    }
    Bytes atPeer(std::size_t wanted) const {
        Bytes bytes(wanted);
        bytes.resize(
            static_cast<std::size_t>(std::max<ssize_t>(0, recv(peer, bytes.data(), wanted, MSG_WAITALL))));
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

    std::unique_ptr<ostrelLink> link;
    int peer = -1;
    Bytes buffer;
    unsigned int size = 0;
    bool received = false;
    std::string log;
};

const Bytes threeByteFrame = {3, 0, 0, 0, 9, 9, 9, 9, 'a', 'b', 'c'};

TEST_F(Link, FramesCarryACounterThatWraps) {
    EXPECT_TRUE(send({}));
    EXPECT_EQ(atPeer(8), Bytes(8, 0));
    link->ostrCounter = 65279;
    EXPECT_TRUE(send({'x'}));
    EXPECT_EQ(atPeer(9), Bytes({1, 0, 0, 0, 0xFF, 0xFE, 0, 0, 'x'}));
    EXPECT_EQ(link->ostrCounter, 0U);
}

TEST_F(Link, ReceivesUpToTheBufferAndNoFurther) {
    fromPeer(threeByteFrame);
    ASSERT_TRUE(receive(3));
    EXPECT_EQ(buffer, Bytes({'a', 'b', 'c'}));
    fromPeer({0, 0, 0, 0, 1, 0, 0, 0});
    ASSERT_TRUE(receive(3));
    EXPECT_EQ(size, 0U);
    fromPeer(threeByteFrame);
    EXPECT_FALSE(receive(2));
    EXPECT_TRUE(contains(log, "[receive] Buffer too small 3 vs 2\n"));
    EXPECT_EQ(buffer, Bytes(2, 0));
}

TEST_F(Link, PeerThatClosesInsideAFrameIsAFailure) {
    fromPeer({3, 0, 0, 0, 0, 0, 0, 0, 'a'});
    closePeer();
    EXPECT_FALSE(receive(8));
    EXPECT_EQ(log, "[ostrLink::rxData] Rx Error or socket closed\n");
    EXPECT_FALSE(receive(8));
    EXPECT_TRUE(contains(log, "read32(&payloadSize) failed\n"));
    EXPECT_FALSE(send({'x'}));
    EXPECT_TRUE(contains(log, "[ostrLink::sendData] SendData Error :%w\n"));
    EXPECT_FALSE(link->usable());
}

TEST_F(Link, WithoutASocketEverythingFails) {
    ostrelLink none;
    unsigned char byte = 0;
    EXPECT_TRUE(contains(outputOf([&] { EXPECT_FALSE(none.sendData(0, &byte)); }),
                         "[ostrLink::SendData] No socket opened"));
    EXPECT_TRUE(contains(outputOf([&] { EXPECT_FALSE(none.receiveData(0, &byte)); }),
                         "[ostrLink::rxData] No socket opened"));
}

TEST_F(Link, FrameThatDoesNotGoOnIsGivenUp) {
    ostrelLink::limits.stall = 100ms;
    std::jthread late([this] {
        std::this_thread::sleep_for(300ms);
        fromPeer({3, 0, 0, 0, 9, 9, 9, 9, 'a'});
    });
    EXPECT_FALSE(receive(8));
    EXPECT_TRUE(contains(log, "[ostrLink::rxData] Frame not complete after 100 ms\n")) << log;
    EXPECT_EQ(size, 3U) << "a silent peer is waited for, only a begun frame is not";
}

TEST_F(Link, DribblingDoesNotExtendTheLimit) {
    ostrelLink::limits.stall = 200ms;
    std::jthread dribble([this](const std::stop_token& stop) {
        for (int i = 0; i < 60 && !stop.stop_requested(); ++i) {
            fromPeer({0});
            std::this_thread::sleep_for(60ms);
        }
    });
    auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(receive(4096));
    EXPECT_LT(std::chrono::steady_clock::now() - start, 400ms);
}

TEST_F(Link, SlowReaderGetsAllAndAStoppedOneIsGivenUp) {
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
    EXPECT_FALSE(send(answer));
    EXPECT_TRUE(contains(log, "[ostrLink::sendData] Peer has taken nothing for 300 ms\n")) << log;
    EXPECT_FALSE(link->usable());
}

TEST_F(Link, UrgentByteIsNoMessage) {
    ASSERT_EQ(::send(peer, "!", 1, MSG_OOB), 1);
    buffer.resize(8);
    EXPECT_FALSE(link->receiveReadyMessage(8, &size, buffer.data()));
}

TEST_F(Link, StopRequestEndsAWait) {
    std::atomic<int> stop{1};
    ostrelLink::limits.stopRequested = &stop;
    EXPECT_FALSE(receive(8));
}

TEST(CloseOnExec, ReportsABadDescriptor) {
    EXPECT_TRUE(contains(outputOf([] { EXPECT_FALSE(_SetCloseOnExec(-1)); }), "error: fcntl(F_GETFD)"));
}

}  // namespace
