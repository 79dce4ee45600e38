// The least that a server with this framing can do: wait, read a frame in three reads, write one in three
// writes.
#pragma once

#include <cstddef>
#include <string>

// Serves /tmp/echo.sock in this process until it is killed. The payload's first word of a request tells what
// is done before the reply, its second the size of the reply's payload.
[[noreturn]] void serveEcho();

namespace echoTask {
constexpr unsigned int reply = 0;
constexpr unsigned int appendAndSync = 1;  // the third word's number of bytes, to /vemra/var/bare
}  // namespace echoTask
