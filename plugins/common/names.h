// The names of the local network: what the database says of them, and what may stand in a service's line.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace names {

// A value and the key that it comes from.
struct Setting {
    std::string key;
    unsigned int index = 0;
    std::string value{};  // empty: not set
};

struct Host {
    Setting name;
    Setting address;
};

// These throw BadValue for a value of another type.
Setting readString(const char* key, unsigned int index = 0);
Setting readIp(const char* key, unsigned int index);
// lan.domain, a String.
Setting readDomain();
// The instances of structure host that belong to "dns": host.name, a String, and host.address, an IP. Those
// that lack one of them are left out.
std::vector<Host> readHosts();

// Letters, digits and hyphens, at most 63, with no hyphen at an end.
bool isHostName(std::string_view text);

// The same name, as case means nothing in one.
std::string lowered(std::string name);

// The value, or BadValue when it is not that: nothing else gets into a line. Domain names may have
// underscores, too.
const std::string& domainNameOf(const Setting& setting);
const std::string& addressOf(const Setting& setting);
// The name in the domain, which is one or empty.
std::string wholeNameOf(const Setting& name, const std::string& domain);

}  // namespace names
