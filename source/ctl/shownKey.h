// A key as a person reads it. For daemon and library the member of an instance is STRUCT.MEMBER with an
// index; it is shown as STRUCT[PKEY].MEMBER.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ostrel/client.hpp"

struct ShownKey : ostrel::Key {
    size_t structure = 0;  // bytes of its name in front of the member's; 0: no member, or not known

    std::string text() const;
};

// Bytes of the name that are a structure's of which the owner has an instance; 0: none.
size_t structureOf(ostrel::Session& session, const std::string& name, uint32_t owner);

// Of existing keys that may be members finds out which are; throws ostrel::Error.
void findStructures(ostrel::Session& session, std::vector<ShownKey>& keys);
