// The C interface's sessions. What it hands out, ostrelFree() releases.
#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "client/handles.h"
#include "common/ostrelUtils.h"
#include "text/names.h"
#include "text/values.h"

using client::Failure;
using client::onSession;
using client::requireGiven;

// What programs that were built elsewhere hand in and get: these layouts never change.
static_assert(sizeof(ostrelKey) == 16 && offsetof(ostrelKey, index) == 8);
static_assert(sizeof(ostrelEntry) == 24 && offsetof(ostrelEntry, number) == 4 &&
              offsetof(ostrelEntry, text) == 8 && offsetof(ostrelEntry, size) == 16);
static_assert(sizeof(ostrelFault) == 40 && offsetof(ostrelFault, line) == 8 &&
              offsetof(ostrelFault, name) == 16 && offsetof(ostrelFault, index) == 24 &&
              offsetof(ostrelFault, reason) == 32);

namespace {

// The shared code of client and server must not write to the caller's standard output.
[[maybe_unused]] const bool isSilent = (ostrelSetPrintLevel(0), true);

struct FreeMemory {
    void operator()(void* memory) const { std::free(memory); }
};

template <class T>
std::unique_ptr<T, FreeMemory> allocate(size_t size) {
    void* memory = std::calloc(1, std::max(size, size_t{1}));
    if (memory == nullptr)
        throw std::bad_alloc();
    return std::unique_ptr<T, FreeMemory>(static_cast<T*>(memory));
}

using Values = std::vector<std::optional<store::Value>>;

void fill(const store::Value& value, ostrelEntry& entry, char*& texts) {
    entry.type = value.type;
    if (store::isText(value.type)) {
        entry.text = texts;
        entry.size = value.bytes.size();
        std::memcpy(texts, value.bytes.c_str(), value.bytes.size() + 1);
        texts += value.bytes.size() + 1;
    } else {
        entry.number = store::numberOf(value);
    }
}

// The entries, and behind them their texts.
std::unique_ptr<ostrelEntry, FreeMemory> makeEntries(const Values& values) {
    size_t textBytes = 0;
    for (const auto& value : values)
        textBytes += value ? value->bytes.size() + 1 : 0;
    auto entries = allocate<ostrelEntry>(values.size() * sizeof(ostrelEntry) + textBytes);
    char* texts = reinterpret_cast<char*>(entries.get() + values.size());
    for (size_t i = 0; i < values.size(); ++i) {
        if (values[i])
            fill(*values[i], entries.get()[i], texts);
    }
    return entries;
}

std::string checkedName(const char* name) {
    requireGiven(name != nullptr);
    if (const store::Result result = store::checkName(name); !result.ok())
        throw Failure(OSTREL_INVALID, result.refusal);
    return name;
}

void appendMissing(std::string& text, const client::Key& key) {
    text += (text.empty() ? "no such key, or its value is too long to be read: " : ", ") + key.name;
    if (key.index != 0)
        text += '[' + std::to_string(key.index) + ']';
}

}  // namespace

const char* ostrelStatusText(ostrelStatus status) {
    switch (status) {
        case OSTREL_DONE:
            return "done";
        case OSTREL_REFUSED:
            return "the daemon refused; nothing is changed";
        case OSTREL_INVALID:
            return "the arguments cannot be right";
        case OSTREL_NOT_RUNNING:
            return "the daemon is not running";
        case OSTREL_STALE_SOCKET:
            return "the daemon is not running, but its socket is still there";
        case OSTREL_BUSY:
            return "the daemon is busy";
        case OSTREL_GONE:
            return "the daemon ended while it was asked";
        case OSTREL_MISSING:
            return "no such key";
        case OSTREL_INCOMPLETE:
            return "there is more than the daemon can tell";
        case OSTREL_FAILED:
            return "failed";
    }
    return "unknown status";
}

void ostrelFree(void* memory) { FreeMemory()(memory); }

ostrelSession* ostrelSessionNew(const char* program) {
    try {
        return program != nullptr ? new ostrelSession(program) : nullptr;
    } catch (...) {
        return nullptr;
    }
}

void ostrelSessionFree(ostrelSession* session) { delete session; }

ostrelStatus ostrelSessionSetTimeout(ostrelSession* session, unsigned int milliseconds) {
    return onSession(session, [&](client::Session& target) {
        if (milliseconds == 0)
            throw Failure(OSTREL_INVALID, "the timeout is 0");
        target.setTimeout(std::chrono::milliseconds(milliseconds));
    });
}

ostrelStatus ostrelSessionSetDaemonUser(ostrelSession* session, const char* user) {
    return onSession(session,
                     [&](client::Session& target) { target.setDaemonUser(user != nullptr ? user : ""); });
}

const char* ostrelSessionError(const ostrelSession* session) {
    return session != nullptr ? session->error.c_str() : "the session is null";
}

ostrelStatus ostrelSessionConnect(ostrelSession* session) {
    return onSession(session, [](client::Session& target) { target.connect(); });
}

ostrelStatus ostrelSessionShutdown(ostrelSession* session) {
    return onSession(session, [](client::Session& target) { target.shutdown(); });
}

ostrelStatus ostrelSessionRead(ostrelSession* session, const ostrelKey* keys, size_t count,
                               ostrelEntry** entries) {
    return onSession(session, [&](client::Session& target) {
        requireGiven(entries != nullptr && (keys != nullptr || count == 0));
        std::vector<client::Key> wanted;
        wanted.reserve(count);
        for (size_t i = 0; i < count; ++i)
            wanted.push_back({checkedName(keys[i].name), keys[i].index});
        Values values = target.read(wanted);
        std::string missing;
        for (size_t i = 0; i < count; ++i) {
            if (!values[i])
                appendMissing(missing, wanted[i]);
        }
        *entries = makeEntries(values).release();
        if (!missing.empty())
            throw Failure(OSTREL_MISSING, missing);
    });
}

ostrelStatus ostrelSessionCount(ostrelSession* session, const char* name, uint32_t owner, uint32_t* count) {
    return onSession(session, [&](client::Session& target) {
        requireGiven(count != nullptr);
        *count = target.count(checkedName(name), owner);
    });
}

ostrelStatus ostrelSessionList(ostrelSession* session, const char* name, uint32_t owner, uint32_t** keys,
                               size_t* count) {
    return onSession(session, [&](client::Session& target) {
        requireGiven(keys != nullptr && count != nullptr);
        client::List list = target.list(checkedName(name), owner);
        auto memory = allocate<uint32_t>(list.keys.size() * sizeof(uint32_t));
        std::copy(list.keys.begin(), list.keys.end(), memory.get());
        *keys = memory.release();
        *count = list.keys.size();
        if (list.total > list.keys.size())
            throw Failure(OSTREL_INCOMPLETE, "the daemon tells only the first " + std::to_string(*count) +
                                                 " of " + std::to_string(list.total));
    });
}

int ostrelTypeIsText(ostrelValueType type) { return store::isText(type) ? 1 : 0; }

uint32_t ostrelOwner(const char* tag) { return ostrelStringToOwner(tag); }

ostrelStatus ostrelSessionSetProgress(ostrelSession* session, ostrelProgress progress, void* context) {
    return onSession(session, [&](client::Session& target) {
        client::Sequence::Progress report;
        if (progress != nullptr)
            report = [=](size_t sent, size_t changes) { progress(context, sent, changes); };
        target.setProgress(std::move(report));
    });
}
