// The store's only way to the file system: a table of system calls that a test can replace, and what is built
// on it.
//
// Failures come back with errno set; nothing here logs.
#pragma once

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/types.h>

#include <string>
#include <string_view>

namespace store {

struct FileCalls {
    int (*open)(const char* path, int flags, mode_t mode);
    int (*close)(int fd);
    ssize_t (*read)(int fd, void* buffer, size_t room);
    ssize_t (*write)(int fd, const void* bytes, size_t size);
    ssize_t (*pwrite)(int fd, const void* bytes, size_t size, off_t at);
    int (*fdatasync)(int fd);
    int (*fsync)(int fd);
    int (*ftruncate)(int fd, off_t size);
    int (*fstat)(int fd, struct stat* status);
    int (*fchown)(int fd, uid_t owner, gid_t group);
    int (*fchmod)(int fd, mode_t mode);
    int (*stat)(const char* path, struct stat* status);
    int (*statvfs)(const char* path, struct statvfs* status);
    ssize_t (*readlink)(const char* path, char* target, size_t room);
    int (*flock)(int fd, int operation);
    int (*rename)(const char* from, const char* to);
    int (*link)(const char* from, const char* to);
    int (*unlink)(const char* path);
    int (*mkdir)(const char* path, mode_t mode);
};

extern const FileCalls systemFiles;

// An open file, closed with the object. The table must outlive it.
class File {
public:
    explicit File(const FileCalls& calls) : calls_(&calls) {}
    ~File() { close(); }
    File(File&& other) noexcept;
    File& operator=(File&& other) noexcept;
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    // O_CLOEXEC is added; a file that is created gets the mode.
    bool open(const std::string& path, int flags, mode_t mode = 0644);
    void close();
    bool isOpen() const { return fd_ >= 0; }

    // Appends the rest of the file to text.
    bool readAll(std::string& text);
    // One write() unless the system takes less; what a failure leaves behind is the caller's to cut.
    bool writeAll(std::string_view bytes);
    // The same at a place, of a file that is not open with O_APPEND.
    bool writeAllAt(std::string_view bytes, size_t at);
    bool syncData();
    bool sync();
    bool truncate(off_t size);
    bool status(struct stat& result) const;
    // Gets the owner, group and mode of the other file. Nothing is asked of the system that is so already:
    // not all file systems know them.
    bool becomeLike(const struct stat& other);
    bool setMode(mode_t mode);
    // LOCK_EX, without waiting.
    bool lock();

private:
    const FileCalls* calls_;
    int fd_ = -1;
};

std::string directoryOf(const std::string& path);
// Makes a rename, link or creation in the directory durable.
bool syncDirectory(const FileCalls& calls, const std::string& directory);
// The same for all above it.
bool syncDirectories(const FileCalls& calls, const std::string& directory);
// Makes every missing level. They are durable after syncDirectories().
bool makeDirectories(const FileCalls& calls, const std::string& directory);
// Never replaces target, and is durable in itself (its directory entry is not). Owner and mode are the
// source's.
bool copyFile(const FileCalls& calls, const std::string& source, const std::string& target);
// In words, with an article: what a file that is no regular one is.
const char* kindOf(mode_t mode);

}  // namespace store
