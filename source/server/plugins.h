// The plug-in host: the set of loaded plug-ins and what they are told.
//
// Main thread only. Plug-ins are called, so anything that a plug-in may do can happen during a call.
#pragma once

#include <vector>

#include "ostrel/plugin.h"

// Loads, orders and initialises the plug-ins of the plug-in directory; reduced: the essential ones only. Ends
// the daemon when there is none or one fails to initialise.
void loadPlugins(int reduced);
// True when a plug-in was added to listOfClients; otherwise the log says why not.
bool loadOnePlugin(const char* fileName, int reduced);
// Orders listOfClients by load priority.
bool sortPlugins();
// Closes and unloads every plug-in, in list order.
void unloadPlugins();

// Has each plug-in that watches one of the changed keys rewrite its configuration, then has each of them
// restart its service. The entries stay their owner's and must outlive the call. Leaves state at
// phase::serving.
int PluginBroadcastChange(std::vector<OstrelValue*> changes);
// Calls trigger for each changed key on a plug-in's trigger list.
void PluginBroadcastTrigger(std::vector<OstrelValue*> changes);
// Compares the restart priorities of two places in listOfClients.
bool RestartSort(int a, int b);
