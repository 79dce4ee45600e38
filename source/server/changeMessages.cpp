#include "server/changeMessages.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <new>
#include <span>
#include <vector>

#include "common/logText.h"
#include "common/marshalling.h"
#include "common/messageCodes.h"
#include "common/ostrelLink.h"
#include "common/ostrelUtils.h"
#include "server/globals.h"
#include "server/sequenceSize.h"
#include "server/serverModule.h"
#include "db/ostrelDb.h"

namespace {

// A message's decoded values.
class Values {
public:
    // False when the list does not decode.
    bool decode(unsigned int nbBytes, unsigned char* bytes) {
        OstrelValue* records = nullptr;
        unsigned int count = 0;
        if (!OstrelUnMarshallParameters(nbBytes, bytes, &count, &records))
            return false;
        records_.reset(records);
        count_ = count;
        return true;
    }
    std::span<OstrelValue> all() { return {records_.get(), count_}; }

private:
    std::unique_ptr<OstrelValue[]> records_;
    unsigned int count_ = 0;
};

// Of the one sequence that is open.
SequenceSize sequenceSize;

bool admitted(const char* function, bool isTaken) {
    if (!isTaken)
        OSTREL_LOG_AS(function, logLevel::error,
                      "[OstrelServer] The write sequence takes more than %zu bytes", SequenceSize::limit);
    return isTaken;
}

// What tells one change message from the others.
struct Change {
    const char* function;      // the handler's name in the log
    const char* decodeFailed;  // its line
    const char* dumpTag;       // null: the values are not dumped
    bool (*count)(const OstrelValue& value);
    // One database call.
    bool (*apply)(long handle, OstrelValue& value);
    void (*logRefused)(const char* function, const OstrelValue& value);
    // What the changed entry carries beside the name.
    void (*note)(OstrelValue& changed, const OstrelValue& value);
};

std::size_t instancesOf(const OstrelValue& value, unsigned int owner) {
    return static_cast<std::size_t>(std::max(0, database->getVectorSize(value.name, owner)));
}

bool countWrite(const OstrelValue& value) { return sequenceSize.takeWrite(value.name, value.size); }
// The plain value and the vector's elements.
bool countErase(const OstrelValue& value) {
    return sequenceSize.takeRemoval(value.name, 1 + instancesOf(value, 0));
}
bool countOne(const OstrelValue& value) { return sequenceSize.takeRemoval(value.name, 1); }
bool countOwned(const OstrelValue& value) {
    return sequenceSize.takeRemoval(value.name, instancesOf(value, value.owner));
}

bool writeValue(long handle, OstrelValue& value) {
    int size = static_cast<int>(value.size);
    int result = value.pKey != 0
                     ? database->reWriteElement(handle, value.name, value.pKey, size, value.value, value.type)
                     : database->createElement(handle, value.name, size, value.value, value.type);
    return result != refused;
}

bool eraseValue(long handle, OstrelValue& value) {
    return database->destroyElement(handle, value.name) != refused;
}

bool removeOne(long handle, OstrelValue& value) {
    return database->removeInstance(handle, value.name, &value.pKey, 1) != refused;
}

bool removeOwner(long handle, OstrelValue& value) {
    return database->removeInstances(handle, value.name, value.owner) != refused;
}

void logRefusedWrite(const char* function, const OstrelValue& value) {
    if (value.pKey != 0)
        OSTREL_LOG_AS(function, logLevel::error, "[Ostrel] DataReWrite failed for <%s>!",
                      LogText(value.name).text());
    else
        OSTREL_LOG_AS(function, logLevel::error, "[Ostrel] DataWrite failed for <%s>!",
                      LogText(value.name).text());
}

void logRefusedErase(const char* function, const OstrelValue& value) {
    OSTREL_LOG_AS(function, logLevel::error, "[Ostrel] Erase element failed for <%s>!",
                  LogText(value.name).text());
}

void logRefusedOne(const char* function, const OstrelValue& value) {
    OSTREL_LOG_AS(function, logLevel::error, "[Ostrel] Deinstanciate failed for <%s _ %X>!",
                  LogText(value.name).text(), value.pKey);
}

void logRefusedOwner(const char* function, const OstrelValue& value) {
    OSTREL_LOG_AS(function, logLevel::error, "[Ostrel] Deinstanciate owner failed for <%s _ %X>!",
                  LogText(value.name).text(), value.owner);
}

void noteNothing(OstrelValue&, const OstrelValue&) {}
void notePKey(OstrelValue& changed, const OstrelValue& value) { changed.pKey = value.pKey; }
void noteOwner(OstrelValue& changed, const OstrelValue& value) { changed.owner = value.owner; }

// By ChangeKind.
constexpr Change changes[] = {
    {"unpackNotifyMessage", "[OstrelServer::unpackNotify] Unmarshall failed", "Notify", countWrite,
     writeValue, logRefusedWrite, noteNothing},
    {"unpackEraseMessage", "[OstrelServer::unpackErase] Unmarshall failed", "Erase", countErase, eraseValue,
     logRefusedErase, noteNothing},
    {"unpackDeinstanciateMessage", "[OstrelServer::unpackDeinstanciate] Unmarshall failed", nullptr, countOne,
     removeOne, logRefusedOne, notePKey},
    {"unpackDeinstanciateOwnerMessage", "[OstrelServer::unpackDeinstanciate] Unmarshall failed", nullptr,
     countOwned, removeOwner, logRefusedOwner, noteOwner},
};

const Change& changeOf(ChangeKind kind) { return changes[static_cast<std::size_t>(kind)]; }

void dump(const Change& change, std::span<OstrelValue> values) {
    if ((logLevel::debug & printMask) == 0)
        return;
    for (std::size_t i = 0; i < values.size(); ++i) {
        const OstrelValue& value = values[i];
        OSTREL_LOG_AS(change.function, logLevel::debug, "[%s %1d] %s -> %d :", change.dumpTag,
                      static_cast<int>(i), LogText(value.name).text(), static_cast<int>(value.size));
        for (unsigned int at = 0; at < value.size; ++at)
            OSTREL_LOG_AS(change.function, logLevel::debug, " %02X", value.value[at]);
        OSTREL_LOG_AS(change.function, logLevel::debug, "%s", "");
    }
}

bool unpack(ChangeKind kind, long handle, unsigned int nbBytes, unsigned char* bytes) {
    const Change& change = changeOf(kind);
    Values values;
    bool applied = false;
    if (!values.decode(nbBytes, bytes)) {
        OSTREL_LOG_AS(change.function, logLevel::error, "%s", change.decodeFailed);
    } else {
        if (change.dumpTag != nullptr)
            dump(change, values.all());
        applied = applyChanges(kind, handle, values.all());
    }
    if (!applied)
        database->dataWriteRollback(handle);
    return applied;
}

constexpr char instanciateName[] = "unpackInstanciateMessage";

bool answer(ostrelLink* link, unsigned int code, std::span<OstrelValue> records) {
    unsigned int size = 0;
    std::unique_ptr<unsigned char[]> list;
    try {
        list.reset(
            OstrelMarshallParameters(code, static_cast<unsigned int>(records.size()), records.data(), &size));
    } catch (const std::bad_alloc&) {
        OSTREL_LOG_AS(instanciateName, logLevel::error,
                      "[ostrelEvent:instanciate] Marshalling message failed");
        return false;
    }
    if (!link->sendMessage(size, list.get())) {
        OSTREL_LOG_AS(instanciateName, logLevel::error, "[ostrelEvent:instanciate] Send message failed");
        return false;
    }
    return true;
}

bool answerKeys(ostrelLink* link, std::span<OstrelValue> values, std::vector<unsigned int>& keys) {
    auto records = std::make_unique<OstrelValue[]>(keys.size());
    for (std::size_t i = 0; i < keys.size(); ++i) {
        records[i].setName(values[i].name);
        records[i].setValue(sizeof keys[i], reinterpret_cast<unsigned char*>(&keys[i]));
    }
    return answer(link, messageCode::instanciateAnswer, {records.get(), keys.size()});
}

}  // namespace

void beginSequence() { sequenceSize = {}; }

bool applyChanges(ChangeKind kind, long handle, std::span<OstrelValue> values) {
    const Change& change = changeOf(kind);
    for (OstrelValue& value : values) {
        if (!admitted(change.function, change.count(value)) || !change.apply(handle, value)) {
            change.logRefused(change.function, value);
            return false;
        }
        change.note(addChanged(value.name), value);
    }
    return true;
}

bool instanciateAll(long handle, std::span<OstrelValue> values, std::vector<unsigned int>& keys) {
    for (const OstrelValue& value : values) {
        unsigned int key = 0;
        if (!admitted(instanciateName, sequenceSize.takeInstance(value.name, value.tpltName)) ||
            database->instanciateTmplt(handle, value.tpltName, value.name, value.owner, &key) == refused) {
            OSTREL_LOG_AS(instanciateName, logLevel::error, "[Ostrel] Instanciate failed for <%s/%s>!",
                          LogText(value.tpltName).text(), LogText(value.name).text());
            return false;
        }
        keys.push_back(key);
        addChanged(value.name);
    }
    return true;
}

bool unpackNotifyMessage(long handle, unsigned int nbBytes, unsigned char* bytes) {
    return unpack(ChangeKind::write, handle, nbBytes, bytes);
}

bool unpackEraseMessage(long handle, unsigned int nbBytes, unsigned char* bytes) {
    return unpack(ChangeKind::erase, handle, nbBytes, bytes);
}

bool unpackDeinstanciateMessage(long handle, unsigned int nbBytes, unsigned char* bytes) {
    return unpack(ChangeKind::remove, handle, nbBytes, bytes);
}

bool unpackDeinstanciateOwnerMessage(long handle, unsigned int nbBytes, unsigned char* bytes) {
    return unpack(ChangeKind::removeOwned, handle, nbBytes, bytes);
}

bool unpackInstanciateMessage(unsigned int nbBytes, unsigned char* bytes, ostrelLink* link) {
    // A transaction is open, so this is its handle.
    long handle = database->dataStartWriteTransaction();
    Values values;
    bool answered = false;
    if (!values.decode(nbBytes, bytes)) {
        OSTREL_LOG(logLevel::error, "[OstrelServer::unpackInstanciate] Unmarshall failed");
        answer(link, messageCode::failureAnswer, {});
    } else {
        std::vector<unsigned int> keys;
        answered = instanciateAll(handle, values.all(), keys) && answerKeys(link, values.all(), keys);
    }
    if (!answered)
        database->dataWriteRollback(handle);
    return answered;
}
