// What the configuration database says to dnsmasq.
#pragma once

#include "dnsmasq/configuration.h"

namespace dnsmasq {

// Throws BadValue for a value that cannot be read as what it should be.
// Besides the names: dns.server[n], an IP.
Settings readSettings();

}  // namespace dnsmasq
