#include "text/grammar.h"

#include <algorithm>
#include <array>

#include "text/names.h"
#include "text/writing.h"

namespace store {
namespace {

constexpr uint32_t largestNumber = UINT32_MAX;

// As comments, by Origin: a version that does not know them reads over them.
constexpr std::array<std::string_view, 3> originComments = {"", "# default", "# created"};

Origin originNamed(std::string_view comment) {
    const auto found = std::ranges::find(originComments, comment);
    return found != originComments.end() ? static_cast<Origin>(found - originComments.begin())
                                         : Origin::unknown;
}

Result parseKey(Cursor& cursor, Line& line) {
    Result result = cursor.takeName(line.name);
    if (result.ok() && cursor.take('[')) {
        result = cursor.takeNumber(largestNumber, line.index);
        if (result.ok() && (!cursor.take(']') || line.index == 0)) {
            result = {"an index is a number from 1, in square brackets"};
        }
        if (result.ok() && cursor.take('.'))
            result = cursor.takeName(line.member);
    }
    if (result.ok() && line.name.size() + 1 + line.member.size() > longestName && !line.member.empty()) {
        result = {"the member's whole name is longer than 127 bytes"};
    }
    if (result.ok() && !cursor.skipBlanks()) {
        result = {"a blank is missing behind the key"};
    }
    return result;
}

Result parseHeading(Cursor& cursor, Line& line) {
    line.kind = Line::Kind::heading;
    cursor.take('[');
    const Result result = cursor.takeName(line.name);
    return result.ok() && !cursor.take(']') ? Result{"the closing bracket is missing"} : result;
}

Result parseValue(Cursor& cursor, ostrelValueType type, Line& line) {
    line.kind = Line::Kind::value;
    line.value.type = type;
    if (isText(type)) {
        const Result result = cursor.takeQuoted(line.value.bytes);
        return result.ok() ? checkText(type, line.value.bytes) : result;
    }
    uint32_t number = 0;
    const Result result = cursor.takeNumber(infoOf(type).largest, number);
    if (result.ok())
        line.value = makeNumber(type, number);
    return result;
}

Result parseInstance(Cursor& cursor, Line& line) {
    line.kind = Line::Kind::instance;
    if (line.index == 0 || !line.member.empty())
        return {"an instance needs its primary key, and no member"};
    const Result result = cursor.takeName(line.instance.templateName);
    if (!result.ok())
        return result;
    return cursor.skipBlanks() ? takeOwner(cursor, line.instance.owner)
                               : Result{"a blank is missing behind the template"};
}

Result parseState(Cursor& cursor, std::string_view word, Line& line) {
    if (word == "erased") {
        line.kind = Line::Kind::erased;
        line.origin = originNamed(cursor.comment());
        return line.member.empty() ? Result{} : Result{"a member cannot be erased"};
    }
    if (word == "removed") {
        line.kind = Line::Kind::removed;
        line.origin = originNamed(cursor.comment());
        return line.index != 0 && line.member.empty() ? Result{} : Result{"only an instance can be removed"};
    }
    if (word == "last") {
        line.kind = Line::Kind::lastKey;
        return line.index == 0 ? cursor.takeNumber(largestNumber, line.number)
                               : Result{"the last primary key belongs to a structure"};
    }
    return {"unknown type"};
}

Result parseContent(Cursor& cursor, Line& line) {
    if (cursor.at('['))
        return parseHeading(cursor, line);
    if (const Result result = parseKey(cursor, line); !result.ok())
        return result;
    const std::string_view word = cursor.takeWord();
    if (!cursor.skipBlanks())
        return {"a blank is missing behind the type"};
    if (const ostrelValueType type = typeNamed(word); type != ostrelTypeNone)
        return parseValue(cursor, type, line);
    return word == "instance" ? parseInstance(cursor, line) : parseState(cursor, word, line);
}

// The tag's text, or empty when the number is not one that a person can read.
std::string ownerTag(uint32_t owner) {
    std::string tag;
    for (; owner != 0; owner >>= 8U) {
        const auto byte = static_cast<unsigned char>(owner & 0xFFU);
        if (byte < 32 || byte > 126)
            return {};
        tag += static_cast<char>(byte);
    }
    return tag;
}

}  // namespace

Result ownerOf(std::string_view tag, uint32_t& owner) {
    constexpr size_t longestTag = sizeof owner;
    if (tag.size() > longestTag)
        return {"the owner is longer than 4 bytes"};
    owner = 0;
    for (size_t i = tag.size(); i-- > 0;)
        owner = owner << 8U | static_cast<unsigned char>(tag[i]);
    return {};
}

Result takeOwner(Cursor& cursor, uint32_t& owner) {
    if (!cursor.at('"'))
        return cursor.takeNumber(largestNumber, owner);
    std::string tag;
    const Result result = cursor.takeQuoted(tag);
    return result.ok() ? ownerOf(tag, owner) : result;
}

Result parseLine(std::string_view text, Line& line) {
    line = {};
    Cursor cursor(text);
    cursor.skipBlanks();
    if (cursor.atEnd())
        return {};
    if (cursor.at('@')) {
        line.kind = Line::Kind::closing;
        return {};
    }
    if (const Result result = parseContent(cursor, line); !result.ok())
        return result;
    cursor.skipBlanks();
    return cursor.atEnd() ? Result{} : Result{"unexpected text behind the value"};
}

void LineWriter::begin(const RowKey& key) {
    appendName(text, key.name);
    if (key.index != 0) {
        text += '[';
        appendNumber(text, key.index);
        text += ']';
    }
    if (!key.member.empty()) {
        text += '.';
        appendName(text, key.member);
    }
}

void LineWriter::end() {
    text += '\n';
    ++lines;
}

void LineWriter::value(const RowKey& key, const Value& value) {
    begin(key);
    text += ' ';
    text += infoOf(value.type).name;
    text += ' ';
    if (isText(value.type)) {
        appendQuoted(text, value.bytes);
    } else {
        appendNumber(text, numberOf(value));
    }
    end();
}

void LineWriter::state(const RowKey& key, std::string_view word, Origin origin) {
    begin(key);
    text += ' ';
    text += word;
    if (origin != Origin::unknown) {
        text += ' ';
        text += originComments[static_cast<size_t>(origin)];
    }
    end();
}

void LineWriter::erased(const RowKey& key, Origin origin) { state(key, "erased", origin); }

void LineWriter::instance(const RowKey& key, const Instance& instance) {
    begin(key);
    text += " instance ";
    appendName(text, instance.templateName);
    text += ' ';
    if (const std::string tag = ownerTag(instance.owner); !tag.empty()) {
        appendQuoted(text, tag);
    } else {
        appendNumber(text, instance.owner);
    }
    end();
}

void LineWriter::removed(const RowKey& key, Origin origin) { state(key, "removed", origin); }

void LineWriter::lastKey(std::string_view structure, uint32_t last) {
    begin({structure});
    text += " last ";
    appendNumber(text, last);
    end();
}

}  // namespace store
