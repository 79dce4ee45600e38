// One process per live file.
#pragma once

#include <string>

#include "db/files.h"

namespace store {

// Locks the lock file beside the live file until lock is closed. The lock has a file of its own because a
// rewrite replaces the live file. False, with errno set: EWOULDBLOCK when another process has it; lock stays
// closed when the lock file cannot be opened.
bool tryLock(File& lock, const std::string& livePath);

// The same for the daemon: ends the process (Die) when another process has the lock, and goes on without one
// where it cannot be had at all.
File lockDatabase(const FileCalls& calls, const std::string& livePath);

}  // namespace store
