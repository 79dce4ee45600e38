// Where readers connect.
#pragma once

#include <ostrel/plugin.hpp>

#include "watch/readers.h"

namespace watch {

class Listener {
public:
    // Takes the place of a socket that nobody serves. Throws std::system_error; nobody can connect then.
    Listener();
    // Takes the socket's name away.
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    // Readable when somebody waits. Borrowed.
    int descriptor() const { return socket_.get(); }

    enum class Admission { nobody, done, failed };
    // Whoever waits longest. Logs nothing; errno says why it failed.
    Admission admitOne(Readers& readers) const;
    // Everybody who has connected before the call. One system call when there is nobody new.
    void admitAll(Readers& readers);

private:
    ostrel::plugin::Descriptor socket_;
    bool hasFailed_ = false;
};

}  // namespace watch
