#include "ctl/shownKey.h"

#include <map>

#include "ctl/lines.h"

std::string ShownKey::text() const {
    const std::string shown =
        keyText(std::string_view(name).substr(0, structure == 0 ? name.size() : structure), index);
    return structure == 0 ? shown : shown + '.' + keyText(std::string_view(name).substr(structure + 1), 0);
}

size_t structureOf(ostrel::Session& session, const std::string& name, uint32_t owner) {
    for (size_t dot = name.find('.', 1); dot != std::string::npos; dot = name.find('.', dot + 1)) {
        if (session.count(name.substr(0, dot), owner) != 0)
            return dot;
    }
    return 0;
}

void findStructures(ostrel::Session& session, std::vector<ShownKey>& keys) {
    std::map<std::string, size_t> found;
    for (ShownKey& key : keys) {
        const size_t dot = key.name.find('.', 1);
        if (key.index == 0 || key.structure != 0 || dot == std::string::npos)
            continue;
        auto [place, isNew] = found.try_emplace(key.name, dot);
        // Elements belong to owner 0. So may instances, but then their structure has some.
        if (isNew && session.count(key.name, 0) != 0)
            place->second = structureOf(session, key.name, 0);
        key.structure = place->second;
    }
}
