#include "server/dispatcher.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <span>

#include "common/logText.h"
#include "common/marshalling.h"
#include "common/messageCodes.h"
#include "common/ostrelUtils.h"
#include "log/serverLines.h"
#include "log/serverPlaces.h"
#include "server/connections.h"
#include "server/mainLoop.h"
#include "server/readRequests.h"
#include "server/receiveRoom.h"
#include "server/writeSequence.h"

namespace {

using Payload = std::span<unsigned char>;
using ReadHandler = int (*)(unsigned int, unsigned char*, ostrelLink*);

constexpr size_t codeSize = 4;

bool serveConnect(ostrelConnection& connection, Payload payload) {
    constexpr size_t nameAt = 8;
    const size_t length = payload.size() < nameAt ? 0 : readWord(payload.data() + codeSize);
    if (payload.size() < nameAt || length > payload.size() - nameAt) {
        OSTREL_LOG_AT(logPlace::dispatcher, logLevel::error,
                      "[ostrServer::PopMessage] Malformed connect message (size %d)",
                      static_cast<int>(payload.size()));
        return false;
    }
    std::unique_ptr<char[]> name(new (std::nothrow) char[length + 1]);
    if (!name) {
        OSTREL_LOG_AT(logPlace::dispatcher, logLevel::error, "[ostrServer::PopMessage] Out of memory");
        return false;
    }
    name[length] = '\0';
    std::memcpy(name.get(), payload.data() + nameAt, length);
    {
        const BllGuard guard;  // the listener reads the names
        connection.name = std::move(name);
    }
    OSTREL_LOG_AT(logPlace::dispatcher, logLevel::error, knownLine::connected,
                  LogText(connection.name.get()).text());
    connection.connected = 1;
    return true;
}

// True unless the client did not take the answer: it could not make sense of what follows. One that has
// closed stays until all is served that it sent before, which may be a whole write sequence.
bool serveRead(ReadHandler handler, ostrelConnection& connection, Payload payload) {
    const Payload body = payload.subspan(codeSize);
    const BllGuard guard;
    handler(static_cast<unsigned int>(body.size()), body.data(), connection.link.get());
    return connection.link->usable();
}

bool serveWriteSequence(ostrelConnection& connection) {
    OSTREL_LOG_AT(logPlace::dispatcher, logLevel::debug, "[OSTREL SERVER] Start Writing sequence");
    const BllGuard guard;
    const bool keep = HandleWriteSequence(&connection);
    OSTREL_LOG_AT(logPlace::dispatcher, logLevel::debug, "[OSTREL SERVER] End Writing sequence");
    return keep;
}

}  // namespace

bool popMessage(ostrelConnection* connection) {
    ReceiveRoom room;
    unsigned int size = 0;
    if (!connection->link->receiveReadyMessage(room.size(), &size, room.data())) {
        OSTREL_LOG_AT(logPlace::dispatcher, logLevel::debug,
                      "received message error or closed socket, from client %s",
                      LogText(connection->name.get()).text());
        return false;
    }
    if (size < codeSize) {
        OSTREL_LOG_AT(logPlace::dispatcher, logLevel::error,
                      "[ostrServer::PopMessage] Message without a code (size %d)", static_cast<int>(size));
        return false;
    }
    const Payload payload = room.message(size);
    const uint32_t code = readWord(payload.data());
    switch (code) {
        case messageCode::connect:
            return serveConnect(*connection, payload);
        case messageCode::read:
            return serveRead(unpackReadMessage, *connection, payload);
        case messageCode::ownerQty:
            OSTREL_LOG_AT(logPlace::dispatcher, logLevel::debug, "[ostrServer] Got get owner qty message");
            return serveRead(unpackGetOwnerQtyMessage, *connection, payload);
        case messageCode::pKeyList:
            OSTREL_LOG_AT(logPlace::dispatcher, logLevel::debug,
                          "[ostrServer] Got get primary key list message");
            return serveRead(unpackGetPKeyListMessage, *connection, payload);
        case messageCode::startWriting:
            return serveWriteSequence(*connection);
        case messageCode::shutdown:
            shutdownServer();
        default:
            OSTREL_LOG_AT(logPlace::dispatcher, logLevel::error,
                          "[ostrServer::PopMessage] Got unknown message 0x%x (size %d)", code,
                          static_cast<int>(size));
            return true;
    }
}
