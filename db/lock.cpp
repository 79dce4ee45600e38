#include "db/lock.h"

#include <fcntl.h>
#include <pthread.h>

#include <cerrno>
#include <thread>

namespace store {

using Clock = std::chrono::steady_clock;

Lock* Lock::first_ = nullptr;

Lock::Lock(const FileCalls& calls, const std::string& livePath)
    : calls_(calls), path_(livePath + ".lock"), file_(calls), next_(first_) {
    static const int registered = pthread_atfork(nullptr, nullptr, leaveInChild);
    static_cast<void>(
        registered);  // without memory for it a child keeps the lock, as if there were no handler
    first_ = this;
}

Lock::~Lock() {
    Lock** place = &first_;
    while (*place != this)
        place = &(*place)->next_;
    *place = next_;
}

// The lock belongs to the open file, which a forked child has, too: the next daemon would wait for its end.
void Lock::leaveInChild() {
    for (Lock* lock = first_; lock != nullptr; lock = lock->next_)
        lock->file_.close();
}

bool Lock::take(std::chrono::milliseconds patience) {
    constexpr std::chrono::milliseconds pause{20};
    const Clock::time_point end = Clock::now() + patience;
    while (!tryOnce()) {
        if (errno != EWOULDBLOCK || Clock::now() >= end)
            return false;
        std::this_thread::sleep_for(pause);
    }
    return true;
}

bool Lock::tryOnce() {
    if (isHeld())
        return true;
    if (!makeDirectories(calls_, directoryOf(path_)))
        return false;
    // On a read-only file system a lock file that exists can still be locked.
    // Who can open it can lock it, and so keep every daemon out. (An older version let everybody.)
    constexpr mode_t owners = 0600;
    const bool isOpen =
        file_.open(path_, O_RDWR | O_CREAT | O_NONBLOCK, owners) || file_.open(path_, O_RDONLY | O_NONBLOCK);
    if (isOpen && file_.status(status_) && (status_.st_mode & ~(S_IFMT | owners)) != 0)
        file_.setMode(owners);
    if (isOpen && file_.status(status_) && file_.lock()) {
        if (isHeld())
            return true;
        // Whoever removed the file before it was locked made this a lock that nobody else will see.
        errno = EWOULDBLOCK;
    }
    file_.close();
    return false;
}

bool Lock::isHeld() const {
    struct stat found {};
    return file_.isOpen() && calls_.stat(path_.c_str(), &found) == 0 && found.st_dev == status_.st_dev &&
           found.st_ino == status_.st_ino;
}

}  // namespace store
