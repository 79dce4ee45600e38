#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <vector>

#include "ctl/doctorChecks.h"
#include "process/childProcess.h"
#include "text/fixedPaths.h"

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::seconds toolLimit{30};
constexpr size_t mostLines = 20;
constexpr uintmax_t kibi = 1024;
constexpr uintmax_t leastSpace = 64 * kibi;  // beside a rewrite of the live file
constexpr uintmax_t comfort = 8;             // times what is needed
constexpr uintmax_t fewInodes = 16;

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

void checkFactoryFile(DoctorReport& report, const char* path) {
    std::error_code error;
    const uintmax_t size = fs::file_size(path, error);
    if (error)
        report.warn("factory file", std::string(path) + ": " + error.message() + ", counts as empty",
                    "install the firmware's file again");
    else
        report.ok("factory file", std::string(path) + ": " + std::to_string(size) + " bytes");
}

// Those whose name is the file's with the suffix and more behind it.
std::vector<fs::path> filesBeside(const fs::path& file, const std::string& suffix) {
    std::vector<fs::path> files;
    std::error_code error;
    for (fs::directory_iterator entry(file.parent_path(), error), end; !error && entry != end;
         entry.increment(error)) {
        if (entry->path().filename().string().starts_with(file.filename().string() + suffix))
            files.push_back(entry->path());
    }
    std::ranges::sort(files);
    return files;
}

void checkLiveFile(DoctorReport& report) {
    const fs::path live = livePath;
    std::error_code error;
    const uintmax_t size = fs::file_size(live, error);
    if (!error)
        report.ok("live file", live.string() + ": " + std::to_string(size) + " bytes");
    else if (error == std::errc::no_such_file_or_directory)
        report.ok("live file",
                  live.string() + " does not exist: nothing has been changed on this device yet");
    else
        report.bad("live file", live.string() + ": " + error.message(), "see that the daemon can read it");

    // The copies are where the file is, when that is a link.
    const fs::path place = fs::weakly_canonical(live, error);
    for (const fs::path& file : filesBeside(place, ".damaged-"))
        report.warn("damaged file", file.string() + " was kept: changes of the device may be in it only",
                    "stop the daemon, run ostrelDbTool repair " + file.string() + ", then delete it");
    for (const fs::path& file : filesBeside(place, ".torn"))
        report.warn("torn transaction",
                    file.string() + " was kept: cut off after a power cut, or else damage to the last change",
                    "look whether a change is missing; ostrelDbTool repair --lines " + file.string() +
                        ", with the daemon stopped, brings it back; then delete it");
    for (const fs::path& file : filesBeside(place, ".dropped-"))
        report.warn("dropped changes", file.string() + " was kept: the firmware did not allow what it says",
                    "stop the daemon, run ostrelDbTool import " + file.string() +
                        " when a firmware allows it again, then delete it");
}

State stateOf(const std::string& line) {
    if (line.starts_with("note: "))
        return State::ok;
    return line.starts_with(livePath) ? State::bad : State::warn;
}

const char* adviceFor(State state) {
    switch (state) {
        case State::ok:
            return "";
        case State::warn:
            return "the daemon skips the line: correct it";
        case State::bad:
            break;
    }
    return "stop the daemon and run ostrelDbTool repair: it saves what can be saved";
}

// What ostrelDbTool check finds, the summary in its last line included.
void runCheck(DoctorReport& report, const fs::path& programs) {
    const ChildResult tool = runChild({programs / "ostrelDbTool", "check"}, toolLimit);
    if (tool.end == ChildResult::End::notStarted) {
        report.warn("database", "lines and checksums not checked: ostrelDbTool: " + tool.error,
                    "install ostrelDbTool beside ostrelCtl");
        return;
    }
    std::vector<std::string> lines = linesOf(tool.output);
    if (tool.end != ChildResult::End::exited || tool.number > 1 || lines.empty()) {
        report.warn("database",
                    "lines and checksums not checked: " +
                        (tool.errors.empty() ? "ostrelDbTool check failed"
                                             : tool.errors.substr(0, tool.errors.find('\n'))),
                    "run ostrelDbTool check as the daemon's user");
        return;
    }
    const std::string summary = lines.back();
    lines.pop_back();
    State worst = State::ok;
    for (size_t i = 0; i < lines.size(); ++i) {
        const State state = stateOf(lines[i]);
        worst = std::max(worst, state);
        if (i < mostLines)
            report.add({state, "database", lines[i], adviceFor(state)});
    }
    const std::string seeAll = worst == State::ok ? "" : "ostrelDbTool check tells them all";
    report.add({worst, "database", summary, seeAll});
}

std::string amount(uintmax_t bytes) {
    return bytes < 10 * kibi * kibi ? std::to_string(bytes / kibi) + " KiB"
                                    : std::to_string(bytes / kibi / kibi) + " MiB";
}

// purpose: what fails without space. needed: bytes.
void checkFileSystem(DoctorReport& report, fs::path folder, uintmax_t needed, const std::string& purpose) {
    // The daemon makes the live file's folder when it first needs it.
    while (!fs::exists(folder) && folder.has_relative_path())
        folder = folder.parent_path();
    struct statvfs info {};
    if (statvfs(folder.c_str(), &info) != 0) {
        report.warn("space", folder.string() + ": " + std::strerror(errno), "make the folder");
        return;
    }
    const uintmax_t free = uintmax_t{info.f_bavail} * info.f_frsize;
    std::string found = folder.string() + ": " + amount(free) + " free";
    const std::string clear = "make room there: " + purpose + " without";
    // A file system without a fixed number of inodes tells 0 of 0.
    const bool counted = info.f_files != 0;
    if (counted)
        found += ", " + std::to_string(info.f_favail) + " inodes";
    if ((info.f_flag & ST_RDONLY) != 0)
        report.bad("space", found + ", read-only",
                   "mount it writable (see dmesg for why it is not): " + purpose);
    else if (free < needed || (counted && info.f_favail == 0))
        report.bad("space", found, clear);
    else if (free < comfort * needed || (counted && info.f_favail < fewInodes))
        report.warn("space", found + ", which is little", clear);
    else
        report.ok("space", found);
}

}  // namespace

void checkDatabase(DoctorReport& report, const fs::path& programs) {
    checkFactoryFile(report, defaultsPath);
    checkFactoryFile(report, templatesPath);
    checkLiveFile(report);
    runCheck(report, programs);
}

void checkSpace(DoctorReport& report, const std::string& logPath) {
    std::error_code error;
    const uintmax_t live = fs::file_size(livePath, error);
    checkFileSystem(report, fs::path(livePath).parent_path(), leastSpace + (error ? 0 : live),
                    "commits fail");
    checkFileSystem(report, fs::weakly_canonical(logPath).parent_path(), leastSpace, "the log stops");
}
