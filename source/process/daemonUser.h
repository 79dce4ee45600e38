// Who may serve the daemon's sockets: anybody can make them before the daemon does.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace process {

// Besides root and the caller: the user that the program names, else OSTREL_DAEMON_USER, unless that is empty
// or the process runs with another user's rights. A name or a number.
std::string namedUser(const std::string& byProgram = "");

// Why the user must not be taken for the daemon; nothing when he may. name: as namedUser() returns it.
std::optional<std::string> distrust(uid_t server, const std::string& name);

// The same of who listens at the other end of a connected socket, with the socket's path in front.
std::optional<std::string> distrustPeer(int fd, const std::string& path, const std::string& name);

}  // namespace process
