// The log of the process that plays: a file without a name, which outlives the process.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "process/descriptor.h"

namespace pluginBench {

// A line of the log. What programs print has a text only.
struct LogLine {
    enum class Level { none, error, notice, other };

    Level level = Level::none;
    std::string module{};
    std::string function{};
    std::string text{};
};

// With its place.
std::string described(const LogLine& line);
// With its level, too.
std::string shown(const LogLine& line);
// text: whole lines as the log has them, with their prefixes.
std::vector<LogLine> parseLog(std::string_view text);

class Log {
public:
    // Throws std::system_error.
    Log();

    // Makes it the standard output and the standard error, of lines with prefixes.
    void take() const;
    // Its length in bytes.
    size_t size() const;
    // What came behind the first bytes, and before the last ones; all of it when it has been truncated to
    // less.
    std::vector<LogLine> lines(size_t begin, size_t end = std::string::npos) const;
    // Of that, the last error's text; empty when there is none.
    std::string lastError(size_t begin) const;

private:
    process::Descriptor file_;
};

}  // namespace pluginBench
