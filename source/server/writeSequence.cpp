#include "server/writeSequence.h"

#include <array>
#include <cstdint>
#include <new>
#include <span>

#include "common/logText.h"
#include "common/marshalling.h"
#include "common/messageCodes.h"
#include "common/ostrelUtils.h"
#include "server/changeMessages.h"
#include "server/connections.h"
#include "server/globals.h"
#include "server/logFile.h"
#include "server/plugins.h"
#include "server/serverModule.h"
#include "server/storedOperations.h"
#include "db/ostrelDb.h"

namespace {

constexpr char sequenceName[] = "HandleWriteSequence";
constexpr std::size_t codeSize = 4;

// What the sequence does after a message.
enum class Next { receive, reopen, endedWell, endedFailed };

// How one change message is served. The texts are logged before, and after success; the last may be null.
struct ChangeMessage {
    std::uint32_t code;
    const char* got;
    bool (*unpack)(long handle, unsigned int nbBytes, unsigned char* bytes, ostrelLink* link);
    const char* end;
};

constexpr ChangeMessage changeMessages[] = {
    {messageCode::notify, "[ostrServer] Got notify message",
     [](long handle, unsigned int nbBytes, unsigned char* bytes, ostrelLink*) {
         return unpackNotifyMessage(handle, nbBytes, bytes);
     },
     "[ostrServer] Got notify message END"},
    {messageCode::erase, "[ostrServer] Got erase message",
     [](long handle, unsigned int nbBytes, unsigned char* bytes, ostrelLink*) {
         return unpackEraseMessage(handle, nbBytes, bytes);
     },
     nullptr},
    {messageCode::instanciate, "[ostrServer] Got instanciate message",
     [](long, unsigned int nbBytes, unsigned char* bytes, ostrelLink* link) {
         return unpackInstanciateMessage(nbBytes, bytes, link);
     },
     "[ostrServer] Got instanciate message END"},
    {messageCode::deinstanciate, "[ostrServer] Got deinstanciate message",
     [](long handle, unsigned int nbBytes, unsigned char* bytes, ostrelLink*) {
         return unpackDeinstanciateMessage(handle, nbBytes, bytes);
     },
     "[ostrServer] Got deinstanciate message END"},
    {messageCode::deinstanciateOwner, "[ostrServer] Got deinstanciate owner message",
     [](long handle, unsigned int nbBytes, unsigned char* bytes, ostrelLink*) {
         return unpackDeinstanciateOwnerMessage(handle, nbBytes, bytes);
     },
     "[ostrServer] Got deinstanciate message END"},
};

Next serveChange(const ChangeMessage& message, long handle, std::span<unsigned char> body, ostrelLink* link) {
    OSTREL_LOG_AS(sequenceName, logLevel::debug, "%s", message.got);
    if (!message.unpack(handle, static_cast<unsigned int>(body.size()), body.data(), link))
        return Next::endedFailed;
    if (message.end != nullptr)
        OSTREL_LOG_AS(sequenceName, logLevel::debug, "%s", message.end);
    return Next::receive;
}

void logNoMemory() { OSTREL_LOG_AS(sequenceName, logLevel::error, "[OstrelServer] Out of memory"); }

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
    OSTREL_LOG_AS(sequenceName, logLevel::debug, "[ostrServer] Got commit message");
    if (!commitTransaction(handle)) {
        OSTREL_LOG_AS(sequenceName, logLevel::error, "[ostrelServer] Warning, commit failed");
        return Next::endedFailed;
    }
    tellCommitted();
    return Next::endedWell;
}

Next serveMessage(long handle, std::span<unsigned char> payload, ostrelLink* link) {
    std::uint32_t code = readWord(payload.data());
    for (const ChangeMessage& message : changeMessages) {
        if (message.code == code)
            return serveChange(message, handle, payload.subspan(codeSize), link);
    }
    switch (code) {
        case messageCode::startWriting:
            OSTREL_LOG_AS(sequenceName, logLevel::error, "[ostrServer] Got startWritting message (AGAIN)");
            database->dataWriteRollback(handle);
            return Next::reopen;
        case messageCode::commit:
            return commit(handle);
        case messageCode::rollback:
            OSTREL_LOG_AS(sequenceName, logLevel::debug, "[ostrServer] Got rollback message");
            database->dataWriteRollback(handle);
            return Next::endedWell;
        default:
            OSTREL_LOG_AS(sequenceName, logLevel::error, "[OstrelServer] Got unhandled message :%d",
                          static_cast<int>(code));
            database->dataWriteRollback(handle);
            return Next::endedFailed;
    }
}

// Receives the next message, however long the client is silent, and serves it.
Next receiveMessage(long handle, ostrelConnection* connection) {
    std::array<unsigned char, receiveBufferSize> buffer{};
    unsigned int size = 0;
    if (!connection->link->receiveMessage(buffer.size(), &size, buffer.data())) {
        OSTREL_LOG_AS(
            sequenceName, logLevel::error,
            "[ostrServer::HandleWriteSequence] Received Message error or closed socket,  from client %s",
            LogText(connection->name.get()).text());
        database->dataWriteRollback(handle);
        return Next::endedFailed;
    }
    if (size < codeSize) {
        OSTREL_LOG_AS(sequenceName, logLevel::error,
                      "[ostrServer::HandleWriteSequence] Message without a code (size %d)",
                      static_cast<int>(size));
        database->dataWriteRollback(handle);
        return Next::endedFailed;
    }
    return serveMessage(handle, {buffer.data(), size}, connection->link.get());
}

// The transaction, from its beginning to what ends it or to another start message.
Next serveTransaction(ostrelConnection* connection) {
    destroyRecords(listOfChangedStuff);
    beginSequence();
    long handle = database->dataStartWriteTransaction();
    if (handle == invalidTransaction) {
        OSTREL_LOG_AS(sequenceName, logLevel::error,
                      "[ostrelServer::HandleWriteSequence] Warning, dataStartWriteTransaction returned "
                      "invalid handle");
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
    // Each broadcast gets the entries as they are when it starts: the first may add to them.
    PluginBroadcastChange(listOfChangedStuff);
    PluginBroadcastTrigger(listOfChangedStuff);
    destroyRecords(listOfChangedStuff);
    return popBackStoredMessage();
}

bool HandleWriteSequence(ostrelConnection* connection) {
    OSTREL_LOG(logLevel::debug, "[OstrelServer] Handle Write Sequence start");
    Next next = Next::reopen;
    while (next == Next::reopen)
        next = serveTransaction(connection);
    destroyRecords(listOfChangedStuff);
    return next == Next::endedWell;
}
