// Which process is the daemon, as far as the system tells.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

struct Peer {
    pid_t process = 0;  // 0: not known
    std::optional<uid_t> user{};
    bool queueFull = false;  // so many clients wait to be accepted that no other can
};

Peer peerOfSocket();

// The process that holds the database's lock; 0: none, or not known.
pid_t holderOfDatabase();

// The path of its program, with " (deleted)" behind it when the file was replaced; of another user's process
// the name only; empty when there is no such process.
std::string programOf(pid_t process);

// Whether a signal or a debugger has stopped it.
bool isStopped(pid_t process);
