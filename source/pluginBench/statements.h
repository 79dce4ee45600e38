// The words of a scenario's statements, and the statement "expect".
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "pluginBench/scenario.h"

namespace pluginBench {

// What is wrong with a statement, without its place.
class Mistake : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Takes the first word off the text; empty when there is none.
std::string takeWord(std::string_view& text);

// Throw Mistake.
void requireEnd(std::string_view rest);
std::string readPath(std::string_view text);

// A text in the quotes of the database files, or as it stands when it does not begin with one.
std::string readText(std::string_view text);

// Takes the block that follows the statement, whose rest may end in the block's closing word.
using TakeBlock = std::function<std::string(std::string_view& rest)>;
// rest: what follows "expect". Throws Mistake.
Expectation readExpectation(std::string_view rest, const TakeBlock& takeBlock);

}  // namespace pluginBench
