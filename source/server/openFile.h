// An open file, closed with the object.
#pragma once

#include <fcntl.h>
#include <unistd.h>

class OpenFile {
public:
    // O_CLOEXEC is added; a file that is created gets the mode 0644.
    OpenFile(const char* path, int flags) : fd_(open(path, flags | O_CLOEXEC, 0644)) {}
    ~OpenFile() {
        if (fd_ >= 0)
            close(fd_);
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    int fd() const { return fd_; }  // -1 when it could not be opened

private:
    int fd_;
};
