// The part of Model that deals with templates, instances and their members.
#include "db/model.h"

#include <algorithm>
#include <utility>

#include "text/grammar.h"
#include "text/names.h"

namespace store {

const Structure* Model::structure(std::string_view name) const {
    const auto found = structures_.find(name);
    return found != structures_.end() ? &found->second : nullptr;
}

const InstanceCell* Model::instance(std::string_view structureName, uint32_t key) const {
    const Structure* found = structure(structureName);
    if (found == nullptr)
        return nullptr;
    const auto cell = found->instances.find(key);
    return cell != found->instances.end() && cell->second.present ? &cell->second : nullptr;
}

const Template* Model::findTemplate(std::string_view name) const {
    const auto found = templates_.find(name);
    return found != templates_.end() ? &found->second : nullptr;
}

Result Model::checkMemberName(std::string_view name, std::string_view structureName) const {
    if (const Result result = checkName(name); !result.ok())
        return result;
    if (structure(name) != nullptr)
        return {"a member's name is that of a structure"};
    const Elements* found = elements(name);
    if (found != nullptr && found->isKnownVector())
        return {"a member's name is that of a vector"};
    if (found != nullptr && found->structure != nullptr && found->structure->first != structureName)
        return {"a member's name belongs to another structure"};
    return {};
}

Result Model::checkStructureName(std::string_view name) const {
    const Elements* found = elements(name);
    if (found != nullptr && found->isKnownVector())
        return {"the name is a vector's"};
    return found != nullptr && found->structure != nullptr ? Result{"the name is a structure member's"}
                                                           : Result{};
}

void Model::addTemplate(std::string_view name) { templates_.try_emplace(std::string(name)); }

Result Model::addTemplateMember(std::string_view templateName, std::string_view member, Value value) {
    const auto found = templates_.find(templateName);
    if (found == templates_.end())
        return {"no template is open"};
    return found->second.emplace(member, std::move(value)).second ? Result{}
                                                                  : Result{"the member is given twice"};
}

// The checks came before: what the name may hold of a vector now is rows of erased defaults that this
// firmware does not have, or what gives way to a newer change.
void Model::dropVector(std::string_view name) {
    for (const Elements* old = elements(name); old != nullptr && old->structure == nullptr;
         old = elements(name)) {
        put(makeNode(name), old->cells.begin()->first, Cell());
    }
}

Structures::value_type& Model::makeStructure(std::string_view name, uint32_t lastKey) {
    dropVector(name);
    Structures::value_type& made = *structures_.try_emplace(std::string(name)).first;
    made.second.lastKey = std::max(made.second.lastKey, lastKey);
    return made;
}

// The live file answers for a key once it has said so: the next rewrite must say so, too.
void Model::record(Structures::value_type& structure, uint32_t key) {
    Structure& content = structure.second;
    if (key <= content.recordedKey)
        return;
    for (const bool added : {false, true}) {
        if (added)
            content.recordedKey = key;
        if (content.recordedKey != 0)
            tally(lineSize([&](RowVisitor& line) { line.lastKey(structure.first, content.recordedKey); }),
                  added);
    }
}

void Model::tallyInstance(const Structures::value_type& structure, uint32_t key, bool added) {
    const InstanceCell& cell = structure.second.instances.at(key);
    const RowKey row{structure.first, key};
    if (cell.changed && cell.present)
        tally(lineSize([&](RowVisitor& line) { line.instance(row, cell); }), added);
    if (cell.isRemoval())
        tally(lineSize([&](RowVisitor& line) { line.removed(row, Origin::factory); }), added);
}

// A cell that says nothing goes.
void Model::setInstance(Structures::value_type& structure, uint32_t key, InstanceCell cell) {
    InstanceCell& place = structure.second.instances[key];
    tallyInstance(structure, key, false);
    if (place.hasDefault && !place.changed && cell.changed)
        factoryInstances_.insert_or_assign({structure.first, key}, place);
    place = std::move(cell);
    tallyInstance(structure, key, true);
    if (!place.present && !place.changed)
        structure.second.instances.erase(key);
}

Result Model::checkInstance(const RowKey& key, const Template* members) const {
    if (members != nullptr) {
        for (const auto& [member, value] : *members) {
            if (const Result result = checkMemberName(memberName(key.name, member), key.name); !result.ok())
                return result;
        }
    }
    return {};
}

// A refused instance makes its structure known all the same, or its members' lines would pass for a vector's.
Result Model::addDefaultInstance(const RowKey& key, const Instance& instance) {
    Result result = checkStructureName(key.name);
    if (!result.ok())
        return result;
    Structures::value_type& structure = makeStructure(key.name, key.index);
    const Template* members = findTemplate(instance.templateName);
    if (members == nullptr)
        return {"unknown template"};
    if (structure.second.instances.contains(key.index))
        return {"the instance is given twice"};
    result = checkInstance(key, members);
    if (result.ok())
        putInstance(structure, key.index, instance, true);
    return result;
}

// Over a default instance of the same key it wins wholly. Its template may be gone.
// Takes the name from older changes that use it otherwise, for a member of the keeper (or for nobody's).
void Model::takeName(std::string_view name, std::string_view keeper) {
    if (!isReplaying_)
        return;
    const Elements* used = elements(name);
    if (used != nullptr && used->structure == nullptr && used->defaults == 0 && !keeper.empty()) {
        dropVector(name);
    } else if (used != nullptr && used->structure != nullptr && used->structure->first != keeper) {
        takeFromStructure(used->structure, used);
    }
    if (const auto found = structures_.find(name); found != structures_.end())
        takeFromStructure(&*found, nullptr);
}

// The instances that have the member, or all and the structure itself, unless one of them is a default.
void Model::takeFromStructure(const Structures::value_type* structure, const Elements* member) {
    const auto place = structures_.find(structure->first);
    std::vector<uint32_t> keys;
    for (const auto& [key, cell] : place->second.instances) {
        if (cell.hasDefault && (member == nullptr || member->cells.contains(key)))
            return;
        if (member == nullptr || member->cells.contains(key))
            keys.push_back(key);
    }
    // Without a default there is nothing that could be refused.
    for (const uint32_t key : keys)
        static_cast<void>(undoInstance(*place, key));
    if (member != nullptr)
        return;
    if (place->second.recordedKey != 0)
        tally(lineSize([&](RowVisitor& line) { line.lastKey(place->first, place->second.recordedKey); }),
              false);
    structures_.erase(place);
}

void Model::takeMemberNames(std::string_view structure, const Template* members) {
    if (members == nullptr)
        return;
    for (const auto& [member, value] : *members)
        takeName(memberName(structure, member), structure);
}

Result Model::addInstance(const RowKey& key, const Instance& instance) {
    if (const Elements* used = elements(key.name); isReplaying_ && used != nullptr) {
        if (used->structure != nullptr)
            takeFromStructure(used->structure, used);
        else if (used->defaults == 0)
            dropVector(key.name);
    }
    takeMemberNames(key.name, findTemplate(instance.templateName));
    Result result = checkStructureName(key.name);
    if (!result.ok())
        return result;
    Structures::value_type& structure = makeStructure(key.name, key.index);
    record(structure, key.index);
    result = checkInstance(key, findTemplate(instance.templateName));
    if (result.ok())
        putInstance(structure, key.index, instance, false);
    return result;
}

void Model::putInstance(Structures::value_type& structure, uint32_t key, const Instance& instance,
                        bool isDefault) {
    dropMembers(structure, key);
    const bool hasDefault = structure.second.instances[key].hasDefault || isDefault;
    setInstance(structure, key, InstanceCell{instance, true, hasDefault, !isDefault});
    if (const Template* members = findTemplate(instance.templateName); members != nullptr) {
        for (const auto& [member, value] : *members) {
            putMember(structure, key, member, Cell{value, true, true, false, true});
        }
    }
}

void Model::putMember(Structures::value_type& structure, uint32_t key, std::string_view member, Cell cell) {
    const std::string name = memberName(structure.first, member);
    dropVector(name);
    put(makeNode(name), key, std::move(cell), &structure);
    structure.second.members.emplace(member);
}

void Model::dropMembers(const Structures::value_type& structure, uint32_t key) {
    for (const std::string& member : structure.second.members) {
        const std::string name = memberName(structure.first, member);
        const Elements* found = elements(name);
        if (found != nullptr && found->structure == &structure && found->cells.contains(key))
            put(makeNode(name), key, Cell());
    }
}

Result Model::addDefaultMember(std::string_view name, uint32_t index, Value value) {
    const Cell* old = cell(name, index);
    if (old == nullptr)
        return {"no such instance, or its template has no such member"};
    if (old->type != value.type)
        return {"the template gives the member another type"};
    if (!old->fromTemplate)
        return {"the key is given twice"};
    put(makeNode(name), index, Cell{std::move(value), true, true, false, false});
    return {};
}

// As if nobody had ever changed the member, of an instance that is there.
void Model::restoreMember(const RowKey& key) {
    const std::string name = key.wholeName();
    if (!cell(name, key.index)->changed)
        return;
    Cell restored;
    if (const auto kept = factoryCells_.extract({name, key.index}); !kept.empty()) {
        restored = kept.mapped();
    } else {
        const Template& members = *findTemplate(instance(key.name, key.index)->templateName);
        restored = Cell{members.find(key.member)->second, true, true, false, true};
    }
    putMember(makeStructure(key.name, key.index), key.index, key.member, std::move(restored));
}

// A member that the template no longer has stays: nobody said to remove it.
Result Model::setMember(const RowKey& key, const Value& value) {
    if (instance(key.name, key.index) == nullptr)
        return {"there is no such instance"};
    const std::string name = memberName(key.name, key.member);
    takeName(name, key.name);
    if (const Result result = checkMemberName(name, key.name); !result.ok())
        return result;
    const Cell* old = cell(name, key.index);
    const bool hasDefault = old != nullptr && old->hasDefault;
    if (hasDefault && old->type != value.type) {
        restoreMember(key);
        return {"the template gives the member another type and wins"};
    }
    putMember(makeStructure(key.name, key.index), key.index, key.member,
              Cell{value, true, hasDefault, true, false});
    return {};
}

// As with values, what was a default is kept removed.
Result Model::removeInstance(const RowKey& key, Origin origin) {
    if (const Result result = checkStructureName(key.name); !result.ok())
        return origin == Origin::created ? Result{} : result;
    Structures::value_type& structure = makeStructure(key.name, key.index);
    record(structure, key.index);
    if (origin == Origin::created)
        return undoInstance(structure, key.index);
    dropMembers(structure, key.index);
    const InstanceCell& old = structure.second.instances[key.index];
    const bool isKept = origin == Origin::factory || old.hasDefault || !old.present;
    setInstance(structure, key.index, InstanceCell{{}, false, old.hasDefault, isKept});
    return {};
}

// As if nobody had ever changed the instance.
Result Model::undoInstance(Structures::value_type& structure, uint32_t key) {
    const auto cell = structure.second.instances.find(key);
    if (cell == structure.second.instances.end() || !cell->second.changed)
        return {};
    dropMembers(structure, key);
    const auto kept = factoryInstances_.extract({structure.first, key});
    if (kept.empty()) {
        setInstance(structure, key, {});
        return {};
    }
    const Result result = checkInstance({structure.first, key}, findTemplate(kept.mapped().templateName));
    if (result.ok()) {
        restoreInstance(structure, key, kept.mapped());
    } else {
        setInstance(structure, key, InstanceCell{{}, false, true, true});
        factoryInstances_.insert_or_assign(kept.key(), kept.mapped());
    }
    return result;
}

void Model::restoreInstance(Structures::value_type& structure, uint32_t key, const Instance& instance) {
    std::vector<std::pair<std::string, Cell>> members;
    for (const std::string& member : structure.second.members) {
        if (auto kept = factoryCells_.extract({memberName(structure.first, member), key}); !kept.empty())
            members.emplace_back(member, std::move(kept.mapped()));
    }
    putInstance(structure, key, instance, true);
    for (auto& [member, cell] : members)
        putMember(structure, key, member, std::move(cell));
}

Result Model::setLastKey(std::string_view name, uint32_t last) {
    const Result result = checkStructureName(name);
    if (result.ok())
        record(makeStructure(name, last), last);
    return result;
}

}  // namespace store
