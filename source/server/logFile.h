// The log's file while the daemon runs.
//
// Main thread.
#pragma once

// Keeps a descriptor back for reopenLog, which clients and plug-ins could otherwise take.
void reserveLogDescriptor();

// Opens logFileName, when there is one, then lets go of the file before. A failed open ends the process with
// status 0.
void reopenLog();
