#include "exec/runner/jobs.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <ostrel/plugin/command.hpp>
#include <utility>

#include "exec/knownLines.h"
#include "exec/runner/launch.h"
#include "exec/runner/output.h"

namespace exec {
namespace {

// Long enough for the requests that one commit with several keys brings, which are then one.
constexpr std::chrono::milliseconds settling{20};
constexpr std::chrono::seconds killDelay{2};
// How long an end waits for what was printed, so that it stands behind that in the log; longer, and another
// process writes to it still.
constexpr std::chrono::seconds copyLimit{1};
// Nobody tells of the end of what is no child.
constexpr std::chrono::milliseconds leftCheck{50};

void report(const std::string& rule, const std::string& text) {
    std::fprintf(stderr, "%s%s: %s\n", knownLine::ofRule, rule.c_str(), text.c_str());
}

// Empty when all is well.
std::string failure(int status) {
    if (WIFSIGNALED(status))
        return "was ended by signal " + std::to_string(WTERMSIG(status));
    return WEXITSTATUS(status) == 0 ? "" : "exit status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

std::optional<Request> parseRequest(std::string_view line) {
    std::vector<std::string> words;
    while (!line.empty()) {
        const size_t end = std::min(line.find(' '), line.size());
        words.emplace_back(line.substr(0, end));
        line.remove_prefix(std::min(end + 1, line.size()));
    }
    if (words.size() < 3)
        return std::nullopt;
    unsigned int seconds = 0;
    const std::string& number = words[1];
    auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), seconds);
    if (error != std::errc() || end != number.data() + number.size())
        return std::nullopt;
    std::string rule = words[0];
    words.erase(words.begin(), words.begin() + 2);
    return Request{std::move(rule), std::chrono::seconds(seconds), std::move(words)};
}

void Jobs::ask(Request request) {
    const std::string rule = request.rule;
    Job& job = jobs_[rule];
    job.request = std::move(request);
    if (!job.due)
        job.due = Clock::now() + settling;
}

void Jobs::startDue() {
    for (auto& [rule, job] : jobs_) {
        if (job.process == 0 && job.due && *job.due <= Clock::now())
            start(job);
    }
}

void Jobs::start(Job& job) {
    job.due.reset();
    const Request& request = job.request;
    job.program = request.command.front();
    setenv("OSTREL_RULE", request.rule.c_str(), 1);
    try {
        const Output output = openOutput(request.rule, job.program);
        job.copier = output.process;
        job.process = launch(request.command, output.end.get(),
                             [&](pid_t process) { records_.write(request.rule, job.program, process); });
    } catch (const ostrel::plugin::CommandError& error) {
        report(request.rule, error.what());
        records_.remove(request.rule);
        job.hasFailed = true;
        end(job);
        return;
    }
    job.limit = Clock::now() + request.deadline;
    job.isStopped = false;
}

void Jobs::endWhatIsLeft() {
    for (LeftCommand& left : records_.leftCommands()) {
        Job& job = jobs_[left.rule];
        job.request.rule = left.rule;
        job.program = left.program;
        job.process = left.leader.process;
        job.left = std::move(left);
        terminate(job, "was left by a runner that was killed");
    }
}

bool Jobs::hasEnded(const Job& job) {
    if (job.left) {
        pollfd state{job.left->process.get(), POLLIN, 0};
        return poll(&state, 1, 0) > 0;
    }
    siginfo_t ended{};
    return waitid(P_PID, static_cast<id_t>(job.process), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           ended.si_pid == job.process;
}

// Before a child is waited for: its number, and so its group's, cannot be another's yet. That of a process
// which is no child can, if nobody of its group is left.
void Jobs::killRest(const Job& job) {
    if (!job.left || !isAnothers(job.left->leader))
        kill(-job.process, SIGKILL);
}

bool Jobs::isCopied(Job& job) {
    if (job.copier != 0 && waitpid(job.copier, nullptr, WNOHANG) != 0)
        job.copier = 0;
    return job.copier == 0;
}

void Jobs::collect() {
    std::erase_if(copiers_, [](pid_t copier) { return waitpid(copier, nullptr, WNOHANG) != 0; });
    for (auto& [rule, job] : jobs_) {
        if (job.process == 0)
            continue;
        if (!job.ended && hasEnded(job)) {
            job.ended = Clock::now();
            records_.remove(rule);
            // What a command that ended in time left running is its own affair: so a script starts a service.
            if (job.isStopped)
                killRest(job);
        }
        if (job.ended && (isCopied(job) || Clock::now() >= *job.ended + copyLimit))
            end(job);
    }
}

void Jobs::end(Job& job) {
    if (job.process != 0 && !job.left) {
        int status = 0;
        waitpid(job.process, &status, 0);
        const std::string text = failure(status);
        if (!text.empty() && !job.isStopped)
            report(job.request.rule, job.program + ": " + text);
        if (std::exchange(job.hasFailed, job.isStopped || !text.empty()) && !job.hasFailed)
            report(job.request.rule, job.program + ": " + knownLine::succeededAgain);
    }
    if (job.copier != 0)
        copiers_.push_back(job.copier);
    job.copier = 0;
    job.process = 0;
    job.left.reset();
    job.ended.reset();
}

void Jobs::enforceDeadlines() {
    for (auto& [rule, job] : jobs_) {
        if (job.process == 0 || job.ended || Clock::now() < job.limit)
            continue;
        if (!job.isStopped) {
            terminate(job, "did not end within " + std::to_string(job.request.deadline.count()) + " s");
        } else {
            kill(-job.process, SIGKILL);
            // Comes at once, unless the process hangs inside of the system.
            job.limit = Clock::now() + killDelay;
        }
    }
}

void Jobs::terminate(Job& job, const std::string& reason) {
    report(job.request.rule, job.program + ": " + reason + ", it is stopped");
    kill(-job.process, SIGTERM);
    job.limit = Clock::now() + killDelay;
    job.isStopped = true;
    job.hasFailed = true;
}

void Jobs::startNothingMore() {
    for (auto& [rule, job] : jobs_)
        job.due.reset();
}

void Jobs::stop() {
    for (auto& [rule, job] : jobs_) {
        if (job.process != 0 && !job.ended && !job.isStopped)
            terminate(job, "the runner is told to end");
    }
}

bool Jobs::anyRuns() const {
    return std::ranges::any_of(jobs_, [](const auto& entry) { return entry.second.process != 0; });
}

Clock::time_point Jobs::nextWork() const {
    Clock::time_point next = Clock::time_point::max();
    for (const auto& [rule, job] : jobs_) {
        if (job.process != 0)
            next = std::min(next, job.ended ? *job.ended + copyLimit : job.limit);
        if (job.left)
            next = std::min(next, Clock::now() + leftCheck);
        if (job.process == 0 && job.due)
            next = std::min(next, *job.due);
    }
    return next;
}

}  // namespace exec
