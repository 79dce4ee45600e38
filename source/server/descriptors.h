// The process's descriptors: the standard ones, what it inherited besides, and how many it may have.
//
// Main thread, before there is a second one.
#pragma once

// Puts /dev/null on those of 0, 1 and 2 that are closed: whatever got their numbers would be written to as
// the log. To be called first of all.
void fillStandardDescriptors();

// All above 2, before anything of the daemon's own is open: closes them, or keeps them from the programs that
// it starts.
void closeInherited();
void hideInherited();
