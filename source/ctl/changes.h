// Changes of the database as the user writes them. What does not parse throws Failure with the reason.
#pragma once

#include <string_view>
#include <vector>

#include "ctl/request.h"

// One change per line, each with its line's number:
//   set KEY TYPE VALUE | erase KEY | new TEMPLATE STRUCT OWNER | remove STRUCT[PKEY]
std::vector<Request> parseBatch(std::string_view text);

// The same as arguments of the command line. A text value is taken as it is, without quotes.
Request setArguments(std::string_view key, std::string_view type, std::string_view value);
Request eraseArgument(std::string_view key);
Request newArguments(std::string_view tpltName, std::string_view structure, std::string_view owner);
// pKey may be empty when the structure carries it in brackets.
Request removeArguments(std::string_view structure, std::string_view pKey);
