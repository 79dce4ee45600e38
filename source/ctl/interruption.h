// Tells a user who ends the program while a change is under way whether it may have been made.
#pragma once

#include <array>
#include <csignal>
#include <cstddef>
#include <string>

#include "ostrel/client.hpp"

// One at a time. While it lives, SIGINT, SIGTERM and SIGHUP print that and then end the program as ever; one
// that was ignored stays ignored. The session holds them back while the daemon waits for this program.
class Interruption {
public:
    // Both texts are printed as they are, to the standard error.
    Interruption(const ostrel::Transaction& transaction, std::string nothingDone, std::string maybeDone);
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    // From any thread: whether the cursor stands behind text that a message must not be appended to.
    static void setLineOpen(bool isOpen);
    // A signal has come: nothing more may be drawn.
    static bool hasCome();

private:
    static constexpr std::array signals_ = {SIGINT, SIGTERM, SIGHUP};

    static void tell(int number);

    const ostrel::Transaction& transaction_;
    const std::string nothingDone_;
    const std::string maybeDone_;
    std::array<struct sigaction, signals_.size()> before_{};
};
