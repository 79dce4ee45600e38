#include "text.h"

#include <regex>

size_t occurrences(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
        ++count;
    return count;
}

bool matches(const std::string& text, const std::string& expression) {
    return std::regex_search(text, std::regex(expression));
}

std::string replaced(const std::string& text, const std::string& expression, const std::string& by) {
    return std::regex_replace(text, std::regex(expression), by);
}
