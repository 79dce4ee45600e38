// The rules for instances and their members: how both are made, changed, taken away and brought back.
//
// An instance is a cell of Structures; its members are cells of Cells, made and dropped together with it.
// They have the instance's primary key as index and STRUCTURE.MEMBER as name, which nothing else has
// meanwhile. For Model, which describes what the changes have in common.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "db/cells.h"
#include "db/nameRules.h"
#include "db/structures.h"
#include "db/templates.h"
#include "text/rows.h"

namespace store {

class Instances {
public:
    // All must outlive the object.
    Instances(Cells& cells, Structures& structures, const Templates& templates, const NameRules& rules)
        : cells_(cells), structures_(structures), templates_(templates), rules_(rules) {}

    // The factory's files. A refused instance makes its structure known all the same, or its members' lines
    // would pass for a vector's.
    Result addDefault(const RowKey& key, const Instance& instance);
    // name: as the database knows it.
    Result addDefaultMember(std::string_view name, uint32_t index, Value value);

    // Changes. Over a default instance of the same key a new one wins wholly; its template may be gone.
    Result add(const RowKey& key, const Instance& instance);
    Result remove(const RowKey& key, Origin origin);
    Result setMember(const RowKey& key, const Value& value);
    Result setLastKey(std::string_view structure, uint32_t last);

    // Ascending: what the template of a present instance has, and what a change gave it when the template was
    // another. Borrowed until the next change.
    std::vector<std::string_view> membersOf(const Structure& structure, uint32_t key) const;

    // While it is on, newer changes take names from older ones.
    void setReplaying(bool isReplaying) { isReplaying_ = isReplaying; }
    // At a replay: frees the name from structures and members of older changes.
    void takeForVector(std::string_view name);

private:
    Result checkMembers(std::string_view structure, const Template* members) const;
    const Structure& makeStructure(std::string_view name, uint32_t lastKey);
    static InstanceCell cellOf(const Structure& structure, uint32_t key);
    void put(const Structure& structure, uint32_t key, const Instance& instance, bool isDefault);
    void putMember(const Structure& structure, uint32_t key, std::string_view member, Cell cell);
    void dropMembers(const Structure& structure, uint32_t key);
    void restoreMember(const RowKey& key);
    Result undo(const Structure& structure, uint32_t key);
    void restore(const Structure& structure, uint32_t key, const Instance& instance);

    void takeForStructure(std::string_view name, const Template* members);
    void takeForMember(std::string_view name, std::string_view structure);
    void takeElements(std::string_view name, std::string_view keeper);
    void takeStructure(std::string_view name);
    bool undoAll(const Structure& structure, const Elements* member);

    Cells& cells_;
    Structures& structures_;
    const Templates& templates_;
    const NameRules& rules_;
    bool isReplaying_ = false;
};

}  // namespace store
