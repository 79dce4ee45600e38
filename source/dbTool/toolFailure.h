// How the program ends.
#pragma once

#include <stdexcept>
#include <string>

enum class Status {
    done = 0,
    findings =
        1,  // something is wrong with a file, or not all could be saved; a refused command changed nothing
    usage = 2,
    inUse = 3  // a daemon has the database; nothing was changed
};

// Ends the command; the text is for the user.
class Failure : public std::runtime_error {
public:
    explicit Failure(const std::string& text, Status status = Status::findings)
        : std::runtime_error(text), status_(status) {}
    Status status() const { return status_; }

private:
    Status status_;
};
