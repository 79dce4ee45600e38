// Starting a command in such a way that it is known before it does anything.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace exec {

// In a process group of its own, with an empty standard input, the descriptor as both outputs, no other
// descriptor and the default action for all signals. The command itself runs only after beforeItRuns, which
// is given its process, has returned; when the caller is killed before, it never does. The caller waits for
// the process. Throws CommandError.
pid_t launch(const std::vector<std::string>& command, int outputs,
             const std::function<void(pid_t)>& beforeItRuns);

}  // namespace exec
