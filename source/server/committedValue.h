// The read of one value that is answered to clients and to plug-ins alike.
//
// Main thread, with bllLock held or inside a plug-in's entry; nothing here takes a lock.
#pragma once

#include "ostrel/valueType.h"

struct CommittedValue {
    bool typed = false;  // the key has a type
    bool read = false;   // the bytes are in the buffer; size and type are set
    unsigned int size = 0;
    ostrelValueType type = ostrelTypeNone;
};

// room: bytes in buffer. Whatever the value's type; a value that does not fit is not read.
CommittedValue readCommitted(const char* key, unsigned int pKey, unsigned int room, unsigned char* buffer);
