// What the configuration database says to dnsmasq.
#pragma once

#include "dnsmasq/configuration.h"

namespace dnsmasq {

// Throws BadValue for a value that cannot be read as what it should be.
//   lan.domain               String
//   dns.server[n]            IP
//   host.name, host.address  String and IP, of the instances of structure host that belong to "dns"
Settings readSettings();

}  // namespace dnsmasq
