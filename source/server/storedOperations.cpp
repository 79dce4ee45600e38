#include "server/storedOperations.h"

#include "common/logText.h"
#include "common/ostrelUtils.h"
#include "db/ostrelDb.h"
#include "log/serverLines.h"
#include "server/commitBroadcasts.h"
#include "server/deinstanciateKind.h"
#include "server/globals.h"
#include "server/serverModule.h"

namespace {

// A plug-in that stores a write of what it watches in every restart would replay for ever.
constexpr int mostPasses = 100;

bool apply(long handle, OstrelValue* record) {
    if (record->tpltName != nullptr)
        return ostrelDoInstanciate(handle, record);
    if (record->deinstanciateKind != deinstanciateKind::none)
        return ostrelDoDeinstanciate(handle, record);
    return OstrelDoWrite(handle, record);
}

// Applies every stored record in one transaction and commits it. Nothing is stored meanwhile: no plug-in is
// called.
bool applyStored() {
    const long handle = database->dataStartWriteTransaction();
    if (handle == invalidTransaction) {
        OSTREL_LOG_AT(logPlace::replay, logLevel::error, knownLine::noTransaction);
        destroyRecords(listOfStoredValues);
        return false;
    }
    // Over a copy: a failing write destroys the records and empties the list.
    const std::vector<OstrelValue*> records = listOfStoredValues;
    for (OstrelValue* record : records) {
        if (!apply(handle, record))
            return false;
    }
    if (database->dataCommit(handle) != 0) {
        OSTREL_LOG_AT(logPlace::replay, logLevel::error, "error: commit failed");
        destroyRecords(listOfStoredValues);
        return false;
    }
    return true;
}

void broadcastApplied() {
    for (const OstrelValue* record : listOfStoredValues) {
        if (record->tpltName == nullptr)
            addChanged(record->name);
    }
    destroyRecords(listOfStoredValues);
    broadcastReplayedChanges();
}

}  // namespace

bool popBackStoredMessage() {
    OSTREL_LOG_AT(logPlace::replay, logLevel::debug, "\t** Poping Stored Messages :%d",
                  static_cast<int>(listOfStoredValues.size()));
    for (int pass = 0; !listOfStoredValues.empty(); ++pass) {
        if (pass == mostPasses) {
            OSTREL_LOG_AT(logPlace::replay, logLevel::error,
                          "[ostrelServer::popBackStoredMessage] Replay stopped after %d passes, next is <%s>",
                          pass, LogText(listOfStoredValues.front()->name).text());
            return false;
        }
        OSTREL_LOG_AT(logPlace::replay, logLevel::debug, "\t**<%d> Poping Stored Messages :%d, %s", pass,
                      static_cast<int>(listOfStoredValues.size()),
                      LogText(listOfStoredValues.front()->name).text());
        destroyRecords(listOfChangedStuff);
        if (!applyStored())
            return false;
        broadcastApplied();
    }
    OSTREL_LOG_AT(logPlace::replay, logLevel::debug, "\t** Exiting Stored Messages :%d", 0);
    return true;
}

bool OstrelDoWrite(long handle, OstrelValue* value) {
    const int size = static_cast<int>(value->size);
    if (value->pKey != 0) {
        if (database->reWriteElement(handle, value->name, value->pKey, size, value->value, value->type) !=
            refused)
            return true;
        OSTREL_LOG(logLevel::error, "[Ostrel] DataReWrite failed for <%s>!", LogText(value->name).text());
        database->dataWriteRollback(handle);
        return false;
    }
    if (database->createElement(handle, value->name, size, value->value, value->type) != refused)
        return true;
    OSTREL_LOG(logLevel::error, "[ostrelServer::popBackStoredMessage] DataWrite failed for <%s>!",
               LogText(value->name).text());
    database->dataWriteRollback(handle);
    destroyRecords(listOfStoredValues);
    return false;
}

bool ostrelDoInstanciate(long handle, OstrelValue* value) {
    if (database->instanciateTmplt(handle, value->tpltName, value->name, value->owner, nullptr) != refused)
        return true;
    database->dataWriteRollback(handle);
    OSTREL_LOG(logLevel::error, "Instanciate <%s> error", LogText(value->tpltName).text());
    return false;
}

bool ostrelDoDeinstanciate(long handle, OstrelValue* value) {
    if (value->deinstanciateKind == deinstanciateKind::one) {
        if (database->removeInstance(handle, value->name, &value->pKey, 1) != refused)
            return true;
        OSTREL_LOG(logLevel::error, "Deinstanciate <%s> error", LogText(value->name).text());
        database->dataWriteRollback(handle);
        return false;
    }
    if (value->deinstanciateKind == deinstanciateKind::owners) {
        if (database->removeInstances(handle, value->name, value->owner) != refused)
            return true;
        OSTREL_LOG(logLevel::error, "Deinstanciate owner <%s> error", LogText(value->name).text());
        database->dataWriteRollback(handle);
        return false;
    }
    return true;
}
