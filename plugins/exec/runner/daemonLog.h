// The daemon's log, which a runner inherits as its outputs, and keeps to when the daemon opens another file.
#pragma once

#include <unistd.h>

namespace exec {

class DaemonLog {
public:
    // Points the outputs at the file that the daemon logs to now.
    void follow() const;

private:
    pid_t daemon_ = getppid();
};

}  // namespace exec
