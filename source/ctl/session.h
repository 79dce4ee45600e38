// One connection to the daemon.
#pragma once

#include <cstdint>
#include <exception>
#include <vector>

#include "common/marshalling.h"
#include "common/ostrelLink.h"

// The daemon closed the connection, which is how it refuses a write sequence, or it ended.
class ConnectionClosed : public std::exception {
public:
    const char* what() const noexcept override { return "the daemon closed the connection"; }
};

struct Answer {
    std::uint32_t code = 0;
    std::vector<unsigned char> bytes;
    std::vector<Parameter> entries;  // borrowed from bytes
};

// Each function throws ConnectionClosed.
class Session {
public:
    // Connects and tells the daemon who is there. Throws Failure when the daemon does not run.
    Session();

    void send(ParametersBuilder message);
    // Throws Failure when the answer makes no sense.
    Answer receive();
    Answer ask(ParametersBuilder message);
    // Returns once everything sent before has been served.
    void confirm();

private:
    void sendBytes(std::vector<unsigned char> bytes);

    ostrelLink link_;
    std::vector<unsigned char> buffer_;
};
