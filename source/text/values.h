// Typed values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "text/result.h"
#include "text/valueTypes.h"

namespace store {

struct Value {
    std::string bytes;  // a text stands here without its NUL
    ostrelValueType type = ostrelTypeNone;

    bool operator==(const Value&) const = default;
};

// Bytes that a caller of the database sees: a text's NUL counts.
size_t sizeOf(const Value& value);

// A valid address, or empty; any text without NUL for a String.
Result checkText(ostrelValueType type, std::string_view text);

// The value that a caller hands in as bytes (a text with its one NUL). value is set on success only.
Result makeValue(ostrelValueType type, std::span<const unsigned char> bytes, Value& value);

// Of a type whose values are numbers; number is not larger than its largest.
Value makeNumber(ostrelValueType type, uint32_t number);
// 0 when the value is no number.
uint32_t numberOf(const Value& value);

}  // namespace store
