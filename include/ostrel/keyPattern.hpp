// Patterns of keys, as plug-ins, rules and tools name those that they watch; C++17.
#ifndef OSTREL_KEY_PATTERN_HPP
#define OSTREL_KEY_PATTERN_HPP

#include <string_view>

#pragma GCC visibility push(hidden)
namespace ostrel {

// Does it stand for all names that begin so?
inline bool isPrefixPattern(std::string_view pattern) { return !pattern.empty() && pattern.back() == '*'; }

// The daemon's own matching: a pattern is a name, or the beginning of names with a '*' behind it.
inline bool matchesPattern(std::string_view pattern, std::string_view name) {
    if (!isPrefixPattern(pattern))
        return name == pattern;
    pattern.remove_suffix(1);
    return name.substr(0, pattern.size()) == pattern;
}

}  // namespace ostrel
#pragma GCC visibility pop

#endif
