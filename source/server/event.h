// An event that one thread sets and another waits for with poll.
#pragma once

#include <sys/eventfd.h>
#include <unistd.h>

#include "ostrel/plugin.h"

class Event {
public:
    Event() : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        if (fd_ < 0)
            Die("Cannot create an event");
    }
    ~Event() { close(fd_); }
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    int fd() const { return fd_; }
    void set() const { eventfd_write(fd_, 1); }
    void clear() const {
        eventfd_t count = 0;
        eventfd_read(fd_, &count);
    }

private:
    int fd_;
};
