// Searches in what was logged or printed. No header includes <regex>: each file that does takes seconds to
// compile.
#pragma once

#include <string>

size_t occurrences(const std::string& text, const std::string& part);
bool matches(const std::string& text, const std::string& expression);
std::string replaced(const std::string& text, const std::string& expression, const std::string& by);
