// What a plug-in's file exports.
#pragma once

#include <optional>
#include <string>
#include <vector>

// The names besides those that a plug-in is asked for, without those that linkers make; the plug-in's own
// before the C++ library's, with unprintable bytes escaped.
struct ExtraSymbols {
    std::vector<std::string> plain{};
    // Weak or unique: the loader may give one plug-in the variable or function of another.
    std::vector<std::string> shared{};
};

// Nothing when the file has no symbol table that can be made sense of. Loads nothing, and bears any content.
std::optional<ExtraSymbols> readExtraSymbols(const std::string& path);

// Separated by blanks.
std::string blankSeparated(const std::vector<std::string>& names);
