#include "ctl/changeSource.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "ctl/commandFailure.h"
#include "ostrel/watch.h"
#include "process/daemonUser.h"
#include "process/localAddress.h"

ChangeSource::ChangeSource() : fd_(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    const sockaddr_un address = process::localAddress(OSTREL_WATCH_SOCKET);
    if (!fd_ || connect(fd_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::system_error(errno, std::generic_category(), OSTREL_WATCH_SOCKET);
    if (const auto reason = process::distrustPeer(fd_.get(), OSTREL_WATCH_SOCKET, process::namedUser()))
        throw Failure(OSTREL_FAILED, *reason);
}

std::optional<ChangeSource::News> ChangeSource::next() {
    std::array<char, OSTREL_WATCH_PACKET_SIZE> packet;
    ostrelWatchHeader header{};
    for (;;) {
        const ssize_t size = recv(fd_.get(), packet.data(), packet.size(), 0);
        if (size < 0 && errno == EAGAIN)
            return std::nullopt;
        if (size < static_cast<ssize_t>(sizeof header))
            throw Failure(OSTREL_GONE, "the daemon has ended");
        std::memcpy(&header, packet.data(), sizeof header);
        switch (header.kind) {
            case ostrelWatchChanged:
                return News{.name = {packet.data() + sizeof header, packet.data() + size},
                            .lost = header.number - std::exchange(number_, header.number) - 1};
            case ostrelWatchLost:
                return News{.isLosing = true};
            case ostrelWatchRefused:
                throw Failure(OSTREL_REFUSED, "too many others watch already");
            default:
                break;
        }
    }
}

void ChangeSource::wait() const {
    std::array<pollfd, 2> waits{{{fd_.get(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}}};
    while (poll(waits.data(), waits.size(), -1) < 0 && errno == EINTR) {
    }
    // Else a reader of the output that has gone would be noticed at the next change only.
    if (waits[1].revents != 0)
        throw Failure(OSTREL_FAILED, "cannot write the result");
}
