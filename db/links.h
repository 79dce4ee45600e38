// Where a path leads when its symbolic links are followed.
#pragma once

#include <optional>
#include <string>

#include "db/files.h"

namespace store {

// The same place as a path without links, those of folders followed, too. root, with which the path then
// begins, stands for "/" in them, so that they do not lead out of it; empty: the system's own. What does not
// exist stays as it is written. Nothing, with errno set, when links go round in a circle.
std::optional<std::string> followLinks(const FileCalls& calls, const std::string& path,
                                       const std::string& root);

}  // namespace store
