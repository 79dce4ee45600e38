#include "dnsmasq/service.h"

#include <charconv>
#include <chrono>
#include <ostrel/plugin/command.hpp>
#include <stdexcept>
#include <string>

#include "dnsmasq/paths.h"

namespace dnsmasq {
namespace {

using ostrel::plugin::Descriptor;
using ostrel::plugin::readFile;
using ostrel::plugin::waitForEnd;
using std::chrono::milliseconds;
using std::chrono::seconds;

// The daemon serves nobody meanwhile.
constexpr seconds stopLimit{2};
constexpr seconds killLimit{1};
constexpr seconds startLimit{2};

const std::string configurationOption = std::string("--conf-file=") + configurationFile;

// A pidfd of the running service; none when it does not run. A pid file can be left over and its number be
// another process's by now: only the command line tells.
Descriptor findService() {
    std::string text = readFile(pidFile).value_or("");
    pid_t pid = 0;
    std::from_chars(text.data(), text.data() + text.size(), pid);
    if (pid <= 0)
        return Descriptor();
    Descriptor process = ostrel::plugin::openProcess(pid);
    if (!process)
        return process;
    std::string commandLine = readFile("/proc/" + std::to_string(pid) + "/cmdline").value_or("");
    bool ours = commandLine.find(configurationOption) != std::string::npos;
    // Read from the very process only if that still runs now.
    return ours && !waitForEnd(process, milliseconds(0)) ? std::move(process) : Descriptor();
}

void stopService() {
    Descriptor process = findService();
    if (!process)
        return;
    ostrel::plugin::sendSignal(process, SIGTERM);
    if (waitForEnd(process, stopLimit))
        return;
    ostrel::plugin::sendSignal(process, SIGKILL);
    if (!waitForEnd(process, killLimit))
        throw std::runtime_error("the running dnsmasq cannot be stopped");
}

}  // namespace

void markStale() { ostrel::plugin::removeFile(currentFile); }

bool isCurrent() { return readFile(currentFile) && findService(); }

void restartService() {
    markStale();
    stopService();
    // It goes into the background when it serves; its status then tells that it does.
    ostrel::plugin::run({programFile, configurationOption}, startLimit);
    ostrel::plugin::replaceFile(currentFile, "");
}

}  // namespace dnsmasq
