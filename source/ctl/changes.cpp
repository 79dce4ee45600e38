#include "ctl/changes.h"

#include <algorithm>
#include <optional>

#include "ctl/failure.h"
#include "ctl/syntax.h"
#include "common/messageCodes.h"

namespace {

constexpr char eraseTakesKeys[] = "erase takes a whole key; use remove for one element";

// KEY TYPE VALUE
Request parseSet(std::string_view text) {
    store::Line line;
    require(store::parseLine(text, line));
    if (line.kind != store::Line::Kind::value)
        failSyntax("a key, a type and a value are wanted");
    Key key = keyOf(line);
    Request request{.code = messageCode::notify,
                    .name = std::move(key.name),
                    .value = std::move(line.value.bytes),
                    .type = line.value.type,
                    .pKey = key.index};
    if (store::isText(request.type))
        request.value.push_back('\0');
    checkSize(request);
    return request;
}

Request parseErase(std::string_view text) {
    store::Cursor cursor(text);
    Request request{.code = messageCode::erase, .name = takeName(cursor)};
    if (cursor.at('['))
        failSyntax(eraseTakesKeys);
    takeEnd(cursor);
    return request;
}

Request parseNew(std::string_view text) {
    store::Cursor cursor(text);
    Request request{.code = messageCode::instanciate};
    request.tpltName = takeName(cursor);
    takeBlank(cursor);
    request.name = takeName(cursor);
    takeBlank(cursor);
    request.owner = takeOwner(cursor);
    takeEnd(cursor);
    return request;
}

Request parseRemove(std::string_view text) {
    store::Cursor cursor(text);
    Request request{.code = messageCode::deinstanciate, .name = takeName(cursor)};
    request.pKey = takeIndex(cursor);
    takeEnd(cursor);
    return request;
}

struct Command {
    std::string_view word;
    Request (*parse)(std::string_view arguments);
};

constexpr Command commands[] = {
    {"set", parseSet}, {"erase", parseErase}, {"new", parseNew}, {"remove", parseRemove}};

constexpr char blanks[] = " \t\r";

std::string_view withoutLeadingBlanks(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    return text;
}

// Nothing when the line is empty or a comment.
std::optional<Request> parseChange(std::string_view line) {
    line = withoutLeadingBlanks(line);
    if (line.empty() || line.front() == '#')
        return std::nullopt;
    std::string_view word = line.substr(0, line.find_first_of(blanks));
    const Command* command = std::ranges::find(commands, word, &Command::word);
    if (command == std::end(commands))
        failSyntax("a change starts with set, erase, new or remove");
    return command->parse(withoutLeadingBlanks(line.substr(word.size())));
}

std::string valueWord(std::string_view type, std::string_view value) {
    if (type == "Bool" || type == "Byte" || type == "Dword")
        return std::to_string(numberArgument(value));
    std::string word;
    store::appendQuoted(word, value);
    return word;
}

}  // namespace

std::vector<Request> parseBatch(std::string_view text) {
    std::vector<Request> changes;
    for (std::size_t number = 1; !text.empty(); ++number) {
        std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        try {
            if (std::optional<Request> change = parseChange(line)) {
                change->line = number;
                changes.push_back(std::move(*change));
            }
        } catch (const Failure& failure) {
            throw Failure(failure.status(), "line " + std::to_string(number) + ": " + failure.what());
        }
    }
    return changes;
}

// The arguments become a line that reads back as they are, so that one grammar checks both.
Request setArguments(std::string_view key, std::string_view type, std::string_view value) {
    constexpr std::string_view types[] = {"Bool", "Byte", "Dword", "IP", "MAC", "String"};
    if (std::ranges::find(types, type) == std::end(types))
        failSyntax("the type is one of Bool, Byte, Dword, IP, MAC and String");
    Key parsed = keyArgument(key);
    std::string line;
    store::appendName(line, parsed.name);
    if (parsed.index != 0)
        line.append("[").append(std::to_string(parsed.index)).append("]");
    return parseSet(line.append(" ").append(type).append(" ").append(valueWord(type, value)));
}

Request eraseArgument(std::string_view key) {
    if (keyArgument(key).index != 0)
        failSyntax(eraseTakesKeys);
    return {.code = messageCode::erase, .name = nameArgument(key)};
}

Request newArguments(std::string_view tpltName, std::string_view structure, std::string_view owner) {
    return {.code = messageCode::instanciate,
            .name = nameArgument(structure),
            .owner = ownerArgument(owner),
            .tpltName = nameArgument(tpltName)};
}

Request removeArguments(std::string_view structure, std::string_view pKey) {
    Key key = pKey.empty() ? keyArgument(structure) : Key{nameArgument(structure), numberArgument(pKey)};
    if (key.index == 0)
        failSyntax("a primary key is a number from 1");
    return {.code = messageCode::deinstanciate, .name = std::move(key.name), .pKey = key.index};
}
