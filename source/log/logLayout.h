// What stands around the texts in the log, for those who write it and those who read it.
//
// A line: LEVEL TIME:MODULE:LINE:FUNCTION():, blanks up to prefixWidth, two blanks, errorTag when it is an
// error, the text. Why the process ends stands in a line without all this: fatalFormat.
#pragma once

#include <cstddef>
#include <string_view>

namespace logLayout {

constexpr char errorLevel[] = "[ERR]";
constexpr char noticeLevel[] = "[NOT]";
constexpr char debugLevel[] = "[DBG]";
constexpr char otherLevel[] = "[---]";

constexpr char functionEnd[] = "():";
constexpr size_t prefixWidth = 65;  // longer ones move the text
constexpr char textGap[] = "  ";
constexpr char errorTag[] = "\033[41m**** ERROR ****\033[m ";

constexpr char fatalFormat[] = "FATAL ERROR :%s\n";

// The longest piece of a format that is printed as it stands there: what to look for in a log.
constexpr std::string_view fixedPart(std::string_view format) {
    constexpr std::string_view conversions = "diuoxXcsp%";
    std::string_view longest;
    while (!format.empty()) {
        const std::string_view piece = format.substr(0, format.find('%'));
        if (piece.size() > longest.size())
            longest = piece;
        format.remove_prefix(piece.size());
        if (const size_t conversion = format.find_first_of(conversions, 1);
            conversion != std::string_view::npos)
            format.remove_prefix(conversion + 1);
        else
            format = {};
    }
    return longest;
}

}  // namespace logLayout
