// Brings what was salvaged from an old live file into one that has gone on without it.
#pragma once

#include <string>

#include "db/model.h"
#include "dbTool/faults.h"

// base: what both started from. theirs: the same with what was salvaged. ours: the present database, which
// takes their changes; where both changed the same since base, ours stays, and so does an instance that ours
// made or changed where they made or removed one. Returns what of theirs was not taken; file: where it stood.
Faults merge(const store::Model& base, const store::Model& theirs, store::Model& ours,
             const std::string& file);
