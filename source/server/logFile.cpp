#include "server/logFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <mutex>

#include "common/ostrelLink.h"
#include "common/ostrelUtils.h"
#include "server/globals.h"

namespace {

int reserve = -1;

void takeReserve() { reserve = open("/dev/null", O_RDONLY | O_CLOEXEC); }

}  // namespace

void reserveLogDescriptor() { takeReserve(); }

// The lock is not held while the process ends: the listener, which may wait for it, is waited for then.
void reopenLog() {
    if (logFileName == nullptr)
        return;
    int fd = -1;
    {
        std::lock_guard guard(ostrelLink::accepting);
        close(reserve);
        fd = openLogFile(logFileName);
    }
    if (fd < 0)
        std::exit(0);
    useLogFile(fd, logFileName);
    std::lock_guard guard(ostrelLink::accepting);
    close(fd);
    takeReserve();
}
