// The log's file while the daemon runs.
//
// Main thread.
#pragma once

// Keeps a descriptor back for reopenLog, which clients and plug-ins could otherwise take.
void reserveLogDescriptor();

// Opens logFileName, when there is one, then lets go of the file before. A failed open ends the process with
// status 0.
void reopenLog();

// Past 8 MiB keeps the last 4 MiB of the log beside it, as its name with ".kept", and empties it; both when
// it is the file at logFileName. Looks once a second at most and costs next to nothing otherwise, so that
// whatever may go on for long can call it. Children hold the file open as their output: it stays the same
// one.
void boundLog();
