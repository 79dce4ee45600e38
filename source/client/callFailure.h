// How a call on the library fails, until the C interface turns it into a status.
#pragma once

#include <stdexcept>
#include <string>

#include "ostrel/client.h"

namespace client {

class Failure : public std::runtime_error {
public:
    Failure(ostrelStatus status, const std::string& text) : std::runtime_error(text), status_(status) {}
    ostrelStatus status() const { return status_; }

private:
    ostrelStatus status_;
};

}  // namespace client
