// The programs that run beside the daemon.
#pragma once

#include <iosfwd>
#include <string>

// What a program printed, and its exit status.
struct Outcome {
    int status = 0;
    std::string output{};
    std::string errors{};

    bool operator==(const Outcome&) const = default;
};
void PrintTo(const Outcome& outcome, std::ostream* stream);

// Runs one of the programs, with arguments and redirections as the shell has them.
Outcome runTool(const std::string& command, const std::string& input = "");

// What stands in a JSON text under the keys and indices of the path, with sorted keys; empty when that is
// none. Parsed by Python, as any file that includes a parser takes seconds to compile.
std::string json(const std::string& text, const std::string& path = "");
