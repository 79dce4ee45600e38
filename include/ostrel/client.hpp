// The client library for C++17: ostrel/client.h with values, exceptions and owners. Its rules hold here, too.
#ifndef OSTREL_CLIENT_HPP
#define OSTREL_CLIENT_HPP

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "ostrel/client.h"

namespace ostrel {

struct Value {
    ostrelValueType type = ostrelTypeNone;
    uint32_t number = 0;  // of Bool, Byte and Dword
    std::string text{};   // of IP, MAC and String
};

struct Key {
    std::string name;
    uint32_t index = 0;
};

struct Fault {
    size_t change = 0;
    size_t line = 0;
    std::string name;
    ostrelIndex index = 0;
    std::string reason;
};

class Error : public std::runtime_error {
public:
    Error(ostrelStatus status, const std::string& text, std::optional<Fault> fault = std::nullopt)
        : std::runtime_error(text), status_(status), fault_(std::move(fault)) {}

    ostrelStatus status() const { return status_; }
    // The change of a transaction that was refused, if it can be told.
    const std::optional<Fault>& fault() const { return fault_; }

private:
    ostrelStatus status_;
    std::optional<Fault> fault_;
};

namespace detail {

// The library would read a text only up to its first NUL.
inline const char* terminated(const std::string& text) {
    if (text.find('\0') != std::string::npos)
        throw Error(OSTREL_INVALID, "a NUL in a text");
    return text.c_str();
}

}  // namespace detail

// The staging functions throw Error with OSTREL_INVALID.
class Transaction {
public:
    Transaction() : handle_(ostrelTransactionNew()) {
        if (!handle_)
            throw std::bad_alloc();
    }

    void set(const std::string& name, ostrelIndex index, const Value& value) {
        const bool isText = ostrelTypeIsText(value.type) != 0;
        require(isText ? ostrelTransactionSetText(get(), detail::terminated(name), index, value.type,
                                                  detail::terminated(value.text))
                       : ostrelTransactionSetNumber(get(), detail::terminated(name), index, value.type,
                                                    value.number));
    }
    void erase(const std::string& name) { require(ostrelTransactionErase(get(), detail::terminated(name))); }
    ostrelIndex newInstance(const std::string& templateName, const std::string& structure, uint32_t owner) {
        ostrelIndex instance = 0;
        require(ostrelTransactionNewInstance(get(), detail::terminated(templateName),
                                             detail::terminated(structure), owner, &instance));
        return instance;
    }
    void remove(const std::string& name, ostrelIndex index) {
        require(ostrelTransactionRemove(get(), detail::terminated(name), index));
    }
    void removeOwned(const std::string& name, uint32_t owner) {
        require(ostrelTransactionRemoveOwned(get(), detail::terminated(name), owner));
    }
    void setLine(size_t line) { require(ostrelTransactionSetLine(get(), line)); }

    size_t count() const { return ostrelTransactionCount(get()); }
    // Of an instance that newInstance() made; 0 before the transaction is applied.
    uint32_t key(ostrelIndex instance) const { return ostrelTransactionKey(get(), instance); }
    bool mayBeApplied() const { return ostrelTransactionMayBeApplied(get()) != 0; }

    std::optional<Fault> fault() const {
        const ostrelFault* fault = ostrelTransactionFault(get());
        if (fault == nullptr)
            return std::nullopt;
        return Fault{fault->change, fault->line, fault->name, fault->index, fault->reason};
    }

    ostrelTransaction* get() const { return handle_.get(); }

private:
    struct Free {
        void operator()(ostrelTransaction* transaction) const { ostrelTransactionFree(transaction); }
    };

    void require(ostrelStatus status) const {
        if (status != OSTREL_DONE)
            throw Error(status, ostrelTransactionError(get()), fault());
    }

    std::unique_ptr<ostrelTransaction, Free> handle_;
};

// Every function throws Error.
class Session {
public:
    using Progress = std::function<void(size_t sent, size_t changes)>;

    explicit Session(const std::string& program) : handle_(ostrelSessionNew(detail::terminated(program))) {
        if (!handle_)
            throw std::bad_alloc();
    }

    void setTimeout(std::chrono::milliseconds timeout) {
        // Too long for C is no timeout that anybody waits for; it counts as the longest.
        auto longest = std::chrono::milliseconds(std::numeric_limits<unsigned int>::max());
        auto known = std::clamp(timeout, std::chrono::milliseconds(0), longest);
        require(ostrelSessionSetTimeout(get(), static_cast<unsigned int>(known.count())));
    }
    // A name or a number; see ostrelSessionSetDaemonUser().
    void setDaemonUser(const std::string& user) {
        require(ostrelSessionSetDaemonUser(get(), detail::terminated(user)));
    }
    void connect() { require(ostrelSessionConnect(get())); }
    void shutdown() { require(ostrelSessionShutdown(get())); }

    Value read(const std::string& name, uint32_t index = 0) {
        std::vector<std::optional<Value>> values = readMany({{name, index}});
        if (!values.front())
            throw Error(OSTREL_MISSING, ostrelSessionError(get()));
        return *std::move(values.front());
    }
    // Nothing for a key that is missing.
    std::vector<std::optional<Value>> readMany(const std::vector<Key>& keys) {
        std::vector<ostrelKey> wanted;
        wanted.reserve(keys.size());
        for (const Key& key : keys)
            wanted.push_back({detail::terminated(key.name), key.index});
        ostrelEntry* entries = nullptr;
        const ostrelStatus status = ostrelSessionRead(get(), wanted.data(), wanted.size(), &entries);
        const std::unique_ptr<ostrelEntry, FreeMemory> owner(entries);
        if (status != OSTREL_MISSING)
            require(status);
        std::vector<std::optional<Value>> values(keys.size());
        for (size_t i = 0; i < keys.size(); ++i) {
            const ostrelEntry& entry = entries[i];
            if (entry.type != ostrelTypeNone)
                values[i] = Value{entry.type, entry.number,
                                  entry.text != nullptr ? std::string(entry.text, entry.size) : ""};
        }
        return values;
    }

    uint32_t count(const std::string& name, uint32_t owner) {
        uint32_t count = 0;
        require(ostrelSessionCount(get(), detail::terminated(name), owner, &count));
        return count;
    }

    struct List {
        std::vector<uint32_t> keys;
        bool complete = true;  // false: the daemon cannot tell the rest
    };
    List list(const std::string& name, uint32_t owner) {
        uint32_t* keys = nullptr;
        size_t count = 0;
        const ostrelStatus status = ostrelSessionList(get(), detail::terminated(name), owner, &keys, &count);
        const std::unique_ptr<uint32_t, FreeMemory> memory(keys);
        if (status != OSTREL_INCOMPLETE)
            require(status);
        return {{keys, keys + count}, status == OSTREL_DONE};
    }

    void apply(Transaction& transaction) {
        finish(ostrelSessionApply(get(), transaction.get()), transaction);
    }
    void check(Transaction& transaction) {
        finish(ostrelSessionCheck(get(), transaction.get()), transaction);
    }

    // Called by apply and check; must return at once. What it throws is lost. An empty one switches it off.
    void onProgress(Progress progress) {
        auto kept = std::make_unique<Progress>(std::move(progress));
        require(ostrelSessionSetProgress(get(), *kept ? report : nullptr, kept.get()));
        progress_ = std::move(kept);
    }

    ostrelSession* get() const { return handle_.get(); }

private:
    struct Free {
        void operator()(ostrelSession* session) const { ostrelSessionFree(session); }
    };
    struct FreeMemory {
        void operator()(void* memory) const { ostrelFree(memory); }
    };

    void require(ostrelStatus status) const {
        if (status != OSTREL_DONE)
            throw Error(status, ostrelSessionError(get()));
    }
    void finish(ostrelStatus status, const Transaction& transaction) const {
        if (status != OSTREL_DONE)
            throw Error(status, ostrelSessionError(get()), transaction.fault());
    }

    static void report(void* context, size_t sent, size_t changes) {
        try {
            (*static_cast<Progress*>(context))(sent, changes);
        } catch (...) {
            // The daemon waits: the transaction goes on.
        }
    }

    std::unique_ptr<ostrelSession, Free> handle_;
    std::unique_ptr<Progress> progress_;
};

}  // namespace ostrel

#endif
