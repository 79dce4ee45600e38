#include "server/pluginBroadcasts.h"

#include <algorithm>

#include "common/logText.h"
#include "common/ostrelUtils.h"
#include "log/serverLines.h"
#include "server/changedNames.h"
#include "server/globals.h"
#include "server/logFile.h"
#include "server/pluginRecord.h"
#include "server/pluginsModule.h"

namespace {

OstrelClientPlugin& pluginAt(int place) { return *listOfClients[static_cast<size_t>(place)]; }

// The places of the plug-ins that watch a changed key, in restart order.
std::vector<int> selectPlugins(const std::vector<OstrelValue*>& changes) {
    const ChangedNames names(changes);
    std::vector<int> selection;
    for (int place = 0; place < static_cast<int>(listOfClients.size()); ++place) {
        const OstrelClientPlugin& plugin = pluginAt(place);
        if (names.anyMatches(plugin.nbWatchedValues, plugin.watchedValues))
            selection.push_back(place);
    }
    std::stable_sort(selection.begin(), selection.end(), RestartSort);
    return selection;
}

bool isTraced() { return (logLevel::debug & printMask) != 0; }

// True when a plug-in asked for a reboot.
bool restartAll(const std::vector<int>& selection) {
    bool rebootWanted = false;
    for (const int place : selection) {
        OstrelClientPlugin& plugin = pluginAt(place);
        bool reboot = false;
        if (!plugin.restart(&reboot))
            OSTREL_LOG_AT(logPlace::changeBroadcast, logLevel::error, knownLine::restartFailed,
                          printable(plugin.moduleName));
        rebootWanted = rebootWanted || reboot;
    }
    return rebootWanted;
}

}  // namespace

bool RestartSort(int a, int b) { return pluginAt(a).restartPriority < pluginAt(b).restartPriority; }

// Both work on a copy: what plug-ins do meanwhile may add to the caller's list.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
int PluginBroadcastChange(std::vector<OstrelValue*> changes) {
    const std::vector<int> selection = selectPlugins(changes);
    state = phase::writingConf;
    for (const int place : selection) {
        OstrelClientPlugin& plugin = pluginAt(place);
        if (!plugin.writeConf())
            OSTREL_LOG_AT(logPlace::changeBroadcast, logLevel::error, knownLine::writeConfFailed,
                          printable(plugin.moduleName));
    }
    if (!selection.empty()) {
        state = phase::restarting;
        if (restartAll(selection))
            OSTREL_LOG_AT(logPlace::changeBroadcast, logLevel::notice, "[OstrelServer] REBOOT REQUIRED");
    }
    state = phase::serving;
    return 1;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param)
void PluginBroadcastTrigger(std::vector<OstrelValue*> changes) {
    const ChangedNames names(changes);
    for (OstrelClientPlugin* plugin : listOfClients) {
        if (plugin->nbTriggers == 0)
            continue;
        const std::vector<bool> isMatched = names.matches(plugin->nbTriggers, plugin->triggerList);
        for (size_t place = 0; place < changes.size(); ++place) {
            const char* key = changes[place]->name;
            if (isMatched[place] || isTraced())
                boundLog();
            plugin->traceSearch(key);
            if (!isMatched[place])
                continue;
            OSTREL_LOG(logLevel::debug, "[OstrelServer] Trigger %s works for module %s, invoking callback",
                       LogText(key).text(), printable(plugin->moduleName));
            plugin->trigger(key);
        }
    }
}
