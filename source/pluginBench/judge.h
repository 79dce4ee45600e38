// Compares a step that has been played with what the scenario expects of it.
#pragma once

#include <optional>
#include <string>

#include "pluginBench/entries.h"
#include "pluginBench/log.h"
#include "pluginBench/report.h"
#include "pluginBench/scenario.h"

namespace pluginBench {

class Judge {
public:
    // logBegin: where the step's log begins. The arguments outlive the judge.
    Judge(const Scenario& scenario, const Report& report, const Log& log, size_t logBegin)
        : scenario_(scenario), report_(report), log_(log), logBegin_(logBegin) {}

    // What is not as expected is told as a fault.
    void judge(const Step& step, const Seen& seen) const;

private:
    void judgeCallbacks(const Step& step, const std::vector<Callback>& callbacks) const;
    void judgeFailures(const Step& step, const Seen& seen) const;
    void observe(const Expectation& expectation) const;
    // Why it does not hold (now), if it does not.
    std::optional<std::string> problemOf(const Expectation& expectation) const;
    std::optional<std::string> problemOfRun(const std::string& command) const;

    const Scenario& scenario_;
    const Report& report_;
    const Log& log_;
    const size_t logBegin_;
};

}  // namespace pluginBench
