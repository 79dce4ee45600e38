// Characters in bytes: what of them is UTF-8, what steers a terminal, how the others are written.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace store {

constexpr std::string_view hexDigits = "0123456789abcdef";

// 0x00 to 0x1f and 0x7f: it begins another line, or commands a terminal.
constexpr bool isControl(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 32 || byte == 127;
}

// Of the mark that editors put in front of a file; 0: there is none.
size_t byteOrderMarkSize(std::string_view text);

// Bytes of the UTF-8 character that the text, which is not empty, begins with; 0 when it is none (cut,
// overlong, surrogate, too high).
size_t characterSize(std::string_view text);

// Bytes of the character that the text begins with when it can steer a terminal or reorder what stands beside
// it: a control character, C1 ones included, or a bidirectional mark. 0: it is none.
size_t steeringSize(std::string_view text);

// As \xHH.
void appendHex(std::string& out, char byte);

}  // namespace store
