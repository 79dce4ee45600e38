// Texts that others chose, as people are shown them: not to be read back.
#pragma once

#include <string>
#include <string_view>

namespace store {

// Each control character as \xHH; all other bytes stay as they are.
std::string shown(std::string_view text);

// Each byte of a character that steers, and each that is no UTF-8, as \xHH.
std::string printable(std::string_view text);

}  // namespace store
