// One transaction's net change over the committed database, and the rules for what may be changed.
//
// The committed database must not change while the object lives. Every operation is refused or done wholly.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "db/instanceChanges.h"
#include "db/model.h"
#include "db/valueChanges.h"
#include "text/rows.h"
#include "text/values.h"

namespace store {

class Transaction {
public:
    // base must outlive the object.
    explicit Transaction(const Model& base) : base_(base), values_(base), instances_(base) {}

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
    bool isMember(std::string_view name) const;
    std::string_view memberOf(std::string_view name, uint32_t key) const;
    const Elements* committedVector(std::string_view name) const;
    bool hasElements(std::string_view name) const;
    bool isKnown(std::string_view name, uint32_t index) const;
    ostrelValueType knownType(std::string_view name) const;
    Result checkNewElement(std::string_view name) const;
    Result checkNewInstance(std::string_view name, const Template& members) const;
    std::vector<uint32_t> elementsOf(std::string_view name) const;

    void set(std::string_view name, uint32_t index, Value value);
    void removeInstance(std::string_view structure, uint32_t key);

    const Model& base_;
    ValueChanges values_;
    InstanceChanges instances_;
};

}  // namespace store
