// What all plug-ins are told of changed keys.
//
// Main thread only. Plug-ins are called, so anything that a plug-in may do can happen during a call.
#pragma once

#include <vector>

#include "ostrel/plugin.h"

// Has each plug-in that watches one of the changed keys rewrite its configuration, then has each of them
// restart its service. The entries stay their owner's and must outlive the call. Leaves state at
// phase::serving.
int PluginBroadcastChange(std::vector<OstrelValue*> changes);
// Calls trigger for each changed key on a plug-in's trigger list.
void PluginBroadcastTrigger(std::vector<OstrelValue*> changes);
// Compares the restart priorities of two places in listOfClients.
bool RestartSort(int a, int b);
