// What a command prints, on its way to the daemon's log: through a process of its own, which outlives the
// runner, as what the command leaves running does.
#pragma once

#include <sys/types.h>

#include <ostrel/plugin/file.hpp>
#include <string>

namespace exec {

// The first argument for a runner that is such a process; rule and command follow.
constexpr char outputOption[] = "--output";

struct Output {
    // What the command writes to.
    ostrel::plugin::Descriptor end{};
    // To be waited for; ends when nobody can write any more. 0: none.
    pid_t process = 0;
};
// Throws CommandError.
Output openOutput(const std::string& rule, const std::string& program);

// The work of the process: copies standard input to the log, as far as one run may fill it, and reads and
// drops the rest.
void copyOutput(const std::string& rule, const std::string& program);

}  // namespace exec
