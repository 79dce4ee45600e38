#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <optional>
#include <string_view>

#include "ctl/doctorChecks.h"
#include "ctl/logFaults.h"
#include "log/serverLines.h"
#include "log/storeLines.h"

namespace {

constexpr std::streamoff tailSize = std::streamoff{64} * 1024;

// What to do about the reasons that the daemon ends for.
struct Remedy {
    std::string_view reason;
    const char* advice;
};
constexpr char namesPlugin[] =
    "run ostrelServer --debug --verbose once: its last line with >>> names the plug-in; correct or remove it";
constexpr std::array<Remedy, 7> remedies{{
    {knownLine::cannotBind,
     "the line before it tells the error; /tmp must exist and the daemon may write there"},
    {knownLine::databaseInUse,
     "another daemon runs: one was started twice, and emptied the log of the first"},
    {knownLine::noPluginFolder, "see the line plug-ins"},
    {knownLine::noPlugins, "see the lines plug-in; with --reduced at least one must be essential"},
    {knownLine::initFailed,
     "run ostrelServer --debug --verbose once: its last line with >>> names the plug-in; correct or remove "
     "it; --reduced starts without those that are not essential"},
    {knownLine::noWatchedValues, namesPlugin},
    {knownLine::noTriggers, namesPlugin},
}};

const char* adviceFor(std::string_view reason) {
    for (const Remedy& remedy : remedies) {
        if (reason.starts_with(remedy.reason))
            return remedy.advice;
    }
    return "run ostrelServer --debug --verbose once and read what comes before it";
}

// The last lines; the first of them may be cut.
std::string readTail(const std::string& path) {
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    const std::streamoff size = file.tellg();
    const std::streamoff start = size > tailSize ? size - tailSize : 0;
    std::string tail(static_cast<size_t>(size > 0 ? size - start : 0), '\0');
    file.seekg(start);
    file.read(tail.data(), static_cast<std::streamsize>(tail.size()));
    tail.resize(static_cast<size_t>(file.gcount()));
    return tail;
}

// Where one cause tells all that can be said, it is named; a service that follows again is not.
void reportFaults(DoctorReport& report, const std::string& path, const DaemonFacts& daemon) {
    const LogFaults faults = findFaults(readTail(path));
    const std::string place = " in the last 64 KiB";
    const std::string readThem = "grep -a '^.ERR' " + path;
    if (!faults.fatal.empty())
        report.add({daemon.reachable ? State::warn : State::bad, "fatal error",
                    "the log tells: " + faults.fatal, adviceFor(faults.fatal)});
    for (const auto& [service, lines] : faults.services) {
        std::string found = service;
        found.append(": ").append(lines.cause).append(" (").append(std::to_string(lines.count)).append(place);
        report.warn(
            "service", found.append(")"),
            "correct what it names: the next change of one of its keys tries again; the log has more: " +
                path);
    }
    if (faults.own.count == 0)
        report.ok("log's errors", "none of the daemon's own" + place);
    else
        report.warn("log's errors",
                    std::to_string(faults.own.count) + " of the daemon's own" + place +
                        ", the last cause: " + faults.own.cause,
                    "read them: " + readThem);
}

// Where the daemon writes when that is another file than the given one.
std::optional<std::string> otherLog(const struct stat* given, pid_t process) {
    const std::string output = "/proc/" + std::to_string(process) + "/fd/1";
    struct stat open {};
    if (process == 0 || stat(output.c_str(), &open) != 0)
        return std::nullopt;
    if (given != nullptr && given->st_dev == open.st_dev && given->st_ino == open.st_ino)
        return std::nullopt;
    std::error_code error;
    return std::filesystem::read_symlink(output, error);
}

std::string adviceForOther(const std::string& other, const std::string& path, pid_t process) {
    std::error_code error;
    const bool detached = other.ends_with(" (deleted)") || std::filesystem::exists(path, error);
    if (!detached)
        return "read that, or give --log";
    return "if it was renamed or removed: kill -HUP " + std::to_string(process) +
           " makes the daemon open its log anew; else give --log";
}

}  // namespace

void checkLog(DoctorReport& report, const std::string& path, const DaemonFacts& daemon) {
    struct stat info {};
    const bool exists = stat(path.c_str(), &info) == 0;
    const bool readable = exists && S_ISREG(info.st_mode) && std::ifstream(path).is_open();
    const std::string found =
        path + ": " + (exists ? std::to_string(info.st_size) + " bytes" : std::strerror(errno));
    if (std::optional<std::string> other = otherLog(exists ? &info : nullptr, daemon.process))
        report.warn("log", found + "; the daemon writes to " + *other,
                    adviceForOther(*other, path, daemon.process));
    else if (!exists)
        report.warn("log", found, "give --log FILE when the daemon has another one");
    else if (!readable)
        report.warn("log", found + ", is not a file that can be read",
                    "run doctor as root, or give --log FILE");
    else
        report.ok("log", found);
    if (readable)
        reportFaults(report, path, daemon);
}
