#include "dnsmasq/settings.h"

#include <ostrel/plugin/read.hpp>

namespace dnsmasq {
namespace {

using ReadText = std::optional<std::string> (*)(const std::string& key, unsigned int index);

// Empty when there is no such value.
Setting readSetting(const char* key, unsigned int index, ReadText read) {
    return {key, index, read(key, index).value_or("")};
}

}  // namespace

Settings readSettings() {
    using ostrel::plugin::readIp;
    using ostrel::plugin::readString;
    Settings settings;
    settings.domain = readSetting("lan.domain", 0, readString);
    for (unsigned int index : ostrel::plugin::elementsOf("dns.server"))
        settings.servers.push_back(readSetting("dns.server", index, readIp));
    for (unsigned int key : ostrel::plugin::instancesOf("host", "dns"))
        settings.hosts.push_back(
            {readSetting("host.name", key, readString), readSetting("host.address", key, readIp)});
    return settings;
}

}  // namespace dnsmasq
