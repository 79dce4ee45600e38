#include "text/names.h"

#include <algorithm>

#include "text/characters.h"

namespace store {

Result checkName(std::string_view name) {
    if (name.empty())
        return {"the name is empty"};
    if (name.size() > longestName)
        return {"the name is longer than 127 bytes"};
    if (std::ranges::any_of(name, isControl))
        return {"the name holds a control character"};
    return {};
}

}  // namespace store
