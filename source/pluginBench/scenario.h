// What a scenario file says: the surroundings of the plug-in, and the steps to play.
#pragma once

#include <chrono>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "text/batch.h"

namespace pluginBench {

// A mistake in the scenario, or surroundings that cannot be made. what() is FILE:LINE: and the reason.
class ScenarioError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// One call of an entry: expected, or seen.
struct Callback {
    std::string entry;
    std::string key{};  // of a trigger
    bool reboot = false;
    bool fails = false;
    bool throws = false;  // seen only
};

// Of an entry whose failure ends the daemon.
bool endsDaemon(const Callback& expected);
// As a scenario writes it.
std::string shown(const Callback& callback);

struct Expectation {
    enum class Kind { callback, nothing, value, noValue, file, noFile, line, run, log };

    Kind kind{};
    size_t number = 0;      // of its line
    std::string text{};     // the whole statement
    std::string subject{};  // path, command, text; a value as the database files have it
    std::string content{};  // of a file; the line to find in it
    Callback callback{};
};

struct BlockLine {
    size_t number = 0;
    std::string text{};
};

struct Change {
    size_t number = 0;  // of its line
    store::BatchLine line{};
};

struct Step {
    enum class Kind { start, commit, stop, file };

    Kind kind{};
    size_t number = 0;
    std::string path{};              // of a file
    std::vector<BlockLine> lines{};  // of a file
    std::vector<Change> changes{};   // of a commit
    std::vector<Expectation> expected{};
};

struct Scenario {
    std::string path{};
    std::vector<BlockLine> defaults{};
    std::vector<BlockLine> templates{};
    bool keyCreateAllowed = false;
    std::vector<std::string> privateFolders{};
    std::chrono::milliseconds deadline{5000};
    std::vector<Step> steps{};

    // The number of steps from the first one on that one process plays, as one daemon would: up to a stop.
    size_t lifeFrom(size_t first) const;
    // FILE:LINE: and the text.
    std::string placed(size_t line, std::string_view text) const;
};

std::string joined(const std::vector<BlockLine>& lines);

// Throws ScenarioError.
Scenario readScenario(const std::string& path);

}  // namespace pluginBench
