#include "db/liveLog.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "db/log.h"

namespace store {
namespace {

constexpr size_t minDeadBytes = size_t{1} << 16U;
constexpr int maxKeptFiles = 1000;

bool isLinkUnsupported(int error) {
    return error == EPERM || error == EOPNOTSUPP || error == ENOSYS || error == EMLINK;
}

}  // namespace

LiveLog::LiveLog(const FileCalls& calls, std::string path)
    : calls_(calls), path_(std::move(path)), file_(calls), deadAt_(minDeadBytes) {}

std::string LiveLog::read() {
    // What a crash left of a rewrite.
    calls_.unlink((path_ + ".new").c_str());
    std::string text;
    if (!file_.open(path_, O_RDWR | O_APPEND)) {
        mustRewrite_ = true;
        if (errno == ENOENT)
            return text;
        STORE_ERROR("cannot write %s: %s", path_.c_str(), std::strerror(errno));
        file_.open(path_, O_RDONLY);
    }
    struct stat status {};
    if (!file_.isOpen() || !file_.readAll(text) || !file_.status(status)) {
        unreadable_ = true;
        STORE_ERROR("cannot read %s: %s; nothing can be committed until a restart reads it", path_.c_str(),
                    std::strerror(errno));
    }
    // The start that made them may have ended before it could.
    isAttached_ = syncDirectories(calls_, directoryOf(path_));
    mustRewrite_ = mustRewrite_ || !isAttached_;
    remember(status);
    return text;
}

void LiveLog::remember(const struct stat& status) {
    device_ = status.st_dev;
    inode_ = status.st_ino;
}

void LiveLog::recover(const LogScan& scan) {
    size_ = scan.goodBytes;
    lines_ = scan.goodLines;
    number_ = scan.lastNumber;
    if (unreadable_)
        return;
    if (scan.end == LogScan::End::torn) {
        STORE_ERROR("%s:%zu: an unfinished transaction is cut off", path_.c_str(), scan.badLine);
        cutTail();
    }
    if (scan.end == LogScan::End::damaged) {
        STORE_ERROR("%s:%zu: damaged; the database goes on with the %zu transactions before this line",
                    path_.c_str(), scan.badLine, scan.transactions);
        mustRewrite_ = true;
        mustKeep_ = true;
    }
}

void LiveLog::cutTail() {
    if (!file_.truncate(static_cast<off_t>(size_)) || !file_.syncData()) {
        STORE_ERROR("cannot cut %s back: %s", path_.c_str(), std::strerror(errno));
        mustRewrite_ = true;
    }
}

bool LiveLog::isTrusted() {
    if (mustRewrite_ || unreadable_)
        return false;
    struct stat status {};
    const bool found = calls_.stat(path_.c_str(), &status) == 0;
    if (found && status.st_dev == device_ && status.st_ino == inode_ &&
        static_cast<size_t>(status.st_size) == size_) {
        return true;
    }
    mustRewrite_ = true;
    mustKeep_ = found;
    STORE_ERROR("%s is not as it was left (%s); it will be written anew", path_.c_str(),
                found ? "changed by someone else" : std::strerror(errno));
    return false;
}

bool LiveLog::append(std::string transaction, size_t lines) {
    closeTransaction(transaction, number_ + 1, std::time(nullptr));
    const bool written = file_.writeAll(transaction);
    if (!written || !file_.syncData()) {
        STORE_ERROR("cannot %s %s: %s", written ? "sync" : "write", path_.c_str(), std::strerror(errno));
        // The system may have dropped what it could not sync, and report it only once.
        mustRewrite_ = mustRewrite_ || written;
        cutTail();
        return false;
    }
    size_ += transaction.size();
    lines_ += lines;
    ++number_;
    return true;
}

bool LiveLog::rewrite(std::string transaction, size_t lines) {
    deadAt_ = 2 * size_;  // not at every commit when it fails
    if (unreadable_) {
        STORE_ERROR("%s could not be read at the start and is not replaced", path_.c_str());
        return false;
    }
    if (mustKeep_ && !keepBeside())
        return false;
    closeTransaction(transaction, number_ + 1, std::time(nullptr));
    const std::string freshPath = path_ + ".new";
    File fresh(calls_);
    struct stat status {};
    if (!writeFresh(fresh, freshPath, transaction, status)) {
        STORE_ERROR("cannot write %s: %s", freshPath.c_str(), std::strerror(errno));
        calls_.unlink(freshPath.c_str());
        return false;
    }
    file_ = std::move(fresh);
    remember(status);
    size_ = transaction.size();
    lines_ = lines;
    ++number_;
    // Until the directory is synced a crash may bring the old file back.
    const std::string directory = directoryOf(path_);
    mustRewrite_ = !(isAttached_ ? syncDirectory(calls_, directory) : syncDirectories(calls_, directory));
    if (mustRewrite_) {
        STORE_ERROR("cannot sync the directory of %s: %s", path_.c_str(), std::strerror(errno));
        return false;
    }
    isAttached_ = true;
    deadAt_ = minDeadBytes;
    return true;
}

bool LiveLog::writeFresh(File& file, const std::string& path, const std::string& text, struct stat& status) {
    return file.open(path, O_RDWR | O_APPEND | O_CREAT | O_TRUNC) && file.writeAll(text) && file.sync() &&
           file.status(status) && calls_.rename(path.c_str(), path_.c_str()) == 0;
}

// The live name itself stays in place, so that no crash can leave the database without one.
bool LiveLog::keepBeside() {
    for (int number = 1; number <= maxKeptFiles; ++number) {
        const std::string kept = path_ + ".damaged-" + std::to_string(number);
        bool made = calls_.link(path_.c_str(), kept.c_str()) == 0;
        if (!made && isLinkUnsupported(errno))
            made = copyFile(calls_, path_, kept);
        if (made && syncDirectory(calls_, directoryOf(path_))) {
            STORE_ERROR("what stood in %s is kept as %s", path_.c_str(), kept.c_str());
            mustKeep_ = false;
            return true;
        }
        if (!made && errno == ENOENT) {
            mustKeep_ = false;
            return true;
        }
        if (made || errno != EEXIST)
            break;
    }
    STORE_ERROR("cannot keep what stands in %s: %s", path_.c_str(), std::strerror(errno));
    return false;
}

bool LiveLog::isMostlyDead(size_t liveLines) const { return size_ > deadAt_ && lines_ > 2 * liveLines; }

}  // namespace store
