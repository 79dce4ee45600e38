#include "text/writing.h"

#include <array>
#include <charconv>

#include "text/characters.h"
#include "text/wordSyntax.h"

namespace store {
namespace {

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

}  // namespace

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

}  // namespace store
