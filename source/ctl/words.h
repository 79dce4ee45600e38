// The words of the command line: keys, owners and values.
//
// What does not parse throws Failure with OSTREL_INVALID.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "ctl/shownKey.h"
#include "ostrel/client.hpp"
#include "text/values.h"

// Every character counts for itself, but a number in brackets at the end, or in front of ".MEMBER", is the
// index.
ShownKey keyArgument(std::string_view argument);
// What to say when the key is not there: its name may have been meant as one with an index. Empty: no.
std::string indexHint(const ostrel::Key& key);
// A key that must have an index.
ShownKey elementArgument(std::string_view argument);
// A key that must have none.
std::string nameArgument(std::string_view argument);
// A number, or a tag of up to four bytes.
uint32_t ownerArgument(std::string_view argument);

ostrelValueType typeArgument(std::string_view argument);
// A decimal number, or a text that is taken as it is.
ostrel::Value valueArgument(ostrelValueType type, std::string_view argument);

void require(store::Result result);
