#include "exec/runner/records.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <ostrel/plugin/command.hpp>
#include <sstream>
#include <system_error>

#include "common/privateFolder.h"

namespace exec {
namespace {

using ostrel::plugin::Descriptor;
using ostrel::plugin::readFile;

const std::string folder = "/run/ostrel-exec";
// A rule may be named "..".
const std::string prefix = "rule.";

std::string fileOf(const std::string& rule) { return folder + '/' + prefix + rule; }

void report(const std::string& text) {
    std::fprintf(stderr, "ostrelExecRunner: %s; if the runner is killed, what runs then is not found\n",
                 text.c_str());
}

struct Stat {
    char state = 0;
    unsigned long long startTime = 0;
};

// Nothing when there is no such process.
std::optional<Stat> statOf(pid_t process) {
    const std::string text = readFile("/proc/" + std::to_string(process) + "/stat").value_or("");
    // The program's name may have blanks and brackets.
    std::istringstream fields(text.substr(std::min(text.rfind(')'), text.size() - 1) + 1));
    constexpr int between = 18;  // state is field 3, the start time 22
    Stat stat;
    std::string skipped;
    fields >> stat.state;
    for (int i = 0; i < between; ++i)
        fields >> skipped;
    fields >> stat.startTime;
    return fields ? std::optional(stat) : std::nullopt;
}

}  // namespace

bool isRunning(const ProcessName& name) {
    std::optional<Stat> stat = statOf(name.process);
    return stat && stat->startTime == name.startTime && stat->state != 'Z' && stat->state != 'X';
}

bool isAnothers(const ProcessName& name) {
    std::optional<Stat> stat = statOf(name.process);
    return stat && stat->startTime != name.startTime;
}

Records::Records() {
    try {
        makePrivateFolder(folder);
        std::istringstream(readFile("/proc/sys/kernel/random/boot_id").value_or("")) >> bootId_;
    } catch (const std::system_error& error) {
        report(error.what());
    }
}

void Records::write(const std::string& rule, const std::string& program, pid_t leader) const {
    std::optional<Stat> stat = statOf(leader);
    if (bootId_.empty() || !stat)
        return;
    std::string text =
        bootId_ + ' ' + std::to_string(leader) + ' ' + std::to_string(stat->startTime) + ' ' + program + '\n';
    const Descriptor file(
        open(fileOf(rule).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file || ::write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        report(fileOf(rule) + ": " + std::strerror(errno));
}

void Records::remove(const std::string& rule) const { unlink(fileOf(rule).c_str()); }

std::vector<LeftCommand> Records::leftCommands() const {
    std::vector<LeftCommand> found;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        const std::string rule = entry.path().filename();
        if (bootId_.empty() || !rule.starts_with(prefix))
            continue;
        LeftCommand command;
        command.rule = rule.substr(prefix.size());
        std::string boot;
        std::istringstream(readFile(entry.path()).value_or("")) >> boot >> command.leader.process >>
            command.leader.startTime >> command.program;
        // As a group 0 and 1 would be this process's own, and everybody.
        if (boot == bootId_ && command.leader.process > 1)
            command.process = ostrel::plugin::openProcess(command.leader.process);
        // Looked at after that, it is the very process.
        if (command.process && isRunning(command.leader) && !command.program.empty())
            found.push_back(std::move(command));
        else
            remove(command.rule);
    }
    return found;
}

}  // namespace exec
