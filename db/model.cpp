#include "db/model.h"

#include "text/grammar.h"

namespace store {
namespace {

// The type that the defaults give all plain and vector values of a name; none when they leave it open.
ostrelValueType defaultType(const Entry& entry) {
    if (entry.plain.hasDefault)
        return entry.plain.type;
    const bool hasVector =
        entry.elements && entry.elements->structure == nullptr && entry.elements->defaults != 0;
    return hasVector ? entry.elements->type : ostrelTypeNone;
}

}  // namespace

const Model::Node* Model::node(std::string_view name) const {
    if (lastFound_ != nullptr && lastFound_->first == name)
        return lastFound_;
    const auto found = entries_.find(name);
    if (found == entries_.end())
        return nullptr;
    lastFound_ = &*found;
    return lastFound_;
}

Model::Node& Model::makeNode(std::string_view name) {
    const auto found = entries_.find(name);
    return found != entries_.end() ? *found : *entries_.emplace(name, Entry()).first;
}

const Entry* Model::entry(std::string_view name) const {
    const Node* found = node(name);
    return found != nullptr ? &found->second : nullptr;
}

const Elements* Model::elements(std::string_view name) const {
    const Entry* found = entry(name);
    return found != nullptr ? found->elements.get() : nullptr;
}

const Cell* Model::cell(std::string_view name, uint32_t index) const {
    const Entry* found = entry(name);
    if (found == nullptr || index == 0)
        return found != nullptr && !found->plain.isBlank() ? &found->plain : nullptr;
    if (!found->elements)
        return nullptr;
    const auto element = found->elements->cells.find(index);
    return element != found->elements->cells.end() ? &element->second : nullptr;
}

const Value* Model::find(std::string_view name, uint32_t index) const {
    const Cell* found = cell(name, index);
    return found != nullptr && found->present ? found : nullptr;
}

size_t Model::list(std::string_view name, uint32_t owner, unsigned int* keys, size_t room) const {
    const Structure* instances = structure(name);
    const Elements* vector = instances == nullptr ? elements(name) : nullptr;
    if (vector != nullptr && vector->structure != nullptr)
        instances = &vector->structure->second;
    size_t count = 0;
    const auto add = [&](uint32_t key, bool matches) {
        if (matches && count++ < room && keys != nullptr)
            keys[count - 1] = key;
    };
    if (instances != nullptr) {
        for (const auto& [key, instance] : instances->instances)
            add(key, instance.present && instance.owner == owner);
    } else if (vector != nullptr && owner == 0) {
        for (const auto& [index, cell] : vector->cells)
            add(index, cell.present);
    }
    return count;
}

void Model::put(Node& node, uint32_t index, Cell cell, const Structures::value_type* structure) {
    Entry& entry = node.second;
    if (index != 0 && !entry.elements) {
        entry.elements = std::make_unique<Elements>();
        entry.elements->structure = structure;
    }
    Cell& place = index == 0 ? entry.plain : entry.elements->cells[index];
    keepDefault(node, index, place, cell);
    count(node, place, index, false);
    count(node, cell, index, true);
    place = std::move(cell);
    if (place.isBlank()) {
        if (index != 0)
            entry.elements->cells.erase(index);
        dropIfBlank(node);
    }
}

void Model::count(Node& node, const Cell& cell, uint32_t index, bool added) {
    const auto adjust = [added](size_t& counter, bool counts) {
        if (counts && added) {
            ++counter;
        } else if (counts) {
            --counter;
        }
    };
    if (cell.changed)
        tally(lineSize([&](RowVisitor& line) {
                  cell.present ? line.value(rowKey(node, index), cell)
                               : line.erased(rowKey(node, index), Origin::factory);
              }),
              added);
    if (index != 0) {
        Elements& elements = *node.second.elements;
        adjust(elements.present, cell.present);
        adjust(elements.defaults, cell.hasDefault);
        // An erased element, without a default, says nothing about what the vector holds now.
        if (added && (cell.present || cell.hasDefault))
            elements.type = cell.type;
    }
    if (added && cell.changed && node.second.changedAt == Entry::unchanged) {
        node.second.changedAt = static_cast<uint32_t>(changed_.size());
        changed_.push_back(&node);
    }
}

void Model::tally(size_t lineBytes, bool added) {
    // Unsigned numbers wrap, and back again.
    changes_ += added ? 1 : size_t{0} - 1;
    changedBytes_ += added ? lineBytes : size_t{0} - lineBytes;
}

RowKey Model::rowKey(const Node& node, uint32_t index) {
    RowKey key{node.first, index};
    const Elements* elements = node.second.elements.get();
    if (index != 0 && elements != nullptr && elements->structure != nullptr) {
        key.name = elements->structure->first;
        key.member = std::string_view(node.first).substr(key.name.size() + 1);
    }
    return key;
}

// Before a change takes its place. A member's is one only as long as its instance is a default one.
void Model::keepDefault(const Node& node, uint32_t index, const Cell& old, const Cell& cell) {
    if (!old.hasDefault || old.changed || (cell.hasDefault && !cell.changed))
        return;
    const RowKey key = rowKey(node, index);
    if (key.member.empty() || !structures_.find(key.name)->second.instances.at(index).changed)
        factoryCells_.insert_or_assign({node.first, index}, old);
}

void Model::dropIfBlank(Node& node) {
    Entry& entry = node.second;
    if (entry.elements && entry.elements->cells.empty())
        entry.elements.reset();
    if (entry.elements || !entry.plain.isBlank())
        return;
    if (entry.changedAt != Entry::unchanged) {
        changed_.back()->second.changedAt = entry.changedAt;
        changed_[entry.changedAt] = changed_.back();
        changed_.pop_back();
    }
    lastFound_ = nullptr;
    entries_.erase(entries_.find(node.first));
}

Result Model::addDefault(const RowKey& key, Value value) {
    const std::string member = key.member.empty() ? std::string() : key.wholeName();
    const std::string_view name = member.empty() ? key.name : member;
    const auto isStructure = [&](std::string_view prefix, std::string_view) {
        return structure(prefix) != nullptr;
    };
    if (key.index != 0 && (!member.empty() || anySplit(name, isStructure)))
        return addDefaultMember(name, key.index, std::move(value));
    if (key.index != 0 && structure(name) != nullptr)
        return {"the name is a structure's"};
    if (const Entry* found = entry(name); found != nullptr) {
        if (const Cell* old = cell(name, key.index); old != nullptr && old->hasDefault)
            return {"the key is given twice"};
        if (defaultType(*found) != ostrelTypeNone && defaultType(*found) != value.type)
            return {"the name has another type in an earlier line"};
    }
    put(makeNode(name), key.index, Cell{std::move(value), true, true, false, false});
    return {};
}

Result Model::checkElementName(const RowKey& key) const {
    if (key.index == 0)
        return {};
    if (structure(key.name) != nullptr)
        return {"the name is a structure's"};
    const Elements* found = elements(key.name);
    return found != nullptr && found->structure != nullptr ? Result{"the name is a structure member's"}
                                                           : Result{};
}

Result Model::setValue(const RowKey& key, const Value& value) {
    if (!key.member.empty())
        return setMember(key, value);
    if (key.index != 0)
        takeName(key.name, {});
    if (const Result result = checkElementName(key); !result.ok())
        return result;
    const Entry* found = entry(key.name);
    if (found != nullptr && defaultType(*found) != ostrelTypeNone && defaultType(*found) != value.type) {
        // Over all that was before, an erasure, too.
        restoreDefault(key);
        return {"the default has another type and wins"};
    }
    const Cell* old = cell(key.name, key.index);
    put(makeNode(key.name), key.index, Cell{value, true, old != nullptr && old->hasDefault, true, false});
    return {};
}

// What was a default is kept erased, also for a firmware that has none for it now. A row that does not say is
// taken as the version that wrote it took it: by what is there now.
Result Model::erase(const RowKey& key, Origin origin) {
    const Result result = checkElementName(key);
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
    put(makeNode(key.name), key.index, std::move(erased));
    return {};
}

// As if nobody had ever changed the key.
void Model::restoreDefault(const RowKey& key) {
    const Cell* old = cell(key.name, key.index);
    if (old == nullptr || !old->changed)
        return;
    const auto kept = factoryCells_.extract({std::string(key.name), key.index});
    put(makeNode(key.name), key.index, kept.empty() ? Cell() : std::move(kept.mapped()));
}

}  // namespace store
