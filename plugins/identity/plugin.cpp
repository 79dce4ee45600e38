// Gives the device its host name, file of hosts and time zone from the configuration database.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <ostrel/plugin.hpp>
#include <string>
#include <system_error>

#include "identity/identity.h"

namespace identity {
namespace {

void noteIf(bool changed, const std::string& path) {
    if (changed)
        ostrel::plugin::logNotice(path + " is written");
}

void replaceFile(const std::string& path, const std::string& content) {
    noteIf(ostrel::plugin::replaceFile(path, content), path);
}

// Of a device that takes its name from the database; else empty.
std::string lastGoodHostName() {
    if (ostrel::plugin::readString("system.hostName").value_or("").empty())
        return "";
    const std::optional<std::string> content = ostrel::plugin::readFile("/etc/hostname");
    return content ? std::string(content->begin(), std::ranges::find(*content, '\n')) : "";
}

std::string kernelsHostName() {
    std::array<char, 256> name{};
    gethostname(name.data(), name.size() - 1);
    return name.data();
}

}  // namespace

// Without init: a device with a wrong name still needs its configuration daemon.
class Plugin {
public:
    static constexpr char name[] = "identity";
    static constexpr const char* watched[] = {"system.hostName", "system.timeZone", "lan.domain", "host",
                                              "host.*"};
    // Before the services, which may look at the names.
    static constexpr unsigned int loadPriority = 40;
    static constexpr unsigned int restartPriority = 40;

    void writeConf() {
        hostName_ = lastGoodHostName();
        // All of it is checked before the first file is written.
        const Identity identity = readIdentity();
        if (!identity.hostName.empty()) {
            replaceFile("/etc/hosts", identity.hosts);
            replaceFile("/etc/hostname", identity.hostName + '\n');
        }
        if (!identity.timeZone.empty()) {
            noteIf(ostrel::plugin::replaceLink("/etc/localtime", zoneFolder + identity.timeZone),
                   "/etc/localtime");
            replaceFile("/etc/timezone", identity.timeZone + '\n');
        }
        hostName_ = identity.hostName;
    }

    void restart() {
        if (hostName_.empty() || hostName_ == kernelsHostName())
            return;
        if (sethostname(hostName_.data(), hostName_.size()) != 0)
            throw std::system_error(errno, std::generic_category(), "host name " + hostName_);
        ostrel::plugin::logNotice("the host name is " + hostName_);
    }

private:
    // What stands in the files, also when they could not be written anew; empty: none of ours.
    std::string hostName_;
};

}  // namespace identity

OSTREL_ESSENTIAL_PLUGIN(identity::Plugin)
