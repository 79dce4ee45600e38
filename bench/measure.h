// Two ways of doing a thing, timed in turns so that a machine whose speed drifts slows both.
#pragma once

#include <functional>
#include <string>
#include <vector>

struct Comparison {
    double ours;      // median seconds per operation
    double baseline;  // the same
    double ratio;     // median of the rounds' ratios
    double lowest;    // smallest and largest of them
    double highest;
};

// Each round runs every operation that many times, ours first. One round before the first is not counted.
Comparison compare(int rounds, int operations, const std::function<void()>& ours,
                   const std::function<void()>& baseline);

double median(std::vector<double> samples);
double secondsOf(const std::function<void()>& operation);

// Runs this process, and what it starts from now on, on one processor.
void pinToOneProcessor();
