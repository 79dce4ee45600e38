#include "db/lock.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

#include "db/log.h"

namespace store {

bool tryLock(File& lock, const std::string& livePath) {
    const std::string path = livePath + ".lock";
    // On a read-only file system a lock file that exists can still be locked.
    return (lock.open(path, O_RDWR | O_CREAT) || lock.open(path, O_RDONLY)) && lock.lock();
}

File lockDatabase(const FileCalls& calls, const std::string& livePath) {
    File lock(calls);
    if (!tryLock(lock, livePath)) {
        if (lock.isOpen() && errno == EWOULDBLOCK)
            Die("Database in use");
        STORE_ERROR("cannot %s %s.lock: %s; going on without a lock", lock.isOpen() ? "lock" : "open",
                    livePath.c_str(), std::strerror(errno));
    }
    return lock;
}

}  // namespace store
