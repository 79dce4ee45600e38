#include "server/logFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>

#include "common/logLock.h"
#include "common/ostrelLink.h"
#include "common/ostrelUtils.h"
#include "process/descriptor.h"
#include "server/globals.h"
#include "server/serverModule.h"

namespace {

int reserve = -1;

constexpr off_t longestLog = off_t{8} << 20U;  // bytes
constexpr off_t keptOfLog = longestLog / 2;

// False when boundLog has looked less than a second ago.
bool isTimeToLook() {
    static int64_t next = 0;
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    const int64_t milliseconds = int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
    if (milliseconds < next)
        return false;
    next = milliseconds + 1000;
    return true;
}

// The log's size; 0 when it is not the file at logFileName.
off_t sizeOfLog() {
    struct stat log {};
    struct stat named {};
    const bool isNamed = logFileName != nullptr && fstat(STDOUT_FILENO, &log) == 0 && S_ISREG(log.st_mode) &&
                         log.st_size > longestLog && stat(logFileName, &named) == 0 &&
                         log.st_dev == named.st_dev && log.st_ino == named.st_ino;
    return isNamed ? log.st_size : 0;
}

bool writeAll(int fd, const char* bytes, size_t size) {
    while (size > 0) {
        const ssize_t written = write(fd, bytes, size);
        if (written <= 0)
            return false;
        bytes += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

// Copies what stands from the first whole line behind begin up to end.
bool copyLines(int from, int to, off_t begin, off_t end) {
    std::array<char, size_t{64} * 1024> piece{};
    bool inLine = true;
    while (begin < end) {
        const ssize_t size = pread(from, piece.data(), piece.size(), begin);
        if (size <= 0)
            return size == 0;
        begin += size;
        const char* first = piece.data();
        const char* last = first + size;
        if (inLine)
            first = std::find(first, last, '\n');
        if (first == last)
            continue;
        first += inLine ? 1 : 0;
        inLine = false;
        if (!writeAll(to, first, static_cast<size_t>(last - first)))
            return false;
    }
    return true;
}

// False, with errno set. Other users may be able to make files beside the log, so nothing that is there
// already is written to.
bool keepEnd(off_t size, const std::string& kept) {
    const std::string fresh = kept + ".new";
    unlink(fresh.c_str());
    const process::Descriptor log = process::openFile(logFileName, O_RDONLY | O_NONBLOCK);
    const process::Descriptor copy =
        process::openFile(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW);
    if (log.get() < 0 || copy.get() < 0)
        return false;
    fchmod(copy.get(), 0644);  // as the log
    if (copyLines(log.get(), copy.get(), size - keptOfLog, size) && rename(fresh.c_str(), kept.c_str()) == 0)
        return true;
    const int error = errno;
    unlink(fresh.c_str());
    errno = error;
    return false;
}

void takeReserve() { reserve = open("/dev/null", O_RDONLY | O_CLOEXEC); }

}  // namespace

void reserveLogDescriptor() { takeReserve(); }

// The lock is not held while the process ends: the listener, which may wait for it, is waited for then.
void reopenLog() {
    if (logFileName == nullptr)
        return;
    int fd = -1;
    {
        const std::lock_guard guard(ostrelLink::accepting);
        close(reserve);
        fd = openLogFile(logFileName);
    }
    if (fd < 0)
        std::exit(0);
    useLogFile(fd, logFileName);
    const std::lock_guard guard(ostrelLink::accepting);
    close(fd);
    takeReserve();
}

// Where no copy can be made the log is emptied all the same: a disk that is full is worse.
void boundLog() {
    if (!isTimeToLook())
        return;
    const off_t size = sizeOfLog();
    if (size == 0)
        return;
    const std::string kept = std::string(logFileName) + ".kept";
    const LogLock lock;
    const bool isKept = keepEnd(size, kept);
    const int error = errno;
    if (ftruncate(STDOUT_FILENO, 0) != 0)
        return;
    if (isKept)
        OSTREL_LOG(logLevel::error, "[ostrelServer] The log had %lld bytes: its end is now %s",
                   static_cast<long long>(size), kept.c_str());
    else
        OSTREL_LOG(logLevel::error, "[ostrelServer] The log had %lld bytes and is lost: %s: %s",
                   static_cast<long long>(size), kept.c_str(), std::strerror(error));
}
