#include "client/connection.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "client/callFailure.h"
#include "common/messageCodes.h"
#include "process/daemonUser.h"
#include "process/localAddress.h"
#include "text/fixedPaths.h"

namespace client {
namespace {

constexpr uint32_t counterEnd = 0xFF00;
constexpr size_t frameHead = 8;
constexpr size_t codeSize = 4;
// Far above what any request can bring: up to 193 values of 4096 bytes.
constexpr uint32_t longestAnswer = uint32_t{1} << 24U;

std::string systemError(const std::string& what) { return what + ": " + std::strerror(errno); }

Failure busy(const Deadline& deadline) {
    return {OSTREL_BUSY, "no answer within " + std::to_string(deadline.timeout().count()) +
                             " ms: the daemon serves another client's write sequence, or a plug-in works"};
}

Failure nonsense() { return {OSTREL_FAILED, "the daemon's answer makes no sense"}; }

Failure connectFailure(const Deadline& deadline) {
    switch (errno) {
        case ENOENT:
            return {OSTREL_NOT_RUNNING, std::string("the daemon is not running: there is no ") + socketPath};
        case ECONNREFUSED:
            return {OSTREL_STALE_SOCKET,
                    std::string("the daemon is not running: nobody serves ") + socketPath};
        case EAGAIN:
        case EINTR:
            return busy(deadline);
        default:
            return {OSTREL_FAILED, systemError(std::string("cannot connect to ") + socketPath)};
    }
}

void appendWord(std::string& bytes, uint32_t word) {
    std::array<char, sizeof word> raw{};
    std::memcpy(raw.data(), &word, raw.size());
    bytes.append(raw.data(), raw.size());
}

}  // namespace

bool DaemonIdentity::operator==(const DaemonIdentity& other) const {
    return process == other.process && device == other.device && inode == other.inode &&
           made.tv_sec == other.made.tv_sec && made.tv_nsec == other.made.tv_nsec;
}

Connection::Connection(const std::string& name, const std::string& daemonUser, const Deadline& deadline)
    : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    if (!fd_)
        throw Failure(OSTREL_FAILED, systemError("cannot make a socket"));
    connectSocket(deadline);
    identify(daemonUser);
    std::string payload;
    appendWord(payload, messageCode::connect);
    appendWord(payload, static_cast<uint32_t>(name.size()));
    payload += name;
    queue({reinterpret_cast<const unsigned char*>(payload.data()), payload.size()});
}

void Connection::connectSocket(const Deadline& deadline) {
    const sockaddr_un address = process::localAddress(socketPath);
    int result = 0;
    do {
        // A connect without blocking fails at once when the queue is full; this way the system waits.
        auto left = std::max(deadline.remaining(), Deadline::Milliseconds(1));
        auto seconds = std::chrono::floor<std::chrono::seconds>(left);
        timeval timeout{.tv_sec = seconds.count(),
                        .tv_usec = std::chrono::microseconds(left - seconds).count()};
        setsockopt(fd_.get(), SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
        result = connect(fd_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    } while (result != 0 && errno == EINTR && !deadline.isOver());
    if (result != 0)
        throw connectFailure(deadline);
}

void Connection::identify(const std::string& daemonUser) {
    if (std::optional<std::string> reason =
            process::distrustPeer(fd_.get(), socketPath, process::namedUser(daemonUser)))
        throw Failure(OSTREL_FAILED, *reason);
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(fd_.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0)
        daemon_.process = peer.pid;
    struct stat status {};
    if (stat(socketPath, &status) == 0) {
        daemon_.device = status.st_dev;
        daemon_.inode = status.st_ino;
        daemon_.made = status.st_mtim;
    }
}

void Connection::queue(std::span<const unsigned char> payload) {
    appendWord(outgoing_, static_cast<uint32_t>(payload.size()));
    appendWord(outgoing_, counter_);
    outgoing_.append(reinterpret_cast<const char*>(payload.data()), payload.size());
    counter_ = (counter_ + 1) % counterEnd;
}

void Connection::flush(const Deadline& deadline, const std::function<void()>& whenSent) {
    while (!isAllSent()) {
        if (closed_ || broken_)
            throw ConnectionLost();
        const size_t before = sent_;
        waitAndMove(deadline);
        if (whenSent && sent_ != before)
            whenSent();
    }
}

Answer Connection::receive(const Deadline& deadline) {
    Answer answer;
    while (!takeFrame(answer)) {
        if (closed_)
            throw ConnectionLost();
        waitAndMove(deadline);
    }
    return answer;
}

void Connection::confirm(const Deadline& deadline) {
    queue(messageCode::read);
    if (receive(deadline).code != messageCode::readAnswer)
        throw nonsense();
}

void Connection::waitAndMove(const Deadline& deadline) {
    const bool sending = !isAllSent() && !broken_;
    if (sending) {
        send();
        if (isAllSent())
            return;
    }
    pollfd waited{.fd = fd_.get(), .events = POLLIN, .revents = 0};
    if (sending && !broken_)
        waited.events |= POLLOUT;
    if (deadline.isOver())
        throw busy(deadline);
    constexpr Deadline::Milliseconds longestWait = std::chrono::minutes(1);
    if (poll(&waited, 1, static_cast<int>(std::min(deadline.remaining(), longestWait).count())) < 0 &&
        errno != EINTR)
        throw Failure(OSTREL_FAILED, systemError("cannot wait for the daemon"));
    if ((waited.revents & ~POLLOUT) != 0)
        receiveSome();
}

void Connection::send() {
    const ssize_t size = ::send(fd_.get(), outgoing_.data() + outgoingAt_, outgoing_.size() - outgoingAt_,
                                MSG_DONTWAIT | MSG_NOSIGNAL);
    if (size >= 0) {
        outgoingAt_ += static_cast<size_t>(size);
        sent_ += static_cast<size_t>(size);
    } else if (errno == EPIPE || errno == ECONNRESET) {
        // What the daemon sent before it closed can still be received.
        broken_ = true;
    } else if (errno != EAGAIN && errno != EINTR) {
        throw Failure(OSTREL_FAILED, systemError("cannot send to the daemon"));
    }
    if (isAllSent()) {
        outgoing_.clear();
        outgoingAt_ = 0;
    }
}

void Connection::receiveSome() {
    std::array<unsigned char, size_t{1} << 16U> room;
    const ssize_t size = recv(fd_.get(), room.data(), room.size(), MSG_DONTWAIT);
    if (size > 0) {
        incoming_.insert(incoming_.end(), room.begin(), room.begin() + size);
    } else if (size == 0 || errno == ECONNRESET) {
        closed_ = true;
    } else if (errno != EAGAIN && errno != EINTR) {
        throw Failure(OSTREL_FAILED, systemError("cannot receive from the daemon"));
    }
}

bool Connection::takeFrame(Answer& answer) {
    const size_t left = incoming_.size() - incomingAt_;
    if (left < frameHead)
        return false;
    const uint32_t size = readWord(incoming_.data() + incomingAt_);
    if (size < codeSize || size > longestAnswer)
        throw nonsense();
    if (left < frameHead + size)
        return false;
    auto begin = incoming_.begin() + static_cast<ptrdiff_t>(incomingAt_ + frameHead);
    answer.bytes.assign(begin, begin + size);
    incomingAt_ += frameHead + size;
    if (incomingAt_ == incoming_.size()) {
        incoming_.clear();
        incomingAt_ = 0;
    }
    answer.code = readWord(answer.bytes.data());
    auto entries = parseParameters(std::span<const unsigned char>(answer.bytes).subspan(codeSize));
    if (!entries)
        throw nonsense();
    answer.entries = *std::move(entries);
    return true;
}

}  // namespace client
