// The messages that change the database inside a write sequence.
//
// Main thread, with bllLock held. bytes: the message's payload behind its code. Each value is applied at
// once, in list order, and noted in listOfChangedStuff. False: the message was not applied whole, and the
// transaction has been rolled back.
#pragma once

class ostrelLink;

bool unpackNotifyMessage(long handle, unsigned int nbBytes, unsigned char* bytes);
bool unpackEraseMessage(long handle, unsigned int nbBytes, unsigned char* bytes);
bool unpackDeinstanciateMessage(long handle, unsigned int nbBytes, unsigned char* bytes);
bool unpackDeinstanciateOwnerMessage(long handle, unsigned int nbBytes, unsigned char* bytes);
// Works in the open transaction and answers on link: with the new primary keys, or with a failure when the
// list does not decode.
bool unpackInstanciateMessage(unsigned int nbBytes, unsigned char* bytes, ostrelLink* link);
