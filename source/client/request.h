// How entries are packed into the daemon's frames.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "client/connection.h"
#include "common/marshalling.h"
#include "common/messageCodes.h"

namespace client {

// The code, the count and one entry with these texts. Above receiveBufferSize the daemon cannot receive it.
constexpr size_t listHead = 8;
constexpr size_t entryHead = 21;
constexpr size_t entrySize(const Parameter& entry) {
    return entryHead + entry.name.size() + entry.value.size() + entry.tpltName.size();
}

// The bytes of a number as a value carries it.
std::string numberBytes(uint32_t number);
// Borrows bytes.
std::span<const unsigned char> asValue(const std::string& bytes);

// Collects entries of one code into messages that are as large as the daemon receives them.
class Packer {
public:
    explicit Packer(Connection& connection) : connection_(connection) {}

    // Borrows entry until it returns. Queues the message so far when the entry is of another code or does not
    // fit, and tells so.
    bool add(uint32_t code, const Parameter& entry);
    // Queues the message so far, if there is one.
    void finish();

private:
    Connection& connection_;
    uint32_t code_ = 0;
    std::optional<ParametersBuilder> message_;
};

}  // namespace client
