// dnsmasq's configuration as text. Pure functions.
#pragma once

#include <string>
#include <vector>

#include "common/names.h"

namespace dnsmasq {

struct Settings {
    names::Setting domain;
    std::vector<names::Setting> servers;  // upstream
    std::vector<names::Host> hosts;
};

// The configuration file. Values that are not set are left out. Throws BadValue for a value that is no domain
// name or address.
std::string render(const Settings& settings);

}  // namespace dnsmasq
