// The messages that change the database inside a write sequence.
//
// Main thread, with bllLock held.
#pragma once

#include <cstdint>
#include <span>

#include "ostrel/plugin.h"
#include "server/changeHandler.h"

// Every change is counted (see SequenceSize), and refused when a sequence takes too much memory. A sequence
// begins with this.
void beginSequence();

// Null when the code is none of such a message.
const ChangeHandler* findChangeHandler(uint32_t code);

// What the message of that code does with values that were decoded: ChangeHandler::applyAll.
bool applyChanges(uint32_t code, long transaction, std::span<OstrelValue> values);
