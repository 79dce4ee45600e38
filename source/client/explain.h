// Why the daemon may have refused a change. It does not tell, so this is what reading shows.
#pragma once

#include <string>

#include "client/connection.h"
#include "client/stagedChanges.h"

namespace client {

// Throws Failure, and ConnectionLost.
std::string explainRefusal(Connection& connection, const Change& change, const Deadline& deadline);

}  // namespace client
