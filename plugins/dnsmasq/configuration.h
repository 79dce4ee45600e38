// dnsmasq's configuration as text. Pure functions.
#pragma once

#include <string>
#include <vector>

namespace dnsmasq {

// A value and the key that it comes from.
struct Setting {
    std::string key;
    unsigned int index = 0;
    std::string value;  // empty: not set
};

struct Host {
    Setting name;
    Setting address;
};

struct Settings {
    Setting domain;
    std::vector<Setting> servers;  // upstream
    std::vector<Host> hosts;
};

// The configuration file. Values that are not set are left out, and hosts without a name or an address.
// Throws BadValue for a value that is no domain name or address: nothing else gets into a line.
std::string render(const Settings& settings);

}  // namespace dnsmasq
