// The process's descriptors: the standard ones, what it inherited besides, and how many it may have.
//
// Main thread, before there is a second one; the two numbers then never change.
#pragma once

// Puts /dev/null on those of 0, 1 and 2 that are closed: whatever got their numbers would be written to as
// the log. To be called first of all.
void fillStandardDescriptors();

// All above 2, before anything of the daemon's own is open: closes them, or keeps them from the programs that
// it starts.
void closeInherited();
void hideInherited();

// The soft limit becomes the hard one, but at most 4096: the main loop waits for all that there are. Programs
// are to get back the one that there was.
void raiseDescriptorLimit();

// Clients have this number and all above it, so what is below stays for the store and the plug-ins. Where
// there are enough of both it is the first that select cannot take: plug-ins may use that.
int firstClientDescriptor();
// How many clients there is room for.
int mostClients();
