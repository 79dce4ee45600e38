// Entries of the bench's own, in front of those of the plug-in: the host calls these.
#pragma once

#include <string>
#include <vector>

#include "pluginBench/report.h"
#include "pluginBench/scenario.h"

class OstrelClientPlugin;

namespace pluginBench {

// What the entries saw in one step.
struct Seen {
    std::vector<Callback> callbacks{};  // of writeConf, restart and trigger, in order
    std::vector<Callback> failures{};   // of the other entries
};

// Has the host call the plug-in's entries through the bench's, which report what they see. The report
// outlives the plug-in.
void watchEntries(OstrelClientPlugin& plugin, const Report& report);

// From here on a new step is seen. fatal: the entry whose failure, which ends the daemon, is expected in it;
// or empty.
void beginSeeing(const std::string& fatal);
Seen endSeeing();

}  // namespace pluginBench
