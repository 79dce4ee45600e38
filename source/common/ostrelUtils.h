// The log macros and what else of the log is not for plug-ins; the functions themselves are declared in
// ostrel/plugin.h.
//
// A log line names its module, not its file: each module's internal header defines one constant logModule,
// which the macros find by plain name lookup, so a file without one does not compile.
#pragma once

#include "ostrel/plugin.h"

// Bit mask of the levels that are written; non-zero showPrefix: lines start with level, time and place.
// Written during start-up only.
extern int printMask;
extern int showPrefix;

// An environment variable: the soft limit of descriptors of the programs that the daemon and its plug-ins
// start. Without it they have the process's own. The plug-in headers know it, too.
constexpr char descriptorLimitVariable[] = "OSTREL_DESCRIPTOR_LIMIT";

// A text that may be null, as the log shows it.
const char* printable(const char* text);

// The two halves of OpenLog: the file, emptied, or -1 with errno set; and what points the outputs at it.
int openLogFile(const char* path);
void useLogFile(int fd, const char* path);

// The arguments are not evaluated when the mask hides the level.
#define OSTREL_LOG(level, ...) OSTREL_LOG_AS(__func__, level, __VA_ARGS__)

// For a line whose documented function name is not that of the function that writes it.
#define OSTREL_LOG_AS(function, level, ...)                                         \
    do {                                                                            \
        if ((printMask & (level)) != 0)                                             \
            ostrelPrintLine((level), logModule, __LINE__, (function), __VA_ARGS__); \
    } while (false)

namespace logLevel {
constexpr int error = 1;
constexpr int notice = 2;
constexpr int debug = 4;
}  // namespace logLevel
