// Which entry of the plug-in runs, and what it may do; and the log.
#ifndef OSTREL_PLUGIN_PHASE_HPP
#define OSTREL_PLUGIN_PHASE_HPP

// After an #error the compiler goes on, to errors without end; after a missing file it does not.
#if __cplusplus < 201703L
#error "ostrel/plugin.hpp needs C++17: compile with -std=c++17 or later"
#include "C++17"
#elif !defined(__cpp_exceptions)
#error "ostrel/plugin.hpp needs exceptions: compile without -fno-exceptions"
#include "exceptions"
#endif

#include <string>

#include "ostrel/plugin.h"

// Symbols of the same name in two plug-ins would be one otherwise.
#pragma GCC visibility push(hidden)
namespace ostrel::plugin {

enum class Phase { none, init, writeConf, restart, trigger, die };

namespace detail {

inline const char* moduleName = "";
// Of each thread its own: a thread that the plug-in started is in no entry.
inline thread_local Phase current = Phase::none;

class PhaseScope {
public:
    explicit PhaseScope(Phase phase) : outer_(current) { current = phase; }
    ~PhaseScope() { current = outer_; }
    PhaseScope(const PhaseScope&) = delete;
    PhaseScope& operator=(const PhaseScope&) = delete;

private:
    Phase outer_;
};

}  // namespace detail

// The entry that the calling thread is in; none also on every thread but the daemon's main thread.
inline Phase phase() { return detail::current; }

// False where a write would end the daemon or is not ordered against the daemon's own work.
inline bool mayWrite() { return phase() != Phase::none && phase() != Phase::writeConf; }
// True where a write is in the database when the call returns; elsewhere it is stored and applied later.
inline bool writesAtOnce() { return phase() == Phase::trigger || phase() == Phase::die; }

// One line in the daemon's log, under the plug-in's name. Any thread.
inline void log(int level, const std::string& text, int line = __builtin_LINE(),
                const char* function = __builtin_FUNCTION()) {
    ostrelPrintLine(level, detail::moduleName, line, function, "%s", text.c_str());
}
inline void logError(const std::string& text, int line = __builtin_LINE(),
                     const char* function = __builtin_FUNCTION()) {
    log(1, "error: " + text, line, function);
}
inline void logNotice(const std::string& text, int line = __builtin_LINE(),
                      const char* function = __builtin_FUNCTION()) {
    log(2, text, line, function);
}
inline void logDebug(const std::string& text, int line = __builtin_LINE(),
                     const char* function = __builtin_FUNCTION()) {
    log(4, text, line, function);
}

}  // namespace ostrel::plugin
#pragma GCC visibility pop

#endif
