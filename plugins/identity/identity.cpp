#include "identity/identity.h"

#include <sys/stat.h>

#include <algorithm>
#include <ostrel/plugin/file.hpp>
#include <ostrel/plugin/read.hpp>

#include "common/names.h"

namespace identity {
namespace {

using ostrel::plugin::BadValue;

constexpr char zoneKey[] = "system.timeZone";
constexpr char zoneMark[] = "TZif";

constexpr char hostsHead[] =
    "# Written by ostrel from its configuration database; what is changed here is lost.\n"
    "127.0.0.1 localhost\n"
    "::1 localhost ip6-localhost ip6-loopback\n";

// The names of a line, separated by blanks.
std::string namesOf(const names::Setting& name, const std::string& domain) {
    const std::string whole = names::wholeNameOf(name, domain);
    return domain.empty() ? whole : whole + ' ' + name.value;
}

// What the device's own programs go by: another address for it would lead them astray.
bool isOwnName(const std::string& name, const std::string& ownNames) {
    const std::string own = " localhost ip6-localhost ip6-loopback " + names::lowered(ownNames) + ' ';
    return own.find(' ' + names::lowered(name) + ' ') != std::string::npos;
}

std::string renderHosts(const names::Setting& ownName) {
    const names::Setting domain = names::readDomain();
    if (!domain.value.empty())
        names::domainNameOf(domain);
    const std::string ownNames = namesOf(ownName, domain.value);
    // The own name is found also where no interface has an address.
    std::string text = hostsHead + ("127.0.1.1 " + ownNames + '\n');
    for (const names::Host& host : names::readHosts()) {
        const std::string hostNames = namesOf(host.name, domain.value);
        if (isOwnName(host.name.value, ownNames))
            throw BadValue(host.name.key, host.name.index, "a name of the device itself");
        text += names::addressOf(host.address) + ' ' + hostNames + '\n';
    }
    return text;
}

// Without dots there is no way out of the folder.
bool isZoneName(const std::string& text) {
    auto isAllowed = [](unsigned char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '/' ||
               c == '_' || c == '+' || c == '-';
    };
    // Debian's zone of this name is a link to the very file that would link to it.
    return std::ranges::all_of(text, isAllowed) && text.front() != '/' && text != "localtime";
}

void checkZone(const std::string& zone) {
    if (!isZoneName(zone))
        throw BadValue(zoneKey, 0, "not the name of a time zone");
    const std::string path = zoneFolder + zone;
    struct stat file {};
    if (stat(path.c_str(), &file) != 0 || !S_ISREG(file.st_mode) ||
        !ostrel::plugin::readFile(path).value_or("").starts_with(zoneMark))
        throw BadValue(zoneKey, 0, path + " is no time zone");
}

}  // namespace

Identity readIdentity() {
    Identity identity;
    const names::Setting hostName = names::readString("system.hostName");
    if (!hostName.value.empty()) {
        if (!names::isHostName(hostName.value))
            throw BadValue(hostName.key, 0, "not a host name");
        identity.hostName = hostName.value;
        identity.hosts = renderHosts(hostName);
    }
    identity.timeZone = names::readString(zoneKey).value;
    if (!identity.timeZone.empty())
        checkZone(identity.timeZone);
    return identity;
}

}  // namespace identity
