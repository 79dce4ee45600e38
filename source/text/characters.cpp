#include "text/characters.h"

#include <cstdint>

namespace store {
namespace {

bool isContinuation(std::string_view text, size_t at) {
    return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80;
}

// The code point of a character of two or three bytes; 0 for others.
uint32_t codePoint(std::string_view text, size_t size) {
    const auto bits = [&](size_t at, unsigned int mask) {
        return static_cast<unsigned char>(text[at]) & mask;
    };
    if (size == 2)
        return bits(0, 0x1FU) << 6U | bits(1, 0x3FU);
    return size == 3 ? bits(0, 0xFU) << 12U | bits(1, 0x3FU) << 6U | bits(2, 0x3FU) : 0;
}

bool isSteering(uint32_t point) {
    const auto within = [point](uint32_t first, uint32_t last) { return point >= first && point <= last; };
    return within(0x80, 0x9F) || point == 0x61C || within(0x200E, 0x200F) || within(0x202A, 0x202E) ||
           within(0x2066, 0x2069);
}

}  // namespace

size_t byteOrderMarkSize(std::string_view text) {
    constexpr std::string_view mark = "\xEF\xBB\xBF";
    return text.starts_with(mark) ? mark.size() : 0;
}

size_t characterSize(std::string_view text) {
    const auto first = static_cast<unsigned char>(text[0]);
    if (first < 0x80)
        return 1;
    if (first < 0xC2 || first > 0xF4 || !isContinuation(text, 1))
        return 0;
    const auto second = static_cast<unsigned char>(text[1]);
    if (first < 0xE0)
        return 2;
    if (first < 0xF0) {
        const bool bad = (first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F);
        return !bad && isContinuation(text, 2) ? 3 : 0;
    }
    const bool bad = (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F);
    return !bad && isContinuation(text, 2) && isContinuation(text, 3) ? 4 : 0;
}

size_t steeringSize(std::string_view text) {
    const auto first = static_cast<unsigned char>(text[0]);
    if (isControl(text[0]))
        return 1;
    if (first < 0x80)
        return 0;
    const size_t size = characterSize(text);
    return isSteering(codePoint(text, size)) ? size : 0;
}

void appendHex(std::string& out, char byte) {
    const auto bits = static_cast<unsigned char>(byte);
    out += "\\x";
    out += hexDigits[bits >> 4U];
    out += hexDigits[bits & 15U];
}

}  // namespace store
