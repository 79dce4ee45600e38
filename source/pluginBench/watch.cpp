#include "pluginBench/watch.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "pluginBench/judge.h"
#include "pluginBench/log.h"
#include "pluginBench/player.h"
#include "pluginBench/report.h"
#include "pluginBench/review.h"
#include "pluginBench/room.h"

namespace pluginBench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int allWell = 0;
constexpr int failed = 1;
constexpr int unplayable = 2;

// The status of the daemon that an entry's failure ends.
constexpr int endedDaemon = 255;

// What the end of the process says when all has been played.
constexpr char endOfProcess[] = "exit";
constexpr std::chrono::milliseconds leastForEnd{5000};

// The process that waits is the first one of the room: those that lost their parent are its children, too.
// Returns what wait(2) tells.
int waitForPlayer(pid_t player, const Report& report) {
    int status = 0;
    pid_t child = 0;
    do {
        child = wait(&status);
    } while (child != player && (child > 0 || errno == EINTR));
    if (WIFSIGNALED(status))
        report.tell(event::killed, std::to_string(WTERMSIG(status)));
    else
        report.tell(event::exited, std::to_string(WEXITSTATUS(status)));
    return status;
}

// The process that played the last step has ended as the daemon does when an entry fails: what else the step
// is expected to do is looked at from outside.
void judgeEnded(const Step& step, const Judge& judge) {
    Seen seen;
    for (const Expectation& expectation : step.expected) {
        if (endsDaemon(expectation.callback))
            seen.failures.push_back(expectation.callback);
    }
    if (!seen.failures.empty())
        judge.judge(step, seen);
}

// Each life of the daemon is a process of its own: a plug-in that is loaded again is to find nothing of its
// past.
void playLives(const Scenario& scenario, const std::string& plugin, const Report& report, const Log& log) {
    for (size_t first = 0; first < scenario.steps.size(); first += scenario.lifeFrom(first)) {
        const size_t logBegin = log.size();
        const pid_t player = fork();
        if (player == 0)
            play(scenario, first, plugin, report, log);
        if (player < 0)
            throw std::system_error(errno, std::generic_category(), "fork");
        const int status = waitForPlayer(player, report);
        if (WIFEXITED(status) && WEXITSTATUS(status) == endedDaemon)
            judgeEnded(scenario.steps.back(), Judge(scenario, report, log, logBegin));
        if (status != 0)
            return;
    }
}

// Neither returns nor runs anything at its end: what it has inherited is not its own.
[[noreturn]] void runRoom(const Room& room, const Scenario& scenario, const std::string& plugin,
                          int reportEnd, const Log& log) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    // As the daemon. What signals its process group is not to reach beyond the room.
    setsid();
    // A crash is an answer: it is not to leave a core file.
    constexpr rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    const Report report(reportEnd);
    try {
        playLives(scenario, room.enter(scenario, plugin), report, log);
        report.tell(event::over, "");
    } catch (const std::exception& exception) {
        report.tell(event::unusable, exception.what());
    }
    _exit(0);
}

class Watcher {
public:
    Watcher(const Scenario& scenario, const Log& log)
        : scenario_(scenario), log_(log), review_(scenario, log) {}

    // Takes what comes from the pipe until the process has ended, or must be ended.
    void follow(int pipe);
    int verdict(bool verbose);

private:
    // False: nothing more is to be waited for.
    bool take(char event, const std::string& text);
    bool takeEnd(char event, const std::string& text);
    void fault(const std::string& text);
    std::chrono::milliseconds limit() const;
    int millisecondsLeft() const;

    const Scenario& scenario_;
    const Log& log_;
    std::string running_;  // what may hang; empty: nothing of the plug-in
    Clock::time_point since_;
    std::optional<int> doneStatus_;
    Review review_;
    std::vector<std::string> faults_{};
    bool unplayable_ = false;
};

void Watcher::fault(const std::string& text) {
    faults_.push_back(text);
    std::printf("FAILED: %s\n", text.c_str());
}

// The end of the process is no entry, and takes its time when a sanitizer looks for leaks.
std::chrono::milliseconds Watcher::limit() const {
    return running_ == endOfProcess ? std::max(scenario_.deadline, leastForEnd) : scenario_.deadline;
}

int Watcher::millisecondsLeft() const {
    if (running_.empty())
        return -1;
    auto left = std::chrono::ceil<std::chrono::milliseconds>(since_ + limit() - Clock::now());
    return static_cast<int>(std::max<int64_t>(left.count(), 0));
}

bool Watcher::takeEnd(char event, const std::string& text) {
    const int number = std::atoi(text.c_str());
    if (event == event::exited && doneStatus_ == number) {
        doneStatus_.reset();
        running_.clear();
        return true;
    }
    const std::string where = running_.empty() ? "outside of its entries" : "in " + running_;
    // The server ends the process itself there.
    const std::string writeError = log_.lastError(0);
    if (event == event::killed) {
        const char* name = sigabbrev_np(number);
        fault("died of " + (name != nullptr ? std::string("SIG") + name : "signal " + text) + ' ' + where);
    } else if (writeError.find("in its writing state") != std::string::npos) {
        fault("changes the database " + where + ": the daemon ends");
    } else {
        fault("ended the process with status " + text + ' ' + where);
    }
    return false;
}

bool Watcher::take(char event, const std::string& text) {
    switch (event) {
        case event::print:
            std::puts(text.c_str());
            return true;
        case event::step:
            review_.begin(text);
            return true;
        case event::begin:
            running_ = text;
            since_ = Clock::now();
            return true;
        case event::end:
            running_.clear();
            return true;
        case event::fault:
            fault(text);
            return true;
        case event::done:
            doneStatus_ = std::atoi(text.c_str());
            return take(event::begin, endOfProcess);
        case event::unusable:
            unplayable_ = true;
            std::fprintf(stderr, "ostrelPluginBench: %s\n", text.c_str());
            return false;
        case event::over:
            return false;
        default:
            return takeEnd(event, text);
    }
}

void Watcher::follow(int pipe) {
    std::string text;
    std::array<char, 4096> piece{};
    for (;;) {
        pollfd wait{pipe, POLLIN, 0};
        const int ready = poll(&wait, 1, millisecondsLeft());
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready == 0)
            return fault(running_ + " has not come back within " + std::to_string(limit().count()) + " ms");
        const ssize_t size = read(pipe, piece.data(), piece.size());
        if (size <= 0)
            return fault("the room has ended");
        text.append(piece.data(), static_cast<size_t>(size));
        for (size_t end = 0; (end = text.find('\n')) != std::string::npos; text.erase(0, end + 1)) {
            if (!take(text.front(), text.substr(1, end - 1)))
                return;
        }
    }
}

int Watcher::verdict(bool verbose) {
    const int faults = review_.judge(faults_) + static_cast<int>(faults_.size());
    if (verbose || faults != 0)
        review_.print(verbose);
    if (unplayable_)
        return unplayable;
    if (faults == 0)
        std::puts("passed");
    else
        std::printf("failed: %d fault%s\n", faults, faults == 1 ? "" : "s");
    return faults == 0 ? allWell : failed;
}

}  // namespace

int watch(const Scenario& scenario, const std::string& plugin, bool verbose) {
    const Log log;
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        throw std::system_error(errno, std::generic_category(), "pipe");
    const process::Descriptor reading(ends[0]);
    process::Descriptor writing(ends[1]);
    const Room room;
    std::fflush(stdout);
    const pid_t first = room.fork();
    if (first == 0)
        runRoom(room, scenario, plugin, writing.get(), log);
    writing.reset();
    Watcher watcher(scenario, log);
    watcher.follow(reading.get());
    // With the first process all of the namespace ends.
    kill(first, SIGKILL);
    waitpid(first, nullptr, 0);
    return watcher.verdict(verbose);
}

}  // namespace pluginBench
