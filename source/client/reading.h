// The requests that read, on one connection.
//
// Each function throws Failure, and ConnectionLost.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "client/connection.h"
#include "text/values.h"

namespace client {

struct Key {
    std::string name;
    uint32_t index = 0;
};

// In the order of the keys; nothing for a key that is not there.
std::vector<std::optional<store::Value>> readValues(Connection& connection, std::span<const Key> keys,
                                                    const Deadline& deadline);

uint32_t countInstances(Connection& connection, const std::string& name, uint32_t owner,
                        const Deadline& deadline);

struct List {
    std::vector<uint32_t> keys;
    uint32_t total = 0;
};
List listInstances(Connection& connection, const std::string& name, uint32_t owner, const Deadline& deadline);

}  // namespace client
