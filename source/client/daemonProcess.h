// The end of the daemon's process. It drops its clients before it has let go of the database.
#pragma once

#include <sys/types.h>

#include "client/deadline.h"
#include "process/descriptor.h"

namespace client {

class DaemonProcess {
public:
    // While it runs. 0, or one that cannot be looked at: its end is not waited for.
    explicit DaemonProcess(pid_t number);

    // False when the deadline passes before it has ended.
    bool awaitEnd(const Deadline& deadline) const;

private:
    process::Descriptor fd_;
};

}  // namespace client
