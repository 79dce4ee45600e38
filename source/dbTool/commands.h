// The commands. Each prints its result on standard output and throws Failure when it can go no further.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "db/paths.h"
#include "dbTool/patterns.h"
#include "dbTool/toolFailure.h"

Status checkFiles(const store::Paths& paths);
void dump(const store::Paths& paths, const Patterns& patterns);
void diff(const store::Paths& paths, const Patterns& patterns);
// kind: keys, structures, templates or vectors; all: what has a name, also a structure without instances.
void printNames(const store::Paths& paths, std::string_view kind, std::string_view prefix);
void exportChanges(const store::Paths& paths, const Patterns& patterns);

struct ImportOptions {
    std::string file;      // - is standard input
    bool replace = false;  // all present changes
    bool dryRun = false;
    bool force = false;  // drop present changes that the defaults no longer fit
};
Status importChanges(const store::Paths& paths, const ImportOptions& options);

// force: drop changes that the defaults no longer fit.
void compact(const store::Paths& paths, bool force);

struct RepairOptions {
    std::string file;    // empty: the live file
    bool lines = false;  // also take single lines of broken transactions
    bool dryRun = false;
};
Status repair(const store::Paths& paths, const RepairOptions& options);
