#include "exec/rules.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "ostrel/keyPattern.hpp"
#include "ostrel/names.h"

namespace exec {
namespace {

// The runner's answers to one request of each find room on their way.
constexpr size_t mostRules = 128;
constexpr size_t longestPattern = OSTREL_LONGEST_NAME;
// With name and deadline a message to the runner, which the system takes whole or not at all.
constexpr size_t longestCommand = 2000;
constexpr unsigned int longestDeadline = 3600;
constexpr std::string_view blanks = " \t\r";

std::string_view trimmed(std::string_view text) {
    const size_t begin = std::min(text.find_first_not_of(blanks), text.size());
    text.remove_prefix(begin);
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

std::vector<std::string> words(std::string_view text) {
    std::vector<std::string> words;
    for (text = trimmed(text); !text.empty(); text = trimmed(text)) {
        const size_t end = std::min(text.find_first_of(blanks), text.size());
        words.emplace_back(text.substr(0, end));
        text.remove_prefix(end);
    }
    return words;
}

bool isName(std::string_view text) {
    auto isAllowed = [](unsigned char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
               c == '_' || c == '.';
    };
    return !text.empty() && text.size() <= longestName && std::ranges::all_of(text, isAllowed);
}

class Parser {
public:
    explicit Parser(const std::string& file) : file_(file) {}

    void take(std::string_view line) {
        ++line_;
        line = trimmed(line);
        if (line.empty() || line.front() == '#')
            return;
        if (std::ranges::any_of(line, [](unsigned char c) { return (c < 0x20 && c != '\t') || c == 0x7F; }))
            fail(line_, "control character");
        else if (line.front() == '[')
            begin(line);
        else if (head_ == 0)
            fail(line_, "before the first [RULE]");
        else
            setting(line);
    }

    RuleFile finish() {
        end();
        return std::move(result_);
    }

private:
    void fail(unsigned int line, const std::string& reason) {
        result_.faults.push_back(file_ + ':' + std::to_string(line) + ": " + reason);
        bad_ = true;
    }

    void begin(std::string_view line) {
        end();
        rule_ = Rule();
        deadlineSet_ = false;
        bad_ = false;
        head_ = line_;
        const std::string_view name = line.substr(1, line.size() - std::min<size_t>(2, line.size()));
        if (line.back() != ']' || !isName(name))
            fail(line_, "not the [NAME] of a rule");
        rule_.name = name;
    }

    // A rule with a fault of its own needs no second line in the log.
    void end() {
        if (head_ == 0 || bad_)
            return;
        auto hasName = [&](const Rule& rule) { return rule.name == rule_.name; };
        if (std::ranges::any_of(result_.rules, hasName))
            fail(head_, "second rule " + rule_.name);
        else if (rule_.patterns.empty() || rule_.command.empty())
            fail(head_, "rule " + rule_.name + " lacks " + (rule_.patterns.empty() ? "watch" : "run"));
        else if (result_.rules.size() == mostRules)
            fail(head_, "rule " + rule_.name + " is one too many");
        else
            result_.rules.push_back(std::move(rule_));
    }

    void setting(std::string_view line) {
        const size_t sign = line.find('=');
        const std::string_view word = trimmed(line.substr(0, sign));
        const std::string_view value = sign == std::string_view::npos ? "" : trimmed(line.substr(sign + 1));
        if (word != "watch" && word != "run" && word != "deadline")
            fail(line_, "neither watch, run nor deadline");
        else if (value.empty())
            fail(line_, std::string(word) + " without a value");
        else if (word == "watch")
            watch(value);
        else if (word == "run")
            run(value);
        else
            deadline(value);
    }

    // True, and a fault, when the rule has it already.
    bool isSecond(bool first) {
        if (first)
            fail(line_, "is there twice");
        return first;
    }

    void watch(std::string_view value) {
        if (isSecond(!rule_.patterns.empty()))
            return;
        rule_.patterns = words(value);
        if (std::ranges::any_of(rule_.patterns, [](const auto& p) { return p.size() > longestPattern; }))
            fail(line_, "pattern of over 127 bytes");
    }

    void run(std::string_view value) {
        if (isSecond(!rule_.command.empty()))
            return;
        rule_.command = words(value);
        if (value.front() != '/')
            fail(line_, "the command is not an absolute path");
        else if (value.size() > longestCommand)
            fail(line_, "command of over 2000 bytes");
    }

    void deadline(std::string_view value) {
        if (isSecond(std::exchange(deadlineSet_, true)))
            return;
        auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), rule_.deadline);
        if (error != std::errc() || end != value.data() + value.size() || rule_.deadline == 0 ||
            rule_.deadline > longestDeadline)
            fail(line_, "the deadline is 1 to 3600 seconds");
    }

    const std::string& file_;
    RuleFile result_{};
    Rule rule_{};
    bool deadlineSet_ = false;
    bool bad_ = false;
    unsigned int line_ = 0;
    unsigned int head_ = 0;  // the rule's first line; 0: none has begun
};

}  // namespace

RuleFile parseRules(std::string_view text, const std::string& file) {
    Parser parser(file);
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        parser.take(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return parser.finish();
}

bool matches(const Rule& rule, std::string_view key) {
    return std::ranges::any_of(
        rule.patterns, [key](std::string_view pattern) { return ostrel::matchesPattern(pattern, key); });
}

}  // namespace exec
