#include "dbTool/patterns.h"

#include <algorithm>

bool Patterns::matchName(std::string_view name) const {
    return std::ranges::any_of(patterns_, [name](std::string_view pattern) {
        return pattern.ends_with('*') ? name.starts_with(pattern.substr(0, pattern.size() - 1))
                                      : name == pattern;
    });
}

bool Patterns::match(const store::RowKey& key) const {
    return patterns_.empty() || matchName(key.name) || (!key.member.empty() && matchName(key.wholeName()));
}
