#include "server/commitBroadcasts.h"

#include "server/globals.h"
#include "server/pluginBroadcasts.h"

// In both, each broadcast gets the entries as they are when it starts: the first may add to them.

void broadcastClientsChanges() {
    PluginBroadcastChange(listOfChangedStuff);
    PluginBroadcastTrigger(listOfChangedStuff);
    destroyRecords(listOfChangedStuff);
}

void broadcastReplayedChanges() {
    PluginBroadcastTrigger(listOfChangedStuff);
    PluginBroadcastChange(listOfChangedStuff);
    destroyRecords(listOfChangedStuff);
}
