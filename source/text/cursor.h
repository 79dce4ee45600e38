// The words of the database files: names, quoted texts, numbers, and how they are read. Pure functions on
// text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "text/result.h"

namespace store {

// Blanks of one line.
constexpr std::string_view blanks = " \t\r";

// Without blanks at both ends.
std::string_view trimmed(std::string_view text);

// Takes words off the front of one line.
class Cursor {
public:
    explicit Cursor(std::string_view line) : rest_(line) {}

    // True when a blank or the end of the line's content came.
    bool skipBlanks();
    // Nothing but a comment is left.
    bool atEnd() const { return rest_.empty() || rest_.front() == '#'; }
    // With its '#', without blanks behind it; empty when something else is left, or nothing.
    std::string_view comment() const;
    bool at(char c) const { return !rest_.empty() && rest_.front() == c; }
    bool take(char c);

    // A bare or quoted name, checked with checkName().
    Result takeName(std::string& name);
    // A text in double quotes, unescaped; it may hold any byte but NUL.
    Result takeQuoted(std::string& text);
    // Lower and upper case letters; empty when there are none.
    std::string_view takeWord();
    Result takeNumber(uint32_t largest, uint32_t& number);

private:
    Result takeBare(std::string& text);
    Result takeEscape(std::string& text);
    Result takeCharacter(std::string& text);

    std::string_view rest_;
};

}  // namespace store
