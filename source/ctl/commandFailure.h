// How a command fails, and what the program's exit status is then.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "ostrel/client.h"

enum class Status {
    done = 0,
    refused = 1,     // by the daemon; a key is missing, an answer incomplete, or a result cannot be written
    usage = 2,       // nothing was sent
    notRunning = 3,  // or the daemon ended before it answered
    busy = 4
};

constexpr Status exitStatus(ostrelStatus status) {
    switch (status) {
        case OSTREL_DONE:
            return Status::done;
        case OSTREL_INVALID:
            return Status::usage;
        case OSTREL_NOT_RUNNING:
        case OSTREL_STALE_SOCKET:
        case OSTREL_GONE:
            return Status::notRunning;
        case OSTREL_BUSY:
            return Status::busy;
        default:
            return Status::refused;
    }
}

// One thing that is wrong with what the user wrote.
struct Problem {
    size_t line = 0;    // of the failure's file, from 1; 0: none
    std::string key{};  // as a line has it; may be empty
    std::string reason;
};

// Ends the command. With problems the text says what follows from them, if there is something to say; else it
// says what is wrong.
class Failure : public std::runtime_error {
public:
    Failure(ostrelStatus status, const std::string& text, std::string file = {},
            std::vector<Problem> problems = {})
        : std::runtime_error(text), status_(status), file_(std::move(file)), problems_(std::move(problems)) {}

    ostrelStatus status() const { return status_; }
    const std::string& file() const { return file_; }
    const std::vector<Problem>& problems() const { return problems_; }

private:
    ostrelStatus status_;
    std::string file_;
    std::vector<Problem> problems_;
};

// For what cannot be right, whatever the daemon says.
[[noreturn]] inline void failUsage(const std::string& text) { throw Failure(OSTREL_INVALID, text); }
