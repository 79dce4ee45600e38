#include "ctl/syntax.h"

#include <algorithm>
#include <charconv>

#include "ctl/failure.h"
#include "common/ostrelUtils.h"

namespace {

constexpr std::size_t longestTag = 4;

bool isNumber(std::string_view text) {
    return !text.empty() && std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

std::uint32_t tagOwner(const std::string& tag) {
    if (tag.size() > longestTag)
        failSyntax("the owner is longer than 4 bytes");
    return ostrelStringToOwner(tag.c_str());
}

}  // namespace

void failSyntax(const std::string& reason) { throw Failure(Status::usage, reason); }

void require(store::Result result) {
    if (!result.ok())
        failSyntax(result.refusal);
}

Key keyOf(const store::Line& line) {
    return {nameArgument(line.member.empty() ? line.name : line.name + '.' + line.member), line.index};
}

Key keyArgument(std::string_view argument) {
    std::size_t open = argument.rfind('[');
    std::size_t close = argument.rfind(']');
    if (open == std::string_view::npos || close == std::string_view::npos || close < open)
        return {nameArgument(argument)};
    std::string_view number = argument.substr(open + 1, close - open - 1);
    std::string_view rest = argument.substr(close + 1);
    if (!isNumber(number) || (!rest.empty() && rest.front() != '.'))
        return {nameArgument(argument)};
    std::uint32_t index = numberArgument(number);
    if (index == 0)
        failSyntax("an index is a number from 1");
    return {nameArgument(std::string(argument.substr(0, open)).append(rest)), index};
}

std::string nameArgument(std::string_view argument) {
    require(store::checkName(argument));
    return std::string(argument);
}

std::uint32_t numberArgument(std::string_view argument) {
    std::uint32_t number = 0;
    if (!isNumber(argument))
        failSyntax("a decimal number is missing");
    if (std::from_chars(argument.data(), argument.data() + argument.size(), number).ec != std::errc())
        failSyntax("the number is too large");
    return number;
}

std::uint32_t ownerArgument(std::string_view argument) {
    return isNumber(argument) ? numberArgument(argument) : tagOwner(std::string(argument));
}

std::string takeName(store::Cursor& cursor) {
    std::string name;
    require(cursor.takeName(name));
    return name;
}

std::uint32_t takeIndex(store::Cursor& cursor) {
    std::uint32_t index = 0;
    if (!cursor.take('['))
        failSyntax("the primary key in brackets is missing");
    require(cursor.takeNumber(UINT32_MAX, index));
    if (!cursor.take(']') || index == 0)
        failSyntax("a primary key is a number from 1, in brackets");
    return index;
}

std::uint32_t takeOwner(store::Cursor& cursor) {
    if (cursor.atEnd())
        failSyntax("the owner is missing");
    if (!cursor.at('"'))
        return ownerArgument(takeName(cursor));
    std::string tag;
    require(cursor.takeQuoted(tag));
    return tagOwner(tag);
}

void takeBlank(store::Cursor& cursor) {
    if (!cursor.skipBlanks())
        failSyntax("a blank is missing");
}

void takeEnd(store::Cursor& cursor) {
    cursor.skipBlanks();
    if (!cursor.atEnd())
        failSyntax("unexpected text at the end");
}

std::string formatValue(const Key& key, const Parameter& value) {
    store::Value readable;
    if (const store::Result result = store::makeValue(value.type, value.value, readable); !result.ok())
        throw Failure(Status::refused, key.name + ": the daemon's value makes no sense: " + result.refusal);
    store::LineWriter writer;
    writer.value({key.name, key.index}, readable);
    writer.text.pop_back();
    return std::move(writer.text);
}
