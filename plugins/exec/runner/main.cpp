// ostrelExecRunner: runs the commands that the plug-in exec asks for, outside of the daemon.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ostrel/version.h>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ostrel/plugin/file.hpp>
#include <string>
#include <utility>

#include "exec/runner/daemonLog.h"
#include "exec/runner/jobs.h"
#include "exec/runner/output.h"

namespace exec {
namespace {

using ostrel::plugin::Descriptor;
using std::chrono::milliseconds;

constexpr int exitUsage = 2;
constexpr char lockFile[] = "/run/ostrel-exec.lock";
constexpr milliseconds lockCheck{100};
constexpr std::chrono::hours longest{1};  // that poll is asked to wait

// One runner starts commands at a time: that of a daemon which was started again waits until its predecessor
// has seen the end of its own.
class Turn {
public:
    bool isOurs() {
        if (!isOurs_)
            isOurs_ = !lock_ || flock(lock_.get(), LOCK_EX | LOCK_NB) == 0;
        return isOurs_;
    }
    // False also when there is nothing to hold.
    bool isHeld() { return lock_ && isOurs(); }

private:
    static Descriptor openLock() {
        Descriptor lock(open(lockFile, O_RDWR | O_CREAT | O_CLOEXEC, 0600));
        if (!lock)
            std::fprintf(stderr, "ostrelExecRunner: %s: %s; going on without\n", lockFile,
                         std::strerror(errno));
        return lock;
    }

    Descriptor lock_ = openLock();
    bool isOurs_ = false;
};

// Those that are waited for come by a descriptor. The others are the daemon's affair: SIGHUP means its log,
// and an end of the log's reader is not one of the services.
Descriptor takeSignals() {
    signal(SIGHUP, SIG_IGN);
    signal(SIGPIPE, SIG_IGN);
    sigset_t taken;
    sigemptyset(&taken);
    for (int number : {SIGCHLD, SIGTERM, SIGINT})
        sigaddset(&taken, number);
    sigprocmask(SIG_BLOCK, &taken, nullptr);
    return Descriptor(signalfd(-1, &taken, SFD_CLOEXEC | SFD_NONBLOCK));
}

class Runner {
public:
    void run() {
        while (isAsked_ || jobs_.anyRuns()) {
            std::array<pollfd, 2> waits{
                {{isAsked_ ? STDIN_FILENO : -1, POLLIN, 0}, {signals_.get(), POLLIN, 0}}};
            poll(waits.data(), waits.size(), patience());
            log_.follow();
            takeSignal();
            if (isAsked_ && waits[0].revents != 0)
                takeRequests();
            jobs_.collect();
            jobs_.enforceDeadlines();
            if (turn_.isHeld() && !std::exchange(isLookedFor_, true))
                jobs_.endWhatIsLeft();
            if (turn_.isOurs())
                jobs_.startDue();
        }
    }

private:
    // Milliseconds, for poll; -1: without limit.
    int patience() {
        Clock::time_point next = jobs_.nextWork();
        if (next == Clock::time_point::max())
            return -1;
        auto left = std::chrono::ceil<milliseconds>(std::min<Clock::duration>(next - Clock::now(), longest));
        milliseconds least = turn_.isOurs() ? milliseconds(0) : lockCheck;
        return static_cast<int>(std::max(left, least).count());
    }

    void takeSignal() {
        signalfd_siginfo got{};
        while (read(signals_.get(), &got, sizeof got) == static_cast<ssize_t>(sizeof got)) {
            if (got.ssi_signo == SIGCHLD)
                continue;
            endOfRequests();
            jobs_.stop();
        }
    }

    void takeRequests() {
        std::array<char, 4096> piece{};
        ssize_t size = read(STDIN_FILENO, piece.data(), piece.size());
        if (size < 0 && (errno == EINTR || errno == EAGAIN))
            return;
        if (size <= 0)
            return endOfRequests();
        text_.append(piece.data(), static_cast<size_t>(size));
        for (size_t end = text_.find('\n'); end != std::string::npos; end = text_.find('\n')) {
            std::optional<Request> request = parseRequest(text_.substr(0, end));
            if (request) {
                // From here on another change needs another request.
                send(STDIN_FILENO, request->rule.data(), request->rule.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
                jobs_.ask(std::move(*request));
            } else {
                std::fprintf(stderr, "ostrelExecRunner: not a request: %s\n", text_.substr(0, end).c_str());
            }
            text_.erase(0, end + 1);
        }
    }

    // The other end sees it: the daemon starts another runner for its next request, and nothing is lost.
    void endOfRequests() {
        isAsked_ = false;
        jobs_.startNothingMore();
        const Descriptor nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
        dup2(nothing.get(), STDIN_FILENO);
    }

    Descriptor signals_ = takeSignals();
    DaemonLog log_{};
    Turn turn_{};
    Jobs jobs_{};
    std::string text_{};  // requests that are not complete
    bool isAsked_ = true;
    bool isLookedFor_ = false;  // what a killed runner has left
};

}  // namespace
}  // namespace exec

int main(int argc, char** argv) {
    if (argc == 4 && std::strcmp(argv[1], exec::outputOption) == 0) {
        exec::copyOutput(argv[2], argv[3]);
        return 0;
    }
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
        std::puts("ostrelExecRunner " OSTREL_VERSION);
        return 0;
    }
    const bool help = argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0);
    if (argc != 1) {
        std::fputs(
            "usage: ostrelExecRunner | ostrelExecRunner --version\n"
            "Runs what standard input asks for, a line \"RULE SECONDS COMMAND [ARGUMENT...]\" each.\n",
            help ? stdout : stderr);
        return help ? 0 : exec::exitUsage;
    }
    // Whatever the daemon was started with.
    umask(022);
    exec::Runner().run();
    return 0;
}
