// An event that one thread sets and another waits for with poll.
#pragma once

#include <sys/eventfd.h>

#include "ostrel/plugin.h"
#include "process/descriptor.h"

class Event {
public:
    Event() : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        if (!fd_)
            Die("Cannot create an event");
    }

    int fd() const { return fd_.get(); }
    void set() const { eventfd_write(fd_.get(), 1); }
    void clear() const {
        eventfd_t count = 0;
        eventfd_read(fd_.get(), &count);
    }

private:
    process::Descriptor fd_;
};
