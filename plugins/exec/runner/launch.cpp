#include "exec/runner/launch.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <ostrel/plugin/command.hpp>
#include <system_error>

namespace exec {
namespace {

using ostrel::plugin::CommandError;
using ostrel::plugin::Descriptor;

[[noreturn]] void fail(const std::string& program, int error) {
    throw CommandError(program, std::generic_category().message(error));
}

void takeDefaultSignals() {
    for (int number = 1; number < NSIG; ++number)
        signal(number, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

// The new process. The other end of the socket says when to go on, and learns of a failure.
[[noreturn]] void become(char* const* arguments, int outputs, int parent) {
    char go = 0;
    setpgid(0, 0);
    takeDefaultSignals();
    const int input = open("/dev/null", O_RDONLY);
    // The others are closed when the command begins, the socket among them.
    if (input >= 0 && dup2(input, STDIN_FILENO) >= 0 && dup2(outputs, STDOUT_FILENO) >= 0 &&
        dup2(outputs, STDERR_FILENO) >= 0 && close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC) == 0) {
        if (recv(parent, &go, sizeof go, 0) <= 0)
            _exit(0);
        execv(arguments[0], arguments);
    }
    int error = errno;
    send(parent, &error, sizeof error, MSG_NOSIGNAL);
    _exit(127);
}

// 0 when the command has begun, else why not.
int letGo(const Descriptor& child) {
    send(child.get(), "", 1, MSG_NOSIGNAL);
    int error = 0;
    ssize_t size = 0;
    while ((size = recv(child.get(), &error, sizeof error, 0)) < 0 && errno == EINTR) {
    }
    return size == static_cast<ssize_t>(sizeof error) ? error : 0;
}

}  // namespace

pid_t launch(const std::vector<std::string>& command, int outputs,
             const std::function<void(pid_t)>& beforeItRuns) {
    std::vector<char*> arguments;
    for (const std::string& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
        fail(command[0], errno);
    Descriptor ours(ends[0]);
    Descriptor theirs(ends[1]);
    const pid_t child = fork();
    if (child < 0)
        fail(command[0], errno);
    if (child == 0) {
        // Else it would not see that the caller has gone.
        ours = Descriptor();
        become(arguments.data(), outputs, theirs.get());
    }
    theirs = Descriptor();
    beforeItRuns(child);
    if (const int error = letGo(ours); error != 0) {
        ostrel::plugin::detail::reap(child);
        fail(command[0], error);
    }
    return child;
}

}  // namespace exec
