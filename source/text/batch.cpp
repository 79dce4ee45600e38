#include "text/batch.h"

#include <algorithm>

#include "text/cursor.h"
#include "text/writing.h"

namespace store {
namespace {

constexpr std::string_view opening = "[$";

// Outside of quotes and comments; npos: nowhere.
size_t findLabel(std::string_view line) {
    bool quoted = false;
    for (size_t i = 0; i < line.size(); ++i) {
        if (quoted && line[i] == '\\')
            ++i;
        else if (line[i] == '"')
            quoted = !quoted;
        else if (!quoted && line[i] == '#')
            break;
        else if (!quoted && line.substr(i).starts_with(opening))
            return i + opening.size();
    }
    return std::string_view::npos;
}

bool isLabel(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '-' || c == '_';
}

// Puts the index 1 in place of the label, as the grammar of the files knows none.
Result takeLabel(std::string& text, std::string& label) {
    const size_t begin = findLabel(text);
    if (begin == std::string::npos)
        return {};
    const size_t size = std::min(text.find(']', begin), text.size()) - begin;
    label = text.substr(begin, size);
    if (label.empty() || !std::ranges::all_of(label, isLabel))
        return {"a label is letters, digits, - and _, as in STRUCT[$LABEL]"};
    text.replace(begin - 1, size + 1, "1");
    return {};
}

// STRUCT removed OWNER, which the files do not have: in them each instance stands for itself. Nothing: the
// line is of another form.
std::optional<Result> parseOwned(std::string_view text, BatchLine& read) {
    Cursor cursor(text);
    std::string structure;
    cursor.skipBlanks();
    if (!cursor.takeName(structure).ok() || !cursor.skipBlanks() || cursor.takeWord() != "removed")
        return std::nullopt;
    read.line.kind = Line::Kind::removed;
    read.line.name = structure;
    if (!cursor.skipBlanks() || cursor.atEnd())
        return Result{"say whose: STRUCT removed OWNER; or which: STRUCT[PKEY] removed"};
    uint32_t owner = 0;
    if (const Result result = takeOwner(cursor, owner); !result.ok())
        return result;
    cursor.skipBlanks();
    if (!cursor.atEnd())
        return Result{"unexpected text behind the owner"};
    read.owner = owner;
    return Result{};
}

// What the files have and a batch has not.
Result checkKind(Line::Kind kind) {
    switch (kind) {
        case Line::Kind::lastKey:
            return {"the daemon counts primary keys itself"};
        case Line::Kind::heading:
            return {"templates belong to the firmware; a batch cannot change them"};
        case Line::Kind::closing:
            return {"a batch is one transaction and has no closing line"};
        case Line::Kind::blank:
        case Line::Kind::value:
        case Line::Kind::erased:
        case Line::Kind::instance:
        case Line::Kind::removed:
            break;
    }
    return {};
}

std::optional<std::string> refusalOf(Result result) {
    return result.ok() ? std::nullopt : std::optional<std::string>(result.refusal);
}

}  // namespace

std::optional<std::string> BatchReader::make(size_t number, const BatchLine& read) {
    if (read.label.empty()) {
        std::string text = "the daemon chooses the primary key: write ";
        appendName(text, read.line.name);
        return text + "[$LABEL] here and in the lines of its members";
    }
    const auto [earlier, isNew] = made_.try_emplace(read.label, Made{number});
    if (!isNew)
        return '$' + read.label + " is made in line " + std::to_string(earlier->second.number) + " already";
    return std::nullopt;
}

std::optional<std::string> BatchReader::use(BatchLine& read) const {
    const auto found = made_.find(read.label);
    if (found == made_.end())
        return '$' + read.label + " is not made before this line";
    if (found->second.isRefused)
        read = {};
    return std::nullopt;
}

std::optional<std::string> BatchReader::readChange(std::string_view text, size_t number, BatchLine& read) {
    if (const std::optional<Result> owned = parseOwned(text, read))
        return refusalOf(*owned);
    std::string unlabelled(text);
    if (const Result result = takeLabel(unlabelled, read.label); !result.ok())
        return result.refusal;
    if (const Result result = parseLine(unlabelled, read.line); !result.ok()) {
        // Lines that use the label are not to be blamed for this one.
        if (read.line.kind == Line::Kind::instance && !read.label.empty())
            made_.try_emplace(read.label, Made{number, true});
        read.line = {};
        return result.refusal;
    }
    if (read.line.kind == Line::Kind::instance)
        return make(number, read);
    std::optional<std::string> refusal = read.label.empty() ? std::nullopt : use(read);
    return refusal ? refusal : refusalOf(checkKind(read.line.kind));
}

std::optional<std::string> BatchReader::read(std::string_view text, size_t number, BatchLine& line) {
    line = {};
    return readChange(text, number, line);
}

}  // namespace store
