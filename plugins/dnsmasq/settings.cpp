#include "dnsmasq/settings.h"

#include <ostrel/plugin/read.hpp>

namespace dnsmasq {

Settings readSettings() {
    Settings settings;
    settings.domain = names::readDomain();
    for (const unsigned int index : ostrel::plugin::elementsOf("dns.server"))
        settings.servers.push_back(names::readIp("dns.server", index));
    settings.hosts = names::readHosts();
    return settings;
}

}  // namespace dnsmasq
