#include "server/changeMessages.h"

#include <algorithm>
#include <memory>
#include <new>

#include "common/logText.h"
#include "common/marshalling.h"
#include "common/messageCodes.h"
#include "common/ostrelLink.h"
#include "common/ostrelUtils.h"
#include "db/ostrelDb.h"
#include "log/serverLines.h"
#include "log/serverPlaces.h"
#include "server/globals.h"
#include "server/sequenceSize.h"

namespace {

// Of the one sequence that is open.
SequenceSize sequenceSize;

size_t instancesOf(const OstrelValue& value, unsigned int owner) {
    return static_cast<size_t>(std::max(0, database->getVectorSize(value.name, owner)));
}

bool countWrite(const OstrelValue& value) { return sequenceSize.takeWrite(value.name, value.size); }
// The plain value and the vector's elements.
bool countErase(const OstrelValue& value) {
    return sequenceSize.takeRemoval(value.name, 1 + instancesOf(value, 0));
}
bool countInstance(const OstrelValue& value) { return sequenceSize.takeInstance(value.name, value.tpltName); }
bool countOne(const OstrelValue& value) { return sequenceSize.takeRemoval(value.name, 1); }
bool countOwned(const OstrelValue& value) {
    return sequenceSize.takeRemoval(value.name, instancesOf(value, value.owner));
}

bool writeValue(long transaction, OstrelValue& value) {
    const int size = static_cast<int>(value.size);
    const int result =
        value.pKey != 0
            ? database->reWriteElement(transaction, value.name, value.pKey, size, value.value, value.type)
            : database->createElement(transaction, value.name, size, value.value, value.type);
    return result != refused;
}

bool eraseValue(long transaction, OstrelValue& value) {
    return database->destroyElement(transaction, value.name) != refused;
}

bool instanciate(long transaction, OstrelValue& value) {
    return database->instanciateTmplt(transaction, value.tpltName, value.name, value.owner, &value.pKey) !=
           refused;
}

bool removeOne(long transaction, OstrelValue& value) {
    return database->removeInstance(transaction, value.name, &value.pKey, 1) != refused;
}

bool removeOwned(long transaction, OstrelValue& value) {
    return database->removeInstances(transaction, value.name, value.owner) != refused;
}

void logRefusedWrite(LogPlace place, const OstrelValue& value) {
    OSTREL_LOG_AT(place, logLevel::error, "[Ostrel] %s failed for <%s>!",
                  value.pKey != 0 ? "DataReWrite" : "DataWrite", LogText(value.name).text());
}

void logRefusedErase(LogPlace place, const OstrelValue& value) {
    OSTREL_LOG_AT(place, logLevel::error, "[Ostrel] Erase element failed for <%s>!",
                  LogText(value.name).text());
}

void logRefusedInstance(LogPlace place, const OstrelValue& value) {
    OSTREL_LOG_AT(place, logLevel::error, "[Ostrel] Instanciate failed for <%s/%s>!",
                  LogText(value.tpltName).text(), LogText(value.name).text());
}

void logRefusedOne(LogPlace place, const OstrelValue& value) {
    OSTREL_LOG_AT(place, logLevel::error, "[Ostrel] Deinstanciate failed for <%s _ %X>!",
                  LogText(value.name).text(), value.pKey);
}

void logRefusedOwned(LogPlace place, const OstrelValue& value) {
    OSTREL_LOG_AT(place, logLevel::error, "[Ostrel] Deinstanciate owner failed for <%s _ %X>!",
                  LogText(value.name).text(), value.owner);
}

void notePKey(OstrelValue& changed, const OstrelValue& value) { changed.pKey = value.pKey; }
void noteOwner(OstrelValue& changed, const OstrelValue& value) { changed.owner = value.owner; }

bool send(ostrelLink& link, uint32_t code, std::span<OstrelValue> records) {
    unsigned int size = 0;
    std::unique_ptr<unsigned char[]> list;
    try {
        list.reset(
            OstrelMarshallParameters(code, static_cast<unsigned int>(records.size()), records.data(), &size));
    } catch (const std::bad_alloc&) {
        OSTREL_LOG_AT(logPlace::instanciate, logLevel::error, knownLine::instanceNotAnswered);
        return false;
    }
    if (!link.sendMessage(size, list.get())) {
        OSTREL_LOG_AT(logPlace::instanciate, logLevel::error,
                      "[ostrelEvent:instanciate] Send message failed");
        return false;
    }
    return true;
}

bool answerKeys(ostrelLink& link, std::span<const OstrelValue> values) {
    auto records = std::make_unique<OstrelValue[]>(values.size());
    for (size_t i = 0; i < values.size(); ++i) {
        uint32_t key = values[i].pKey;
        records[i].setName(values[i].name);
        records[i].setValue(sizeof key, reinterpret_cast<unsigned char*>(&key));
    }
    return send(link, messageCode::instanciateAnswer, {records.get(), values.size()});
}

bool answerFailure(ostrelLink& link) { return send(link, messageCode::failureAnswer, {}); }

constexpr ChangeHandler unpackNotifyMessage{
    .code = messageCode::notify,
    .place = logPlace::notify,
    .received = "[ostrServer] Got notify message",
    .served = "[ostrServer] Got notify message END",
    .undecodable = "[OstrelServer::unpackNotify] Unmarshall failed",
    .dumpTag = "Notify",
    .count = countWrite,
    .apply = writeValue,
    .logRefused = logRefusedWrite,
};

constexpr ChangeHandler unpackEraseMessage{
    .code = messageCode::erase,
    .place = logPlace::erase,
    .received = "[ostrServer] Got erase message",
    .undecodable = "[OstrelServer::unpackErase] Unmarshall failed",
    .dumpTag = "Erase",
    .count = countErase,
    .apply = eraseValue,
    .logRefused = logRefusedErase,
};

constexpr ChangeHandler unpackInstanciateMessage{
    .code = messageCode::instanciate,
    .place = logPlace::instanciate,
    .received = "[ostrServer] Got instanciate message",
    .served = "[ostrServer] Got instanciate message END",
    .undecodable = "[OstrelServer::unpackInstanciate] Unmarshall failed",
    .count = countInstance,
    .apply = instanciate,
    .logRefused = logRefusedInstance,
    .answer = answerKeys,
    .answerUndecodable = answerFailure,
};

constexpr ChangeHandler unpackDeinstanciateMessage{
    .code = messageCode::deinstanciate,
    .place = logPlace::deinstanciate,
    .received = "[ostrServer] Got deinstanciate message",
    .served = "[ostrServer] Got deinstanciate message END",
    .undecodable = "[OstrelServer::unpackDeinstanciate] Unmarshall failed",
    .count = countOne,
    .apply = removeOne,
    .logRefused = logRefusedOne,
    .note = notePKey,
};

constexpr ChangeHandler unpackDeinstanciateOwnerMessage{
    .code = messageCode::deinstanciateOwner,
    .place = logPlace::deinstanciateOwner,
    .received = "[ostrServer] Got deinstanciate owner message",
    .served = "[ostrServer] Got deinstanciate message END",
    .undecodable = "[OstrelServer::unpackDeinstanciate] Unmarshall failed",
    .count = countOwned,
    .apply = removeOwned,
    .logRefused = logRefusedOwned,
    .note = noteOwner,
};

constexpr const ChangeHandler* handlers[] = {&unpackNotifyMessage, &unpackEraseMessage,
                                             &unpackInstanciateMessage, &unpackDeinstanciateMessage,
                                             &unpackDeinstanciateOwnerMessage};

}  // namespace

void beginSequence() { sequenceSize = {}; }

const ChangeHandler* findChangeHandler(uint32_t code) {
    for (const ChangeHandler* handler : handlers) {
        if (handler->code == code)
            return handler;
    }
    return nullptr;
}

bool applyChanges(uint32_t code, long transaction, std::span<OstrelValue> values) {
    const ChangeHandler* handler = findChangeHandler(code);
    return handler != nullptr && handler->applyAll(transaction, values);
}
