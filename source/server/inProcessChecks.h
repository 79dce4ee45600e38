// What the functions that the server exports to its plug-ins have in common: they believe no pointer to be
// there, and no exception leaves them.
#pragma once

#include <exception>
#include <initializer_list>

#include "log/logPlace.h"
#include "ostrel/plugin.h"

// False, with a line in the log, when a pointer is null. place: the exported function's.
bool validArguments(LogPlace place, std::initializer_list<const void*> pointers);
// The same for a list to be written and for each value of it.
bool validList(LogPlace place, const OstrelValues& list);

// Writes the line for a function that ran into an exception.
void logFenced(LogPlace place, const char* what);

// The body's result, or failed when it throws.
template <typename Body, typename Result>
Result fenced(LogPlace place, Result failed, Body body) {
    try {
        return body();
    } catch (const std::exception& exception) {
        logFenced(place, exception.what());
    }
    return failed;
}
