// The log macros and what else of the log is not for plug-ins; the functions themselves are declared in
// ostrel/plugin.h.
//
// A log line names its place (logPlace.h): a module, not a file, and a function. Each module's internal
// header defines one constant logModule, which OSTREL_HERE finds by plain name lookup, so a file without one
// does not compile.
#pragma once

#include "log/logPlace.h"
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
#define OSTREL_LOG_AT(place, level, ...)                                                       \
    do {                                                                                       \
        if ((printMask & (level)) != 0)                                                        \
            ostrelPrintLine((level), (place).module, __LINE__, (place).function, __VA_ARGS__); \
    } while (false)

// The place where the macro stands; in a lambda it is the lambda's.
#define OSTREL_HERE (LogPlace{logModule, __func__})
#define OSTREL_LOG(level, ...) OSTREL_LOG_AT(OSTREL_HERE, level, __VA_ARGS__)

namespace logLevel {
constexpr int error = 1;
constexpr int notice = 2;
constexpr int debug = 4;
}  // namespace logLevel
