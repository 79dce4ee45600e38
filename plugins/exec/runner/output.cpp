#include "exec/runner/output.h"

#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <ostrel/plugin/command.hpp>
#include <string_view>
#include <system_error>
#include <utility>

#include "exec/knownLines.h"

namespace exec {
namespace {

using ostrel::plugin::Descriptor;

constexpr size_t mostLogged = 64UL * 1024;

// What the log does not take is lost: the command is not to wait for it.
void log(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(STDOUT_FILENO, text.data(), text.size());
        if (written < 0 && errno != EINTR)
            return;
        text.remove_prefix(written < 0 ? 0 : static_cast<size_t>(written));
    }
}

}  // namespace

Output openOutput(const std::string& rule, const std::string& program) {
    // This very program, whatever stands at its path by now.
    const std::string self = "/proc/self/exe";
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        throw ostrel::plugin::CommandError(self, std::generic_category().message(errno));
    const Descriptor source(ends[0]);
    Descriptor end(ends[1]);
    const pid_t process = ostrel::plugin::spawn({self, outputOption, rule, program}, source.get());
    return {std::move(end), process};
}

void copyOutput(const std::string& rule, const std::string& program) {
    // It ends when nobody writes, and never before: who writes would be ended by that.
    for (const int number : {SIGHUP, SIGINT, SIGTERM, SIGPIPE})
        signal(number, SIG_IGN);
    // Who ends runners by their name does not mean this.
    prctl(PR_SET_NAME, "ostrelExecOutput");
    std::string cut = knownLine::ofRule + rule + ": ";
    cut.append(program).append(": printed over 64 KiB, ").append(knownLine::restLeftOut).append("\n");
    std::array<char, 16384> piece{};
    size_t left = mostLogged;
    char last = '\n';
    for (;;) {
        const ssize_t size = read(STDIN_FILENO, piece.data(), piece.size());
        if (size < 0 && errno == EINTR)
            continue;
        if (size <= 0)
            return;
        const std::string_view text(piece.data(), static_cast<size_t>(size));
        const std::string_view taken = text.substr(0, left);
        log(taken);
        left -= taken.size();
        if (!taken.empty())
            last = taken.back();
        if (taken.size() < text.size()) {
            if (last != '\n')
                cut.insert(cut.begin(), '\n');
            log(std::exchange(cut, {}));
            last = '\n';
        }
    }
}

}  // namespace exec
