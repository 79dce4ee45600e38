// Keeps the other threads of the process from writing to the log, so that no line is torn by another's and
// none is written to a log that is being shortened.
#pragma once

#include <cstdio>

class LogLock {
public:
    LogLock() { flockfile(stdout); }
    ~LogLock() { funlockfile(stdout); }
    LogLock(const LogLock&) = delete;
    LogLock& operator=(const LogLock&) = delete;
};
