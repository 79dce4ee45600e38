// The moment by which a call has to end.
#pragma once

#include <algorithm>
#include <chrono>

namespace client {

class Deadline {
public:
    using Milliseconds = std::chrono::milliseconds;

    explicit Deadline(Milliseconds timeout) : timeout_(timeout), end_(Clock::now() + timeout) {}

    Milliseconds timeout() const { return timeout_; }
    bool isOver() const { return remaining() == Milliseconds(0); }
    // Rounded up: 0 only when it is over.
    Milliseconds remaining() const {
        return std::max(std::chrono::ceil<Milliseconds>(end_ - Clock::now()), Milliseconds(0));
    }

private:
    using Clock = std::chrono::steady_clock;

    Milliseconds timeout_;
    Clock::time_point end_;
};

}  // namespace client
