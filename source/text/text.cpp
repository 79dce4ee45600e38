#include "text/text.h"

#include <array>
#include <charconv>

namespace store {
namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

// '@' opens the closing line of a transaction, so no bare name starts with it.
bool isBareStart(char c) { return c != '@'; }

bool isBare(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte > 32 && byte != 127 && c != '"' && c != '#' && c != '[' && c != ']' && c != '\\';
}

bool isContinuation(std::string_view text, size_t at) {
    return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80;
}

// Bytes of the UTF-8 character that the text begins with; 0 when it is none (cut, overlong, surrogate, too
// high).
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

// In front of a file a byte order mark would be taken for the file's, not for the name's.
bool isBareName(std::string_view name) {
    if (name.empty() || !isBareStart(name.front()) || byteOrderMarkSize(name) != 0)
        return false;
    for (size_t at = 0; at < name.size();) {
        const size_t size = isBare(name[at]) ? characterSize(name.substr(at)) : 0;
        if (size == 0 || steeringSize(name.substr(at)) != 0)
            return false;
        at += size;
    }
    return true;
}

// The letter behind the backslash for the byte; 0 when it has none.
char escapeLetter(char byte) {
    switch (byte) {
        case '\n':
            return 'n';
        case '\r':
            return 'r';
        case '\t':
            return 't';
        case '"':
        case '\\':
            return byte;
        default:
            return 0;
    }
}

void appendHex(std::string& out, char byte) {
    constexpr char digits[] = "0123456789abcdef";
    const auto bits = static_cast<unsigned char>(byte);
    out += "\\x";
    out += digits[bits >> 4U];
    out += digits[bits & 15U];
}

}  // namespace

size_t byteOrderMarkSize(std::string_view text) {
    constexpr std::string_view mark = "\xEF\xBB\xBF";
    return text.starts_with(mark) ? mark.size() : 0;
}

bool Cursor::skipBlanks() {
    const size_t before = rest_.size();
    while (!rest_.empty() && isBlank(rest_.front()))
        rest_.remove_prefix(1);
    return rest_.size() < before || atEnd();
}

std::string_view Cursor::comment() const {
    std::string_view text = atEnd() ? rest_ : std::string_view();
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

bool Cursor::take(char c) {
    if (!at(c))
        return false;
    rest_.remove_prefix(1);
    return true;
}

Result Cursor::takeName(std::string& name) {
    name.clear();
    const Result result = at('"') ? takeQuoted(name) : takeBare(name);
    return result.ok() ? checkName(name) : result;
}

Result Cursor::takeBare(std::string& text) {
    if (!rest_.empty() && !isBareStart(rest_.front()))
        return {"a name that starts with '@' must be quoted"};
    while (!rest_.empty() && isBare(rest_.front())) {
        if (const Result result = takeCharacter(text); !result.ok())
            return result;
    }
    return {};
}

Result Cursor::takeCharacter(std::string& text) {
    const size_t size = characterSize(rest_);
    if (size == 0)
        return {"not valid UTF-8"};
    text.append(rest_.substr(0, size));
    rest_.remove_prefix(size);
    return {};
}

Result Cursor::takeQuoted(std::string& text) {
    text.clear();
    if (!take('"'))
        return {"a text in double quotes is missing"};
    while (!rest_.empty()) {
        if (take('"'))
            return {};
        if (at('\0'))
            return {"a NUL stands inside the text"};
        if (const Result result = take('\\') ? takeEscape(text) : takeCharacter(text); !result.ok())
            return result;
    }
    return {"the closing quote is missing"};
}

Result Cursor::takeEscape(std::string& text) {
    for (const char byte : {'\n', '\r', '\t', '"', '\\'}) {
        if (take(escapeLetter(byte))) {
            text += byte;
            return {};
        }
    }
    unsigned char byte = 0;
    if (!take('x') || rest_.size() < 2 ||
        std::from_chars(rest_.data(), rest_.data() + 2, byte, 16).ptr != rest_.data() + 2) {
        return {"unknown escape"};
    }
    if (byte == 0)
        return {"a NUL stands inside the text"};
    rest_.remove_prefix(2);
    text += static_cast<char>(byte);
    return {};
}

std::string_view Cursor::takeWord() {
    size_t size = 0;
    while (size < rest_.size() && isLetter(rest_[size]))
        ++size;
    const std::string_view word = rest_.substr(0, size);
    rest_.remove_prefix(size);
    return word;
}

Result Cursor::takeNumber(uint32_t max, uint32_t& number) {
    const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), number);
    if (error == std::errc::result_out_of_range || (error == std::errc() && number > max))
        return {"the number is too large"};
    if (error != std::errc())
        return {"a decimal number is missing"};
    rest_.remove_prefix(static_cast<size_t>(end - rest_.data()));
    return {};
}

size_t steeringSize(std::string_view text) {
    const auto first = static_cast<unsigned char>(text[0]);
    if (first < 32 || first == 127)
        return 1;
    if (first < 0x80)
        return 0;
    const size_t size = characterSize(text);
    return isSteering(codePoint(text, size)) ? size : 0;
}

std::string printable(std::string_view text) {
    std::string out;
    while (!text.empty()) {
        const size_t plain = steeringSize(text) == 0 ? characterSize(text) : 0;
        if (plain != 0)
            out += text.substr(0, plain);
        else
            appendHex(out, text[0]);
        text.remove_prefix(plain != 0 ? plain : 1);
    }
    return out;
}

void appendName(std::string& out, std::string_view name) {
    if (isBareName(name)) {
        out += name;
    } else {
        appendQuoted(out, name);
    }
}

void appendQuoted(std::string& out, std::string_view text) {
    out += '"';
    for (size_t at = 0; at < text.size();) {
        const char c = text[at];
        const size_t size = characterSize(text.substr(at));
        if (const char letter = escapeLetter(c); letter != 0) {
            out += '\\';
            out += letter;
        } else if (const size_t hidden = size == 0 ? 1 : steeringSize(text.substr(at)); hidden != 0) {
            for (const char byte : text.substr(at, hidden))
                appendHex(out, byte);
        } else {
            out += text.substr(at, size);
        }
        at += size == 0 ? 1 : size;
    }
    out += '"';
}

void appendNumber(std::string& out, uint64_t number) {
    std::array<char, 20> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    out.append(digits.data(), end);
}

std::string shown(std::string_view text) {
    std::string result;
    for (const char c : text) {
        if (static_cast<unsigned char>(c) < 32 || c == 127)
            appendHex(result, c);
        else
            result += c;
    }
    return result;
}

}  // namespace store
