#include "dnsmasq/settings.h"

#include <array>

#include "ostrel/plugin.h"

namespace dnsmasq {
namespace {

constexpr char hostOwner[] = "dns";
constexpr unsigned int elementOwner = 0;

using ReadText = int (*)(const char* key, unsigned int index, unsigned char* buffer, unsigned int size);

std::string shownKey(const char* key, unsigned int index) {
    return index == 0 ? key : std::string(key) + '[' + std::to_string(index) + ']';
}

// The text of the plain value (index 0), element or member; empty when there is none.
Setting readSetting(const char* key, unsigned int index, ReadText read) {
    Setting setting{shownKey(key, index), {}};
    ostrelValueType type = ostrelTypeNone;
    if (OstrelClientGetType(key, index, &type) != 1)
        return setting;
    std::array<unsigned char, 512> text{};
    if (read(key, index, text.data(), text.size()) != 1)
        throw BadSetting(setting.key, "of another type than expected, or too long");
    setting.value = reinterpret_cast<const char*>(text.data());
    return setting;
}

std::vector<unsigned int> primaryKeys(const char* key, unsigned int owner) {
    unsigned int size = 0;
    if (OstrelClientGetVectorSize(key, owner, &size) != 1)
        throw BadSetting(key, "cannot be counted");
    std::vector<unsigned int> keys(size);
    int count = static_cast<int>(size);
    if (size != 0 && OstrelClientGetPrimaryKeys(key, owner, keys.data(), &count) != 1)
        throw BadSetting(key, "cannot be listed");
    keys.resize(static_cast<std::size_t>(count));
    return keys;
}

}  // namespace

Settings readSettings() {
    Settings settings;
    settings.domain = readSetting("lan.domain", 0, OstrelClientReadVectorElement_String);
    for (unsigned int index : primaryKeys("dns.server", elementOwner))
        settings.servers.push_back(readSetting("dns.server", index, OstrelClientReadVectorElement_IP));
    for (unsigned int key : primaryKeys("host", ostrelStringToOwner(hostOwner)))
        settings.hosts.push_back({readSetting("host.name", key, OstrelClientReadVectorElement_String),
                                  readSetting("host.address", key, OstrelClientReadVectorElement_IP)});
    return settings;
}

}  // namespace dnsmasq
