#include "process/childProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>

#include "process/descriptor.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr size_t longestOutput = size_t{64} * 1024;
constexpr milliseconds endCheck{2};

// What a child writes to one of its descriptors.
class Stream {
public:
    // False: errno tells why.
    bool open() {
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0)
            return false;
        read_ = process::Descriptor(ends[0]);
        write_ = process::Descriptor(ends[1]);
        fcntl(ends[0], F_SETFL, O_NONBLOCK);
        return true;
    }

    int childsEnd() const { return write_.get(); }
    void closeChildsEnd() { write_.reset(); }
    // Of no file when its end has come: poll passes over that.
    pollfd wait() const { return {read_.get(), POLLIN, 0}; }

    // Takes what is there: a pipe holds no more than one piece.
    void take(std::string& text) {
        if (!read_)
            return;
        std::array<char, longestOutput> piece{};
        ssize_t size = read(read_.get(), piece.data(), piece.size());
        if (size > 0)
            text.append(piece.data(), std::min(longestOutput - text.size(), static_cast<size_t>(size)));
        else if (size == 0 || (errno != EAGAIN && errno != EINTR))
            read_.reset();
    }

private:
    process::Descriptor read_{};
    process::Descriptor write_{};
};

class Spawning {
public:
    Spawning(int output, int errors) {
        posix_spawn_file_actions_init(&actions_);
        posix_spawnattr_init(&attributes_);
        // A group of its own: what it starts ends with it. SIGPIPE is ignored here, not there.
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF);
        sigset_t defaults;
        sigemptyset(&defaults);
        sigaddset(&defaults, SIGPIPE);
        posix_spawnattr_setsigdefault(&attributes_, &defaults);
        posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions_, errors, STDERR_FILENO);
    }
    ~Spawning() {
        posix_spawnattr_destroy(&attributes_);
        posix_spawn_file_actions_destroy(&actions_);
    }
    Spawning(const Spawning&) = delete;
    Spawning& operator=(const Spawning&) = delete;

    // 0, or the error.
    int spawn(pid_t& child, std::vector<std::string>& command) const {
        std::vector<char*> arguments;
        for (std::string& word : command)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        return posix_spawn(&child, arguments.front(), &actions_, &attributes_, arguments.data(), environ);
    }

private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

// A started child. Not waited for before its group is killed: until then its number is nobody else's.
class Child {
public:
    explicit Child(pid_t process) : process_(process) {}
    ~Child() {
        kill(-process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // How it ended, once it has.
    std::optional<siginfo_t> ended() const {
        siginfo_t info{};
        if (waitid(P_PID, static_cast<id_t>(process_), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
            info.si_pid == 0)
            return std::nullopt;
        return info;
    }

private:
    pid_t process_;
};

// How it ended; nothing when the limit came first. Not the end of its output is waited for: a process that it
// left behind may hold that open.
std::optional<siginfo_t> follow(const Child& child, Stream& output, Stream& errors, Clock::time_point limit,
                                ChildResult& result) {
    while (Clock::now() < limit) {
        std::optional<siginfo_t> end = child.ended();
        output.take(result.output);
        errors.take(result.errors);
        if (end)
            return end;
        std::array<pollfd, 2> waits{output.wait(), errors.wait()};
        poll(waits.data(), waits.size(), static_cast<int>(endCheck.count()));
    }
    return std::nullopt;
}

}  // namespace

ChildResult runChild(std::vector<std::string> command, milliseconds limit) {
    ChildResult result;
    Stream output;
    Stream errors;
    if (!output.open() || !errors.open()) {
        result.error = std::strerror(errno);
        return result;
    }
    pid_t process = 0;
    if (int error = Spawning(output.childsEnd(), errors.childsEnd()).spawn(process, command)) {
        result.error = std::strerror(error);
        return result;
    }
    Child child(process);
    output.closeChildsEnd();
    errors.closeChildsEnd();
    std::optional<siginfo_t> end = follow(child, output, errors, Clock::now() + limit, result);
    result.end = ChildResult::End::timedOut;
    if (end) {
        result.end = end->si_code == CLD_EXITED ? ChildResult::End::exited : ChildResult::End::killed;
        result.number = end->si_status;
    }
    return result;
}
