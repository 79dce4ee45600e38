// The log, step by step, and the errors in it that the scenario does not expect.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pluginBench/log.h"
#include "pluginBench/scenario.h"

namespace pluginBench {

class Review {
public:
    // The arguments outlive it.
    Review(const Scenario& scenario, const Log& log) : scenario_(scenario), log_(log) {}

    // What event::step tells: the step's place among the scenario's, which the end of the last life has none
    // of, the length of the log, and the step's title.
    void begin(const std::string& told);
    // At the end. faults: those that were found otherwise, which need not be told twice. Returns the number
    // of lines that fail.
    int judge(const std::vector<std::string>& faults);
    // Each line once, below its step; without all of it only the end, and the lines that fail.
    void print(bool all) const;

private:
    struct Part {
        size_t step;
        size_t logBegin;
        std::string title;
        std::vector<LogLine> lines{};
        std::vector<std::optional<std::string>> failures{};  // of each line why it fails, if it does
    };

    std::optional<std::string> failureOf(const Part& part, const LogLine& line,
                                         const std::vector<std::string>& faults) const;

    const Scenario& scenario_;
    const Log& log_;
    std::vector<Part> parts_{};
};

}  // namespace pluginBench
