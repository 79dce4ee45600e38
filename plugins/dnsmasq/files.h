// Small files, read and replaced whole. Failures throw std::system_error.
#pragma once

#include <string>

namespace dnsmasq {

// Owns an open descriptor; -1: none.
class Descriptor {
public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    ~Descriptor();
    Descriptor(Descriptor&& other) noexcept;
    Descriptor& operator=(Descriptor&&) = delete;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

private:
    int fd_;
};

// Empty when there is no such file, or when the process that a file in /proc tells of has just ended.
std::string readFile(const std::string& path);
// At any moment, also after a crash, the path holds the old content or the new one.
void replaceFile(const std::string& path, const std::string& text);
bool fileExists(const std::string& path);
// No failure when there is none.
void removeFile(const std::string& path);

}  // namespace dnsmasq
