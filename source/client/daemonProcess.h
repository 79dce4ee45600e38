// The end of the daemon's process. It drops its clients before it has let go of the database.
#pragma once

#include <sys/types.h>

#include "client/deadline.h"

namespace client {

class DaemonProcess {
public:
    // While it runs. 0, or one that cannot be looked at: its end is not waited for.
    explicit DaemonProcess(pid_t process);
    ~DaemonProcess();
    DaemonProcess(const DaemonProcess&) = delete;
    DaemonProcess& operator=(const DaemonProcess&) = delete;

    // False when the deadline passes before it has ended.
    bool awaitEnd(const Deadline& deadline) const;

private:
    int fd_;
};

}  // namespace client
