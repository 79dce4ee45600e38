// What docs/database-files.md promises, as simply as it can be said: maps by name and index, a transaction is
// a copy of everything, and a question is answered by looking at all of it. No files, no speed.
#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "ostrel/plugin.h"

namespace reference {

using Key = std::pair<std::string, uint32_t>;           // name and index or primary key
using Value = std::pair<ostrelValueType, std::string>;  // the bytes that callers see: a text with its NUL
using Instance = std::pair<std::string, unsigned int>;  // template and owner
using Keys = std::vector<unsigned int>;

struct Factory {
    std::map<std::string, std::map<std::string, Value>> templates;  // their members
    std::map<Key, Value> values;                                    // plain ones and vectors'
    std::map<Key, Instance> instances;
};

struct Cell {
    Value value;
    std::string structure;  // that it is a member of
};

struct State {
    std::map<Key, Cell> cells;
    std::map<Key, Instance> instances;
    std::map<std::string, uint32_t> lastKeys;  // of every structure
    std::map<std::string, std::string> uses;   // whose indices a name has: a structure's, or (empty) its own
};

inline bool isName(const std::string& name) {
    return !name.empty() && name.size() <= 127 &&
           std::ranges::none_of(name, [](unsigned char c) { return c < 32 || c == 127; });
}

inline std::string memberName(std::string structure, const std::string& member) {
    return structure.append(1, '.').append(member);
}

inline bool isMember(const State& state, const std::string& name) {
    const auto use = state.uses.find(name);
    return use != state.uses.end() && !use->second.empty();
}

inline bool isBelowStructure(const State& state, const std::string& name) {
    return std::ranges::any_of(state.lastKeys, [&](const auto& structure) {
        return name == structure.first || name.starts_with(structure.first + '.');
    });
}

// Primary keys of a structure, or of the one that the name is a member of; or a vector's indices.
inline Keys list(const State& state, const std::string& name, unsigned int owner) {
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

class Model {
public:
    explicit Model(Factory factory) : factory_(std::move(factory)) {
        for (const auto& [key, value] : factory_.values)
            committed.cells[key].value = value;
        for (const auto& [key, instance] : factory_.instances)
            add(committed, key, instance);
        freeNames();
    }

    // On the open transaction; false: refused. The value fits its type.
    bool write(const std::string& name, uint32_t index, const Value& value, bool mayCreate) {
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

    bool erase(const std::string& name) {
        return std::erase_if(open->cells, [&](const auto& row) {
                   return row.first.first == name && row.second.structure.empty();
               }) != 0;
    }

    bool instantiate(const std::string& templateName, const std::string& name, unsigned int owner) {
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

    bool remove(const std::string& name, const Keys& keys) {
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
                return row.first.second == key &&
                       (isStructure ? row.second.structure : row.first.first) == name;
            });
        }
        return true;
    }

    bool removeOwned(const std::string& name, unsigned int owner) {
        return remove(name, list(*open, name, owner));
    }

    void commit() {
        committed = *std::move(open);
        freeNames();
    }

    State committed;
    std::optional<State> open;

private:
    void add(State& state, const Key& key, const Instance& instance) const {
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
    void freeNames() {
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

    const Factory factory_;
};

}  // namespace reference
