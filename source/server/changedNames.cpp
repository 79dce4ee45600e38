#include "server/changedNames.h"

#include <algorithm>

#include "ostrel/keyPattern.hpp"

ChangedNames::ChangedNames(const std::vector<OstrelValue*>& changes) {
    names_.reserve(changes.size());
    for (size_t place = 0; place < changes.size(); ++place)
        names_.push_back({changes[place]->name, place});
    std::sort(names_.begin(), names_.end(),
              [](const Name& left, const Name& right) { return left.text < right.text; });
}

ChangedNames::Range ChangedNames::range(std::string_view pattern) const {
    const std::string_view start =
        pattern.substr(0, pattern.size() - (ostrel::isPrefixPattern(pattern) ? 1 : 0));
    const auto begin = std::partition_point(names_.begin(), names_.end(),
                                            [&](const Name& name) { return name.text < start; });
    return {begin, std::partition_point(begin, names_.end(), [&](const Name& name) {
                return ostrel::matchesPattern(pattern, name.text);
            })};
}

bool ChangedNames::anyMatches(unsigned int count, char** patterns) const {
    return std::any_of(patterns, patterns + count, [&](const char* pattern) {
        if (pattern == nullptr)
            return false;
        const auto [begin, end] = range(pattern);
        return begin != end;
    });
}

std::vector<bool> ChangedNames::matches(unsigned int count, char** patterns) const {
    std::vector<bool> result(names_.size());
    for (unsigned int i = 0; i < count; ++i) {
        if (patterns[i] == nullptr)
            continue;
        const auto [begin, end] = range(patterns[i]);
        std::for_each(begin, end, [&](const Name& name) { result[name.place] = true; });
    }
    return result;
}
