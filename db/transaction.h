// One transaction's net change over the committed database, and the rules for what may be changed.
//
// The committed database must not change while the object lives. Every operation is refused or done wholly.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "db/model.h"
#include "text/rows.h"
#include "text/values.h"

namespace store {

class Transaction {
public:
    // base must outlive the object.
    explicit Transaction(const Model& base) : base_(base) {}

    // With the transaction's own changes. Borrowed until the next change; null: there is no such value.
    const Value* find(std::string_view name, uint32_t index) const;

    // index 0: the plain value. mayCreate: also when nothing knows the name.
    Result write(std::string_view name, uint32_t index, Value value, bool mayCreate);
    // The plain value and all vector elements.
    Result destroy(std::string_view name);
    // key receives the new instance's primary key.
    Result instantiate(std::string_view templateName, std::string_view name, uint32_t owner, uint32_t& key);
    // Instances of a structure, or elements of a vector; all of them or none.
    Result remove(std::string_view name, std::span<const unsigned int> keys);
    Result removeOwned(std::string_view name, uint32_t owner);

    // What differs from the committed database, in the order in which Model takes it.
    void visit(RowVisitor& visitor) const;

private:
    // Of one name. The elements belong to one vector or one structure's member, as in the committed database.
    struct NameChanges {
        std::map<uint32_t, std::optional<Value>> cells;  // 0: the plain value; without a value: erased
        std::string structure;                           // not empty: the name is its member
        ostrelValueType vectorType = ostrelTypeNone;     // of the elements that were written last
        std::ptrdiff_t present = 0;                      // vector elements more than are committed
    };
    struct StructureChanges {
        uint32_t lastKey = 0;                                   // 0: as committed
        std::map<uint32_t, std::optional<Instance>> instances;  // without an instance: removed
    };

    const NameChanges* changesOf(std::string_view name) const;
    NameChanges& makeChanges(std::string_view name);
    const StructureChanges* structureChanges(std::string_view name) const;

    bool isStructure(std::string_view name) const;
    const Instance* instance(std::string_view structure, uint32_t key) const;
    // The structure whose member the name is at this key, and the member's default if the instance is new.
    struct Member {
        std::string_view structure;
        const Value* value = nullptr;
    };
    Member newMember(std::string_view name, uint32_t key) const;
    std::string_view memberOf(std::string_view name, uint32_t key) const;

    bool isMember(std::string_view name) const;
    const Elements* committedVector(std::string_view name) const;
    bool isKnown(std::string_view name, uint32_t index) const;
    ostrelValueType knownType(std::string_view name) const;
    Result checkNewElement(std::string_view name) const;
    Result checkNewInstance(std::string_view name, const Template& members) const;
    std::vector<uint32_t> elementsOf(std::string_view name) const;
    std::vector<uint32_t> instancesOf(std::string_view name, uint32_t owner) const;

    void set(std::string_view name, uint32_t index, Value value);
    void erase(std::string_view name, uint32_t index);
    void removeInstance(std::string_view structure, uint32_t key);
    void forgetMember(std::string_view structure, std::string_view member, uint32_t key);

    const Model& base_;
    std::map<std::string, NameChanges, std::less<>> names_;
    std::map<std::string, StructureChanges, std::less<>> structures_;
};

}  // namespace store
