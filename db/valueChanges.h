// The values that one transaction writes and erases, over the committed ones.
//
// A table without rules: what may be written is Transaction's to know. The committed database must not change
// while the object lives. What is borrowed is so until the next change.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "db/model.h"
#include "text/rows.h"
#include "text/values.h"

namespace store {

class ValueChanges {
public:
    // Of one name. The elements belong to one vector or one structure's member, as in the committed database.
    struct OfName {
        std::map<uint32_t, std::optional<Value>> cells;  // 0: the plain value; without a value: erased
        std::string structure;                           // not empty: the name is its member
        ostrelValueType vectorType = ostrelTypeNone;     // of the elements that were written last
        ptrdiff_t present = 0;                           // vector elements more than are committed
    };

    // base must outlive the object.
    explicit ValueChanges(const Model& base) : base_(base) {}

    // null: nothing was changed.
    const OfName* find(std::string_view name) const;
    // null: as committed; else the new value, or none when it is erased.
    const std::optional<Value>* cell(std::string_view name, uint32_t index) const;

    // From now on the name is the structure's member.
    void makeMember(std::string_view name, std::string_view structure);
    // A plain value (index 0) or a member's.
    void set(std::string_view name, uint32_t index, Value value);
    // A vector's. isNew: the element was not there.
    void setElement(std::string_view name, uint32_t index, Value value, bool isNew);
    // A plain value or vector element that is there.
    void erase(std::string_view name, uint32_t index);
    // As if the value had not been changed: its instance is removed.
    void forget(std::string_view name, uint32_t index);

    // What differs from the committed database.
    void visit(RowVisitor& visitor) const;

private:
    OfName& make(std::string_view name);

    const Model& base_;
    std::map<std::string, OfName, std::less<>> names_;
};

}  // namespace store
