// Where readers connect.
#pragma once

#include <ostrel/plugin.hpp>

#include "watch/readers.h"

namespace watch {

class Listener {
public:
    Listener() = default;
    // Takes the socket's name away.
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    // Takes the place of a socket that nobody serves. Throws std::system_error; nobody can connect then.
    void open();

    // Everybody who has connected before the call. One system call when there is nobody new.
    void admitTo(Readers& readers);

private:
    bool hasWaiting() const;

    ostrel::plugin::Descriptor socket_;
    bool named_ = false;
    bool hasFailed_ = false;
};

}  // namespace watch
