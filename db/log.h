// Log lines of the store. They carry the module's name, not the file's.
#pragma once

#include "ostrel/plugin.h"

namespace store {

// Not inline: the linker would merge it with another module's constant of that name.
static constexpr char logModule[] = "ostrelDb";

}  // namespace store

#define STORE_ERROR(...) ostrelPrintLine(1, logModule, __LINE__, __func__, __VA_ARGS__)
#define STORE_DEBUG(...) ostrelPrintLine(4, logModule, __LINE__, __func__, __VA_ARGS__)
