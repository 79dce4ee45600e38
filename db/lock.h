// One process per live file.
#pragma once

#include <string>

#include "db/files.h"

namespace store {

// Takes the lock file beside the live file and holds it open until it is destroyed. Ends the process (Die)
// when another process has it. The lock has a file of its own because a rewrite replaces the live file.
File lockDatabase(const FileCalls& calls, const std::string& livePath);

}  // namespace store
