// What a peer sends, in pieces, and what the receiver makes of it. The first byte is the least size of the
// pieces and how it is received, the rest is the stream.
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <thread>
#include <vector>

#include "common/marshalling.h"
#include "common/ostrelLink.h"
#include "fuzz.h"

namespace {

constexpr unsigned int room = 4096;
constexpr size_t headSize = 8;
constexpr size_t mostPieces = 64;  // the socket's buffer takes so many without a reader

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    int fds[2] = {-1, -1};
    require(socketpair(AF_UNIX, SOCK_STREAM, 0, fds) == 0, "there is a socket pair");
    ostrelLink link(fds[0]);
    ostrelLink peer(fds[1]);
    const std::jthread sender([&] {
        const size_t piece = data[0] / 2 + size / mostPieces + 1;
        for (size_t at = 1; at < size; at += piece)
            send(peer.fd, data + at, std::min(piece, size - at), MSG_NOSIGNAL);
        shutdown(peer.fd, SHUT_WR);
    });
    const auto receive = data[0] % 2 != 0 ? &ostrelLink::receiveMessage : &ostrelLink::receiveReadyMessage;
    for (size_t at = 1;;) {
        const size_t left = size - at;
        const size_t length = left < headSize ? 0 : readWord(data + at);
        const bool isWhole = left >= headSize && length <= room && length <= left - headSize;
        std::vector<unsigned char> buffer(room);
        unsigned int received = 0;
        pollfd wait{link.fd, POLLIN, 0};
        poll(&wait, 1, -1);  // what is ready has begun
        require((link.*receive)(room, &received, buffer.data()) == isWhole,
                "whole frames are received, and no others");
        const auto end = buffer.begin() + static_cast<ptrdiff_t>(length <= room ? length : 0);
        require(std::count(end, buffer.end(), 0) == buffer.end() - end, "only a payload is written");
        if (!isWhole)
            return 0;
        at += headSize;
        require(received == length && std::equal(buffer.begin(), end, data + at),
                "the payload is what was framed");
        at += length;
    }
}
