#include "referenceModel.h"

#include <algorithm>
#include <set>

namespace reference {
namespace {

bool isName(const std::string& name) {
    return !name.empty() && name.size() <= 127 &&
           std::ranges::none_of(name, [](unsigned char c) { return c < 32 || c == 127; });
}

std::string memberName(std::string structure, const std::string& member) {
    return structure.append(1, '.').append(member);
}

bool isMember(const State& state, const std::string& name) {
    const auto use = state.uses.find(name);
    return use != state.uses.end() && !use->second.empty();
}

bool isBelowStructure(const State& state, const std::string& name) {
    return std::ranges::any_of(state.lastKeys, [&](const auto& structure) {
        return name == structure.first || name.starts_with(structure.first + '.');
    });
}

}  // namespace

Model::Model(Factory factory) : factory_(std::move(factory)) {
    for (const auto& [key, value] : factory_.values)
        committed.cells[key].value = value;
    for (const auto& [key, instance] : factory_.instances)
        add(committed, key, instance);
    freeNames();
}

void Model::add(State& state, const Key& key, const Instance& instance) const {
    const auto& [structure, number] = key;
    state.instances[key] = instance;
    state.lastKeys[structure] = std::max(state.lastKeys[structure], number);
    for (const auto& [member, value] : factory_.templates.at(instance.first)) {
        const std::string whole = memberName(structure, member);
        state.cells[{whole, number}] = {value, structure};
        state.uses[whole] = structure;
    }
}

// A vector with defaults stays one when all its elements are erased.
void Model::freeNames() {
    committed.uses.clear();
    for (const auto& [key, value] : factory_.values) {
        if (key.second != 0)
            committed.uses[key.first] = "";
    }
    for (const auto& [key, cell] : committed.cells) {
        if (key.second != 0)
            committed.uses[key.first] = cell.structure;
    }
}

void Model::commit() {
    committed = *std::move(open);
    freeNames();
}

bool Model::write(const std::string& name, uint32_t index, const Value& value, bool mayCreate) {
    const auto old = open->cells.find({name, index});
    if (old != open->cells.end() && !old->second.structure.empty()) {
        const bool fits = old->second.value.first == value.first;
        old->second.value = fits ? value : old->second.value;
        return fits;
    }
    bool isKnown = false;  // as what is written: a plain key or a vector
    std::set<ostrelValueType> types;
    const auto look = [&](const Key& key, const Value& known) {
        if (key.first == name) {
            isKnown = isKnown || (key.second == 0) == (index == 0);
            types.insert(known.first);
        }
    };
    for (const auto& [key, known] : factory_.values)
        look(key, known);
    for (const auto& [key, known] : open->cells) {
        if (known.structure.empty())
            look(key, known.value);
    }
    const bool mayBeNew = mayCreate && (index == 0 || !isBelowStructure(*open, name));
    if (!isName(name) || (!isKnown && !mayBeNew) || (!types.empty() && !types.contains(value.first)))
        return false;
    open->cells[{name, index}] = {value, ""};
    if (index != 0)
        open->uses[name] = "";
    return true;
}

bool Model::erase(const std::string& name) {
    return std::erase_if(open->cells, [&](const auto& row) {
               return row.first.first == name && row.second.structure.empty();
           }) != 0;
}

bool Model::instantiate(const std::string& templateName, const std::string& name, unsigned int owner) {
    const auto members = factory_.templates.find(templateName);
    if (!isName(name) || members == factory_.templates.end() || open->uses.contains(name))
        return false;
    const auto isTaken = [&](const auto& member) {
        const std::string whole = memberName(name, member.first);
        const auto use = open->uses.find(whole);
        return !isName(whole) || open->lastKeys.contains(whole) ||
               (use != open->uses.end() && use->second != name);
    };
    const auto last = open->lastKeys.find(name);
    const uint32_t key = last != open->lastKeys.end() ? last->second + 1 : 1;
    if (key == 0 || std::ranges::any_of(members->second, isTaken))
        return false;
    add(*open, {name, key}, {templateName, owner});
    return true;
}

bool Model::remove(const std::string& name, const Keys& keys) {
    const bool isStructure = open->lastKeys.contains(name);
    const auto exists = [&](unsigned int key) {
        return isStructure ? open->instances.contains({name, key})
                           : key != 0 && open->cells.contains({name, key});
    };
    if ((!isStructure && isMember(*open, name)) || !std::ranges::all_of(keys, exists))
        return false;
    for (const unsigned int key : keys) {
        open->instances.erase({name, key});
        std::erase_if(open->cells, [&, key = key](const auto& row) {
            return row.first.second == key && (isStructure ? row.second.structure : row.first.first) == name;
        });
    }
    return true;
}

bool Model::removeOwned(const std::string& name, unsigned int owner) {
    return remove(name, list(*open, name, owner));
}

Keys list(const State& state, const std::string& name, unsigned int owner) {
    const std::string& structure = isMember(state, name) ? state.uses.at(name) : name;
    Keys keys;
    for (const auto& [key, instance] : state.instances) {
        if (key.first == structure && instance.second == owner)
            keys.push_back(key.second);
    }
    for (const auto& [key, cell] : state.cells) {
        if (key.first == name && key.second != 0 && cell.structure.empty() && owner == 0)
            keys.push_back(key.second);
    }
    return keys;
}

}  // namespace reference
