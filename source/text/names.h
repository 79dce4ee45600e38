// The names of keys, structures and templates.
#pragma once

#include <cstddef>
#include <string_view>

#include "ostrel/names.h"
#include "text/result.h"

namespace store {

constexpr size_t longestName = OSTREL_LONGEST_NAME;  // bytes

// 1 to longestName bytes without control characters.
Result checkName(std::string_view name);

}  // namespace store
