#include "common/names.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <ostrel/plugin/read.hpp>

namespace names {
namespace {

constexpr size_t longestDomainName = 253;
constexpr size_t longestLabel = 63;

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
        const size_t dot = text.find('.');
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

}  // namespace

Setting readString(const char* key, unsigned int index) {
    return {key, index, ostrel::plugin::readString(key, index).value_or("")};
}

Setting readIp(const char* key, unsigned int index) {
    return {key, index, ostrel::plugin::readIp(key, index).value_or("")};
}

Setting readDomain() { return readString("lan.domain"); }

std::vector<Host> readHosts() {
    std::vector<Host> hosts;
    for (const unsigned int key : ostrel::plugin::instancesOf("host", "dns"))
        hosts.push_back({readString("host.name", key), readIp("host.address", key)});
    std::erase_if(hosts,
                  [](const Host& host) { return host.name.value.empty() || host.address.value.empty(); });
    return hosts;
}

bool isHostName(std::string_view text) { return isLabel(text) && text.find('_') == std::string_view::npos; }

std::string lowered(std::string name) {
    std::ranges::transform(name, name.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return name;
}

const std::string& domainNameOf(const Setting& setting) {
    if (!isDomainName(setting.value))
        throw ostrel::plugin::BadValue(setting.key, setting.index, "not a domain name");
    return setting.value;
}

const std::string& addressOf(const Setting& setting) {
    if (!isAddress(setting.value))
        throw ostrel::plugin::BadValue(setting.key, setting.index, "not an IP address");
    return setting.value;
}

std::string wholeNameOf(const Setting& name, const std::string& domain) {
    const std::string whole = domain.empty() ? name.value : name.value + '.' + domain;
    return domainNameOf({name.key, name.index, whole});
}

}  // namespace names
