// The names of a broadcast's changes, sorted, so that a pattern finds its names by bisection: many changes
// beside many patterns cost in proportion to their sum, not to their product.
//
// Main thread only.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "ostrel/plugin.h"

class ChangedNames {
public:
    // The records must outlive it.
    explicit ChangedNames(const std::vector<OstrelValue*>& changes);

    // With what matchNameInList() finds. A null pattern is none.
    bool anyMatches(unsigned int count, char** patterns) const;
    // For each change, in the order of the changes, whether a pattern matches it.
    std::vector<bool> matches(unsigned int count, char** patterns) const;

private:
    struct Name {
        std::string_view text;
        size_t place;  // among the changes
    };
    using Names = std::vector<Name>;
    struct Range {
        Names::const_iterator begin;
        Names::const_iterator end;
    };

    // Those that the pattern matches stand side by side.
    Range range(std::string_view pattern) const;

    Names names_;
};
