// The wait for requests and the way out.
#pragma once

// Never returns. Main thread.
[[noreturn]] void mainLoop();

// Unloads the plug-ins, removes every connection, deletes the database, exits with status 0. Main thread,
// without bllLock held.
[[noreturn]] void shutdownServer();
