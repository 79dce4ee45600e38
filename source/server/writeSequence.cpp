#include "server/writeSequence.h"

#include <new>
#include <span>

#include "common/logText.h"
#include "common/marshalling.h"
#include "common/messageCodes.h"
#include "common/ostrelUtils.h"
#include "db/ostrelDb.h"
#include "log/serverLines.h"
#include "log/serverPlaces.h"
#include "server/changeMessages.h"
#include "server/commitBroadcasts.h"
#include "server/connections.h"
#include "server/globals.h"
#include "server/logFile.h"
#include "server/receiveRoom.h"
#include "server/storedOperations.h"

namespace {

constexpr size_t codeSize = 4;

// What the sequence does after a message.
enum class Next { receive, reopen, endedWell, endedFailed };

Next serveChange(const ChangeHandler& handler, long transaction, std::span<unsigned char> body,
                 ostrelLink& link) {
    OSTREL_LOG_AT(logPlace::writeSequence, logLevel::debug, "%s", handler.received);
    if (!handler(transaction, body, link))
        return Next::endedFailed;
    if (handler.served != nullptr)
        OSTREL_LOG_AT(logPlace::writeSequence, logLevel::debug, "%s", handler.served);
    return Next::receive;
}

void logNoMemory() {
    OSTREL_LOG_AT(logPlace::writeSequence, logLevel::error, "[OstrelServer] Out of memory");
}

// What leaves the database has left nothing of the transaction.
bool commitTransaction(long handle) {
    try {
        return database->dataCommit(handle) == 0;
    } catch (const std::bad_alloc&) {
        logNoMemory();
        return false;
    }
}

Next commit(long handle) {
    OSTREL_LOG_AT(logPlace::writeSequence, logLevel::debug, "[ostrServer] Got commit message");
    if (!commitTransaction(handle)) {
        OSTREL_LOG_AT(logPlace::writeSequence, logLevel::error, knownLine::commitFailed);
        return Next::endedFailed;
    }
    tellCommitted();
    return Next::endedWell;
}

Next serveMessage(long handle, std::span<unsigned char> payload, ostrelLink& link) {
    const uint32_t code = readWord(payload.data());
    if (const ChangeHandler* handler = findChangeHandler(code))
        return serveChange(*handler, handle, payload.subspan(codeSize), link);
    switch (code) {
        case messageCode::startWriting:
            OSTREL_LOG_AT(logPlace::writeSequence, logLevel::error,
                          "[ostrServer] Got startWritting message (AGAIN)");
            database->dataWriteRollback(handle);
            return Next::reopen;
        case messageCode::commit:
            return commit(handle);
        case messageCode::rollback:
            OSTREL_LOG_AT(logPlace::writeSequence, logLevel::debug, "[ostrServer] Got rollback message");
            database->dataWriteRollback(handle);
            return Next::endedWell;
        default:
            OSTREL_LOG_AT(logPlace::writeSequence, logLevel::error,
                          "[OstrelServer] Got unhandled message :%d", static_cast<int>(code));
            database->dataWriteRollback(handle);
            return Next::endedFailed;
    }
}

// Receives the next message, however long the client is silent, and serves it.
Next receiveMessage(long handle, ostrelConnection* connection) {
    ReceiveRoom room;
    unsigned int size = 0;
    if (!connection->link->receiveMessage(room.size(), &size, room.data())) {
        OSTREL_LOG_AT(
            logPlace::writeSequence, logLevel::error,
            "[ostrServer::HandleWriteSequence] Received Message error or closed socket,  from client %s",
            LogText(connection->name.get()).text());
        database->dataWriteRollback(handle);
        return Next::endedFailed;
    }
    if (size < codeSize) {
        OSTREL_LOG_AT(logPlace::writeSequence, logLevel::error,
                      "[ostrServer::HandleWriteSequence] Message without a code (size %d)",
                      static_cast<int>(size));
        database->dataWriteRollback(handle);
        return Next::endedFailed;
    }
    return serveMessage(handle, room.message(size), *connection->link);
}

// The transaction, from its beginning to what ends it or to another start message.
Next serveTransaction(ostrelConnection* connection) {
    destroyRecords(listOfChangedStuff);
    beginSequence();
    const long handle = database->dataStartWriteTransaction();
    if (handle == invalidTransaction) {
        OSTREL_LOG_AT(logPlace::writeSequence, logLevel::error, knownLine::noTransaction);
        return Next::endedFailed;
    }
    try {
        Next next = Next::receive;
        while (next == Next::receive) {
            boundLog();
            next = receiveMessage(handle, connection);
        }
        return next;
    } catch (const std::bad_alloc&) {
        logNoMemory();
        database->dataWriteRollback(handle);
        return Next::endedFailed;
    }
}

}  // namespace

bool tellCommitted() noexcept {
    broadcastClientsChanges();
    return popBackStoredMessage();
}

bool HandleWriteSequence(ostrelConnection* connection) {
    OSTREL_LOG_AT(logPlace::writeSequence, logLevel::debug, "[OstrelServer] Handle Write Sequence start");
    Next next = Next::reopen;
    while (next == Next::reopen)
        next = serveTransaction(connection);
    destroyRecords(listOfChangedStuff);
    return next == Next::endedWell;
}
