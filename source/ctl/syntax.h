// The user's words: keys, owners and values, written as in the database files.
//
// What does not parse throws Failure with the reason.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "common/marshalling.h"
#include "db/grammar.h"
#include "db/text.h"

struct Key {
    std::string name{};
    std::uint32_t index = 0;
};

// What the database calls the key of a value's line: a member by its structure's name, a dot and its own.
Key keyOf(const store::Line& line);

// A key as an argument of the command line: every character counts for itself, but a number in brackets at
// the end, or in front of ".MEMBER", is the index.
Key keyArgument(std::string_view argument);
std::string nameArgument(std::string_view argument);
std::uint32_t numberArgument(std::string_view argument);
// A number, or a tag of up to four bytes.
std::uint32_t ownerArgument(std::string_view argument);

// Take a word off the front of a line.
std::string takeName(store::Cursor& cursor);
std::uint32_t takeIndex(store::Cursor& cursor);
std::uint32_t takeOwner(store::Cursor& cursor);
void takeBlank(store::Cursor& cursor);
void takeEnd(store::Cursor& cursor);

// KEY TYPE VALUE, without a line break. Throws Failure when the value is none.
std::string formatValue(const Key& key, const Parameter& value);

[[noreturn]] void failSyntax(const std::string& reason);
void require(store::Result result);
