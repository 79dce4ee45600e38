#include "ctl/words.h"

#include <algorithm>
#include <charconv>

#include "ctl/commandFailure.h"
#include "ctl/lines.h"
#include "text/grammar.h"
#include "text/names.h"

namespace {

bool isNumber(std::string_view text) {
    return !text.empty() && std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

uint32_t numberArgument(std::string_view argument, uint32_t largest) {
    uint32_t number = 0;
    if (!isNumber(argument))
        failUsage("a decimal number is missing");
    auto [end, error] = std::from_chars(argument.data(), argument.data() + argument.size(), number);
    if (error != std::errc() || number > largest)
        failUsage("the number is too large");
    return number;
}

ShownKey checkedKey(std::string name, uint32_t index = 0, size_t structure = 0) {
    ShownKey key{{std::move(name), index}, structure};
    if (const store::Result result = store::checkName(key.name); !result.ok())
        failUsage(key.text() + ": " + result.refusal);
    return key;
}

}  // namespace

void require(store::Result result) {
    if (!result.ok())
        failUsage(result.refusal);
}

ShownKey keyArgument(std::string_view argument) {
    const size_t open = argument.rfind('[');
    const size_t close = argument.rfind(']');
    if (open == std::string_view::npos || close == std::string_view::npos || close < open)
        return checkedKey(std::string(argument));
    const std::string_view number = argument.substr(open + 1, close - open - 1);
    const std::string_view rest = argument.substr(close + 1);
    if (!isNumber(number) || (!rest.empty() && rest.front() != '.'))
        return checkedKey(std::string(argument));
    std::string name = std::string(argument.substr(0, open)).append(rest);
    uint32_t index = 0;
    auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), index);
    if (error != std::errc() || index == 0)
        failUsage(std::string(argument) + ": an index is a number from 1 to 4294967295");
    return checkedKey(std::move(name), index, rest.empty() ? 0 : open);
}

std::string indexHint(const ostrel::Key& key) {
    const size_t open = key.name.find('[');
    const size_t close = key.name.rfind(']');
    if (key.index != 0 || open == std::string::npos || close == std::string::npos || close < open)
        return "";
    return "bad index " + key.name.substr(open, close - open + 1) +
           ": a number from 1 to 4294967295 is wanted, and no key has this as its name";
}

ShownKey elementArgument(std::string_view argument) {
    ShownKey key = keyArgument(argument);
    if (key.index == 0)
        failUsage(std::string(argument) + ": the index in brackets is missing, or no number from 1");
    return key;
}

std::string nameArgument(std::string_view argument) {
    ShownKey key = keyArgument(argument);
    if (key.index != 0)
        failUsage(std::string(argument) + ": a name without an index is wanted");
    return std::move(key.name);
}

uint32_t ownerArgument(std::string_view argument) {
    if (isNumber(argument))
        return numberArgument(argument, UINT32_MAX);
    uint32_t owner = 0;
    require(store::ownerOf(argument, owner));
    return owner;
}

ostrelValueType typeArgument(std::string_view argument) {
    const ostrelValueType type = store::typeNamed(argument);
    if (type == ostrelTypeNone)
        failUsage(std::string(argument) + ": the type is one of " +
                  store::typeList("and", [](const store::TypeInfo&) { return true; }) +
                  "; quote a value of several words");
    return type;
}

ostrel::Value valueArgument(ostrelValueType type, std::string_view argument) {
    const store::TypeInfo& info = store::infoOf(type);
    if (!info.isText)
        return {type, numberArgument(argument, info.largest), {}};
    require(store::checkText(type, argument));
    return {type, 0, std::string(argument)};
}
