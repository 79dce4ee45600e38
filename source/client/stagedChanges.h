// The changes of a transaction, staged in memory.
//
// Every function that stages throws Failure with OSTREL_INVALID when the daemon could not accept the change,
// as far as it can be known without asking it; then the transaction stays unusable.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/marshalling.h"
#include "ostrel/client.h"

namespace client {

struct Change {
    uint32_t code = 0;  // of the message that carries it
    std::string name{};
    std::string value{};  // bytes as they travel
    ostrelValueType type = ostrelTypeNone;
    ostrelIndex index = 0;  // a primary key, or an instance that the transaction makes
    uint32_t owner = 0;
    std::string templateName{};
    size_t line = 0;
};

struct Fault {
    size_t change = 0;
    std::string reason;
};

class StagedChanges {
public:
    void setNumber(std::string_view name, ostrelIndex index, ostrelValueType type, uint32_t number);
    void setText(std::string_view name, ostrelIndex index, ostrelValueType type, std::string_view text);
    void erase(std::string_view name);
    ostrelIndex newInstance(std::string_view templateName, std::string_view structure, uint32_t owner);
    void remove(std::string_view name, ostrelIndex index);
    void removeOwned(std::string_view name, uint32_t owner);
    void setLine(size_t line) { line_ = line; }
    // What could not even be staged; no effect when something else was refused before.
    void spoil(const std::string& reason) noexcept;
    bool isSpoiled() const { return spoiled_; }

    const std::vector<Change>& list() const { return list_; }
    // The staged change with this number; behind the last, the one that was not accepted.
    const Change& at(size_t number) const { return number < list_.size() ? list_[number] : refused_; }
    // Of the first call that failed to stage; its change is the one behind the list. Nothing also when there
    // was no memory for it.
    const std::optional<Fault>& stagingFault() const { return stagingFault_; }

    // The instances that the changes make, in their order, have a primary key once the daemon has told it.
    static bool isNewInstance(ostrelIndex index);
    // Null: none yet. The index must be one that newInstance() has returned.
    const uint32_t* key(ostrelIndex index) const;
    // Of the next instance without one.
    void addKey(uint32_t key) { keys_.push_back(key); }
    void forgetKeys() { keys_.clear(); }

    // The daemon has them, and may have committed.
    bool mayBeApplied = false;

private:
    // problem: what is wrong with it at first sight.
    void stage(Change change, const std::optional<std::string>& problem = std::nullopt);
    void check(const Change& change) const;
    void checkIndex(const Change& change) const;

    std::vector<Change> list_;
    bool spoiled_ = false;
    std::optional<Fault> stagingFault_;
    Change refused_;
    size_t line_ = 0;
    std::vector<std::string> structures_;  // of the new instances
    std::vector<uint32_t> keys_;           // of as many of them as the daemon has told
};

}  // namespace client
