// How the program ends.
#pragma once

#include <stdexcept>
#include <string>

enum class Status {
    done = 0,
    refused = 1,    // by the daemon, or the key is not there
    usage = 2,      // nothing was sent
    notRunning = 3  // the daemon does not run, or ended before it answered
};

// Ends the command; the text is for the user.
class Failure : public std::runtime_error {
public:
    Failure(Status status, const std::string& text) : std::runtime_error(text), status_(status) {}
    Status status() const { return status_; }

private:
    Status status_;
};
