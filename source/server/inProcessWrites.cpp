// The writes that the server exports to its plug-ins. The server's phase decides whether one is applied at
// once, stored for the replay, or ends the daemon.
//
// Main thread, inside a plug-in's entry; nothing here takes a lock.
#include <cstdlib>
#include <memory>

#include "common/ostrelUtils.h"
#include "db/ostrelDb.h"
#include "log/serverLines.h"
#include "server/deinstanciateKind.h"
#include "server/globals.h"
#include "server/inProcessChecks.h"
#include "server/serverModule.h"
#include "server/storedOperations.h"

namespace {

enum class Decision { applyNow, postpone };

// verb: what the function does, for the line that says why the daemon ends.
Decision decide(LogPlace place, const char* verb) {
    switch (state) {
        case phase::writingConf:
            OSTREL_LOG_AT(place, logLevel::error, knownLine::writesInWriteConf, verb);
            std::exit(-1);
        case phase::loading:
        case phase::restarting:
            OSTREL_LOG_AT(place, logLevel::debug, "postponing write");
            return Decision::postpone;
        default:
            return Decision::applyNow;
    }
}

// A copy of its own: the original stays the plug-in's.
std::unique_ptr<OstrelValue> copyOf(const OstrelValue& value) {
    auto copy = std::make_unique<OstrelValue>(value.name, value.value, value.size, value.type, value.pKey,
                                              value.owner);
    if (value.tpltName != nullptr)
        copy->setTpltName(value.tpltName);
    copy->deinstanciateKind = value.deinstanciateKind;
    return copy;
}

void store(std::unique_ptr<OstrelValue> record) {
    listOfStoredValues.push_back(record.get());
    static_cast<void>(record.release());
}

// A write carries no template name: it would make the record an instantiation.
void storeWrites(const OstrelValues& values) {
    for (int i = 0; i < values.count; ++i) {
        const OstrelValue& value = *values.values[i];
        store(std::make_unique<OstrelValue>(value.name, value.value, value.size, value.type, value.pKey,
                                            value.owner));
    }
}

// Without memory, too, nothing stays open: the next transaction would go on with it.
template <typename Body>
int inTransaction(long handle, Body body) {
    try {
        return body() && database->dataCommit(handle) == 0 ? 1 : 0;
    } catch (...) {
        database->dataWriteRollback(handle);
        throw;
    }
}

// The removal is durable: a plug-in must not be told that it failed, so what is thrown ends the daemon.
void noteRemoved(const char* name) noexcept { addChanged(name); }

int applyWrites(const OstrelValues& values) {
    long handle = database->dataStartWriteTransaction();
    if (handle == invalidTransaction) {
        OSTREL_LOG_AT(logPlace::writeValues, logLevel::error,
                      "warning, dataStartWriteTransaction returned invalid handle");
        return 0;
    }
    return inTransaction(handle, [&] {
        for (int i = 0; i < values.count; ++i) {
            if (!OstrelDoWrite(handle, values.values[i]))
                return false;
        }
        return true;
    });
}

// Applies one removal or instantiation in a transaction of its own.
int applyOne(LogPlace place, OstrelValue& operation, bool (*applier)(long, OstrelValue*)) {
    long handle = database->dataStartWriteTransaction();
    if (handle == invalidTransaction) {
        OSTREL_LOG_AT(place, logLevel::error, "Cannot start write transaction");
        return 0;
    }
    return inTransaction(handle, [&] { return applier(handle, &operation); });
}

int deinstanciate(LogPlace place, const char* name, unsigned int kind, unsigned int pKey,
                  unsigned int owner) {
    if (!validArguments(place, {name}))
        return 0;
    return fenced(place, 0, [=] {
        OstrelValue operation(name, nullptr, 0, ostrelTypeNone, pKey, owner);
        operation.deinstanciateKind = kind;
        if (decide(place, "instanciate") == Decision::postpone) {
            store(copyOf(operation));
            return 1;
        }
        if (applyOne(place, operation, ostrelDoDeinstanciate) != 1)
            return 0;
        // Told to the plug-ins if a broadcast is still to come: not by the one that is running.
        noteRemoved(name);
        return 1;
    });
}

}  // namespace

int OstrelClientWriteValues(OstrelValues* values) {
    if (values == nullptr) {
        OSTREL_LOG_AT(logPlace::writeValues, logLevel::debug, "nothing to write");
        return 0;
    }
    if (!validList(logPlace::writeValues, *values))
        return 0;
    OstrelClientDumpValues(values);
    return fenced(logPlace::writeValues, 0, [=] {
        if (decide(logPlace::writeValues, "write") == Decision::applyNow)
            return applyWrites(*values);
        storeWrites(*values);
        return 1;
    });
}

int OstrelClientWriteVectorElements(OstrelValues* values, unsigned int index) {
    if (!validArguments(OSTREL_HERE, {values}) || !validList(OSTREL_HERE, *values))
        return 0;
    for (int i = 0; i < values->count; ++i)
        values->values[i]->pKey = index;
    return OstrelClientWriteValues(values);
}

int OstrelClientWriteVectorElement(OstrelValue* value, unsigned int index) {
    if (!validArguments(OSTREL_HERE, {value}))
        return 0;
    OstrelValues list{&value, 1};
    return OstrelClientWriteVectorElements(&list, index);
}

int OstrelClientWriteValue(OstrelValue* value) {
    if (!validArguments(OSTREL_HERE, {value}))
        return 0;
    OstrelValues list{&value, 1};
    return OstrelClientWriteValues(&list);
}

int OstrelClientDeinstanciate(const char* name, unsigned int pKey) {
    return deinstanciate(OSTREL_HERE, name, deinstanciateKind::one, pKey, 0);
}

int OstrelClientDeinstanciateOwner(const char* name, unsigned int owner) {
    return deinstanciate(OSTREL_HERE, name, deinstanciateKind::owners, 0, owner);
}

int ostrelClientInstanciateStructure(const char* tpltName, const char* name, unsigned int owner) {
    if (!validArguments(OSTREL_HERE, {tpltName, name}))
        return 0;
    const LogPlace here = OSTREL_HERE;
    return fenced(here, 0, [=] {
        OstrelValue operation(name, nullptr, 0, ostrelTypeNone, 0, owner);
        operation.setTpltName(tpltName);
        if (decide(here, "instanciate") == Decision::postpone) {
            store(copyOf(operation));
            return 1;
        }
        return applyOne(here, operation, ostrelDoInstanciate);
    });
}
