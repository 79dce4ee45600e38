// Plays a scenario with the real host and the real store. It runs inside the room, in the process that the
// plug-in may do anything to.
#pragma once

#include <string>

#include "pluginBench/log.h"
#include "pluginBench/report.h"
#include "pluginBench/scenario.h"

namespace pluginBench {

// Plays the steps from the first one to the end of its life. plugin: its path in the room. Ends the process,
// with status 0 when the next life can follow. The arguments live until then.
[[noreturn]] void play(const Scenario& scenario, size_t first, const std::string& plugin,
                       const Report& report, const Log& log);

}  // namespace pluginBench
