// The three requests that read the database and are answered at once.
//
// Main thread, with bllLock held. bytes: the request's payload behind its code, the caller's own, which is
// written to while it is served. 1 when the request was answered without any failure, 0 otherwise.
#pragma once

class ostrelLink;

int unpackReadMessage(unsigned int nbBytes, unsigned char* bytes, ostrelLink* link);
int unpackGetOwnerQtyMessage(unsigned int nbBytes, unsigned char* bytes, ostrelLink* link);
int unpackGetPKeyListMessage(unsigned int nbBytes, unsigned char* bytes, ostrelLink* link);
