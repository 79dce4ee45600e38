// The change as one row: what a line of the live file says, and what a transaction is made of.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "text/values.h"

namespace store {

// The name by which the database knows a structure's member.
inline std::string memberName(std::string_view structure, std::string_view member) {
    std::string name(structure);
    name += '.';
    name += member;
    return name;
}

// What a row is about, borrowed:
//   NAME                  a plain value, or (for lastKey) a structure
//   NAME[INDEX]           a vector's element, or an instance of the structure NAME
//   NAME[INDEX].MEMBER    an instance's member; the database knows it as NAME.MEMBER at INDEX
struct RowKey {
    std::string_view name;
    uint32_t index = 0;
    std::string_view member = {};

    // As the database knows it.
    std::string wholeName() const { return member.empty() ? std::string(name) : memberName(name, member); }
};

struct Instance {
    std::string templateName;
    uint32_t owner = 0;
};

// Did the firmware that ran when a key was erased, or an instance removed, have a default for it? The answer
// stands in the row: a later firmware cannot tell.
enum class Origin {
    unknown,  // the row is of a version that did not say
    factory,  // it did: what the device took away stays away, whatever later firmware brings
    created   // it did not: nothing of it is kept
};

inline Origin originOf(bool hasDefault) { return hasDefault ? Origin::factory : Origin::created; }

class RowVisitor {
public:
    virtual void value(const RowKey& key, const Value& value) = 0;
    virtual void erased(const RowKey& key, Origin origin) = 0;
    virtual void instance(const RowKey& key, const Instance& instance) = 0;
    virtual void removed(const RowKey& key, Origin origin) = 0;
    virtual void lastKey(std::string_view structure, uint32_t last) = 0;

protected:
    ~RowVisitor() = default;
};

}  // namespace store
