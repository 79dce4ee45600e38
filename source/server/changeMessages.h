// The messages that change the database inside a write sequence.
//
// Main thread, with bllLock held. bytes: the message's payload behind its code. Each value is applied at
// once, in list order, and noted in listOfChangedStuff. False: the message was not applied whole, and the
// transaction has been rolled back.
#pragma once

#include <span>
#include <vector>

#include "ostrel/plugin.h"

class ostrelLink;

// Every change is counted (see SequenceSize), and refused when a sequence takes too much memory. A sequence
// begins with this.
void beginSequence();

enum class ChangeKind { write, erase, remove, removeOwned };
// The same for decoded values, but false leaves the transaction to the caller's rollback.
bool applyChanges(ChangeKind kind, long handle, std::span<OstrelValue> values);
// Makes an instance for each value; keys receives their primary keys in order.
bool instanciateAll(long handle, std::span<OstrelValue> values, std::vector<unsigned int>& keys);

bool unpackNotifyMessage(long handle, unsigned int nbBytes, unsigned char* bytes);
bool unpackEraseMessage(long handle, unsigned int nbBytes, unsigned char* bytes);
bool unpackDeinstanciateMessage(long handle, unsigned int nbBytes, unsigned char* bytes);
bool unpackDeinstanciateOwnerMessage(long handle, unsigned int nbBytes, unsigned char* bytes);
// Works in the open transaction and answers on link: with the new primary keys, or with a failure when the
// list does not decode.
bool unpackInstanciateMessage(unsigned int nbBytes, unsigned char* bytes, ostrelLink* link);
