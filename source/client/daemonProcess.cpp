#include "client/daemonProcess.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace client {

DaemonProcess::DaemonProcess(pid_t process)
    : fd_(process > 0 ? static_cast<int>(syscall(SYS_pidfd_open, process, 0)) : -1) {}

DaemonProcess::~DaemonProcess() {
    if (fd_ >= 0)
        close(fd_);
}

bool DaemonProcess::awaitEnd(const Deadline& deadline) const {
    pollfd end{fd_, POLLIN, 0};
    while (fd_ >= 0 && poll(&end, 1, static_cast<int>(deadline.remaining().count())) <= 0) {
        if (deadline.isOver())
            return false;
    }
    return true;
}

}  // namespace client
