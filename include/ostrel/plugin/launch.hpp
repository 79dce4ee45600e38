// How a program is started. Not posix_spawn: that cannot give it another limit than the daemon's.
#ifndef OSTREL_PLUGIN_LAUNCH_HPP
#define OSTREL_PLUGIN_LAUNCH_HPP

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "ostrel/plugin/file.hpp"

#pragma GCC visibility push(hidden)
namespace ostrel::plugin::detail {

// The daemon raises its own soft limit of descriptors, and tells in OSTREL_DESCRIPTOR_LIMIT the one that it
// was started with. A program gets that: it may wait with select, or close all that it could have.
inline rlimit descriptorLimit() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const char* text = std::getenv("OSTREL_DESCRIPTOR_LIMIT");
    const rlim_t told = text != nullptr ? std::strtoul(text, nullptr, 10) : 0;
    if (told != 0)
        limit.rlim_cur = std::min<rlim_t>(told, limit.rlim_max);
    return limit;
}

// What a child needs on its way to the program, made before there is one.
struct Launch {
    char* const* arguments;  // the program's path first; null at the end
    int standardInput;       // -1: empty
    int failure;             // a pipe's end, which takes the error when the program cannot be started
    rlimit limit;
};

inline int reap(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

// The kernels that do not know the call have to be told of each.
inline void closeOthersOnExec() {
    if (close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC) == 0)
        return;
    rlimit own{};
    getrlimit(RLIMIT_NOFILE, &own);
    for (int fd = STDERR_FILENO + 1; fd < static_cast<int>(own.rlim_cur); ++fd)
        fcntl(fd, F_SETFD, FD_CLOEXEC);
}

// Not a terminal for the input, which would stop a program that reads from it in a group of its own.
inline bool setStandardInput(int fd) {
    if (fd < 0)
        fd = open("/dev/null", O_RDONLY);
    return fd >= 0 && dup2(fd, STDIN_FILENO) >= 0 && fcntl(STDIN_FILENO, F_SETFD, 0) == 0;
}

// The signals are the daemon's own affair: a program gets the defaults, and a process group that can be
// killed whole. Nor does it get a file or lock of the daemon, which it would hold beyond its end. Runs on the
// daemon's memory, so it only makes system calls.
[[noreturn]] inline void become(const Launch& launch) {
    setpgid(0, 0);
    struct sigaction byDefault {};
    byDefault.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; ++number)
        sigaction(number, &byDefault, nullptr);
    if (setStandardInput(launch.standardInput)) {
        closeOthersOnExec();
        setrlimit(RLIMIT_NOFILE, &launch.limit);
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        execve(launch.arguments[0], launch.arguments, environ);
    }
    int error = errno;
    static_cast<void>(!write(launch.failure, &error, sizeof error));
    _exit(127);
}

// No signal handler may run in the child.
inline pid_t makeChild(const Launch& launch) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    // Unlike fork it needs no second copy of the daemon's memory.
    // NOLINTNEXTLINE(clang-analyzer-security.insecureAPI.vfork)
    const pid_t child = vfork();
    if (child == 0)
        become(launch);  // NOLINT(clang-analyzer-unix.Vfork): it does not return and changes nothing
    const int error = errno;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return child;
}

// The process, or -1 with errno set.
inline pid_t launch(char* const* arguments, int standardInput) {
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0)
        return -1;
    const Descriptor failure(ends[0]);
    Descriptor childs(ends[1]);
    const pid_t child = makeChild({arguments, standardInput, childs.get(), descriptorLimit()});
    if (child < 0)
        return -1;
    childs = Descriptor();
    int error = 0;
    ssize_t size = 0;
    while ((size = read(failure.get(), &error, sizeof error)) < 0 && errno == EINTR) {
    }
    if (size != static_cast<ssize_t>(sizeof error))
        return child;
    reap(child);
    errno = error;
    return -1;
}

}  // namespace ostrel::plugin::detail
#pragma GCC visibility pop

#endif
