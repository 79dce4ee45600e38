// An open file descriptor, closed with its owner.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <utility>

namespace process {

class Descriptor {
public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}  // taken; -1: none
    ~Descriptor() { reset(); }
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return fd_; }  // borrowed
    explicit operator bool() const { return fd_ >= 0; }
    void reset() {
        if (fd_ >= 0)
            close(std::exchange(fd_, -1));
    }

private:
    int fd_;
};

// O_CLOEXEC is added; a file that is created gets the mode 0644. None, with errno set, when it cannot be
// opened.
inline Descriptor openFile(const char* path, int flags) {
    return Descriptor(open(path, flags | O_CLOEXEC, 0644));
}

}  // namespace process
