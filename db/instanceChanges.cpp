#include "db/instanceChanges.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>

namespace store {

const InstanceChanges::OfStructure* InstanceChanges::changesOf(std::string_view structure) const {
    const auto found = structures_.find(structure);
    return found != structures_.end() ? &found->second : nullptr;
}

// By this transaction, and not removed again; null: there is none.
const Instance* InstanceChanges::made(std::string_view structure, uint32_t key) const {
    const OfStructure* mine = changesOf(structure);
    if (mine == nullptr)
        return nullptr;
    const auto found = mine->instances.find(key);
    return found != mine->instances.end() && found->second ? &*found->second : nullptr;
}

bool InstanceChanges::isStructure(std::string_view name) const {
    return base_.structure(name) != nullptr || changesOf(name) != nullptr;
}

const Instance* InstanceChanges::find(std::string_view structure, uint32_t key) const {
    if (const OfStructure* mine = changesOf(structure); mine != nullptr) {
        if (const auto found = mine->instances.find(key); found != mine->instances.end())
            return found->second ? &*found->second : nullptr;
    }
    return base_.instance(structure, key);
}

std::vector<uint32_t> InstanceChanges::keysOf(std::string_view structure, uint32_t owner) const {
    std::vector<uint32_t> keys;
    const OfStructure* mine = changesOf(structure);
    const Structure* committed = base_.structure(structure);
    const std::set<uint32_t>* owned = committed != nullptr ? committed->keysOf(owner) : nullptr;
    if (owned != nullptr && (mine == nullptr || !mine->removedOwners.contains(owner)))
        std::ranges::copy_if(*owned, std::back_inserter(keys),
                             [&](uint32_t key) { return find(structure, key) != nullptr; });
    if (mine == nullptr)
        return keys;
    if (const auto made = mine->madeForOwner.find(owner); made != mine->madeForOwner.end())
        keys.insert(keys.end(), made->second.begin(), made->second.end());
    return keys;
}

void InstanceChanges::noteRemoved(std::string_view structure, uint32_t owner) {
    structures_[std::string(structure)].removedOwners.insert(owner);
}

std::vector<std::string> InstanceChanges::memberNames(std::string_view structure, uint32_t key) const {
    std::vector<std::string> names;
    if (base_.instance(structure, key) != nullptr) {
        for (const std::string_view member : base_.membersOf(*base_.structure(structure), key))
            names.push_back(memberName(structure, member));
    } else if (const Instance* instance = made(structure, key); instance != nullptr) {
        for (const auto& [member, value] : *base_.findTemplate(instance->templateName))
            names.push_back(memberName(structure, member));
    }
    return names;
}

InstanceChanges::NewMember InstanceChanges::newMember(std::string_view name, uint32_t key) const {
    NewMember result;
    anySplit(name, [&](std::string_view structure, std::string_view member) {
        const Instance* instance = made(structure, key);
        if (instance == nullptr)
            return false;
        const Template& members = *base_.findTemplate(instance->templateName);
        const auto value = members.find(member);
        if (value == members.end())
            return false;
        result = {structure, &value->second};
        return true;
    });
    return result;
}

std::optional<uint32_t> InstanceChanges::nextKey(std::string_view structure) const {
    const Structure* committed = base_.structure(structure);
    const OfStructure* mine = changesOf(structure);
    uint32_t last = committed != nullptr ? committed->lastKey : 0;
    if (mine != nullptr && mine->lastKey != 0)
        last = mine->lastKey;
    return last != std::numeric_limits<uint32_t>::max() ? std::optional(last + 1) : std::nullopt;
}

void InstanceChanges::add(std::string_view structure, uint32_t key, Instance instance) {
    OfStructure& mine = structures_[std::string(structure)];
    mine.lastKey = key;
    mine.madeForOwner[instance.owner].insert(key);
    mine.instances[key] = std::move(instance);
}

void InstanceChanges::remove(std::string_view structure, uint32_t key) {
    OfStructure& mine = structures_[std::string(structure)];
    if (base_.instance(structure, key) != nullptr) {
        mine.instances[key] = std::nullopt;
    } else if (const auto made = mine.instances.find(key); made != mine.instances.end()) {
        mine.madeForOwner[made->second->owner].erase(key);
        mine.instances.erase(made);
    }
}

void InstanceChanges::visit(RowVisitor& visitor) const {
    for (const auto& [name, changes] : structures_) {
        const auto& instances = changes.instances;
        // An instance's row says that its key was given; one that is removed again within the transaction has
        // none.
        const auto newest = std::find_if(instances.rbegin(), instances.rend(),
                                         [](const auto& row) { return row.second.has_value(); });
        if (changes.lastKey > (newest != instances.rend() ? newest->first : 0))
            visitor.lastKey(name, changes.lastKey);
        for (const auto& [key, instance] : instances) {
            instance ? visitor.instance({name, key}, *instance)
                     : visitor.removed({name, key}, originOf(base_.instance(name, key)->hasDefault));
        }
    }
}

}  // namespace store
