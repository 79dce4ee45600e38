// What the configuration database says of the device's identity.
#pragma once

#include <string>

namespace identity {

// The folder of the compiled time zones, with its slash.
constexpr char zoneFolder[] = "/usr/share/zoneinfo/";

struct Identity {
    std::string hostName;  // empty: is left alone, as is the file of hosts
    std::string hosts;     // the content of /etc/hosts
    std::string timeZone;  // a path below zoneFolder; empty: is left alone
};

// Everything is checked: throws BadValue.
//   system.hostName, system.timeZone   String
//   lan.domain and the hosts           see common/names.h; only with a host name
Identity readIdentity();

}  // namespace identity
