// What the daemon's log tells about faults, and about services that do not follow the database.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

struct LogFaults {
    struct Lines {
        std::string cause{};  // the last line that tells one; else the last of all
        size_t count = 0;
        bool toldCause = false;
    };
    std::string fatal{};  // the reason of the last fatal error
    Lines own{};          // the daemon's
    // By plug-in, or rule of exec; without those that have followed again since.
    std::map<std::string, Lines> services{};
};

// What clients asked for in vain is not among them.
LogFaults findFaults(std::string_view log);
