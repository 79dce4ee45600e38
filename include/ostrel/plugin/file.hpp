// Small files, read and replaced whole. Failures throw std::system_error with the path. Any thread. Nothing
// waits for somebody at the other end of a FIFO or a device.
#ifndef OSTREL_PLUGIN_FILE_HPP
#define OSTREL_PLUGIN_FILE_HPP

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "ostrel/plugin/phase.hpp"

#pragma GCC visibility push(hidden)
namespace ostrel::plugin {

// Owns an open descriptor; -1: none.
class Descriptor {
public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0)
            close(fd_);
    }
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

private:
    int fd_;
};

namespace detail {

[[noreturn]] inline void failFile(const std::string& path) {
    throw std::system_error(errno, std::generic_category(), path);
}

inline Descriptor openFile(const std::string& path, int flags, mode_t mode = 0) {
    Descriptor file(open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK, mode));
    if (!file)
        failFile(path);
    return file;
}

inline const char* kindOf(mode_t mode) {
    switch (mode & S_IFMT) {
        case S_IFDIR:
            return "a directory";
        case S_IFCHR:
            return "a character device";
        case S_IFBLK:
            return "a block device";
        case S_IFIFO:
            return "a FIFO";
        case S_IFSOCK:
            return "a socket";
        default:
            return "of an unknown kind";
    }
}

[[noreturn]] inline void refuseKind(const std::string& path, mode_t mode) {
    throw std::system_error(EINVAL, std::generic_category(),
                            path + " is " + kindOf(mode) + ", not a regular file");
}

inline void sync(const Descriptor& file, const std::string& path) {
    if (fsync(file.get()) != 0)
        failFile(path);
}

inline void writeAll(const Descriptor& file, std::string_view content, const std::string& path) {
    while (!content.empty()) {
        const ssize_t written = ::write(file.get(), content.data(), content.size());
        if (written < 0 && errno != EINTR)
            failFile(path);
        content.remove_prefix(written < 0 ? 0 : static_cast<size_t>(written));
    }
}

// With a slash at its end.
inline std::string folderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "./" : path.substr(0, slash + 1);
}

// Where the path leads, also when there is nothing yet: /etc of an appliance often links to a folder that may
// be written to, and that is empty at the first start.
inline std::string resolved(std::string path) {
    constexpr int mostLinks = 40;  // as many as the system follows
    std::array<char, 4096> target;
    for (int i = 0; i < mostLinks; ++i) {
        const ssize_t size = readlink(path.c_str(), target.data(), target.size());
        if (size <= 0)
            break;
        std::string folder = target[0] == '/' ? "" : folderOf(path);
        path = folder.append(target.data(), static_cast<size_t>(size));
    }
    return path;
}

// In one step. Durable, too, but for a folder that cannot be forced to the disk: the change is made all the
// same, and whoever has to act on it must learn of it.
inline void renameTo(const std::string& target, const std::string& fresh) {
    if (std::rename(fresh.c_str(), target.c_str()) != 0)
        failFile(target);
    const std::string folder = folderOf(target);
    try {
        sync(openFile(folder, O_RDONLY | O_DIRECTORY), folder);
    } catch (const std::system_error& error) {
        logError(std::string(error.what()) + "; a power cut may bring the old " + target + " back");
    }
}

}  // namespace detail

// Nothing when there is no such file, or when the process that a file in /proc tells of has just ended. A
// FIFO is refused.
inline std::optional<std::string> readFile(const std::string& path) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file) {
        if (errno == ENOENT)
            return std::nullopt;
        detail::failFile(path);
    }
    // It would read as empty while nobody writes to it.
    struct stat info {};
    if (fstat(file.get(), &info) == 0 && S_ISFIFO(info.st_mode))
        detail::refuseKind(path, info.st_mode);
    std::string content;
    std::array<char, 4096> piece;
    for (;;) {
        const ssize_t size = read(file.get(), piece.data(), piece.size());
        if (size == 0)
            return content;
        if (size > 0)
            content.append(piece.data(), static_cast<size_t>(size));
        else if (errno == ESRCH)
            return std::nullopt;
        else if (errno != EINTR)
            detail::failFile(path);
    }
}

// Gives the file that content, unless it has it. True when it changed. At any moment, also after a power cut,
// the path holds the old content or the new one. A link is followed; a file that is there keeps its owner,
// group and permissions. What is there and no regular file, such as /dev/null at the end of a link, is
// refused.
inline bool replaceFile(const std::string& path, std::string_view content, mode_t newFileMode = 0644) {
    const std::string target = detail::resolved(path);
    struct stat old {};
    const bool isThere = stat(target.c_str(), &old) == 0;
    if (isThere && !S_ISREG(old.st_mode))
        detail::refuseKind(target == path ? path : path + " leads to " + target + ", which", old.st_mode);
    if (readFile(path) == content)
        return false;
    const mode_t mode = isThere ? old.st_mode & 07777U : newFileMode;
    const std::string fresh = target + ".new";
    // One that a power cut left over.
    unlink(fresh.c_str());
    const Descriptor file = detail::openFile(fresh, O_WRONLY | O_CREAT | O_EXCL, mode & 0600U);
    try {
        // The mode last: it is less what the process masks before, and a new owner takes bits of it away.
        if ((isThere && fchown(file.get(), old.st_uid, old.st_gid) != 0) || fchmod(file.get(), mode) != 0)
            detail::failFile(fresh);
        detail::writeAll(file, content, fresh);
        detail::sync(file, fresh);
        detail::renameTo(target, fresh);
    } catch (...) {
        // It would keep its room on a disk that is full.
        unlink(fresh.c_str());
        throw;
    }
    return true;
}

// Makes the path a symbolic link to the target, unless it is. True when it changed. What was there, a link or
// a regular file, is replaced in one step; anything else is refused.
inline bool replaceLink(const std::string& path, const std::string& target) {
    std::array<char, 4096> old;
    const ssize_t size = readlink(path.c_str(), old.data(), old.size());
    if (size >= 0 && std::string_view(old.data(), static_cast<size_t>(size)) == target)
        return false;
    struct stat there {};
    if (size < 0 && lstat(path.c_str(), &there) == 0 && !S_ISREG(there.st_mode))
        detail::refuseKind(path, there.st_mode);
    const std::string fresh = path + ".new";
    unlink(fresh.c_str());
    if (symlink(target.c_str(), fresh.c_str()) != 0)
        detail::failFile(fresh);
    try {
        detail::renameTo(path, fresh);
    } catch (...) {
        unlink(fresh.c_str());
        throw;
    }
    return true;
}

// No failure when there is none.
inline void removeFile(const std::string& path) {
    if (unlink(path.c_str()) != 0 && errno != ENOENT)
        detail::failFile(path);
}

}  // namespace ostrel::plugin
#pragma GCC visibility pop

#endif
