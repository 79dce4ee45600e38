// The keys that a command is about. A pattern is a name, or the beginning of names with a '*' behind it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "db/rows.h"

class Patterns {
public:
    // None: everything.
    explicit Patterns(std::vector<std::string> patterns) : patterns_(std::move(patterns)) {}

    // A member goes with its structure's name, too.
    bool match(const store::RowKey& key) const;

private:
    bool matchName(std::string_view name) const;

    std::vector<std::string> patterns_;
};
