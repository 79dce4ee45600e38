#include "client/daemonProcess.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace client {

DaemonProcess::DaemonProcess(pid_t number)
    : fd_(number > 0 ? static_cast<int>(syscall(SYS_pidfd_open, number, 0)) : -1) {}

bool DaemonProcess::awaitEnd(const Deadline& deadline) const {
    pollfd end{fd_.get(), POLLIN, 0};
    while (fd_ && poll(&end, 1, static_cast<int>(deadline.remaining().count())) <= 0) {
        if (deadline.isOver())
            return false;
    }
    return true;
}

}  // namespace client
