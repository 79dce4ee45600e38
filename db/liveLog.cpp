#include "db/liveLog.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "db/links.h"
#include "db/log.h"
#include "db/room.h"

namespace store {
namespace {

constexpr size_t minDeadBytes = size_t{1} << 16U;
constexpr int mostKeptFiles = 1000;

bool isLinkUnsupported(int error) {
    return error == EPERM || error == EOPNOTSUPP || error == ENOSYS || error == EMLINK;
}

bool isOutOfSpace(int error) { return error == ENOSPC || error == EDQUOT; }

// On a full disk there is none, which is no failure.
bool writeRoom(File& file, size_t at, const std::string& room) {
    return file.writeAllAt(room, at) || (isOutOfSpace(errno) && file.truncate(static_cast<off_t>(at)));
}

bool isSameFile(const struct stat& left, const struct stat& right) {
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

}  // namespace

LiveLog::LiveLog(const FileCalls& calls, std::string path, std::string root)
    : calls_(calls), path_(std::move(path)), root_(std::move(root)), file_(calls), deadAt_(minDeadBytes) {}

std::optional<uint64_t> LiveLog::freeBytes() const {
    struct statvfs status {};
    if (calls_.statvfs(directoryOf(target_).c_str(), &status) != 0)
        return std::nullopt;
    return uint64_t{status.f_bavail} * status.f_frsize;
}

bool LiveLog::follow() {
    std::optional<std::string> target = followLinks(calls_, path_, root_);
    if (!target)
        return false;
    target_ = *std::move(target);
    return true;
}

// Always false.
bool LiveLog::close(const char* reason) {
    isClosed_ = true;
    STORE_ERROR("cannot read %s: %s; nothing can be committed until a restart reads it", path_.c_str(),
                reason);
    return false;
}

std::string LiveLog::read() {
    std::string text;
    struct stat status {};
    if (!follow()) {
        close(std::strerror(errno));
        return text;
    }
    // To open what is no file may block, or do something.
    if (calls_.stat(target_.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        close(kindOf(status.st_mode));
        return text;
    }
    if (!file_.open(target_, O_RDWR | O_NONBLOCK)) {
        mustRewrite_ = true;
        if (errno == ENOENT)
            return text;
        STORE_ERROR("cannot write %s: %s", path_.c_str(), std::strerror(errno));
        file_.open(target_, O_RDONLY | O_NONBLOCK);
    }
    if (!file_.isOpen() || !file_.status(status) || !file_.readAll(text)) {
        close(std::strerror(errno));
        return text;
    }
    status_ = status;
    return text;
}

void LiveLog::recover(const LogScan& scan, std::string_view text) {
    const std::string_view good = text.substr(0, scan.goodBytes);
    const std::string_view rest = text.substr(scan.goodBytes);
    const bool isWhole = scan.end == LogScan::End::whole;
    size_ = scan.goodBytes;
    end_ = text.size();
    fillable_ = isWhole ? fillable(rest) : 0;
    lines_ = scan.goodLines;
    number_ = scan.lastNumber;
    lacksNewline_ = scan.lacksNewline;
    good_ = Fingerprint(good);
    left_ = good_;
    if (!isWhole)
        left_.add(rest);
    if (isClosed_)
        return;
    if (scan.isCut()) {
        STORE_ERROR("%s:%zu: an unfinished transaction is cut off", path_.c_str(), scan.badLine);
        mustCut_ = true;
        tail_ = scan.end == LogScan::End::doubtful ? rest : "";
    }
    if (scan.end == LogScan::End::damaged) {
        STORE_ERROR("%s:%zu: damaged; the database goes on with the %zu transactions before this line",
                    path_.c_str(), scan.badLine, scan.transactions);
        mustRewrite_ = true;
        mustKeep_ = true;
    }
}

void LiveLog::settle() {
    if (isClosed_ || std::exchange(isSettled_, true))
        return;
    // What a crash left of a rewrite.
    calls_.unlink((target_ + ".new").c_str());
    // The start that made them may have ended before it could.
    isAttached_ = syncDirectories(calls_, directoryOf(target_));
    mustRewrite_ = mustRewrite_ || !isAttached_;
    if (!std::exchange(mustCut_, false)) {
        // The last transaction's daemon may have ended before it forced it. It counts from now on, and must
        // be on the disk before a commit writes behind it.
        mustRewrite_ = mustRewrite_ || (size_ != 0 && !file_.syncData());
        return;
    }
    const bool isKept = tail_.empty() || keepTail();
    tail_.clear();
    if (isKept) {
        left_ = good_;
        cutTail();
    } else {
        mustRewrite_ = true;
        mustKeep_ = true;
    }
}

bool LiveLog::isAsLeft() {
    if (isClosed_)
        return false;
    std::string text;
    File file(calls_);
    const bool isOpen = file.open(target_, O_RDONLY | O_NONBLOCK);
    if (!isOpen && errno == ENOENT)
        return true;
    if (!isOpen || !file.readAll(text)) {
        STORE_ERROR("cannot read %s: %s", path_.c_str(), std::strerror(errno));
        return false;
    }
    const bool isSame = status_ && text.size() == end_ &&
                        Fingerprint(std::string_view(text).substr(0, left_.size())) == left_ &&
                        isRoom(std::string_view(text).substr(left_.size()));
    return isSame || close("it has changed since it was read");
}

// The room goes, too.
void LiveLog::cutTail() {
    end_ = size_;
    fillable_ = 0;
    if (!file_.truncate(static_cast<off_t>(size_)) || !file_.syncData()) {
        STORE_ERROR("cannot cut %s back: %s", path_.c_str(), std::strerror(errno));
        mustRewrite_ = true;
    }
}

bool LiveLog::isTrusted() {
    if (isClosed_)
        return false;
    struct stat found {};
    // As others will find it at the next start, through links that lead elsewhere by now.
    const bool isThere = calls_.stat((root_.empty() ? path_ : target_).c_str(), &found) == 0;
    if (isThere && !status_)
        return close("it was not there at the start");
    if (mustRewrite_)
        return false;
    if (isThere && isSameFile(found, *status_) && static_cast<size_t>(found.st_size) == end_) {
        status_ = found;
        return true;
    }
    mustRewrite_ = true;
    mustKeep_ = isThere;
    // With the file its folders may be gone.
    isAttached_ = isAttached_ && isThere;
    STORE_ERROR("%s is not as it was left (%s); it will be written anew", path_.c_str(),
                isThere ? "changed by someone else" : std::strerror(errno));
    return false;
}

LiveLog::Appended LiveLog::append(const std::string& transaction, size_t lines) {
    std::string text = transaction;
    closeTransaction(text, number_ + 1, std::time(nullptr));
    if (lacksNewline_)
        text.insert(0, 1, '\n');
    Appended result = write(text, roomBehind(text.size()));
    if (result == Appended::noSpace && isTrusted())
        result = write(text, 0);
    if (result != Appended::done)
        return result;
    lacksNewline_ = false;
    left_.add(text);
    lines_ += lines;
    ++number_;
    return result;
}

// room: bytes of the one that is to stand behind the transaction if that covers the present one.
LiveLog::Appended LiveLog::write(const std::string& transaction, size_t room) {
    const bool isCovered = transaction.size() >= fillable_;
    const std::string text = transaction + (isCovered ? makeRoom(room) : "#");
    const bool isWritten = file_.writeAllAt(text, size_);
    if (!isWritten || !file_.syncData()) {
        const bool isFull = isOutOfSpace(errno);
        if (isWritten || !isFull || room == 0)
            STORE_ERROR("cannot %s %s: %s", isWritten ? "sync" : "write", path_.c_str(),
                        std::strerror(errno));
        // The system may have dropped what it could not sync, and report it only once.
        mustRewrite_ = mustRewrite_ || isWritten;
        cutTail();
        return isFull ? Appended::noSpace : Appended::failed;
    }
    end_ = std::max(end_, size_ + text.size());
    size_ += transaction.size();
    fillable_ = isCovered ? room - std::min(room, size_t{1}) : fillable_ - transaction.size();
    return Appended::done;
}

bool LiveLog::rewrite(std::string transaction, size_t lines) {
    postponeRewrite();  // not at every commit when it fails
    if (isClosed_) {
        STORE_ERROR("%s was not read and is not replaced", path_.c_str());
        return false;
    }
    if (!follow()) {
        STORE_ERROR("cannot find %s: %s", path_.c_str(), std::strerror(errno));
        return false;
    }
    if (mustKeep_ && !keepBeside())
        return false;
    closeTransaction(transaction, number_ + 1, std::time(nullptr));
    const std::string directory = directoryOf(target_);
    File fresh(calls_);
    struct stat status {};
    const std::string room = makeRoom(roomBehind(0));
    if (!replace(fresh, target_, transaction, room, status))
        return false;
    file_ = std::move(fresh);
    status_ = status;
    left_ = Fingerprint(transaction);
    size_ = transaction.size();
    end_ = static_cast<size_t>(status.st_size);
    fillable_ = end_ > size_ ? fillable(room) : 0;
    lines_ = lines;
    ++number_;
    lacksNewline_ = false;
    mustCut_ = false;
    // Until the directory is synced a crash may bring the old file back.
    mustRewrite_ = true;
    if (!(isAttached_ ? syncDirectory(calls_, directory) : syncDirectories(calls_, directory))) {
        STORE_ERROR("cannot sync the directory of %s: %s", target_.c_str(), std::strerror(errno));
        return false;
    }
    mustRewrite_ = false;
    isAttached_ = true;
    deadAt_ = minDeadBytes;
    return true;
}

// Puts a complete, synced file with the live file's owner and mode at the path, which then is not durable
// yet.
bool LiveLog::replace(File& file, const std::string& path, const std::string& text, const std::string& room,
                      struct stat& status) {
    const std::string fresh = target_ + ".new";
    calls_.unlink(fresh.c_str());
    const mode_t mode = status_ ? 0600 : 0644;
    if (file.open(fresh, O_RDWR | O_CREAT | O_EXCL, mode) && (!status_ || file.becomeLike(*status_)) &&
        file.writeAll(text) && writeRoom(file, text.size(), room) && file.sync() && file.status(status) &&
        calls_.rename(fresh.c_str(), path.c_str()) == 0)
        return true;
    const int error = errno;
    STORE_ERROR("cannot write %s: %s", fresh.c_str(), std::strerror(error));
    file.close();
    calls_.unlink(fresh.c_str());
    if (const std::optional<uint64_t> free = freeBytes(); isOutOfSpace(error) && free)
        STORE_ERROR("it takes %zu bytes, and %llu are free there", text.size(),
                    static_cast<unsigned long long>(*free));
    return false;
}

bool LiveLog::keepLines(const std::string& lines) {
    const std::string kept = target_ + ".dropped-" + hexCrc(lines);
    struct stat status {};
    if (calls_.stat(kept.c_str(), &status) == 0)
        return true;
    File file(calls_);
    if (!replace(file, kept, lines, {}, status))
        return false;
    if (!syncDirectory(calls_, directoryOf(kept))) {
        STORE_ERROR("cannot sync the directory of %s: %s", kept.c_str(), std::strerror(errno));
        calls_.unlink(kept.c_str());
        return false;
    }
    STORE_ERROR("what this firmware does not allow of %s is kept as %s", path_.c_str(), kept.c_str());
    return true;
}

// In one file, as each power cut may leave some.
bool LiveLog::keepTail() {
    const std::string kept = target_ + ".torn";
    File file(calls_);
    struct stat status {};
    if (!replace(file, kept, tail_, {}, status))
        return false;
    if (!syncDirectory(calls_, directoryOf(kept))) {
        STORE_ERROR("cannot sync the directory of %s: %s", kept.c_str(), std::strerror(errno));
        return false;
    }
    STORE_ERROR("what is cut off may be a damaged transaction; it is kept as %s", kept.c_str());
    return true;
}

// A start that could keep the file, but not rewrite it, was before this one.
bool LiveLog::isKeptAs(const std::string& kept) const {
    struct stat mine {};
    struct stat theirs {};
    if (calls_.stat(target_.c_str(), &mine) != 0 || calls_.stat(kept.c_str(), &theirs) != 0)
        return false;
    if (isSameFile(mine, theirs) || mine.st_size != theirs.st_size)
        return isSameFile(mine, theirs);
    File left(calls_);
    File right(calls_);
    std::string bytes;
    std::string copy;
    return left.open(target_, O_RDONLY) && left.readAll(bytes) && right.open(kept, O_RDONLY) &&
           right.readAll(copy) && bytes == copy;
}

// The live name itself stays in place, so that no crash can leave the database without one.
bool LiveLog::keepBeside() {
    for (int number = 1; number <= mostKeptFiles; ++number) {
        const std::string kept = target_ + ".damaged-" + std::to_string(number);
        bool made = calls_.link(target_.c_str(), kept.c_str()) == 0;
        if (!made && isLinkUnsupported(errno))
            made = copyFile(calls_, target_, kept);
        if (!made && errno == ENOENT) {
            mustKeep_ = false;
            return true;
        }
        if (!made && errno != EEXIST)
            break;
        if (!made && !isKeptAs(kept))
            continue;
        if (!syncDirectory(calls_, directoryOf(target_)))
            break;
        STORE_ERROR("what stood in %s is kept as %s", path_.c_str(), kept.c_str());
        mustKeep_ = false;
        return true;
    }
    STORE_ERROR("cannot keep what stands in %s: %s", path_.c_str(), std::strerror(errno));
    return false;
}

bool LiveLog::isMostlyDead(size_t liveLines, size_t liveBytes) const {
    return size_ > deadAt_ && (lines_ > 2 * liveLines || size_ > 2 * liveBytes);
}

}  // namespace store
