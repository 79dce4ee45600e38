// Ends the bench: a peer did not do what it was asked.
#pragma once

#include <stdexcept>

class PeerError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};
