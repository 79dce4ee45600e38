#include "exec/runner/jobs.h"

#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <ostrel/plugin/command.hpp>
#include <utility>

namespace exec {
namespace {

// Long enough for the requests that one commit with several keys brings, which are then one.
constexpr std::chrono::milliseconds settling{20};
constexpr std::chrono::seconds killDelay{2};

void report(const std::string& rule, const std::string& text) {
    std::fprintf(stderr, "ostrelExecRunner: rule %s: %s\n", rule.c_str(), text.c_str());
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
        std::size_t end = std::min(line.find(' '), line.size());
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
    std::string rule = request.rule;
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
    setenv("OSTREL_RULE", job.request.rule.c_str(), 1);
    try {
        job.process = ostrel::plugin::spawn(job.request.command);
    } catch (const ostrel::plugin::CommandError& error) {
        report(job.request.rule, error.what());
        return;
    }
    job.limit = Clock::now() + job.request.deadline;
    job.isStopped = false;
}

void Jobs::collect() {
    for (auto& [rule, job] : jobs_) {
        siginfo_t ended{};
        if (job.process != 0 &&
            waitid(P_PID, static_cast<id_t>(job.process), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
            ended.si_pid == job.process)
            end(job);
    }
}

// What a command that ended in time left running is its own affair: so a script starts a service.
void Jobs::end(Job& job) {
    // Before the process is waited for: its number, and so its group's, cannot be another's yet.
    if (job.isStopped)
        kill(-job.process, SIGKILL);
    int status = 0;
    waitpid(job.process, &status, 0);
    std::string text = failure(status);
    if (!text.empty() && !job.isStopped)
        report(job.request.rule, job.request.command.front() + ": " + text);
    job.process = 0;
}

void Jobs::enforceDeadlines() {
    for (auto& [rule, job] : jobs_) {
        if (job.process == 0 || Clock::now() < job.limit)
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
    report(job.request.rule, job.request.command.front() + ": " + reason + ", it is stopped");
    kill(-job.process, SIGTERM);
    job.limit = Clock::now() + killDelay;
    job.isStopped = true;
}

void Jobs::startNothingMore() {
    for (auto& [rule, job] : jobs_)
        job.due.reset();
}

void Jobs::stop() {
    for (auto& [rule, job] : jobs_) {
        if (job.process != 0 && !job.isStopped)
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
            next = std::min(next, job.limit);
        else if (job.due)
            next = std::min(next, *job.due);
    }
    return next;
}

}  // namespace exec
