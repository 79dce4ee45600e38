// One entry that is to be sent, and how entries are packed into the daemon's frames.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "common/marshalling.h"

struct Request {
    std::uint32_t code = 0;  // of the message that carries it
    std::string name{};
    std::string value{};  // bytes as they travel
    ostrelValueType type = ostrelTypeNone;
    std::uint32_t pKey = 0;
    std::uint32_t owner = 0;
    std::string tpltName{};
    std::size_t line = 0;  // of the batch, from 1; 0 when there is none
};

// Throws Failure when the request does not fit the largest frame that the daemon receives.
void checkSize(const Request& request);

// The message of as many requests from the front as have one code and fit; takes those off. Not empty, each
// of a size that fits.
ParametersBuilder takeMessage(std::span<const Request>& requests);

// The bytes of a number as a value carries it.
std::string numberBytes(std::uint32_t number);
