// Where a batch comes from.
#pragma once

#include <string>

// - is the standard input. Throws Failure with OSTREL_INVALID.
std::string readBatchFile(const std::string& path);
