#include "watch/listener.h"

#include <ostrel/watch.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <system_error>
#include <utility>

namespace watch {

namespace {

using ostrel::plugin::Descriptor;

// Readers wait there until something changes. Those that have gone meanwhile take a place, too.
constexpr int mostWaiting = 1024;

[[noreturn]] void fail(int error) {
    throw std::system_error(error, std::generic_category(), OSTREL_WATCH_SOCKET);
}

Descriptor makeSocket() {
    Descriptor made(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!made)
        fail(errno);
    return made;
}

template <typename Call>
bool withAddress(Call call, const Descriptor& socket) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, OSTREL_WATCH_SOCKET, sizeof OSTREL_WATCH_SOCKET);
    return call(socket.get(), reinterpret_cast<const sockaddr*>(&address), socklen_t{sizeof address}) == 0;
}

// A daemon that did not end in an orderly way leaves its socket; nothing but a socket is removed.
bool isLeftOver() {
    struct stat info {};
    return lstat(OSTREL_WATCH_SOCKET, &info) == 0 && S_ISSOCK(info.st_mode) &&
           !withAddress(connect, makeSocket()) && errno == ECONNREFUSED;
}

}  // namespace

Listener::~Listener() {
    if (named_)
        unlink(OSTREL_WATCH_SOCKET);
}

void Listener::open() {
    Descriptor fresh = makeSocket();
    if (!withAddress(bind, fresh)) {
        int error = errno;
        if (error != EADDRINUSE || !isLeftOver())
            fail(error);
        unlink(OSTREL_WATCH_SOCKET);
        if (!withAddress(bind, fresh))
            fail(errno);
    }
    named_ = true;
    // Before anybody can connect, as on the daemon's own socket: everybody may.
    if (chmod(OSTREL_WATCH_SOCKET, 0666) != 0 || listen(fresh.get(), mostWaiting) != 0)
        fail(errno);
    socket_ = std::move(fresh);
}

bool Listener::hasWaiting() const {
    pollfd state{socket_.get(), POLLIN, 0};
    return socket_ && poll(&state, 1, 0) > 0;
}

void Listener::admitTo(Readers& readers) {
    // accept() alone would make a socket each time before it sees that there is nobody. And not without end:
    // somebody may connect as fast as this can accept.
    for (int i = 0; i <= mostWaiting && hasWaiting(); ++i) {
        Descriptor connection(accept4(socket_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!connection) {
            bool failed = errno != EAGAIN;
            if (failed && !hasFailed_)
                ostrel::plugin::logError(std::string("a reader has to wait and misses changes: ") +
                                         std::strerror(errno));
            hasFailed_ = failed;
            return;
        }
        readers.add(std::move(connection));
    }
}

}  // namespace watch
