#include "rounds.h"

#include <algorithm>

#include "bench/measure.h"

namespace {

constexpr int mostOperations = 5000;

double turn(const Contestant& contestant, int operations) {
    const double seconds = secondsOf([&] {
        for (int i = 0; i < operations; ++i)
            contestant.operation();
    });
    return seconds / operations;
}

int operationsThatFit(const Contestant& contestant, double longestTurn) {
    constexpr int trial = 3;
    turn(contestant, 1);
    const double each = turn(contestant, trial);
    return static_cast<int>(std::clamp(longestTurn / each, 1.0, double{mostOperations}));
}

}  // namespace

std::vector<Figure> measureRounds(const std::vector<Contestant>& contestants, Effort effort) {
    std::vector<int> operations;
    for (const Contestant& contestant : contestants)
        operations.push_back(operationsThatFit(contestant, effort.longestTurn));
    std::vector<std::vector<double>> seconds(contestants.size());
    std::vector<std::vector<double>> ratios(contestants.size());
    for (int round = 0; round < effort.rounds; ++round) {
        for (size_t i = 0; i < contestants.size(); ++i) {
            seconds[i].push_back(turn(contestants[i], operations[i]));
            ratios[i].push_back(seconds[i].back() / seconds[0].back());
        }
    }
    std::vector<Figure> figures;
    for (size_t i = 0; i < contestants.size(); ++i)
        figures.push_back({contestants[i].name, median(seconds[i]), median(ratios[i])});
    return figures;
}
