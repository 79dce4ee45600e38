// An owned file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace process {

class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() { reset(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return fd_; }
    void reset() {
        if (fd_ >= 0)
            close(std::exchange(fd_, -1));
    }

private:
    int fd_;
};

}  // namespace process
