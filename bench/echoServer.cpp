#include "echoServer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

namespace {

bool readAll(int fd, void* bytes, size_t size) {
    auto* at = static_cast<char*>(bytes);
    while (size > 0) {
        ssize_t count = read(fd, at, size);
        if (count <= 0)
            return false;
        at += count;
        size -= static_cast<size_t>(count);
    }
    return true;
}

void writeAll(int fd, const void* bytes, size_t size) {
    auto* at = static_cast<const char*>(bytes);
    while (size > 0) {
        ssize_t count = write(fd, at, size);
        if (count <= 0)
            return;
        at += count;
        size -= static_cast<size_t>(count);
    }
}

int listenOn(const char* path) {
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string_view(path).copy(address.sun_path, sizeof address.sun_path - 1);
    unlink(path);
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || listen(fd, 4) != 0)
        std::abort();
    return fd;
}

// False when the client has gone.
bool echo(int fd, int file, std::vector<char>& buffer) {
    uint32_t size = 0;
    uint32_t counter = 0;
    if (!readAll(fd, &size, 4) || !readAll(fd, &counter, 4) || size > buffer.size() ||
        !readAll(fd, buffer.data(), size))
        return false;
    uint32_t words[3] = {};
    std::memcpy(words, buffer.data(), size < sizeof words ? size : sizeof words);
    if (words[0] == echoTask::appendAndSync) {
        writeAll(file, buffer.data(), words[2]);
        fdatasync(file);
    }
    writeAll(fd, &words[1], 4);
    writeAll(fd, &counter, 4);
    writeAll(fd, buffer.data(), words[1]);
    return true;
}

}  // namespace

void serveEcho() {
    std::vector<char> buffer(1 << 20);
    int file = open("/vemra/var/bare", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    std::vector<pollfd> waits{{listenOn("/tmp/echo.sock"), POLLIN, 0}};
    for (;;) {
        if (poll(waits.data(), waits.size(), 1000) <= 0)
            continue;
        for (size_t i = waits.size() - 1; i > 0; --i) {
            if (waits[i].revents != 0 && !echo(waits[i].fd, file, buffer)) {
                close(waits[i].fd);
                waits.erase(waits.begin() + static_cast<ptrdiff_t>(i));
            }
        }
        if (waits[0].revents != 0)
            waits.push_back({accept4(waits[0].fd, nullptr, nullptr, SOCK_CLOEXEC), POLLIN, 0});
    }
}
