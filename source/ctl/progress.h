// A bar on the terminal while a batch is on its way, once that has taken half a second; on a terminal that
// cannot draw one (TERM is dumb, or not set), a line now and then.
//
// The daemon serves nobody else while the session reports, and a terminal may hold a writer up for ever
// (Ctrl-S), so a thread of its own draws.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <thread>

#include "ostrel/client.hpp"

class ProgressBar {
public:
    // Of the session's next apply or check; changes is not 0.
    ProgressBar(ostrel::Session& session, size_t changes);
    // Wipes the bar off.
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

private:
    // Waits so long; false: the batch is done.
    using Pause = std::function<bool(std::chrono::milliseconds)>;

    void draw(const std::stop_token& stop);
    void drawBar(const Pause& pause);
    void printLines(const Pause& pause);

    const size_t changes_;
    std::atomic<size_t> sent_ = 0;
    std::mutex mutex_;
    std::condition_variable_any wake_;
    ostrel::Session& session_;
    std::jthread thread_;  // last: it uses the others
};
