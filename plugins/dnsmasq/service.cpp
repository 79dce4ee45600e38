#include "dnsmasq/service.h"

#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <stdexcept>
#include <string>
#include <system_error>

// glibc 2.36 forgets that C++ reads this header too.
extern "C" {
#include <sys/pidfd.h>
}

#include "dnsmasq/files.h"
#include "dnsmasq/paths.h"

namespace dnsmasq {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

// The daemon serves nobody meanwhile.
constexpr seconds stopLimit{2};
constexpr seconds killLimit{1};
constexpr seconds startLimit{2};

const std::string configurationOption = std::string("--conf-file=") + configurationFile;

// process: a pidfd. True when it has ended before the limit.
bool waitForEnd(const Descriptor& process, milliseconds limit) {
    Clock::time_point end = Clock::now() + limit;
    for (;;) {
        milliseconds left = std::max(std::chrono::ceil<milliseconds>(end - Clock::now()), milliseconds(0));
        pollfd wait{process.get(), POLLIN, 0};
        int ready = poll(&wait, 1, static_cast<int>(left.count()));
        if (ready > 0)
            return true;
        // A signal for the daemon ends a poll early.
        if (left.count() == 0)
            return false;
    }
}

// A pidfd of the running service; none when it does not run. A pid file can be left over and its number be
// another process's by now: only the command line tells.
Descriptor findService() {
    std::string text = readFile(pidFile);
    pid_t pid = 0;
    std::from_chars(text.data(), text.data() + text.size(), pid);
    Descriptor process(pid > 0 ? pidfd_open(pid, 0) : -1);
    if (!process)
        return process;
    std::string commandLine = readFile("/proc/" + std::to_string(pid) + "/cmdline");
    bool ours = commandLine.find(configurationOption) != std::string::npos;
    // Read from the very process only if that still runs now.
    return ours && !waitForEnd(process, milliseconds(0)) ? std::move(process) : Descriptor();
}

void stopService() {
    Descriptor process = findService();
    if (!process)
        return;
    pidfd_send_signal(process.get(), SIGTERM, nullptr, 0);
    if (waitForEnd(process, stopLimit))
        return;
    pidfd_send_signal(process.get(), SIGKILL, nullptr, 0);
    if (!waitForEnd(process, killLimit))
        throw std::runtime_error("the running dnsmasq cannot be stopped");
}

// Signal state of the new program: the daemon's is its own.
class SpawnAttributes {
public:
    SpawnAttributes() {
        posix_spawnattr_init(&attributes_);
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnAttributes() { posix_spawnattr_destroy(&attributes_); }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;

    const posix_spawnattr_t* get() const { return &attributes_; }

private:
    posix_spawnattr_t attributes_{};
};

pid_t spawnProgram() {
    std::string name = "dnsmasq";
    std::string option = configurationOption;
    char* arguments[] = {name.data(), option.data(), nullptr};
    char* environment[] = {nullptr};
    pid_t child = 0;
    int error = posix_spawn(&child, programFile, nullptr, SpawnAttributes().get(), arguments, environment);
    if (error != 0)
        throw std::system_error(error, std::generic_category(), programFile);
    return child;
}

// The child goes into the background when it serves; its status then tells that it does.
void startService() {
    pid_t child = spawnProgram();
    Descriptor process(pidfd_open(child, 0));
    bool ended = process && waitForEnd(process, startLimit);
    if (!ended)
        kill(child, SIGKILL);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (!ended)
        throw std::runtime_error("dnsmasq does not start in time");
    if (status != 0)
        throw std::runtime_error("dnsmasq does not start, exit status " +
                                 std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -1));
}

}  // namespace

void markStale() { removeFile(currentFile); }

bool isCurrent() { return fileExists(currentFile) && findService(); }

void restartService() {
    markStale();
    stopService();
    startService();
    replaceFile(currentFile, "");
}

}  // namespace dnsmasq
