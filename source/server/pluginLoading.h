// The set of loaded plug-ins, listOfClients: how they come and go.
//
// Main thread only. Plug-ins are called, so anything that a plug-in may do can happen during a call.
#pragma once

// Loads, orders and initialises the plug-ins of the plug-in folder; reduced: the essential ones only. Ends
// the daemon when there is none or one fails to initialise.
void loadPlugins(int reduced);
// True when a plug-in was added to listOfClients; otherwise the log says why not.
bool loadOnePlugin(const char* fileName, int reduced);
// Orders listOfClients by load priority.
bool sortPlugins();
// Closes and unloads every plug-in, in list order.
void unloadPlugins();
