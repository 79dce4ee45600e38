#include "subject.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <vector>

#include "common/marshalling.h"
#include "echoServer.h"
#include "text/fixedPaths.h"

namespace {

int connectTo(const char* path) {
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string_view(path).copy(address.sun_path, sizeof address.sun_path - 1);
    socklen_t length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + std::strlen(path));
    // The bare server's path was bound with its NULs, which its address then holds.
    if (path == echoPath)
        length = sizeof address;
    while (connect(fd, reinterpret_cast<sockaddr*>(&address), length) != 0)
        usleep(500);
    return fd;
}

[[noreturn]] void fail(const char* what) {
    std::perror(what);
    std::exit(1);
}

std::string list(uint32_t code) {
    ParametersBuilder builder(code);
    return {reinterpret_cast<const char*>(builder.bytes().data()), builder.bytes().size()};
}

std::string word(uint32_t number) { return {reinterpret_cast<const char*>(&number), sizeof number}; }

}  // namespace

Process::~Process() {
    if (pid_ == 0)
        return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
}

Process startEcho() {
    pid_t pid = fork();
    if (pid == 0)
        serveEcho();
    Connection(echoPath).ask(echoRequest(echoTask::reply, 4, 12));
    return Process(pid);
}

void writeDefaults(int keys) {
    std::filesystem::remove(livePath);
    std::ofstream defaults(defaultsPath);
    for (int i = 0; i < keys; ++i)
        defaults << keyName(i) << " Dword " << i << '\n';
}

Process launchServer() {
    std::filesystem::remove(socketPath);
    pid_t pid = fork();
    if (pid == 0) {
        execl("/vemra/bin/ostrelServer", "ostrelServer", "-d", "-l", "/tmp/log", nullptr);
        fail("/vemra/bin/ostrelServer");
    }
    Connection(socketPath).ask(readRequest(0, 1));
    return Process(pid);
}

Process startServer(int keys) {
    writeDefaults(keys);
    return launchServer();
}

std::string keyName(int number) {
    char name[32];
    std::snprintf(name, sizeof name, "net.if.%07d", number);
    return name;
}

Connection::Connection(const char* path) : fd_(connectTo(path)), reply_(1 << 20, '\0') {}

Connection::~Connection() { close(fd_); }

void Connection::send(const std::string& payload) const {
    auto size = static_cast<uint32_t>(payload.size());
    uint32_t counter = 0;
    if (write(fd_, &size, 4) != 4 || write(fd_, &counter, 4) != 4 ||
        write(fd_, payload.data(), payload.size()) != static_cast<ssize_t>(payload.size()))
        fail("write");
}

void Connection::sendTogether(const std::vector<std::string>& payloads) const {
    std::string frames;
    for (const std::string& payload : payloads)
        frames += word(static_cast<uint32_t>(payload.size())) + word(0) + payload;
    if (write(fd_, frames.data(), frames.size()) != static_cast<ssize_t>(frames.size()))
        fail("write");
}

uint32_t Connection::receive() {
    uint32_t size = 0;
    uint32_t counter = 0;
    if (recv(fd_, &size, 4, MSG_WAITALL) != 4 || recv(fd_, &counter, 4, MSG_WAITALL) != 4 ||
        recv(fd_, reply_.data(), size, MSG_WAITALL) != static_cast<ssize_t>(size))
        fail("read");
    return size;
}

std::string readRequest(int firstKey, int count) {
    ParametersBuilder builder(20);
    for (int i = firstKey; i < firstKey + count; ++i)
        builder.add({.name = keyName(i), .value = {}, .tpltName = {}});
    return {reinterpret_cast<const char*>(builder.bytes().data()), builder.bytes().size()};
}

std::string echoRequest(unsigned int task, uint32_t replySize, size_t requestSize, uint32_t append) {
    std::string request = word(task) + word(replySize) + word(append);
    request.resize(std::max(request.size(), requestSize));
    return request;
}

void commitMany(Connection& connection, int firstKey, int count, uint32_t value) {
    constexpr int keysOfMessage = 50;
    std::vector<std::string> payloads{list(29)};
    for (int first = firstKey; first < firstKey + count; first += keysOfMessage) {
        ParametersBuilder changes(6);
        for (int i = first; i < std::min(firstKey + count, first + keysOfMessage); ++i)
            changes.add({.name = keyName(i),
                         .value = {reinterpret_cast<const unsigned char*>(&value), sizeof value},
                         .type = ostrelTypeDword,
                         .tpltName = {}});
        payloads.emplace_back(reinterpret_cast<const char*>(changes.bytes().data()), changes.bytes().size());
    }
    payloads.insert(payloads.end(), {list(30), list(20)});
    connection.sendTogether(payloads);
    connection.receive();
}

void commitOne(Connection& connection, int key, uint32_t value) { commitMany(connection, key, 1, value); }

size_t privateMemory(pid_t pid) {
    std::ifstream maps("/proc/" + std::to_string(pid) + "/smaps_rollup");
    size_t total = 0;
    for (std::string line; std::getline(maps, line);) {
        size_t kibibytes = 0;
        if (std::sscanf(line.c_str(), "Private_Dirty: %zu kB", &kibibytes) == 1)
            total += kibibytes * 1024;
    }
    return total;
}
