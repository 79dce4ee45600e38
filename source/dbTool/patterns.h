// The keys that a command is about. A pattern is a name, or the beginning of names with a '*' behind it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "db/model.h"
#include "text/rows.h"

class Patterns {
public:
    // None: everything.
    explicit Patterns(std::vector<std::string> patterns) : patterns_(std::move(patterns)) {}

    // A member goes with its structure's name, too.
    bool match(const store::RowKey& key) const;

    // Those without a '*'.
    std::vector<std::string> names() const;

private:
    bool matchName(std::string_view name) const;

    std::vector<std::string> patterns_;
};

// Throws Failure when a name among them is one that nothing has or had: it is likely to be misspelt.
void requireKnown(const store::Model& model, const Patterns& patterns);
