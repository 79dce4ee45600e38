#include "common/ostrelLink.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <utility>

#include "common/linkModule.h"
#include "common/ostrelUtils.h"
#include "common/socketPath.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int backlog = 4;
constexpr unsigned int counterEnd = 0xFF00;

// The kernel tells a sender that its peer reads only when a whole buffer of the socket has been read, so long
// payloads go out in pieces small enough that a slow reader is seen to read.
constexpr size_t longestPiece = size_t{16} * 1024;
constexpr milliseconds sendRetry{100};
constexpr milliseconds stopCheck{1000};
// A client that writes a frame in parts is mostly about to write the next one. So long the receive itself
// waits, which saves the one that fails and the poll behind it; no client gains more than two such waits a
// frame.
constexpr timeval partWait{.tv_sec = 0, .tv_usec = 20000};

// Owns a socket until it is taken over by a link.
class Socket {
public:
    Socket() : Socket(socket(AF_UNIX, SOCK_STREAM, 0)) {}
    explicit Socket(int fd) : fd_(fd) {}
    ~Socket() {
        if (fd_ >= 0)
            close(fd_);
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    int fd() const { return fd_; }
    int release() { return std::exchange(fd_, -1); }
    void replace(int fd) {
        if (fd_ >= 0)
            close(fd_);
        fd_ = fd;
    }

private:
    int fd_;
};

// False, with errno set, when there is no client, or not yet a number for the one that client holds then.
bool acceptInto(Socket& client, int listening) {
    const std::lock_guard guard(ostrelLink::accepting);
    if (client.fd() < 0) {
        sockaddr_un peer{};
        socklen_t peerLength = sizeof peer;
        // Close-on-exec from the start: the main thread may be starting a program at this very moment.
        client.replace(accept4(listening, reinterpret_cast<sockaddr*>(&peer), &peerLength, SOCK_CLOEXEC));
    }
    if (client.fd() < 0 || client.fd() >= ostrelLink::limits.firstAccepted)
        return client.fd() >= 0;
    const int moved = fcntl(client.fd(), F_DUPFD_CLOEXEC, ostrelLink::limits.firstAccepted);
    if (moved < 0)
        return false;
    client.replace(moved);
    return true;
}

bool stopRequested() {
    return ostrelLink::limits.stopRequested != nullptr && ostrelLink::limits.stopRequested->load() != 0;
}

milliseconds untilLimit(Clock::time_point since, Clock::time_point now) {
    return std::chrono::ceil<milliseconds>(since + ostrelLink::limits.stall - now);
}

}  // namespace

// What is known of the frame that is being received. The time limit runs from the first wait after its first
// byte: a frame that is there whole costs no look at the clock.
struct ostrelLink::Frame {
    bool limited = true;     // by limits.stall
    bool mustBegin = false;  // its first byte must be there already
    bool begun = false;
    std::optional<Clock::time_point> waitingSince{};
};

// What is known of the frame that is being sent. As above, it costs no look at the clock while it is taken.
struct ostrelLink::Outgoing {
    uint64_t taken = 0;                               // bytes
    std::optional<Clock::time_point> firstWait{};     // the first of all
    std::optional<Clock::time_point> waitingSince{};  // the first since bytes were taken

    // By limits.sendRate.
    bool isTooSlow(Clock::time_point now) const {
        const auto late = -untilLimit(*firstWait, now).count();
        constexpr uint64_t perSecond = 1000;
        return late > 0 && taken * perSecond < static_cast<uint64_t>(late) * limits.sendRate;
    }
};

LinkLimits ostrelLink::limits;
std::mutex ostrelLink::accepting;

ostrelLink::ostrelLink(int takenFd) : fd(takenFd) {}

ostrelLink::~ostrelLink() {
    if (fd != -1) {
        close(fd);
        fd = -1;
    }
    OSTREL_LOG(logLevel::debug, "[ostrLink] Destroyed ostrLink");
}

bool ostrelLink::bindTo(unsigned int port) {
    OSTREL_LOG_AT(logPlace::bindTo, logLevel::debug, "[ostrLink] binding on port %d", static_cast<int>(port));
    Socket listening;
    if (listening.fd() < 0) {
        OSTREL_LOG_AT(logPlace::bindTo, logLevel::error, "error: socket(): %d", errno);
        return false;
    }
    if (!bindToPath(listening.fd())) {
        OSTREL_LOG_AT(logPlace::bindTo, logLevel::error, "error: bind(): %d:%s", errno, socketPath);
        return false;
    }
    ostrelExecute("chmod 777 %s", socketPath);
    if (listen(listening.fd(), backlog) != 0) {
        OSTREL_LOG_AT(logPlace::bindTo, logLevel::error, "error: listen(): %d", errno);
        return false;
    }
    _SetCloseOnExec(listening.fd());
    fd = listening.release();
    return true;
}

int ostrelLink::getNewConnection() {
    Socket client(-1);
    for (;;) {
        if (acceptInto(client, fd)) {
            OSTREL_LOG(logLevel::debug, "[osrLink:accept] got new incoming connection, fd=%d", client.fd());
            return client.release();
        }
        if (stopRequested())
            return -1;
        OSTREL_LOG(logLevel::error, "[ostrLink::getNewConnection] Error: %d", errno);
        usleep(500000);
    }
}

bool ostrelLink::connectTo(unsigned int) {
    OSTREL_LOG(logLevel::debug, "[ostrLink] connecting");
    Socket connecting;
    if (connecting.fd() < 0) {
        OSTREL_LOG(logLevel::error, "error: socket(): %d", errno);
        return false;
    }
    sockaddr_un address = serverAddress();
    if (connect(connecting.fd(), reinterpret_cast<const sockaddr*>(&address), addressLength) != 0) {
        OSTREL_LOG(logLevel::error, "error: connect(): %d", errno);
        return false;
    }
    _SetCloseOnExec(connecting.fd());
    fd = connecting.release();
    OSTREL_LOG(logLevel::debug, "[ostrLink] connected");
    return true;
}

bool ostrelLink::sendData(unsigned int nbBytes, unsigned char* bytes) {
    Outgoing frame;
    return send(nbBytes, bytes, frame);
}

bool ostrelLink::send(unsigned int nbBytes, const void* bytes, Outgoing& frame) {
    if (fd == -1) {
        OSTREL_LOG_AT(logPlace::sendData, logLevel::error, "[ostrLink::SendData] No socket opened");
        return false;
    }
    const auto* next = static_cast<const unsigned char*>(bytes);
    size_t left = nbBytes;
    while (left > 0) {
        const ssize_t sent = ::send(fd, next, std::min(left, longestPiece), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent >= 0) {
            left -= static_cast<size_t>(sent);
            next += sent;
            frame.taken += static_cast<size_t>(sent);
            frame.waitingSince.reset();
        } else if (errno != EAGAIN) {
            sending_ = errno == EPIPE || errno == ECONNRESET ? Sending::peerGone : Sending::givenUp;
            OSTREL_LOG_AT(logPlace::sendData, logLevel::error, "[ostrLink::sendData] SendData Error :%%w");
            return false;
        } else if (!waitWritable(frame)) {
            sending_ = Sending::givenUp;
            return false;
        }
    }
    return true;
}

// True when it is worth trying to send again.
bool ostrelLink::waitWritable(Outgoing& frame) {
    if (stopRequested()) {
        OSTREL_LOG_AT(logPlace::sendData, logLevel::debug,
                      "[ostrLink::sendData] Stopped while the peer does not read");
        return false;
    }
    if (limits.stall.count() != 0 || limits.sendRate != 0) {
        const Clock::time_point now = Clock::now();
        if (!frame.waitingSince)
            frame.waitingSince = now;
        if (!frame.firstWait)
            frame.firstWait = now;
        if (limits.stall.count() != 0 && untilLimit(*frame.waitingSince, now).count() <= 0) {
            OSTREL_LOG_AT(logPlace::sendData, logLevel::error,
                          "[ostrLink::sendData] Peer has taken nothing for %d ms",
                          static_cast<int>(limits.stall.count()));
            return false;
        }
        if (frame.isTooSlow(now)) {
            OSTREL_LOG_AT(logPlace::sendData, logLevel::error,
                          "[ostrLink::sendData] Peer takes less than %u bytes per second", limits.sendRate);
            return false;
        }
    }
    // The wait is short because the socket takes data long before poll calls it writable.
    pollfd wait{fd, POLLOUT, 0};
    poll(&wait, 1, static_cast<int>(sendRetry.count()));
    return true;
}

bool ostrelLink::receiveData(unsigned int nbBytes, unsigned char* bytes) {
    Frame frame{.limited = false};
    return receive(nbBytes, bytes, frame);
}

bool ostrelLink::receive(unsigned int nbBytes, unsigned char* bytes, Frame& frame) {
    if (fd == -1) {
        OSTREL_LOG_AT(logPlace::receiveData, logLevel::error, "[ostrLink::rxData] No socket opened");
        return false;
    }
    size_t left = nbBytes;
    int flags = frame.limited && frame.begun && waitsInReceive() ? 0 : MSG_DONTWAIT;
    while (left > 0) {
        const ssize_t received = recv(fd, bytes, left, flags);
        flags = MSG_DONTWAIT;
        if (received > 0) {
            left -= static_cast<size_t>(received);
            bytes += received;
            frame.begun = true;
        } else if (received == 0 || (errno != EAGAIN && errno != EINTR) || !waitReadable(frame)) {
            OSTREL_LOG_AT(logPlace::receiveData, logLevel::debug,
                          "[ostrLink::rxData] Rx Error or socket closed");
            return false;
        }
    }
    return true;
}

bool ostrelLink::waitsInReceive() {
    if (!waitsInReceive_)
        waitsInReceive_ = setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &partWait, sizeof partWait) == 0;
    return waitsInReceive_;
}

// True when it is worth trying to receive again.
bool ostrelLink::waitReadable(Frame& frame) {
    if (frame.mustBegin && !frame.begun)
        return false;
    milliseconds timeout = stopCheck;
    if (frame.limited && frame.begun && limits.stall.count() != 0) {
        if (!frame.waitingSince)
            frame.waitingSince = Clock::now();
        timeout = std::min(timeout, untilLimit(*frame.waitingSince, Clock::now()));
        if (timeout.count() <= 0) {
            OSTREL_LOG_AT(logPlace::receiveData, logLevel::error,
                          "[ostrLink::rxData] Frame not complete after %d ms",
                          static_cast<int>(limits.stall.count()));
            return false;
        }
    }
    if (stopRequested())
        return false;
    pollfd wait{fd, POLLIN | POLLPRI, 0};
    poll(&wait, 1, static_cast<int>(timeout.count()));
    // Urgent data makes the socket readable without a byte to read: waiting on would spin.
    if ((wait.revents & POLLPRI) != 0) {
        OSTREL_LOG_AT(logPlace::receiveData, logLevel::error, "[ostrLink::rxData] Urgent data");
        return false;
    }
    return true;
}

bool ostrelLink::write32(unsigned int word) {
    return sendData(sizeof word, reinterpret_cast<unsigned char*>(&word));
}

bool ostrelLink::read32(unsigned int* word) {
    return receiveData(sizeof *word, reinterpret_cast<unsigned char*>(word));
}

bool ostrelLink::sendMessage(unsigned int nbBytes, unsigned char* bytes) {
    Outgoing frame;
    if (!send(sizeof nbBytes, &nbBytes, frame)) {
        OSTREL_LOG(logLevel::debug, "write32(nbBytes) failed");
        return false;
    }
    if (!send(sizeof ostrCounter, &ostrCounter, frame)) {
        OSTREL_LOG(logLevel::debug, "write32(ostrCounter) failed");
        return false;
    }
    ostrCounter = ostrCounter + 1 < counterEnd ? ostrCounter + 1 : 0;
    if (!send(nbBytes, bytes, frame)) {
        OSTREL_LOG(logLevel::debug, "sendData(nbBytes,bytes) failed");
        return false;
    }
    return true;
}

bool ostrelLink::receiveMessage(unsigned int bufferSize, unsigned int* payloadSize, unsigned char* buffer) {
    Frame frame{};
    return receiveFrame(bufferSize, payloadSize, buffer, frame);
}

bool ostrelLink::receiveReadyMessage(unsigned int bufferSize, unsigned int* payloadSize,
                                     unsigned char* buffer) {
    Frame frame{.mustBegin = true};
    return receiveFrame(bufferSize, payloadSize, buffer, frame);
}

bool ostrelLink::receiveFrame(unsigned int bufferSize, unsigned int* payloadSize, unsigned char* buffer,
                              Frame& frame) {
    unsigned int size = 0;
    if (!receive(sizeof size, reinterpret_cast<unsigned char*>(&size), frame)) {
        OSTREL_LOG_AT(logPlace::receiveMessage, logLevel::debug, "read32(&payloadSize) failed");
        return false;
    }
    unsigned int count = 0;
    if (!receive(sizeof count, reinterpret_cast<unsigned char*>(&count), frame)) {
        OSTREL_LOG_AT(logPlace::receiveMessage, logLevel::debug, "read32(&count) failed");
        return false;
    }
    if (size > bufferSize) {
        OSTREL_LOG_AT(logPlace::receiveMessage, logLevel::error, "[receive] Buffer too small %d vs %d",
                      static_cast<int>(size), static_cast<int>(bufferSize));
        return false;
    }
    *payloadSize = size;
    return receive(size, buffer, frame);
}

bool _SetCloseOnExec(int fd) {
    const int flags = fcntl(fd, F_GETFD);
    if (flags == -1) {
        OSTREL_LOG(logLevel::error, "error: fcntl(F_GETFD)");
        return false;
    }
    if (fcntl(fd, F_SETFD, flags | FD_CLOEXEC) == -1) {
        OSTREL_LOG(logLevel::error, "error: fcntl(F_SETFD)");
        return false;
    }
    return true;
}
