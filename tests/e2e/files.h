// Whole files as texts.
#pragma once

#include <string>

void writeFile(const std::string& path, const std::string& content);
// Empty when there is none.
std::string readFile(const std::string& path);
