#include "dnsmasq/configuration.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <ostrel/plugin/read.hpp>
#include <string_view>

#include "dnsmasq/paths.h"

namespace dnsmasq {
namespace {

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

constexpr std::size_t longestDomainName = 253;
constexpr std::size_t longestLabel = 63;

bool isLabelCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
}

bool isLabel(std::string_view text) {
    return !text.empty() && text.size() <= longestLabel && text.front() != '-' && text.back() != '-' &&
           std::ranges::all_of(text, isLabelCharacter);
}

bool isDomainName(std::string_view text) {
    if (text.size() > longestDomainName)
        return false;
    for (;;) {
        std::size_t dot = text.find('.');
        if (!isLabel(text.substr(0, dot)))
            return false;
        if (dot == std::string_view::npos)
            return true;
        text.remove_prefix(dot + 1);
    }
}

bool isAddress(const std::string& text) {
    std::array<unsigned char, sizeof(in6_addr)> address{};
    return inet_pton(AF_INET, text.c_str(), address.data()) == 1 ||
           inet_pton(AF_INET6, text.c_str(), address.data()) == 1;
}

const std::string& nameOf(const Setting& setting) {
    if (!isDomainName(setting.value))
        throw ostrel::plugin::BadValue(setting.key, setting.index, "not a domain name");
    return setting.value;
}

const std::string& addressOf(const Setting& setting) {
    if (!isAddress(setting.value))
        throw ostrel::plugin::BadValue(setting.key, setting.index, "not an IP address");
    return setting.value;
}

// A host is found by its whole name and by its own.
std::string hostRecord(const Host& host, const std::string& domain) {
    const std::string& name = nameOf(host.name);
    if (domain.empty())
        return "host-record=" + name + ',' + addressOf(host.address) + '\n';
    std::string wholeName = nameOf({host.name.key, host.name.index, name + '.' + domain});
    return "host-record=" + wholeName + ',' + name + ',' + addressOf(host.address) + '\n';
}

}  // namespace

std::string render(const Settings& settings) {
    std::string text = std::string(head) + "pid-file=" + pidFile + '\n';
    std::string domain;
    if (!settings.domain.value.empty()) {
        domain = nameOf(settings.domain);
        // Names of the own domain are never asked for elsewhere.
        text += "domain=" + domain + "\nlocal=/" + domain + "/\n";
    }
    for (const Setting& server : settings.servers) {
        if (!server.value.empty())
            text += "server=" + addressOf(server) + '\n';
    }
    for (const Host& host : settings.hosts) {
        if (!host.name.value.empty() && !host.address.value.empty())
            text += hostRecord(host, domain);
    }
    return text;
}

}  // namespace dnsmasq
