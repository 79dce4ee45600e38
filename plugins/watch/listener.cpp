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

// Readers wait there to be admitted. Those that have gone meanwhile take a place, too.
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

Descriptor bindSocket() {
    Descriptor fresh = makeSocket();
    if (withAddress(bind, fresh))
        return fresh;
    const int error = errno;
    if (error != EADDRINUSE || !isLeftOver())
        fail(error);
    unlink(OSTREL_WATCH_SOCKET);
    if (!withAddress(bind, fresh))
        fail(errno);
    return fresh;
}

}  // namespace

Listener::Listener() : socket_(bindSocket()) {
    // Before anybody can connect, as on the daemon's own socket: everybody may.
    if (chmod(OSTREL_WATCH_SOCKET, 0666) == 0 && listen(socket_.get(), mostWaiting) == 0)
        return;
    const int error = errno;
    unlink(OSTREL_WATCH_SOCKET);
    fail(error);
}

Listener::~Listener() { unlink(OSTREL_WATCH_SOCKET); }

Listener::Admission Listener::admitOne(Readers& readers) const {
    // accept() alone would make a socket each time before it sees that there is nobody.
    pollfd state{socket_.get(), POLLIN, 0};
    if (poll(&state, 1, 0) <= 0)
        return Admission::nobody;
    Descriptor connection(accept4(socket_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!connection)
        return errno == EAGAIN ? Admission::nobody : Admission::failed;
    readers.add(std::move(connection));
    return Admission::done;
}

void Listener::admitAll(Readers& readers) {
    // Not without end: somebody may connect as fast as this can accept.
    Admission last = Admission::done;
    for (int i = 0; i <= mostWaiting && last == Admission::done; ++i)
        last = admitOne(readers);
    if (last == Admission::failed && !hasFailed_)
        ostrel::plugin::logError(std::string("a reader has to wait and misses changes: ") +
                                 std::strerror(errno));
    hasFailed_ = last == Admission::failed;
}

}  // namespace watch
