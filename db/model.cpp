#include "db/model.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

namespace store {
namespace {

// The type that the defaults give all plain and vector values of a name; none when they leave it open.
ostrelValueType defaultType(const Entry& entry) {
    if (entry.plain.hasDefault)
        return entry.plain.type;
    const bool hasVector =
        entry.elements && entry.elements->structure == nullptr && entry.elements->hasDefaults;
    return hasVector ? entry.elements->type : ostrelTypeNone;
}

}  // namespace

size_t Model::list(std::string_view name, uint32_t owner, unsigned int* keys, size_t room) const {
    const Structure* instances = structure(name);
    const Elements* vector = instances == nullptr ? elements(name) : nullptr;
    if (vector != nullptr && vector->structure != nullptr)
        instances = vector->structure;
    room = keys != nullptr ? room : 0;
    if (instances != nullptr) {
        const std::set<uint32_t>* owned = instances->keysOf(owner);
        if (owned == nullptr)
            return 0;
        std::copy_n(owned->begin(), std::min(room, owned->size()), keys);
        return owned->size();
    }
    if (vector == nullptr || owner != 0)
        return 0;
    room = std::min(room, vector->present);
    for (auto cell = vector->cells.begin(); room > 0; ++cell) {
        if (cell->second.present) {
            *keys++ = cell->first;
            --room;
        }
    }
    return vector->present;
}

Result Model::addTemplateMember(std::string_view templateName, std::string_view member, Value value) {
    return templates_.addMember(templateName, member, std::move(value));
}

Result Model::addDefaultInstance(const RowKey& key, const Instance& instance) {
    return instances_.addDefault(key, instance);
}

Result Model::setLastKey(std::string_view structure, uint32_t last) {
    return instances_.setLastKey(structure, last);
}

bool Model::isBelowStructure(std::string_view name) const {
    return anySplit(
        name, [this](std::string_view prefix, std::string_view) { return structure(prefix) != nullptr; });
}

Result Model::addDefault(const RowKey& key, Value value) {
    const std::string member = key.member.empty() ? std::string() : key.wholeName();
    const std::string_view name = member.empty() ? key.name : member;
    if (key.index != 0 && (!member.empty() || isBelowStructure(name)))
        return instances_.addDefaultMember(name, key.index, std::move(value));
    if (key.index != 0 && structure(name) != nullptr)
        return {"the name is a structure's"};
    if (const Entry* found = entry(name); found != nullptr) {
        if (const Cell* old = cell(name, key.index); old != nullptr && old->hasDefault)
            return {"the key is given twice"};
        if (defaultType(*found) != ostrelTypeNone && defaultType(*found) != value.type)
            return {"the name has another type in an earlier line"};
    }
    cells_.set(name, key.index, Cell{std::move(value), true, true, false, false});
    return {};
}

Result Model::setValue(const RowKey& key, const Value& value) {
    if (!key.member.empty())
        return instances_.setMember(key, value);
    if (key.index != 0) {
        instances_.takeForVector(key.name);
        if (const Result result = nameRules_.checkVector(key.name); !result.ok())
            return result;
    }
    const Entry* found = entry(key.name);
    if (found != nullptr && defaultType(*found) != ostrelTypeNone && defaultType(*found) != value.type) {
        // Over all that was before, an erasure, too.
        restoreDefault(key);
        return {"the default has another type and wins"};
    }
    const Cell* old = cell(key.name, key.index);
    cells_.set(key.name, key.index, Cell{value, true, old != nullptr && old->hasDefault, true, false});
    return {};
}

// What was a default is kept erased, also for a firmware that has none for it now. A row that does not say is
// taken as the version that wrote it took it: by what is there now.
Result Model::erase(const RowKey& key, Origin origin) {
    const Result result = key.index != 0 ? nameRules_.checkVector(key.name) : Result{};
    if (origin == Origin::created) {
        if (result.ok())
            restoreDefault(key);
        return {};
    }
    if (!result.ok())
        return result;
    Cell erased;
    erased.changed = true;
    if (const Cell* old = cell(key.name, key.index); old != nullptr) {
        erased.type = old->type;
        erased.hasDefault = old->hasDefault;
        erased.changed = old->hasDefault || origin == Origin::factory;
    }
    cells_.set(key.name, key.index, std::move(erased));
    return {};
}

// As if nobody had ever changed the key.
void Model::restoreDefault(const RowKey& key) {
    const Cell* old = cell(key.name, key.index);
    if (old == nullptr || !old->changed)
        return;
    std::optional<Cell> kept = cells_.takeKept(key.name, key.index);
    cells_.set(key.name, key.index, kept ? *std::move(kept) : Cell());
}

void Model::visitChanges(RowVisitor& visitor) const {
    structures_.visitChanges(visitor);
    cells_.visitChanges(visitor);
}

void Model::visitInstances(const Structure& structure, CellVisitor& visitor) const {
    for (const auto& [key, instance] : structure.instances) {
        visitor.instance({structure.name, key}, instance);
        for (const std::string_view member : instances_.membersOf(structure, key))
            visitor.cell({structure.name, key, member}, *cell(memberName(structure.name, member), key));
    }
}

void Model::visitCells(CellVisitor& visitor) const {
    auto next = structures_.all().begin();
    const auto visitStructuresBefore = [&](const std::string* name) {
        for (; next != structures_.all().end() && (name == nullptr || next->first < *name); ++next)
            visitInstances(next->second, visitor);
    };
    for (const Cells::Node* node : cells_.sorted()) {
        const auto& [name, entry] = *node;
        visitStructuresBefore(&name);
        if (!entry.plain.isBlank())
            visitor.cell({name}, entry.plain);
        if (entry.elements && entry.elements->structure == nullptr) {
            for (const auto& [index, cell] : entry.elements->cells)
                visitor.cell({name, index}, cell);
        }
    }
    visitStructuresBefore(nullptr);
}

}  // namespace store
