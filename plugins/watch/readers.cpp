#include "watch/readers.h"

#include <ostrel/watch.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <array>
#include <cerrno>
#include <utility>

namespace watch {

namespace {

using ostrel::plugin::Descriptor;

constexpr size_t mostReaders = 32;
// The kernel takes twice as much for each reader that does not read. A packet costs about 768 bytes of it.
constexpr int wantedRoom = 512 * 1024;
// So that the loss itself can be told when the rest is full.
constexpr int roomForLoss = 4096;

// False: errno says why.
bool sendPacket(const Descriptor& to, ostrelWatchKind kind, uint32_t number, std::string_view name = {}) {
    ostrelWatchHeader header{static_cast<uint32_t>(kind), number};
    std::array<iovec, 2> parts{{{&header, sizeof header}, {const_cast<char*>(name.data()), name.size()}}};
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    return sendmsg(to.get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0;
}

void setRoom(const Descriptor& connection, int room) {
    // Past the system's limit only as root; else as much as there is.
    if (setsockopt(connection.get(), SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof room) != 0)
        setsockopt(connection.get(), SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
}

// The room that can be had, less the one for the loss.
int makeRoom(const Descriptor& connection) {
    setRoom(connection, wantedRoom + roomForLoss);
    int doubled = 0;
    socklen_t size = sizeof doubled;
    getsockopt(connection.get(), SOL_SOCKET, SO_SNDBUF, &doubled, &size);
    const int room = doubled / 2 - roomForLoss;
    setRoom(connection, room);
    return room;
}

}  // namespace

Reader::Reader(Descriptor connection) : connection_(std::move(connection)), room_(makeRoom(connection_)) {}

bool Reader::tell(std::string_view name) {
    ++number_;
    if (sendPacket(connection_, ostrelWatchChanged, number_, name)) {
        isBehind_ = false;
        return true;
    }
    if (errno == EPIPE || errno == ECONNRESET)
        return false;
    if (!std::exchange(isBehind_, true))
        tellLoss();
    return true;
}

// At once: when the reader has caught up, the next change may be long in coming.
void Reader::tellLoss() const {
    setRoom(connection_, room_ + roomForLoss);
    sendPacket(connection_, ostrelWatchLost, number_);
    setRoom(connection_, room_);
}

bool Reader::hasGone() const {
    pollfd state{connection_.get(), 0, 0};
    return poll(&state, 1, 0) > 0;
}

// Nothing is to fail on the thread that admits them.
Readers::Readers() { readers_.reserve(mostReaders); }

void Readers::add(Descriptor connection) {
    std::erase_if(readers_, [](const Reader& reader) { return reader.hasGone(); });
    if (readers_.size() == mostReaders)
        sendPacket(connection, ostrelWatchRefused, 0);
    else
        readers_.emplace_back(std::move(connection));
}

void Readers::tell(std::string_view name) {
    std::erase_if(readers_, [name](Reader& reader) { return !reader.tell(name); });
}

}  // namespace watch
