#include "dnsmasq/service.h"

#include <charconv>
#include <chrono>
#include <optional>
#include <ostrel/plugin/command.hpp>
#include <stdexcept>
#include <string>

#include "common/privateFolder.h"
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
constexpr seconds checkLimit{2};

const std::string fileOption = "--conf-file=";
const std::string configurationOption = fileOption + configurationFile;

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
    const std::string commandLine = readFile("/proc/" + std::to_string(pid) + "/cmdline").value_or("");
    const bool ours = commandLine.find(configurationOption) != std::string::npos;
    // Read from the very process only if that still runs now.
    return ours && !waitForEnd(process, milliseconds(0)) ? std::move(process) : Descriptor();
}

void stopService() {
    const Descriptor process = findService();
    if (!process)
        return;
    ostrel::plugin::sendSignal(process, SIGTERM);
    if (waitForEnd(process, stopLimit))
        return;
    ostrel::plugin::sendSignal(process, SIGKILL);
    if (!waitForEnd(process, killLimit))
        throw std::runtime_error("the running dnsmasq cannot be stopped");
}

void startService() {
    stopService();
    // It goes into the background when it serves; its status then tells that it does.
    ostrel::plugin::run({programFile, configurationOption}, startLimit);
}

// Before the configuration is replaced: a crash in between then restarts a service that is current, never the
// other way round.
void markStale() { ostrel::plugin::removeFile(currentFile); }

// False when there is none, or it is in use.
bool takeLastGood() {
    std::optional<std::string> good = readFile(lastGoodFile);
    if (!good || !ostrel::plugin::replaceFile(configurationFile, *good))
        return false;
    ostrel::plugin::removeFile(lastGoodFile);
    return true;
}

}  // namespace

void checkConfiguration(const std::string& text) {
    makePrivateFolder(candidateFolder);
    ostrel::plugin::replaceFile(candidateFile, text, 0600);
    try {
        ostrel::plugin::run({programFile, "--test", fileOption + candidateFile}, checkLimit);
    } catch (const ostrel::plugin::CommandError& error) {
        throw std::runtime_error(std::string("the configuration is not accepted: ") + error.what());
    }
    ostrel::plugin::removeFile(candidateFile);
}

void replaceConfiguration(const std::string& text) {
    std::optional<std::string> old = readFile(configurationFile);
    // One that is kept already is better: what replaced it has not come up yet.
    if (old && !readFile(lastGoodFile))
        ostrel::plugin::replaceFile(lastGoodFile, *old);
    markStale();
    ostrel::plugin::replaceFile(configurationFile, text);
}

bool isRunning() { return static_cast<bool>(findService()); }

bool isCurrent() { return readFile(currentFile) && isRunning(); }

void restartService() {
    if (!readFile(configurationFile))
        throw std::runtime_error("there is no configuration yet that dnsmasq accepts");
    markStale();
    std::string failure;
    try {
        startService();
    } catch (const ostrel::plugin::CommandError& error) {
        if (!takeLastGood())
            throw;
        failure = error.what();
        startService();
    }
    ostrel::plugin::removeFile(lastGoodFile);
    ostrel::plugin::replaceFile(currentFile, "");
    if (!failure.empty())
        throw std::runtime_error(failure + "; dnsmasq runs with its last good configuration");
}

}  // namespace dnsmasq
