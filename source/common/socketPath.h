// Where clients and server meet.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>

#include "process/localAddress.h"
#include "text/fixedPaths.h"

// The address ends with the path's last character: no NUL is counted.
constexpr socklen_t addressLength = offsetof(sockaddr_un, sun_path) + sizeof socketPath - 1;

inline sockaddr_un serverAddress() { return process::localAddress(socketPath); }

// Puts the socket there, whatever stands there and whoever puts other things there meanwhile, as every local
// user can; it may take some seconds then. False, with errno set, when even so it fails. One thread.
bool bindToPath(int fd);
