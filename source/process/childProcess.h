// Runs a program to its end or to a deadline, whichever comes first.
#pragma once

#include <chrono>
#include <string>
#include <vector>

struct ChildResult {
    enum class End {
        notStarted,  // error says why
        exited,      // number is the exit status
        killed,      // by itself: number is the signal
        timedOut     // ended by runChild, with all that it had started
    };
    End end = End::notStarted;
    int number = 0;
    std::string error{};
    std::string output{};  // what it wrote to standard output, at most 64 KiB
    std::string errors{};  // the same of its standard error
};

// command holds the program's path and its arguments.
ChildResult runChild(std::vector<std::string> command, std::chrono::milliseconds limit);
