#include "common/socketPath.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>

#include "common/ostrelUtils.h"
#include "log/linkPlaces.h"

namespace {

constexpr int mostTries = 200;
constexpr unsigned int pause = 10000;  // microseconds

int bindTo(int fd) {
    sockaddr_un address = serverAddress();
    return bind(fd, reinterpret_cast<const sockaddr*>(&address), addressLength);
}

// Beside the path. Nobody can prepare what stands there.
std::string nameAside() {
    uint64_t number = 0;
    // Early in a boot there may be no random numbers yet: the time is another at each try.
    if (getrandom(&number, sizeof number, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof number))
        number = static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
    return std::string(socketPath) + ".aside-" + std::to_string(number);
}

void logAside(const std::string& aside) {
    OSTREL_LOG_AT(logPlace::bindTo, logLevel::error, "[ostrLink] %s cannot be removed: it is now %s",
                  socketPath, aside.c_str());
}

void moveAside() {
    const std::string aside = nameAside();
    if (renameat2(AT_FDCWD, socketPath, AT_FDCWD, aside.c_str(), RENAME_NOREPLACE) == 0)
        logAside(aside);
}

bool bindAsUsual(int fd) {
    for (int tries = 1;; ++tries) {
        if (unlink(socketPath) != 0 && errno != ENOENT)
            moveAside();
        if (bindTo(fd) == 0)
            return true;
        if (errno != EADDRINUSE || tries == mostTries)
            return false;
        usleep(pause);
    }
}

// With a folder as root, so that the socket is in it but has its usual name. False when that is not allowed.
bool bindBelow(int fd, const std::string& folder) {
    const pid_t child = fork();
    if (child == 0)
        _exit(chroot(folder.c_str()) == 0 && bindTo(fd) == 0 ? 0 : 1);
    int status = 1;
    return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

// At one stroke, so that nothing can come between. What stood there is at the socket's former place then.
bool putInPlace(const std::string& socket) {
    for (int tries = 0; tries < mostTries; ++tries) {
        if (renameat2(AT_FDCWD, socket.c_str(), AT_FDCWD, socketPath, RENAME_EXCHANGE) == 0)
            return true;
        if (errno != ENOENT)
            return false;
        if (renameat2(AT_FDCWD, socket.c_str(), AT_FDCWD, socketPath, RENAME_NOREPLACE) == 0)
            return true;
    }
    return false;
}

// Somebody who does nothing else gets to the path first each time. The socket is made in a folder of the
// daemon's own, then exchanged for what stands at the path.
bool bindByExchange(int fd) {
    const std::string folder = nameAside();
    const std::string below = folder + "/tmp";
    const std::string socket = folder + socketPath;
    const bool bound = mkdir(folder.c_str(), 0700) == 0 && mkdir(below.c_str(), 0700) == 0 &&
                       bindBelow(fd, folder) && putInPlace(socket);
    unlink(socket.c_str());
    rmdir(below.c_str());
    if (rmdir(folder.c_str()) != 0 && errno == ENOTEMPTY && bound)
        logAside(socket);
    return bound;
}

}  // namespace

bool bindToPath(int fd) {
    if (bindAsUsual(fd))
        return true;
    const int error = errno;
    if (error == EADDRINUSE && bindByExchange(fd))
        return true;
    errno = error;
    return false;
}
