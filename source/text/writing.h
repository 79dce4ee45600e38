// Words as a Cursor reads them back.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace store {

// Bare when a Cursor reads it back so and nothing of it steers, else quoted.
void appendName(std::string& out, std::string_view name);
// What is not valid UTF-8 is escaped, so that the file always is; what steers is, too.
void appendQuoted(std::string& out, std::string_view text);
void appendNumber(std::string& out, uint64_t number);

}  // namespace store
