#include "text/valueTypes.h"

#include <algorithm>
#include <array>

namespace store {
namespace {

#define OSTREL_ROW(name, size, largest) TypeInfo{ostrelType##name, #name, (size) == 0, size, largest},
constexpr std::array types = {TypeInfo{}, OSTREL_VALUE_TYPES(OSTREL_ROW)};
#undef OSTREL_ROW

// By number. A type without a row does not compile.
constexpr size_t placeOf(ostrelValueType type) {
    switch (type) {
#define OSTREL_CASE(name, size, largest) case ostrelType##name:
        OSTREL_VALUE_TYPES(OSTREL_CASE)
#undef OSTREL_CASE
        return type;
        case ostrelTypeNone:
            break;
    }
    return 0;
}

constexpr bool areInOrder() {
    for (size_t i = 0; i < types.size(); ++i) {
        if (types[i].type != i)
            return false;
    }
    return true;
}
static_assert(areInOrder());

}  // namespace

std::span<const TypeInfo> valueTypes() { return std::span(types).subspan(1); }

const TypeInfo& infoOf(ostrelValueType type) { return types[placeOf(type)]; }

ostrelValueType typeNamed(std::string_view name) {
    const auto found = std::ranges::find(valueTypes(), name, &TypeInfo::name);
    return found != valueTypes().end() ? found->type : ostrelTypeNone;
}

}  // namespace store
