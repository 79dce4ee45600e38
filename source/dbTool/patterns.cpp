#include "dbTool/patterns.h"

#include <algorithm>
#include <iterator>

#include "dbTool/toolFailure.h"
#include "ostrel/keyPattern.hpp"
#include "text/writing.h"

bool Patterns::matchName(std::string_view name) const {
    return std::ranges::any_of(
        patterns_, [name](std::string_view pattern) { return ostrel::matchesPattern(pattern, name); });
}

bool Patterns::match(const store::RowKey& key) const {
    return patterns_.empty() || matchName(key.name) || (!key.member.empty() && matchName(key.wholeName()));
}

std::vector<std::string> Patterns::names() const {
    std::vector<std::string> names;
    std::ranges::copy_if(patterns_, std::back_inserter(names),
                         [](const std::string& pattern) { return !ostrel::isPrefixPattern(pattern); });
    return names;
}

void requireKnown(const store::Model& model, const Patterns& patterns) {
    std::string unknown;
    for (const std::string& name : patterns.names()) {
        if (model.entry(name) == nullptr && model.structure(name) == nullptr &&
            model.findTemplate(name) == nullptr)
            store::appendName(unknown += unknown.empty() ? "" : ", ", name);
    }
    if (!unknown.empty())
        throw Failure("nothing has the name " + unknown);
}
