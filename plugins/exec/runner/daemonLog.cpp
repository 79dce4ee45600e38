#include "exec/runner/daemonLog.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <ostrel/plugin/file.hpp>
#include <string>

namespace exec {

void DaemonLog::follow() const {
    // Not that of a process which got the number of a daemon that is gone.
    if (getppid() != daemon_)
        return;
    const std::string file = "/proc/" + std::to_string(daemon_) + "/fd/1";
    struct stat theirs {};
    struct stat ours {};
    if (stat(file.c_str(), &theirs) != 0 || fstat(STDOUT_FILENO, &ours) != 0 || !S_ISREG(theirs.st_mode) ||
        (theirs.st_dev == ours.st_dev && theirs.st_ino == ours.st_ino))
        return;
    const ostrel::plugin::Descriptor log(open(file.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
    if (!log)
        return;
    dup2(log.get(), STDOUT_FILENO);
    dup2(log.get(), STDERR_FILENO);
}

}  // namespace exec
