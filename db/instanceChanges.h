// The instances that one transaction makes and removes, over the committed ones.
//
// Knows no values: those of members that were written are ValueChanges'. The committed database must not
// change while the object lives. What is borrowed is so until the next change.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "db/model.h"
#include "text/rows.h"

namespace store {

class InstanceChanges {
public:
    // base must outlive the object.
    explicit InstanceChanges(const Model& base) : base_(base) {}

    bool isStructure(std::string_view name) const;
    // null: there is none, or none left.
    const Instance* find(std::string_view structure, uint32_t key) const;
    std::vector<uint32_t> keysOf(std::string_view structure, uint32_t owner) const;
    // keysOf() gives none of the owner's committed ones from now on: all of them are removed.
    void noteRemoved(std::string_view structure, uint32_t owner);
    // The names by which the database knows what the instance has, or had, as members.
    std::vector<std::string> memberNames(std::string_view structure, uint32_t key) const;

    // What the template gives a member of an instance that is made here.
    struct NewMember {
        std::string_view structure;    // empty: there is no such member,
        const Value* value = nullptr;  // and this is null
    };
    NewMember newMember(std::string_view name, uint32_t key) const;

    // The primary key that the structure gives next; nothing: none is left.
    std::optional<uint32_t> nextKey(std::string_view structure) const;
    // key: nextKey(). The template must exist, and the rules for names allow it.
    void add(std::string_view structure, uint32_t key, Instance instance);
    // One that is there.
    void remove(std::string_view structure, uint32_t key);

    // What differs from the committed database, in the order in which Model takes it.
    void visit(RowVisitor& visitor) const;

private:
    struct OfStructure {
        uint32_t lastKey = 0;                                   // 0: as committed
        std::map<uint32_t, std::optional<Instance>> instances;  // without an instance: removed
        std::map<uint32_t, std::set<uint32_t>> madeForOwner;    // primary keys of those that are made here
        std::set<uint32_t> removedOwners;                       // whose committed ones are all removed
    };

    const OfStructure* changesOf(std::string_view structure) const;
    const Instance* made(std::string_view structure, uint32_t key) const;

    const Model& base_;
    std::map<std::string, OfStructure, std::less<>> structures_;
};

}  // namespace store
