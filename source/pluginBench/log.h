// The log of the process that plays: a file without a name, which outlives the process.
#pragma once

#include <string>

#include "pluginBench/descriptor.h"

namespace pluginBench {

class Log {
public:
    // Throws std::system_error.
    Log();

    // Makes it the standard output and the standard error.
    void take() const;
    // Its length in bytes.
    std::size_t size() const;
    // What came behind the first bytes; all of it when it has been truncated to less.
    std::string since(std::size_t begin) const;
    // Of that, the last error's text; empty when there is none.
    std::string lastError(std::size_t begin) const;

private:
    Descriptor file_;
};

}  // namespace pluginBench
