#include "ctl/labels.h"

#include <algorithm>

#include "ctl/failure.h"

namespace {

constexpr std::string_view opening = "[$";

// Outside of quotes and comments; npos: nowhere.
std::size_t findLabel(std::string_view line) {
    bool quoted = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
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

}  // namespace

LabelledLine takeLabel(std::string_view line) {
    std::size_t begin = findLabel(line);
    if (begin == std::string_view::npos)
        return {std::string(line)};
    std::string_view label = line.substr(begin, line.find(']', begin) - begin);
    if (label.empty() || !std::ranges::all_of(label, isLabel))
        failUsage("a label is letters, digits, - and _, as in STRUCT[$LABEL]");
    std::string text(line);
    return {text.replace(begin - 1, label.size() + 1, "1"), std::string(label)};
}
