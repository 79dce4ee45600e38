// The subcommand doctor: looks at the daemon and at all that it needs, and says what to do about what it
// finds.
//
// It changes nothing, and asks the daemon only for numbers that every client may ask for.
#pragma once

#include <string>

#include "ctl/commandFailure.h"
#include "ostrel/client.hpp"

struct DoctorOptions {
    bool json = false;
    std::string logPath{};
};

// Prints the findings. done: none is bad; refused: some are; notRunning: the daemon cannot be reached.
// The session, not connected yet, brings the timeout for each of the daemon's answers.
Status runDoctor(ostrel::Session& session, const DoctorOptions& options);
