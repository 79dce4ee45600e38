// The words of the database files: names, quoted texts, numbers. Pure functions on text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "text/values.h"

namespace store {

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
    Result takeNumber(uint32_t max, uint32_t& number);

private:
    Result takeBare(std::string& text);
    Result takeEscape(std::string& text);
    Result takeCharacter(std::string& text);

    std::string_view rest_;
};

// Of the mark that editors put in front of a file; 0: there is none.
size_t byteOrderMarkSize(std::string_view text);

// Bytes of the character that the text begins with when it can steer a terminal or reorder what stands beside
// it: a control character, C1 ones included, or a bidirectional mark. 0: it is none.
size_t steeringSize(std::string_view text);
// Each byte of such a character, and each that is no UTF-8, as \xHH: for what is shown, not read back.
std::string printable(std::string_view text);

// Bare when a Cursor reads it back so and nothing of it steers, else quoted.
void appendName(std::string& out, std::string_view name);
// What is not valid UTF-8 is escaped, so that the file always is; what steers is, too.
void appendQuoted(std::string& out, std::string_view text);
void appendNumber(std::string& out, uint64_t number);
// For a log line: bytes that would begin another line or command a terminal as \xHH.
std::string shown(std::string_view text);

}  // namespace store
