#include "db/structures.h"

#include <algorithm>

namespace store {
namespace {

// Also without an instance: the key was given.
void visitRecordedKey(const Structure& structure, uint32_t key, RowVisitor& visitor) {
    if (key != 0)
        visitor.lastKey(structure.name, key);
}

void visitRemoval(const RowKey& key, const InstanceCell& cell, RowVisitor& visitor) {
    if (cell.isRemoval())
        visitor.removed(key, Origin::factory);
}

void visitInstance(const RowKey& key, const InstanceCell& cell, RowVisitor& visitor) {
    if (cell.changed && cell.present)
        visitor.instance(key, cell);
}

void changeOwner(std::map<uint32_t, std::set<uint32_t>>& keysOfOwner, uint32_t key, const InstanceCell& old,
                 const InstanceCell& cell) {
    if (cell.present)
        keysOfOwner[cell.owner].insert(key);
    if (!old.present || (cell.present && cell.owner == old.owner))
        return;
    const auto former = keysOfOwner.find(old.owner);
    former->second.erase(key);
    if (former->second.empty())
        keysOfOwner.erase(former);
}

ChangeTotals totalsOfInstance(const RowKey& key, const InstanceCell& cell) {
    if (!cell.changed)
        return {};
    return totalsOf([&](RowVisitor& visitor) {
        visitRemoval(key, cell, visitor);
        visitInstance(key, cell, visitor);
    });
}

}  // namespace

const Structure* Structures::find(std::string_view name) const {
    const auto found = structures_.find(name);
    return found != structures_.end() ? &found->second : nullptr;
}

const InstanceCell* Structures::instance(std::string_view structure, uint32_t key) const {
    const Structure* found = find(structure);
    if (found == nullptr)
        return nullptr;
    const auto cell = found->instances.find(key);
    return cell != found->instances.end() && cell->second.present ? &cell->second : nullptr;
}

const Structure& Structures::make(std::string_view name, uint32_t lastKey) {
    const auto found = structures_.find(name);
    Structure& made = found != structures_.end()
                          ? found->second
                          : structures_.try_emplace(std::string(name), name).first->second;
    made.lastKey = std::max(made.lastKey, lastKey);
    return made;
}

void Structures::addOddMember(const Structure& structure, uint32_t key, std::string_view member) {
    own(structure).oddMembers[key].emplace(member);
}

void Structures::replace(const Structure& structure, uint32_t key, InstanceCell cell) {
    Structure& changed = own(structure);
    auto& instances = changed.instances;
    InstanceCell& place = instances[key];
    const RowKey row{structure.name, key};
    totals_.replace(totalsOfInstance(row, place), totalsOfInstance(row, cell));
    if (place.hasDefault && !place.changed && cell.changed)
        kept_.insert_or_assign({structure.name, key}, place);
    changeOwner(changed.keysOfOwner, key, place, cell);
    place = std::move(cell);
    if (place.isBlank())
        instances.erase(key);
}

void Structures::setRecordedKey(Structure& structure, uint32_t key) {
    const auto totals = [&](uint32_t recorded) {
        return totalsOf([&](RowVisitor& visitor) { visitRecordedKey(structure, recorded, visitor); });
    };
    totals_.replace(totals(structure.recordedKey), totals(key));
    structure.recordedKey = key;
}

void Structures::record(const Structure& structure, uint32_t key) {
    if (key > structure.recordedKey)
        setRecordedKey(own(structure), key);
}

void Structures::drop(const Structure& structure) {
    setRecordedKey(own(structure), 0);
    structures_.erase(structures_.find(structure.name));
}

const Instance* Structures::kept(const Structure& structure, uint32_t key) const {
    const auto found = kept_.find({structure.name, key});
    return found != kept_.end() ? &found->second : nullptr;
}

std::optional<Instance> Structures::takeKept(const Structure& structure, uint32_t key) {
    auto taken = kept_.extract({structure.name, key});
    return taken.empty() ? std::nullopt : std::optional(std::move(taken.mapped()));
}

void Structures::visitChanges(RowVisitor& visitor) const {
    // Another structure, which may sort before, has the names of the removed now.
    for (const auto& [name, structure] : structures_) {
        for (const auto& [key, cell] : structure.instances)
            visitRemoval({name, key}, cell, visitor);
    }
    for (const auto& [name, structure] : structures_) {
        visitRecordedKey(structure, structure.recordedKey, visitor);
        for (const auto& [key, cell] : structure.instances)
            visitInstance({name, key}, cell, visitor);
    }
}

}  // namespace store
