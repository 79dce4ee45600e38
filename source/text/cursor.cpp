#include "text/cursor.h"

#include <algorithm>
#include <charconv>

#include "text/characters.h"
#include "text/names.h"
#include "text/wordSyntax.h"

namespace store {
namespace {

bool isBlank(char c) { return blanks.find(c) != std::string_view::npos; }

bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

}  // namespace

std::string_view trimmed(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    return text.substr(0, text.find_last_not_of(blanks) + 1);
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

Result Cursor::takeNumber(uint32_t largest, uint32_t& number) {
    const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), number);
    if (error == std::errc::result_out_of_range || (error == std::errc() && number > largest))
        return {"the number is too large"};
    if (error != std::errc())
        return {"a decimal number is missing"};
    rest_.remove_prefix(static_cast<size_t>(end - rest_.data()));
    return {};
}

}  // namespace store
