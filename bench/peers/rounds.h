// The same operation of several peers, timed in turns so that a machine whose speed drifts slows all alike.
#pragma once

#include <functional>
#include <string>
#include <vector>

struct Contestant {
    std::string name;
    std::function<void()> operation;
};

struct Effort {
    int rounds;
    double longestTurn;  // seconds of a contestant's part of a round; one operation may take longer
};

struct Figure {
    std::string name;
    double seconds;  // median of the rounds, of one operation
    double ratio;    // median of the rounds' ratios to the first contestant
};

// One turn before the first round is not counted; it tells how many operations fit.
std::vector<Figure> measureRounds(const std::vector<Contestant>& contestants, Effort effort);
