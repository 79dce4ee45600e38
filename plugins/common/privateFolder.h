// A folder that only its owner may enter: for files that nobody else may see or put there.
#pragma once

#include <string>

// Makes it, unless it is there. Throws std::system_error with the path; also when it is a link or another
// user's.
void makePrivateFolder(const std::string& path);
