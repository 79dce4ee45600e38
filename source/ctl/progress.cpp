#include "ctl/progress.h"

#include <pthread.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <string>

namespace {

constexpr std::chrono::milliseconds patience(500);
constexpr std::chrono::milliseconds pace(100);
constexpr std::size_t width = 40;
constexpr char wipe[] = "\r\033[K";

std::string bar(std::size_t sent, std::size_t changes) {
    std::size_t full = width * sent / changes;
    std::string text =
        wipe + std::string("[") + std::string(full, '#') + std::string(width - full, ' ') + "] ";
    if (sent < changes)
        return text + std::to_string(sent) + " of " + std::to_string(changes);
    return text + "all sent; the daemon is at work";
}

// A bar that cannot be drawn is no failure.
void print(const std::string& text) { static_cast<void>(!write(STDERR_FILENO, text.data(), text.size())); }

}  // namespace

ProgressBar::ProgressBar(ostrel::Session& session, std::size_t changes)
    : changes_(changes), session_(session) {
    session.onProgress([this](std::size_t sent, std::size_t) { sent_ = sent; });
    // The session holds signals back on its own thread only; they must not find this one instead.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    thread_ = std::jthread([this](const std::stop_token& stop) { draw(stop); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

ProgressBar::~ProgressBar() { ostrelSessionSetProgress(session_.get(), nullptr, nullptr); }

void ProgressBar::draw(const std::stop_token& stop) {
    auto pause = [&, lock = std::unique_lock(mutex_)](std::chrono::milliseconds time) mutable {
        wake_.wait_for(lock, stop, time, [] { return false; });
        return !stop.stop_requested();
    };
    if (!pause(patience))
        return;
    do
        print(bar(sent_, changes_));
    while (pause(pace));
    print(wipe);
}
