// Keys, values and instances as the lines of the database files have them, without a line break.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "ctl/shownKey.h"
#include "ostrel/client.hpp"
#include "text/values.h"

std::string keyText(std::string_view name, uint32_t index);
// NAME[$LABEL], or STRUCT[$LABEL].MEMBER: structure is its name's size, 0 that there is no member.
std::string labelledKey(std::string_view name, size_t structure, std::string_view label);
// KEY TYPE VALUE
std::string valueLine(const ShownKey& key, const ostrel::Value& value);
// STRUCT[PKEY] instance TEMPLATE OWNER
std::string instanceLine(std::string_view structure, uint32_t key, std::string_view templateName,
                         uint32_t owner);

store::Value toStore(const ostrel::Value& value);
ostrel::Value fromStore(const store::Value& value);
