// Rules: which command follows a change of which keys. Text to values, no file access.
//
//     # comment
//     [ntp]
//     watch = time.server time.zone
//     run = /vemra/bin/ntp-adapt --quiet
//     deadline = 10
//
// Blanks separate patterns, and the command's words; nothing is quoted.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace exec {

constexpr char rulesPath[] = "/vemra/default/exec.conf";
constexpr size_t longestName = 64;

struct Rule {
    std::string name;  // letters, digits, '-', '_' and '.', at most longestName
    std::vector<std::string> patterns;
    std::vector<std::string> command;  // an absolute path, then arguments, none with a blank
    unsigned int deadline = 30;        // seconds, 1 to 3600
};

struct RuleFile {
    std::vector<Rule> rules;          // at most 128
    std::vector<std::string> faults;  // "FILE:LINE: reason"; the rule with the line is left out
};

RuleFile parseRules(std::string_view text, const std::string& file);

// The daemon's own matching: a pattern is a key, or ends in '*' and is a key's beginning.
bool matches(const Rule& rule, std::string_view key);

}  // namespace exec
