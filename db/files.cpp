#include "db/files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

namespace store {
namespace {

int openFile(const char* path, int flags, mode_t mode) { return ::open(path, flags, mode); }

template <class Call>
auto retried(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

// write: of all bytes but those that are done.
template <class Write>
bool writeEach(std::string_view bytes, Write write) {
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t taken = retried([&] { return write(done); });
        if (taken <= 0) {
            errno = taken == 0 ? ENOSPC : errno;
            return false;
        }
        done += static_cast<size_t>(taken);
    }
    return true;
}

}  // namespace

const FileCalls systemFiles = {openFile,    ::close,  ::read,   ::write,  ::pwrite, ::fdatasync, ::fsync,
                               ::ftruncate, ::fstat,  ::fchown, ::fchmod, ::stat,   ::statvfs,   ::readlink,
                               ::flock,     ::rename, ::link,   ::unlink, ::mkdir};

File::File(File&& other) noexcept : calls_(other.calls_), fd_(std::exchange(other.fd_, -1)) {}

File& File::operator=(File&& other) noexcept {
    if (this != &other) {
        close();
        calls_ = other.calls_;
        fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
}

bool File::open(const std::string& path, int flags, mode_t mode) {
    close();
    fd_ = retried([&] { return calls_->open(path.c_str(), flags | O_CLOEXEC, mode); });
    return isOpen();
}

void File::close() {
    if (isOpen()) {
        const int kept = errno;
        calls_->close(std::exchange(fd_, -1));
        errno = kept;
    }
}

bool File::readAll(std::string& text) {
    std::array<char, 65536> block{};
    while (true) {
        const ssize_t got = retried([&] { return calls_->read(fd_, block.data(), block.size()); });
        if (got <= 0)
            return got == 0;
        text.append(block.data(), static_cast<size_t>(got));
    }
}

bool File::writeAll(std::string_view bytes) {
    return writeEach(
        bytes, [&](size_t done) { return calls_->write(fd_, bytes.data() + done, bytes.size() - done); });
}

bool File::writeAllAt(std::string_view bytes, size_t at) {
    return writeEach(bytes, [&](size_t done) {
        return calls_->pwrite(fd_, bytes.data() + done, bytes.size() - done, static_cast<off_t>(at + done));
    });
}

bool File::syncData() {
    return retried([&] { return calls_->fdatasync(fd_); }) == 0;
}

bool File::sync() {
    return retried([&] { return calls_->fsync(fd_); }) == 0;
}

bool File::truncate(off_t size) {
    return retried([&] { return calls_->ftruncate(fd_, size); }) == 0;
}

bool File::status(struct stat& result) const { return calls_->fstat(fd_, &result) == 0; }

bool File::becomeLike(const struct stat& other) {
    constexpr mode_t permissions = 07777;
    struct stat mine {};
    if (!status(mine))
        return false;
    const bool isTheirs = mine.st_uid == other.st_uid && mine.st_gid == other.st_gid;
    if (!isTheirs && calls_->fchown(fd_, other.st_uid, other.st_gid) != 0)
        return false;
    // A change of the owner takes bits away.
    const bool isSame = isTheirs && (mine.st_mode & permissions) == (other.st_mode & permissions);
    return isSame || calls_->fchmod(fd_, other.st_mode & permissions) == 0;
}

bool File::setMode(mode_t mode) { return calls_->fchmod(fd_, mode) == 0; }

bool File::lock() {
    return retried([&] { return calls_->flock(fd_, LOCK_EX | LOCK_NB); }) == 0;
}

std::string directoryOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

bool syncDirectory(const FileCalls& calls, const std::string& directory) {
    File file(calls);
    if (!file.open(directory, O_RDONLY | O_DIRECTORY))
        return false;
    // EINVAL: this file system has nothing to sync for a directory.
    return file.sync() || errno == EINVAL;
}

bool syncDirectories(const FileCalls& calls, const std::string& directory) {
    const std::string parent = directoryOf(directory);
    // EACCES: whoever may not read it has made nothing in it.
    return (syncDirectory(calls, directory) || errno == EACCES) &&
           (parent == directory || syncDirectories(calls, parent));
}

bool makeDirectories(const FileCalls& calls, const std::string& directory) {
    struct stat status {};
    if (calls.stat(directory.c_str(), &status) == 0) {
        errno = ENOTDIR;
        return S_ISDIR(status.st_mode);
    }
    const std::string parent = directoryOf(directory);
    if (errno != ENOENT || parent == directory || !makeDirectories(calls, parent))
        return false;
    return calls.mkdir(directory.c_str(), 0755) == 0 || errno == EEXIST;
}

bool copyFile(const FileCalls& calls, const std::string& source, const std::string& target) {
    File from(calls);
    std::string text;
    struct stat status {};
    if (!from.open(source, O_RDONLY) || !from.status(status) || !from.readAll(text))
        return false;
    File to(calls);
    if (!to.open(target, O_WRONLY | O_CREAT | O_EXCL, 0600))
        return false;
    if (to.becomeLike(status) && to.writeAll(text) && to.sync())
        return true;
    const int kept = errno;
    calls.unlink(target.c_str());
    errno = kept;
    return false;
}

const char* kindOf(mode_t mode) {
    switch (mode & S_IFMT) {
        case S_IFDIR:
            return "a folder";
        case S_IFIFO:
            return "a FIFO";
        case S_IFSOCK:
            return "a socket";
        case S_IFCHR:
        case S_IFBLK:
            return "a device";
        default:
            return "no file";
    }
}

}  // namespace store
