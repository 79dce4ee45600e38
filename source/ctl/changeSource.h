// The names of changed keys, as the daemon's plug-in watch tells them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "process/descriptor.h"

class ChangeSource {
public:
    // Every change from now on is told, or its loss. Throws std::system_error; Failure when the socket is
    // served by a user who is not to be trusted.
    ChangeSource();

    struct News {
        std::string name{};     // of the changed key; empty: none
        uint32_t lost = 0;      // changes in front of it
        bool isLosing = false;  // changes behind it are being lost; there is no name
    };
    // Nothing when no more has arrived. Throws Failure when the daemon has ended or refuses one more reader.
    std::optional<News> next();

    // Waits until something has arrived. Throws Failure when the standard output is closed meanwhile.
    void wait() const;

private:
    process::Descriptor fd_;
    uint32_t number_ = 0;  // of the last change
};
