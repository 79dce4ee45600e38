// The process that runs the commands, seen from the daemon, which never waits for it.
#pragma once

#include <sys/types.h>

#include <optional>
#include <ostrel/plugin/file.hpp>
#include <string>
#include <vector>

#include "exec/rules.h"

namespace exec {

// Without die: the runner ends by itself when the socket is closed, as it is by any end of the daemon.
class RunnerProcess {
public:
    // False when none was started, or the last one has ended or takes no more requests.
    bool isServing() const;
    // Lets go of those that have ended, which are zombies until then.
    void waitForEnded();
    // Starts one in the place of a former. Throws CommandError, std::system_error.
    void start();
    // Asks it to run the rule's command. False when it has not taken the request.
    bool ask(const Rule& rule);
    // A rule whose request it has read, by its name; nothing when there is no more news. Told before the
    // command is started.
    std::optional<std::string> nextRead();

private:
    ostrel::plugin::Descriptor socket_{};
    // Those that have not been waited for: a former one may still be ending its commands.
    std::vector<pid_t> processes_{};
};

}  // namespace exec
