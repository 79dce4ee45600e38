// The daemon's socket in the room: what the plug-in has started may read and change values as on a device.
#pragma once

#include <chrono>

#include "pluginBench/report.h"

namespace pluginBench {

// Throws std::runtime_error.
void openSocket();
// Serves what comes until the time is over; without a socket it only waits. A client that does not go on is a
// fault as an entry is.
void serveClients(const Report& report, std::chrono::milliseconds time);
// As at the daemon's end. Nothing is done without a socket.
void closeSocket();

}  // namespace pluginBench
