// The commands of the rules. Of one rule one at a time; rules side by side.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "exec/runner/records.h"

namespace exec {

using Clock = std::chrono::steady_clock;

struct Request {
    std::string rule;
    std::chrono::seconds deadline{};
    std::vector<std::string> command;
};

// "RULE SECONDS COMMAND [ARGUMENT...]", one blank between the words; nothing when the line is not that.
std::optional<Request> parseRequest(std::string_view line);

// One thread; nothing waits.
class Jobs {
public:
    // The rule is due. However often it is asked for while its command runs, that runs once more.
    void ask(Request request);
    void startDue();
    // Ends what a killed runner has left running. Only while no other runner runs commands.
    void endWhatIsLeft();
    // Takes note of the commands that have ended.
    void collect();
    void enforceDeadlines();
    // What is due is forgotten.
    void startNothingMore();
    // What runs has reached its deadline.
    void stop();

    bool anyRuns() const;
    // When startDue, collect or enforceDeadlines has work, if no child ends before; the largest time when
    // none has.
    Clock::time_point nextWork() const;

private:
    struct Job {
        Request request;
        std::optional<Clock::time_point> due{};
        pid_t process = 0;  // and its group; 0: does not run
        // While it runs.
        std::string program{};
        pid_t copier = 0;  // of what it prints; 0: none that runs
        Clock::time_point limit{};
        bool hasFailed = false;                    // when it last ended
        bool isStopped = false;                    // SIGTERM is sent, SIGKILL follows at the limit
        std::optional<LeftCommand> left{};         // it is no child
        std::optional<Clock::time_point> ended{};  // what it has printed is not all copied yet
    };

    void start(Job& job);
    static void terminate(Job& job, const std::string& reason);
    static bool hasEnded(const Job& job);
    static void killRest(const Job& job);
    static bool isCopied(Job& job);
    void end(Job& job);

    Records records_{};
    std::map<std::string, Job> jobs_{};  // by rule
    std::vector<pid_t> copiers_{};       // for what ended commands have left running
};

}  // namespace exec
