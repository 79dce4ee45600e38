// Changes of the database, all or none.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "ctl/request.h"

// Sends the changes as one write sequence and waits until they are committed and served by the plug-ins.
// Returns the primary keys of the new instances, in order. Throws Failure when the daemon refuses: nothing is
// changed then, and the text tells the change when it can be found.
std::vector<std::uint32_t> commitChanges(std::span<const Request> changes);
