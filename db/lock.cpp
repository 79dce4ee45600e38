#include "db/lock.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

#include "db/log.h"

namespace store {

File lockDatabase(const FileCalls& calls, const std::string& livePath) {
    const std::string path = livePath + ".lock";
    File file(calls);
    // On a read-only file system a lock file that exists can still be locked.
    if (!file.open(path, O_RDWR | O_CREAT) && !file.open(path, O_RDONLY)) {
        STORE_ERROR("cannot open %s: %s; going on without a lock", path.c_str(), std::strerror(errno));
        return file;
    }
    if (!file.lock()) {
        if (errno == EWOULDBLOCK)
            Die("Database in use");
        STORE_ERROR("cannot lock %s: %s; going on without a lock", path.c_str(), std::strerror(errno));
    }
    return file;
}

}  // namespace store
