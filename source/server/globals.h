// The server's process-wide state, and how its two threads share it.
//
// The main thread does everything: it waits, serves requests, calls the database and the plug-ins. The
// listener thread only accepts clients and appends them to listOfConnection. bllLock, the one lock, orders
// the two: that list and the names of its entries are read and changed with it held, and the main thread
// holds it for the whole of a read request or write sequence, plug-in calls included. It is not recursive:
// popMessage, removeCnx and shutdownServer take it themselves and are called without it. All else is the main
// thread's alone, except the flags that signal handlers set. Plug-ins run on the main thread, under the lock
// when a client's commit called them; the functions that they call take no lock.
//
// The listener is never joined. Before static objects go down, at any exit, stopListener makes it leave: it
// has then touched its last global, or waits for a lock that nobody gives back. Shutdown: plug-ins unloaded
// (they may still write), listener stopped, connections removed, database deleted, exit.
#pragma once

#include <pthread.h>

#include <atomic>
#include <vector>

#include "common/ostrelLink.h"
#include "db/ostrelDb.h"
#include "ostrel/plugin.h"

class OstrelClientPlugin;
struct ostrelConnection;

// The phases that the in-process writes depend on.
namespace phase {
constexpr int loading = 0;
constexpr int idle = 1;
constexpr int serving = 2;
constexpr int writingConf = 3;
constexpr int restarting = 4;
}  // namespace phase

extern int state;                            // set by start-up, main loop, change broadcast; read by writes
extern std::atomic<int> quitRequested;       // set by Signal_Quit; read by main loop and waiting links
extern std::atomic<int> quitSignal;          // set by Signal_Quit before quitRequested; read by main loop
extern std::atomic<int> logReloadRequested;  // set by Signal_HUP; cleared by main loop
extern char* logFileName;                    // set by --log and Daemonize; borrowed from argv or static
extern ostrelDb* database;                   // owned; set by start-up and shutdownServer

extern std::vector<OstrelClientPlugin*> listOfClients;   // owning; changed by plug-in loading only
extern std::vector<ostrelConnection*> listOfConnection;  // owning; guarded by bllLock
extern std::vector<OstrelValue*> listOfStoredValues;     // owning; appended by writes, replayed and emptied
extern std::vector<OstrelValue*> listOfChangedStuff;     // owning; the keys changed since the last broadcast

// Two old names that programs built elsewhere know, so they stay.
// The listening socket (a sock, in French): bound by start-up, accepted on by the listener.
extern ostrelLink chaussette;
// The lock of the list of clients, which the log calls the BLL. Initialised by start-up.
extern pthread_mutex_t bllLock;

// Interface only: exported beside the lock for plug-ins.
extern "C" {
extern int nbLockLine;
extern int oldLockLine;
extern int newLockLine;
}

// Destroys the records and empties the list.
void destroyRecords(std::vector<OstrelValue*>& records);
// Appends an entry for the changed key, which the caller may complete.
OstrelValue& addChanged(const char* name);
