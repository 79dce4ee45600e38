// Routes one message of one client.
#pragma once

struct ostrelConnection;

// Receives one message from the connection, which a wait found readable, and serves it. False: the caller
// must remove the connection. Main thread, without bllLock held; does not return when the message is the
// shutdown.
bool popMessage(ostrelConnection* connection);
