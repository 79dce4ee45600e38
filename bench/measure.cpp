#include "measure.h"

#include <sched.h>

#include <algorithm>
#include <chrono>

namespace {

double timePerOperation(int operations, const std::function<void()>& operation) {
    return secondsOf([&] {
               for (int i = 0; i < operations; ++i)
                   operation();
           }) /
           operations;
}

}  // namespace

double secondsOf(const std::function<void()>& operation) {
    auto start = std::chrono::steady_clock::now();
    operation();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> samples) {
    auto middle = samples.begin() + static_cast<ptrdiff_t>(samples.size() / 2);
    std::nth_element(samples.begin(), middle, samples.end());
    return *middle;
}

Comparison compare(int rounds, int operations, const std::function<void()>& ours,
                   const std::function<void()>& baseline) {
    std::vector<double> a;
    std::vector<double> b;
    std::vector<double> ratios;
    for (int round = 0; round <= rounds; ++round) {
        double mine = timePerOperation(operations, ours);
        double bare = timePerOperation(operations, baseline);
        if (round == 0)
            continue;
        a.push_back(mine);
        b.push_back(bare);
        ratios.push_back(mine / bare);
    }
    auto [lowest, highest] = std::minmax_element(ratios.begin(), ratios.end());
    return {median(a), median(b), median(ratios), *lowest, *highest};
}

void pinToOneProcessor() {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(0, &one);
    sched_setaffinity(0, sizeof one, &one);
}
