// Runs a scenario in a child process and watches it from outside: what crashes, hangs or ends there is named.
#pragma once

#include <string>

#include "pluginBench/scenario.h"

namespace pluginBench {

// verbose: the log is printed even when all is well. Returns the exit status: 0 all well, 1 the plug-in
// failed, 2 the scenario cannot be played. Throws std::system_error when no process can be made.
int watch(const Scenario& scenario, const std::string& plugin, bool verbose);

}  // namespace pluginBench
