// The part of Transaction that deals with instances and their members.
#include <limits>

#include "db/transaction.h"
#include "text/names.h"

namespace store {

const Transaction::StructureChanges* Transaction::structureChanges(std::string_view name) const {
    const auto found = structures_.find(name);
    return found != structures_.end() ? &found->second : nullptr;
}

bool Transaction::isStructure(std::string_view name) const {
    return base_.structure(name) != nullptr || structureChanges(name) != nullptr;
}

const Instance* Transaction::instance(std::string_view structure, uint32_t key) const {
    if (const StructureChanges* mine = structureChanges(structure); mine != nullptr) {
        if (const auto found = mine->instances.find(key); found != mine->instances.end())
            return found->second ? &*found->second : nullptr;
    }
    return base_.instance(structure, key);
}

Transaction::Member Transaction::newMember(std::string_view name, uint32_t key) const {
    Member result;
    anySplit(name, [&](std::string_view structure, std::string_view member) {
        const StructureChanges* mine = structureChanges(structure);
        if (mine == nullptr)
            return false;
        const auto found = mine->instances.find(key);
        if (found == mine->instances.end() || !found->second)
            return false;
        const Template& members = *base_.findTemplate(found->second->templateName);
        const auto value = members.find(member);
        if (value == members.end())
            return false;
        result = {structure, &value->second};
        return true;
    });
    return result;
}

std::string_view Transaction::memberOf(std::string_view name, uint32_t key) const {
    const Elements* committed = base_.elements(name);
    return committed != nullptr && committed->structure != nullptr
               ? std::string_view(committed->structure->first)
               : newMember(name, key).structure;
}

// A name that this transaction has freed can serve another purpose only after the commit.
Result Transaction::checkNewInstance(std::string_view name, const Template& members) const {
    if (const Result result = base_.checkStructureName(name); !result.ok())
        return result;
    const NameChanges* own = changesOf(name);
    if (own != nullptr && (own->vectorType != ostrelTypeNone || !own->structure.empty()))
        return {"the name is a vector's or a member's"};
    for (const auto& [member, value] : members) {
        const std::string whole = memberName(name, member);
        if (const Result result = base_.checkMemberName(whole, name); !result.ok())
            return result;
        const NameChanges* changes = changesOf(whole);
        const bool isTaken =
            changes != nullptr && (changes->vectorType != ostrelTypeNone ||
                                   (!changes->structure.empty() && changes->structure != name));
        if (isTaken || isStructure(whole))
            return {"a member's name serves another purpose"};
    }
    return {};
}

Result Transaction::instantiate(std::string_view templateName, std::string_view name, uint32_t owner,
                                uint32_t& key) {
    if (const Result result = checkName(name); !result.ok())
        return result;
    const Template* members = base_.findTemplate(templateName);
    if (members == nullptr)
        return {"unknown template"};
    if (const Result result = checkNewInstance(name, *members); !result.ok())
        return result;
    const Structure* committed = base_.structure(name);
    const StructureChanges* mine = structureChanges(name);
    uint32_t last = committed != nullptr ? committed->lastKey : 0;
    if (mine != nullptr && mine->lastKey != 0)
        last = mine->lastKey;
    if (last == std::numeric_limits<uint32_t>::max())
        return {"the structure has no primary key left"};
    key = last + 1;
    StructureChanges& changes = structures_[std::string(name)];
    changes.lastKey = key;
    changes.instances[key] = Instance{std::string(templateName), owner};
    for (const auto& [member, value] : *members)
        makeChanges(memberName(name, member)).structure = name;
    return {};
}

Result Transaction::remove(std::string_view name, std::span<const unsigned int> keys) {
    const bool ofStructure = isStructure(name);
    if (!ofStructure && isMember(name))
        return {"a member cannot be removed, only its instance"};
    for (const unsigned int key : keys) {
        const bool exists =
            ofStructure ? instance(name, key) != nullptr : key != 0 && find(name, key) != nullptr;
        if (!exists)
            return {"there is no such instance"};
    }
    for (const unsigned int key : keys) {
        if (ofStructure) {
            removeInstance(name, key);
        } else if (find(name, key) != nullptr) {
            erase(name, key);
        }
    }
    return {};
}

Result Transaction::removeOwned(std::string_view name, uint32_t owner) {
    if (isStructure(name)) {
        for (const uint32_t key : instancesOf(name, owner))
            removeInstance(name, key);
    } else if (isMember(name)) {
        return {"a member cannot be removed, only its instance"};
    } else if (owner == 0) {
        for (const uint32_t index : elementsOf(name))
            erase(name, index);
    }
    return {};
}

std::vector<uint32_t> Transaction::instancesOf(std::string_view name, uint32_t owner) const {
    std::vector<uint32_t> keys;
    const auto add = [&](uint32_t key) {
        if (const Instance* found = instance(name, key); found != nullptr && found->owner == owner)
            keys.push_back(key);
    };
    if (const Structure* committed = base_.structure(name); committed != nullptr) {
        for (const auto& [key, cell] : committed->instances)
            add(key);
    }
    if (const StructureChanges* mine = structureChanges(name); mine != nullptr) {
        for (const auto& [key, row] : mine->instances) {
            if (base_.instance(name, key) == nullptr)
                add(key);
        }
    }
    return keys;
}

void Transaction::removeInstance(std::string_view structure, uint32_t key) {
    StructureChanges& mine = structures_[std::string(structure)];
    const bool isCommitted = base_.instance(structure, key) != nullptr;
    if (isCommitted) {
        mine.instances[key] = std::nullopt;
        for (const std::string& member : base_.structure(structure)->members)
            forgetMember(structure, member, key);
    } else if (const auto found = mine.instances.find(key); found != mine.instances.end()) {
        for (const auto& [member, value] : *base_.findTemplate(found->second->templateName))
            forgetMember(structure, member, key);
        mine.instances.erase(found);
    }
}

void Transaction::forgetMember(std::string_view structure, std::string_view member, uint32_t key) {
    if (const auto found = names_.find(memberName(structure, member)); found != names_.end())
        found->second.cells.erase(key);
}

}  // namespace store
