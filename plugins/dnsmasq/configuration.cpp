#include "dnsmasq/configuration.h"

#include <map>
#include <string>

#include "dnsmasq/paths.h"
#include "ostrel/plugin.hpp"

namespace dnsmasq {
namespace {

using names::addressOf;
using names::domainNameOf;
using names::Host;
using names::Setting;

// Root inside a user namespace cannot become another user or group, so dnsmasq stays what it is started as.
constexpr char head[] =
    "# Written by ostrel from its configuration database; what is changed here is lost.\n"
    "port=53\n"
    "listen-address=127.0.0.1\n"
    "bind-interfaces\n"
    "no-resolv\n"
    "no-hosts\n"
    "user=root\n"
    "group=\n";

// The time that dnsmasq takes to read the addresses of one name grows with their square: with 10,000 it is
// silent for ten seconds after each restart.
constexpr unsigned int mostOfOneName = 64;

// A host is found by its whole name and by its own. Lowered, as dnsmasq compares names, and takes one with
// capitals for one in need of a translation, which some do not stand.
std::string hostRecord(const Host& host, const std::string& domain) {
    std::string hostNames = names::wholeNameOf(host.name, domain);
    if (!domain.empty())
        hostNames += ',' + host.name.value;
    return "host-record=" + names::lowered(hostNames) + ',' + addressOf(host.address) + '\n';
}

}  // namespace

std::string render(const Settings& settings) {
    std::string text = std::string(head) + "pid-file=" + pidFile + '\n';
    std::string domain;
    if (!settings.domain.value.empty()) {
        domain = names::lowered(domainNameOf(settings.domain));
        // Names of the own domain are never asked for elsewhere.
        text += "domain=" + domain + "\nlocal=/" + domain + "/\n";
    }
    for (const Setting& server : settings.servers) {
        if (!server.value.empty())
            text += "server=" + addressOf(server) + '\n';
    }
    std::map<std::string, unsigned int> addresses;
    for (const Host& host : settings.hosts) {
        if (++addresses[names::lowered(host.name.value)] > mostOfOneName)
            throw ostrel::plugin::BadValue(
                host.name.key, host.name.index,
                "more than " + std::to_string(mostOfOneName) + " hosts have this name");
        text += hostRecord(host, domain);
    }
    return text;
}

}  // namespace dnsmasq
