// The system's file calls, of which a test lets some fail.
#pragma once

#include "db/files.h"

// Fails calls from the given one on (counted from 1); a failing write leaves half of its bytes behind.
struct Faults {
    int first = 0;  // 0: none fails
    int last = 0;
    int error = 0;   // errno
    int calls = 0;   // made so far
    int forced = 0;  // fsync and fdatasync among them
};

extern Faults faults;
extern const store::FileCalls faultyFiles;
