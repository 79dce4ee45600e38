// The place of a log line: the module and the function that its prefix names.
//
// A place at which several functions write, or whose lines somebody looks for in a log, is a constant in the
// header of its module's places (linkPlaces.h, serverPlaces.h). Both sides use that constant, so a place
// that is renamed is renamed for its readers, too. What nobody looks for is at the place where it is written:
// OSTREL_LOG.
#pragma once

#include <string_view>

struct LogPlace {
    const char* module;
    const char* function;

    // Whether a line that was read from a log is of this place.
    constexpr bool is(std::string_view itsModule, std::string_view itsFunction) const {
        return itsModule == module && itsFunction == function;
    }
};
