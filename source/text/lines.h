// The text of a database file, line by line.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

#include "text/characters.h"
#include "text/grammar.h"

namespace store {

struct SourceText {
    std::string path;
    std::string_view text;
    size_t firstLine = 1;  // the number of the text's first line in its file
};

// Borrowed from the source.
struct LinePlace {
    const std::string& path;
    size_t number;
    std::string_view text;  // without its line break
};

// Calls use(place, line, result of parsing it) for every line with content.
template <class Use>
void forEachLine(const SourceText& source, Use use) {
    std::string_view rest = source.text;
    if (source.firstLine == 1)
        rest.remove_prefix(byteOrderMarkSize(rest));
    Line line;
    for (size_t number = source.firstLine; !rest.empty(); ++number) {
        const std::string_view text = rest.substr(0, std::min(rest.find('\n'), rest.size()));
        const Result parsed = parseLine(text, line);
        if (!parsed.ok() || line.kind != Line::Kind::blank)
            use(LinePlace{source.path, number, text}, line, parsed);
        rest.remove_prefix(std::min(text.size() + 1, rest.size()));
    }
}

}  // namespace store
