// What the process that plays tells the one that watches it: a line per event, written at once, so that the
// last one tells how far it got.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

namespace pluginBench {

// The first byte of a line; the text follows.
namespace event {
constexpr char print = 'L';     // text for the reader
constexpr char step = 'S';      // one begins; see Review::begin
constexpr char begin = 'B';     // what may crash, hang or end the process; the deadline runs from here
constexpr char end = 'E';       // it came back
constexpr char fault = 'F';     // the plug-in fails
constexpr char unusable = 'U';  // the scenario cannot be played
constexpr char done = 'D';      // nothing more is played; the exit status that the process ends with
constexpr char exited = 'X';    // it has ended: an exit status
constexpr char killed = 'K';    // it has ended: a signal's number
constexpr char over = 'O';      // no other process follows
}  // namespace event

class Report {
public:
    // fd stays the caller's.
    explicit Report(int fd) : fd_(fd) {}

    // Line breaks and other control characters in the text become visible.
    void tell(char event, std::string_view text) const;

private:
    int fd_;
};

// Between construction and destruction something of the plug-in runs. Of two, one inside the other, the inner
// is the one to be blamed.
//
// A child process that comes back from there is a fault, and ends.
class Watched {
public:
    Watched(const Report& report, std::string name);
    ~Watched();
    Watched(const Watched&) = delete;
    Watched& operator=(const Watched&) = delete;

private:
    const Report& report_;
    const std::string name_;
    const pid_t process_;
    Watched* const outer_;
    static Watched* innermost_;
};

}  // namespace pluginBench
