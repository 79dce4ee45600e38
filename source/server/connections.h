// The accepted clients, the thread that accepts them, and the lock around their list.
#pragma once

#include <memory>

#include "common/ostrelLink.h"

struct ostrelConnection {
    int connected = 0;                 // 1 once the client has sent its connect message; interface only
    std::unique_ptr<char[]> name;      // from the connect message; null until then
    std::unique_ptr<ostrelLink> link;  // built on fd, which it closes
    int fd = -1;
};

// Holds bllLock. Ends the daemon when the lock cannot be taken or given back.
class BllGuard {
public:
    BllGuard();
    ~BllGuard();
    BllGuard(const BllGuard&) = delete;
    BllGuard& operator=(const BllGuard&) = delete;
};

// From here on clients can connect; they are served when popMessage is called. After raiseDescriptorLimit.
// Ends the process when it cannot be.
void startServing();
// Any thread, also inside exit. When it returns the listener uses nothing of the process's state any more.
// Gives bllLock back when the calling thread holds it.
void stopListener();

// The thread's entry. Appends each accepted client to listOfConnection and wakes the main thread.
void* listener(void*);

// Main thread, without bllLock held. index is a place in listOfConnection.
void removeCnx(int index);

// Readable when a client was appended since clearNewClients. Main thread.
int newClientsFd();
void clearNewClients();
