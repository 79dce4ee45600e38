// What the whole store speaks of: results, names and typed values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "ostrel/plugin.h"

namespace store {

// A refusal is a text that lives as long as the program; null is success.
struct [[nodiscard]] Result {
    const char* refusal = nullptr;

    bool ok() const { return refusal == nullptr; }
};

struct Value {
    std::string bytes;  // a text stands here without its NUL
    ostrelValueType type = ostrelTypeNone;

    bool operator==(const Value&) const = default;
};

// Bytes that a caller of the database sees: a text's NUL counts.
size_t sizeOf(const Value& value);

bool isText(ostrelValueType type);

constexpr size_t maxNameSize = 127;

// 1 to 127 bytes without control characters.
Result checkName(std::string_view name);

// A valid address, or empty; any text without NUL for a String.
Result checkText(ostrelValueType type, std::string_view text);

// The value that a caller hands in as bytes (a text with its one NUL). value is set on success only.
Result makeValue(ostrelValueType type, std::span<const unsigned char> bytes, Value& value);

Value makeDword(uint32_t number);
uint32_t dwordOf(const Value& value);

}  // namespace store
