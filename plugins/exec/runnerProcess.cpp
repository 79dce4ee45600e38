#include "exec/runnerProcess.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <ostrel/plugin/command.hpp>
#include <system_error>

namespace exec {

constexpr char program[] = "/vemra/bin/ostrelExecRunner";

bool RunnerProcess::isServing() const {
    pollfd end{socket_.get(), 0, 0};
    return socket_ && poll(&end, 1, 0) == 0;
}

void RunnerProcess::waitForEnded() {
    std::erase_if(processes_, [](pid_t process) { return waitpid(process, nullptr, WNOHANG) != 0; });
}

void RunnerProcess::start() {
    // Of packets: a request is taken whole or not at all.
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0)
        throw std::system_error(errno, std::generic_category(), program);
    socket_ = ostrel::plugin::Descriptor(ends[0]);
    ostrel::plugin::Descriptor theirs(ends[1]);
    processes_.push_back(ostrel::plugin::spawn({program}, theirs.get()));
}

bool RunnerProcess::ask(const Rule& rule) {
    std::string request = rule.name + ' ' + std::to_string(rule.deadline);
    for (const std::string& word : rule.command)
        request += ' ' + word;
    request += '\n';
    return send(socket_.get(), request.data(), request.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0;
}

std::optional<std::string> RunnerProcess::nextRead() {
    std::array<char, longestName> name{};
    ssize_t size = recv(socket_.get(), name.data(), name.size(), MSG_DONTWAIT);
    if (size <= 0)
        return std::nullopt;
    return std::string(name.data(), static_cast<size_t>(size));
}

}  // namespace exec
