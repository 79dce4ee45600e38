#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

#include "ctl/doctorChecks.h"
#include "ctl/serverProcess.h"
#include "process/daemonUser.h"
#include "text/fixedPaths.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr char serverName[] = "ostrelServer";
constexpr size_t rounds = 9;
constexpr std::chrono::seconds roundsLimit{1};
constexpr double slowAnswer = 100;  // milliseconds

std::string processText(pid_t process, const std::string& program) {
    return (program.empty() ? "a program" : program) + ", process " + std::to_string(process);
}

void checkProcess(DoctorReport& report, const Peer& peer, pid_t process) {
    if (process == 0) {
        report.ok("process", "not known: it is outside of this process namespace, or its queue is full");
        return;
    }
    constexpr std::string_view deletedMark = " (deleted)";
    const std::string program = programOf(process);
    const bool replaced = program.ends_with(deletedMark);
    const std::string path = replaced ? program.substr(0, program.size() - deletedMark.size()) : program;
    std::string found = processText(process, path);
    if (peer.user)
        found += ", user " + std::to_string(*peer.user);
    if (!path.empty() && std::filesystem::path(path).filename() != serverName)
        report.bad("process", found + ", serves the socket in place of " + serverName,
                   "find out who started it; end it, then start ostrelServer");
    else if (peer.user && process::distrust(*peer.user, process::namedUser()))
        report.bad("process", found + ", who is neither root nor who asks",
                   "find out who started it; if that user is to run the daemon, OSTREL_DAEMON_USER=" +
                       std::to_string(*peer.user) + " says so");
    else if (isStopped(process))
        report.bad("process", found + ", is stopped",
                   "kill -CONT " + std::to_string(process) + " lets it go on");
    else if (replaced)
        report.warn("process", found + ", runs a program file that has been replaced since",
                    "start the daemon anew to run the new one");
    else
        report.ok("process", found);
}

// False when clients cannot connect, whatever listens.
bool checkSocketFile(DoctorReport& report) {
    struct stat info {};
    if (stat(socketPath, &info) != 0) {
        const std::string found = std::string(socketPath) + ": " + std::strerror(errno);
        if (const pid_t holder = holderOfDatabase()) {
            report.bad("socket", found + ", though " + processText(holder, programOf(holder)) + ", runs",
                       "the file was removed under the daemon: end that process, start ostrelServer, and see "
                       "what clears /tmp");
        } else {
            report.bad("socket", found + ": the daemon does not run",
                       "start ostrelServer; when it ends at once, its log tells why");
        }
        return false;
    }
    if (!S_ISSOCK(info.st_mode)) {
        report.bad("socket", std::string(socketPath) + " is not a socket: the daemon does not run",
                   "start ostrelServer, which moves it aside");
        return false;
    }
    constexpr mode_t everybody = 0777;
    if ((info.st_mode & everybody) != everybody) {
        std::array<char, 8> mode{};
        std::snprintf(mode.data(), mode.size(), "%o", info.st_mode & everybody);
        report.warn("socket",
                    std::string(socketPath) + " has mode " + mode.data() + ", not everybody may connect",
                    std::string("chmod 777 ") + socketPath);
    }
    return true;
}

bool isAbsent(ostrelStatus status) {
    return status == OSTREL_NOT_RUNNING || status == OSTREL_STALE_SOCKET || status == OSTREL_GONE;
}

void reportBusy(DoctorReport& report, const DaemonFacts& daemon, bool queueFull) {
    report.bad("socket",
               std::string(socketPath) +
                   (queueFull ? " has its queue full of waiting clients: nobody"
                              : " can be connected to, but nobody") +
                   " answers in time",
               isStopped(daemon.process)
                   ? "see the line process"
                   : "some client holds a write sequence, or a plug-in works or is stuck: the last lines of "
                     "the log (--verbose) name it, or that all connections are in use; end that client, or "
                     "wait and ask with a longer --timeout");
}

void reportUnreachable(DoctorReport& report, const ostrel::Error& error) {
    switch (error.status()) {
        case OSTREL_STALE_SOCKET:
        case OSTREL_NOT_RUNNING:
            report.bad("socket", std::string(socketPath) + " is stale: the daemon that made it has ended",
                       "see how its log ends; then start ostrelServer, which replaces the file. A plug-in "
                       "that crashes is named only by --debug --verbose (the last line with >>>); "
                       "--reduced starts without those that are not essential");
            break;
        default:
            report.bad("socket", std::string(socketPath) + ": " + error.what(), "look at the end of the log");
            break;
    }
}

// Of some answers, in milliseconds; of fewer when they are slow.
std::vector<double> answerTimes(ostrel::Session& session) {
    std::vector<double> times;
    const Clock::time_point begin = Clock::now();
    do {
        const Clock::time_point start = Clock::now();
        session.count("doctor", 0);
        times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    } while (times.size() < rounds && Clock::now() - begin < roundsLimit);
    return times;
}

void checkAnswers(DoctorReport& report, ostrel::Session& session) {
    std::vector<double> times = answerTimes(session);
    std::ranges::sort(times);
    const double median = times[times.size() / 2];
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.2f ms, the median of %zu reads", median, times.size());
    report.ok("socket", std::string(socketPath) + " is served");
    if (median > slowAnswer)
        report.warn(
            "answer time", text.data(),
            "clients or plug-ins keep the daemon at work: see the log (--verbose), and the load of the "
            "machine");
    else
        report.ok("answer time", text.data());
}

}  // namespace

DaemonFacts checkDaemon(DoctorReport& report, ostrel::Session& session) {
    DaemonFacts daemon;
    if (!checkSocketFile(report))
        return daemon;
    std::optional<ostrel::Error> failure;
    try {
        session.connect();
        checkAnswers(report, session);
    } catch (const ostrel::Error& error) {
        failure = error;
    }
    daemon.reachable = !failure || !isAbsent(failure->status());
    Peer peer;
    if (daemon.reachable) {
        peer = peerOfSocket();
        daemon.user = peer.user;
        daemon.process = peer.process != 0 ? peer.process : holderOfDatabase();
    }
    if (failure && failure->status() == OSTREL_BUSY)
        reportBusy(report, daemon, peer.queueFull);
    else if (failure)
        reportUnreachable(report, *failure);
    if (daemon.reachable)
        checkProcess(report, peer, daemon.process);
    return daemon;
}
