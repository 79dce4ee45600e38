// The types of values: one row for each, from which all that depends on a type is decided.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "ostrel/valueType.h"

namespace store {

struct TypeInfo {
    ostrelValueType type = ostrelTypeNone;
    std::string_view name = {};
    bool isText = false;
    size_t size = 0;       // of a number, in bytes
    uint32_t largest = 0;  // number
};

// By number, without that of ostrelTypeNone.
std::span<const TypeInfo> valueTypes();

// The row of ostrelTypeNone also for what is no type.
const TypeInfo& infoOf(ostrelValueType type);

// ostrelTypeNone: nothing has the name.
ostrelValueType typeNamed(std::string_view name);

// "A, B or C", with another word for "or": the types that are meant.
template <class IsMeant>
std::string typeList(std::string_view lastWord, IsMeant isMeant) {
    std::string list;
    std::string_view last;
    for (const TypeInfo& info : valueTypes()) {
        if (!isMeant(info))
            continue;
        if (!last.empty())
            list.append(list.empty() ? "" : ", ").append(last);
        last = info.name;
    }
    if (!list.empty())
        list.append(" ").append(lastWord).append(" ");
    return list.append(last);
}

inline bool isText(ostrelValueType type) { return infoOf(type).isText; }

}  // namespace store
