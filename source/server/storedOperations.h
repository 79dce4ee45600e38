// The operations that plug-ins postponed, and the appliers that they share with those applied at once.
//
// Main thread; nothing here takes a lock.
#pragma once

#include "ostrel/plugin.h"

// Replays listOfStoredValues, each pass in a transaction of its own followed by the broadcasts, until nothing
// is stored. False after a failure, which is logged. Plug-ins are called.
bool popBackStoredMessage();

// Carry out one operation in the open transaction. After a false result the transaction has been rolled back;
// a failed write of a plain value has also destroyed every stored operation, value itself perhaps among them.
bool OstrelDoWrite(long handle, OstrelValue* value);
bool ostrelDoInstanciate(long handle, OstrelValue* value);
bool ostrelDoDeinstanciate(long handle, OstrelValue* value);
