// Running a program, with a deadline: the daemon serves nobody while an entry waits.
#ifndef OSTREL_PLUGIN_COMMAND_HPP
#define OSTREL_PLUGIN_COMMAND_HPP

#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "ostrel/plugin/file.hpp"
#include "ostrel/plugin/launch.hpp"

#pragma GCC visibility push(hidden)
namespace ostrel::plugin {

// A program that did not do its work. The text begins with its path.
class CommandError : public std::runtime_error {
public:
    CommandError(const std::string& program, const std::string& reason)
        : std::runtime_error(program + ": " + reason) {}
};

// A descriptor that stands for the process, whatever becomes of its number; none when there is no such
// process.
inline Descriptor openProcess(pid_t pid) {
    return Descriptor(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
}

// No failure when the process has ended.
inline void sendSignal(const Descriptor& process, int number) {
    syscall(SYS_pidfd_send_signal, process.get(), number, nullptr, 0);
}

// True when the process has ended before the limit. Signals for the daemon do not cut the wait short.
inline bool waitForEnd(const Descriptor& process, std::chrono::milliseconds limit) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + limit;
    for (;;) {
        auto left = std::max(std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()),
                             std::chrono::milliseconds(0));
        pollfd wait{process.get(), POLLIN, 0};
        // Longer waits do not fit into what poll takes.
        auto piece = std::min<std::chrono::milliseconds>(left, std::chrono::hours(1));
        if (poll(&wait, 1, static_cast<int>(piece.count())) > 0)
            return true;
        if (left.count() == 0)
            return false;
    }
}

// Starts the program (an absolute path, then its arguments; no shell) in a process group of its own. Its
// standard input is the descriptor, which is borrowed, or without one empty; its outputs are the daemon's
// log; it gets no other descriptor. Its soft limit of descriptors is the one that the daemon was started
// with. The caller waits for it. Throws CommandError.
inline pid_t spawn(const std::vector<std::string>& command, int standardInput = -1) {
    std::vector<char*> arguments;
    for (const std::string& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    const pid_t child = detail::launch(arguments.data(), standardInput);
    if (child < 0)
        throw CommandError(command.at(0), std::generic_category().message(errno));
    return child;
}

// Runs the program and returns its exit status. Throws CommandError when it cannot be started, is ended by a
// signal, or has not ended at the deadline; it is then killed with its process group. One that hangs inside
// of the system even so is left to itself 1 s later.
inline int runForStatus(const std::vector<std::string>& command, std::chrono::milliseconds deadline) {
    const pid_t child = spawn(command);
    const Descriptor process = openProcess(child);
    const bool ended = process && waitForEnd(process, deadline);
    if (!ended) {
        kill(-child, SIGKILL);
        // It may have left its group.
        kill(child, SIGKILL);
    }
    if (!process) {
        detail::reap(child);
        throw CommandError(command[0], "cannot be waited for");
    }
    if (!ended && !waitForEnd(process, std::chrono::seconds(1)))
        throw CommandError(command[0], "cannot be stopped");
    const int status = detail::reap(child);
    if (!ended)
        throw CommandError(command[0], "did not end within " + std::to_string(deadline.count()) + " ms");
    if (WIFSIGNALED(status))
        throw CommandError(command[0], "was ended by signal " + std::to_string(WTERMSIG(status)));
    return WEXITSTATUS(status);
}

// The same, for a program whose only good status is 0: any other throws CommandError, too.
inline void run(const std::vector<std::string>& command, std::chrono::milliseconds deadline) {
    const int status = runForStatus(command, deadline);
    if (status != 0)
        throw CommandError(command[0], "exit status " + std::to_string(status));
}

}  // namespace ostrel::plugin
#pragma GCC visibility pop

#endif
