#include "db/instances.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace store {

Result Instances::checkMembers(std::string_view structure, const Template* members) const {
    if (members != nullptr) {
        for (const auto& [member, value] : *members) {
            if (const Result result = rules_.checkMember(memberName(structure, member), structure);
                !result.ok())
                return result;
        }
    }
    return {};
}

// The checks came before: what the name may hold of a vector now is rows of erased defaults that this
// firmware does not have, or what gives way to a newer change.
const Structure& Instances::makeStructure(std::string_view name, uint32_t lastKey) {
    cells_.dropVector(name);
    return structures_.make(name, lastKey);
}

// A blank one when there is none.
InstanceCell Instances::cellOf(const Structure& structure, uint32_t key) {
    const auto found = structure.instances.find(key);
    return found != structure.instances.end() ? found->second : InstanceCell();
}

Result Instances::addDefault(const RowKey& key, const Instance& instance) {
    if (const Result result = rules_.checkStructure(key.name); !result.ok())
        return result;
    const Structure& structure = makeStructure(key.name, key.index);
    const Template* members = templates_.find(instance.templateName);
    if (members == nullptr)
        return {"unknown template"};
    if (structure.instances.contains(key.index))
        return {"the instance is given twice"};
    const Result result = checkMembers(key.name, members);
    if (result.ok())
        put(structure, key.index, instance, true);
    return result;
}

Result Instances::addDefaultMember(std::string_view name, uint32_t index, Value value) {
    const Cell* old = cells_.cell(name, index);
    if (old == nullptr)
        return {"no such instance, or its template has no such member"};
    if (old->type != value.type)
        return {"the template gives the member another type"};
    if (!old->fromTemplate)
        return {"the key is given twice"};
    cells_.set(name, index, Cell{std::move(value), true, true, false, false});
    return {};
}

Result Instances::add(const RowKey& key, const Instance& instance) {
    const Template* members = templates_.find(instance.templateName);
    takeForStructure(key.name, members);
    if (const Result result = rules_.checkStructure(key.name); !result.ok())
        return result;
    const Structure& structure = makeStructure(key.name, key.index);
    structures_.record(structure, key.index);
    const Result result = checkMembers(key.name, members);
    if (result.ok())
        put(structure, key.index, instance, false);
    return result;
}

void Instances::put(const Structure& structure, uint32_t key, const Instance& instance, bool isDefault) {
    dropMembers(structure, key);
    const bool hasDefault = cellOf(structure, key).hasDefault || isDefault;
    structures_.replace(structure, key, InstanceCell{instance, true, hasDefault, !isDefault});
    if (const Template* members = templates_.find(instance.templateName); members != nullptr) {
        for (const auto& [member, value] : *members)
            putMember(structure, key, member, Cell{value, true, true, false, true});
    }
}

void Instances::putMember(const Structure& structure, uint32_t key, std::string_view member, Cell cell) {
    const std::string name = memberName(structure.name, member);
    cells_.dropVector(name);
    cells_.set(name, key, std::move(cell), &structure);
}

std::vector<std::string_view> Instances::membersOf(const Structure& structure, uint32_t key) const {
    std::vector<std::string_view> result;
    const auto instance = structure.instances.find(key);
    if (instance == structure.instances.end() || !instance->second.present)
        return result;
    if (const Template* members = templates_.find(instance->second.templateName); members != nullptr) {
        for (const auto& [member, value] : *members)
            result.push_back(member);
    }
    if (const auto odd = structure.oddMembers.find(key); odd != structure.oddMembers.end()) {
        result.insert(result.end(), odd->second.begin(), odd->second.end());
        std::ranges::sort(result);
    }
    return result;
}

void Instances::dropMembers(const Structure& structure, uint32_t key) {
    for (const std::string_view member : membersOf(structure, key))
        cells_.set(memberName(structure.name, member), key, Cell());
    structures_.dropOddMembers(structure, key);
}

// A member that the template no longer has stays: nobody said to remove it.
Result Instances::setMember(const RowKey& key, const Value& value) {
    if (structures_.instance(key.name, key.index) == nullptr)
        return {"there is no such instance"};
    const std::string name = key.wholeName();
    takeForMember(name, key.name);
    if (const Result result = rules_.checkMember(name, key.name); !result.ok())
        return result;
    const Cell* old = cells_.cell(name, key.index);
    const bool hasDefault = old != nullptr && old->hasDefault;
    if (hasDefault && old->type != value.type) {
        restoreMember(key);
        return {"the template gives the member another type and wins"};
    }
    const Structure& structure = makeStructure(key.name, key.index);
    putMember(structure, key.index, key.member, Cell{value, true, hasDefault, true, false});
    if (!hasDefault)
        structures_.addOddMember(structure, key.index, key.member);
    return {};
}

// As if nobody had ever changed the member, of an instance that is there.
void Instances::restoreMember(const RowKey& key) {
    const std::string name = key.wholeName();
    if (!cells_.cell(name, key.index)->changed)
        return;
    std::optional<Cell> restored = cells_.takeKept(name, key.index);
    if (!restored) {
        const InstanceCell& instance = *structures_.instance(key.name, key.index);
        const Template& members = *templates_.find(instance.templateName);
        restored = Cell{members.find(key.member)->second, true, true, false, true};
    }
    putMember(makeStructure(key.name, key.index), key.index, key.member, *std::move(restored));
}

// As with values, what was a default is kept removed.
Result Instances::remove(const RowKey& key, Origin origin) {
    if (const Result result = rules_.checkStructure(key.name); !result.ok())
        return origin == Origin::created ? Result{} : result;
    const Structure& structure = makeStructure(key.name, key.index);
    structures_.record(structure, key.index);
    if (origin == Origin::created)
        return undo(structure, key.index);
    dropMembers(structure, key.index);
    const InstanceCell old = cellOf(structure, key.index);
    const bool isKept = origin == Origin::factory || old.hasDefault || !old.present;
    structures_.replace(structure, key.index, InstanceCell{{}, false, old.hasDefault, isKept});
    return {};
}

// As if nobody had ever changed the instance.
Result Instances::undo(const Structure& structure, uint32_t key) {
    if (!cellOf(structure, key).changed)
        return {};
    dropMembers(structure, key);
    const Instance* kept = structures_.kept(structure, key);
    if (kept == nullptr) {
        structures_.replace(structure, key, {});
        return {};
    }
    const Result result = checkMembers(structure.name, templates_.find(kept->templateName));
    if (result.ok()) {
        restore(structure, key, *structures_.takeKept(structure, key));
    } else {
        structures_.replace(structure, key, InstanceCell{{}, false, true, true});
    }
    return result;
}

void Instances::restore(const Structure& structure, uint32_t key, const Instance& instance) {
    std::vector<std::pair<std::string_view, Cell>> members;
    for (const auto& [member, value] : *templates_.find(instance.templateName)) {
        if (auto kept = cells_.takeKept(memberName(structure.name, member), key))
            members.emplace_back(member, *std::move(kept));
    }
    put(structure, key, instance, true);
    for (auto& [member, cell] : members)
        putMember(structure, key, member, std::move(cell));
}

Result Instances::setLastKey(std::string_view structure, uint32_t last) {
    const Result result = rules_.checkStructure(structure);
    if (result.ok())
        structures_.record(makeStructure(structure, last), last);
    return result;
}

void Instances::takeForVector(std::string_view name) {
    if (!isReplaying_)
        return;
    if (const Elements* used = cells_.elements(name); used != nullptr && used->structure != nullptr)
        takeElements(name, {});
    takeStructure(name);
}

void Instances::takeForStructure(std::string_view name, const Template* members) {
    if (!isReplaying_)
        return;
    takeElements(name, {});
    if (members == nullptr)
        return;
    for (const auto& [member, value] : *members)
        takeForMember(memberName(name, member), name);
}

void Instances::takeForMember(std::string_view name, std::string_view structure) {
    if (!isReplaying_)
        return;
    takeElements(name, structure);
    takeStructure(name);
}

// A vector without defaults, or a member of another structure than the keeper.
void Instances::takeElements(std::string_view name, std::string_view keeper) {
    const Elements* used = cells_.elements(name);
    if (used == nullptr)
        return;
    if (used->structure != nullptr) {
        if (used->structure->name != keeper)
            undoAll(*used->structure, used);
    } else if (!used->hasDefaults) {
        cells_.dropVector(name);
    }
}

void Instances::takeStructure(std::string_view name) {
    const Structure* used = structures_.find(name);
    if (used != nullptr && undoAll(*used, nullptr))
        structures_.drop(*used);
}

// The instances that have the member (null: all). False, with nothing done: one of them is a default.
bool Instances::undoAll(const Structure& structure, const Elements* member) {
    std::vector<uint32_t> keys;
    for (const auto& [key, cell] : structure.instances) {
        if (member != nullptr && !member->cells.contains(key))
            continue;
        if (cell.hasDefault)
            return false;
        keys.push_back(key);
    }
    // Without a default there is nothing that could be refused.
    for (const uint32_t key : keys)
        static_cast<void>(undo(structure, key));
    return true;
}

}  // namespace store
