// A batch: changes as lines in the database files' syntax, and what these cannot say.
//
//   KEY TYPE VALUE | KEY[INDEX] TYPE VALUE | STRUCT[PKEY].MEMBER TYPE VALUE
//   KEY erased | KEY[INDEX] erased | STRUCT[PKEY] removed | STRUCT removed OWNER
//   STRUCT[$LABEL] instance TEMPLATE OWNER, and from then on STRUCT[$LABEL] where a primary key may stand
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ctl/failure.h"
#include "ostrel/client.hpp"

struct NewInstance {
    std::string label;
    std::size_t line = 0;
    std::string structure{};
    std::string templateName{};
    std::uint32_t owner = 0;
    std::optional<ostrelIndex> index{};  // nothing: the line is bad
};

struct Batch {
    ostrel::Transaction transaction{};
    // By the name of a member: the size of its structure's, as far as a key has told.
    std::map<std::string, std::size_t> structures{};
    std::vector<NewInstance> instances{};
    std::vector<Problem> problems{};  // when there are some, the transaction cannot be applied
};

Batch parseBatch(std::string_view text);
