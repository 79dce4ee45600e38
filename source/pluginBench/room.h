// The room that a plug-in runs in: private mount, process, network, host name and IPC namespaces. /vemra,
// /tmp, /var, /run and /dev/shm are empty, /dev has no devices that reach anything, and the rest is the
// machine's, read-only, but for the private folders, which are copies.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "pluginBench/scenario.h"

namespace pluginBench {

// The folder in the room with what plug-ins and their scripts call of the system's own.
constexpr char roomPrograms[] = "/vemra/bin";

class Room {
public:
    Room();

    // Like fork(2), but the child is the first process of a process namespace and, without root's rights, of
    // a user namespace. The others there end with it. Throws std::system_error.
    pid_t fork() const;
    // In the child: makes the rest of the room and enters it. plugin: a file, which is copied into the
    // plug-in folder; its path there is returned. Throws std::system_error, or ScenarioError.
    std::string enter(const Scenario& scenario, const std::string& plugin) const;

private:
    const uid_t user_;
    const gid_t group_;
};

// Makes its folders, too; what begins with "#!" can be run. Throws ScenarioError.
void writeRoomFile(const std::string& path, std::string_view content);

}  // namespace pluginBench
