#include "ctl/progress.h"

#include <pthread.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <string>
#include <string_view>

#include "ctl/interruption.h"

namespace {

constexpr std::chrono::milliseconds patience(500);
constexpr std::chrono::milliseconds pace(100);
constexpr std::chrono::milliseconds plainPace(2000);
constexpr size_t widest = 40;
constexpr size_t usualColumns = 80;
constexpr char wipe[] = "\r\033[K";

bool canDraw() {
    const char* terminal = std::getenv("TERM");
    return terminal != nullptr && *terminal != '\0' && std::string_view(terminal) != "dumb";
}

// At each drawing, as the user may change it.
size_t columns() {
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col : usualColumns;
}

std::string state(size_t sent, size_t changes) {
    return sent < changes ? std::to_string(sent) + " of " + std::to_string(changes)
                          : "all sent; the daemon is at work";
}

// On one line: a longer one cannot be wiped off. The last column stays free, as some terminals wrap behind
// it.
std::string bar(size_t sent, size_t changes) {
    const size_t room = columns() - 1;
    const std::string text = state(sent, changes);
    constexpr size_t frame = 3;  // the brackets, and a blank
    if (room <= text.size() + frame)
        return wipe + text.substr(0, room);
    const size_t width = std::min(widest, room - text.size() - frame);
    const size_t full = width * sent / changes;
    return wipe + std::string("[") + std::string(full, '#') + std::string(width - full, ' ') + "] " + text;
}

// A bar that cannot be drawn is no failure.
void print(const std::string& text) { static_cast<void>(!write(STDERR_FILENO, text.data(), text.size())); }

}  // namespace

ProgressBar::ProgressBar(ostrel::Session& session, size_t changes) : changes_(changes), session_(session) {
    session.onProgress([this](size_t sent, size_t) { sent_ = sent; });
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
    std::unique_lock lock(mutex_);
    const auto pause = [&](std::chrono::milliseconds time) {
        wake_.wait_for(lock, stop, time, [] { return false; });
        return !stop.stop_requested();
    };
    if (!pause(patience))
        return;
    canDraw() ? drawBar(pause) : printLines(pause);
}

void ProgressBar::drawBar(const Pause& pause) {
    do {
        if (Interruption::hasCome())
            return;
        Interruption::setLineOpen(true);
        print(bar(sent_, changes_));
    } while (pause(pace));
    print(wipe);
    Interruption::setLineOpen(false);
}

void ProgressBar::printLines(const Pause& pause) {
    std::string last;
    do {
        const std::string text = state(sent_, changes_);
        if (text != last)
            print("ostrelCtl: " + text + '\n');
        last = text;
    } while (pause(plainPace));
}
