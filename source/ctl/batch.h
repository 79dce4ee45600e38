// A batch as the transaction that it makes.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ctl/commandFailure.h"
#include "ostrel/client.hpp"

struct NewInstance {
    std::string label;
    std::string structure;
    std::string templateName;
    uint32_t owner = 0;
    std::optional<ostrelIndex> index{};  // nothing: it cannot be staged
};

struct Batch {
    ostrel::Transaction transaction{};
    // By the name of a member: the size of its structure's, as far as a key has told.
    std::map<std::string, size_t> structures{};
    std::vector<NewInstance> instances{};
    std::vector<Problem> problems{};  // when there are some, the transaction cannot be applied
};

Batch parseBatch(std::string_view text);
