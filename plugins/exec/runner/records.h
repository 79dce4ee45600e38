// Which commands run, for the runner that follows one that was killed.
#pragma once

#include <sys/types.h>

#include <ostrel/plugin/file.hpp>
#include <string>
#include <vector>

namespace exec {

// A process, not only its number, which may become another's.
struct ProcessName {
    pid_t process = 0;
    unsigned long long startTime = 0;  // as in /proc/PID/stat
};

// True while it runs; a zombie does not.
bool isRunning(const ProcessName& name);
// True when the number is another process's by now.
bool isAnothers(const ProcessName& name);

// A command that a killed runner has left.
struct LeftCommand {
    std::string rule;
    std::string program;
    ProcessName leader;
    ostrel::plugin::Descriptor process{};  // the leader's
};

// Files in /run, one for each rule whose command runs. What fails is reported; the commands run even so.
class Records {
public:
    Records();
    void write(const std::string& rule, const std::string& program, pid_t leader) const;
    void remove(const std::string& rule) const;
    // Those that still run. The records of others, whose leader has ended or was one before the last boot,
    // are removed. Only while no other runner runs commands.
    std::vector<LeftCommand> leftCommands() const;

private:
    std::string bootId_{};  // empty: nothing is recorded
};

}  // namespace exec
