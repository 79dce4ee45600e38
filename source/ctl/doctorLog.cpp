#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <optional>
#include <string_view>

#include "ctl/doctorChecks.h"

namespace {

constexpr std::streamoff tailSize = std::streamoff{64} * 1024;
constexpr std::string_view fatalMark = "FATAL ERROR :";

struct Faults {
    std::string fatal{};      // the reason of the last fatal error
    std::string lastError{};  // the last error line's text
    std::size_t errors = 0;
};

// The daemon's functions that serve clients. What these log as an error is a client's doing: it came, left,
// or asked for what is refused.
constexpr std::array<std::string_view, 15> clientFunctions{"popMessage",
                                                           "removeCnx",
                                                           "HandleWriteSequence",
                                                           "unpackReadMessage",
                                                           "unpackGetOwnerQtyMessage",
                                                           "unpackGetPKeyListMessage",
                                                           "unpackNotifyMessage",
                                                           "unpackEraseMessage",
                                                           "unpackInstanciateMessage",
                                                           "unpackDeinstanciateMessage",
                                                           "unpackDeinstanciateOwnerMessage",
                                                           "OstrelUnMarshallParameters",
                                                           "sendData",
                                                           "receiveData",
                                                           "receiveMessage"};
// But these are the daemon's own.
constexpr std::array<std::string_view, 3> ownFaults{"[ostrelServer] Warning, commit failed",
                                                    "returned invalid handle", "Marshalling message failed"};

// What to do about the reasons that the daemon ends for.
struct Remedy {
    std::string_view reason;
    const char* advice;
};
constexpr std::array<Remedy, 6> remedies{{
    {"Cannot bind", "the line before it tells the error; /tmp must exist and the daemon may write there"},
    {"Database in use", "another daemon runs: one was started twice, and emptied the log of the first"},
    {"Cannot open plugin dir", "see the line plug-ins"},
    {"No plugins loaded", "see the lines plug-in; with --reduced at least one must be essential"},
    {"Init failed for plugin",
     "run ostrelServer --debug --verbose once: its last line with >>> names the plug-in; correct or remove "
     "it; --reduced starts without those that are not essential"},
    {"Cannot get",
     "run ostrelServer --debug --verbose once: its last line with >>> names the plug-in; correct or remove "
     "it"},
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
    std::streamoff size = file.tellg();
    std::streamoff start = size > tailSize ? size - tailSize : 0;
    std::string tail(static_cast<std::size_t>(size > 0 ? size - start : 0), '\0');
    file.seekg(start);
    file.read(tail.data(), static_cast<std::streamsize>(tail.size()));
    tail.resize(static_cast<std::size_t>(file.gcount()));
    return tail;
}

// "[ERR] TIME:MODULE:LINE:FUNCTION():", blanks, coloured tag, TEXT
struct ErrorLine {
    std::string_view function{};
    std::string_view text{};
};

std::optional<ErrorLine> parseError(std::string_view line) {
    constexpr std::string_view placeEnd = "():";
    constexpr std::string_view tagEnd = "\033[m ";
    if (!line.starts_with("[ERR] "))
        return std::nullopt;
    std::size_t tag = line.find(tagEnd);
    ErrorLine error{.text = tag == std::string_view::npos ? line : line.substr(tag + tagEnd.size())};
    std::string_view place = line.substr(0, line.find(placeEnd));
    error.function = place.substr(place.rfind(':') + 1);
    return error;
}

bool isClients(const ErrorLine& error) {
    auto within = [&](std::string_view fault) { return error.text.find(fault) != std::string_view::npos; };
    return std::ranges::find(clientFunctions, error.function) != clientFunctions.end() &&
           std::ranges::none_of(ownFaults, within);
}

Faults findFaults(std::string_view tail) {
    Faults faults;
    while (!tail.empty()) {
        std::string_view line = tail.substr(0, tail.find('\n'));
        tail.remove_prefix(std::min(line.size() + 1, tail.size()));
        // A log that another daemon emptied begins with NULs.
        line.remove_prefix(std::min(line.find_first_not_of('\0'), line.size()));
        if (line.starts_with(fatalMark))
            faults.fatal = line.substr(fatalMark.size());
        std::optional<ErrorLine> error = parseError(line);
        if (!error || isClients(*error))
            continue;
        ++faults.errors;
        faults.lastError = error->text;
    }
    return faults;
}

void reportFaults(DoctorReport& report, const std::string& path, const DaemonFacts& daemon) {
    Faults faults = findFaults(readTail(path));
    if (!faults.fatal.empty())
        report.add({daemon.reachable ? State::warn : State::bad, "fatal error",
                    "the log tells: " + faults.fatal, adviceFor(faults.fatal)});
    if (faults.errors == 0)
        report.ok("log's errors", "none of the daemon's own in the last 64 KiB");
    else
        report.warn("log's errors",
                    std::to_string(faults.errors) +
                        " of the daemon's own in the last 64 KiB, the last: " + faults.lastError,
                    "read them: grep -a '^.ERR' " + path);
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
    bool detached = other.ends_with(" (deleted)") || std::filesystem::exists(path, error);
    if (!detached)
        return "read that, or give --log";
    return "if it was renamed or removed: kill -HUP " + std::to_string(process) +
           " makes the daemon open its log anew; else give --log";
}

}  // namespace

void checkLog(DoctorReport& report, const std::string& path, const DaemonFacts& daemon) {
    struct stat info {};
    bool exists = stat(path.c_str(), &info) == 0;
    bool readable = exists && S_ISREG(info.st_mode) && std::ifstream(path).is_open();
    std::string found =
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
