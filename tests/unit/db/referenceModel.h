// What docs/database-files.md promises, as simply as it can be said: maps by name and index, a transaction is
// a copy of everything, and a question is answered by looking at all of it. No files, no speed.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
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

// Primary keys of a structure, or of the one that the name is a member of; or a vector's indices.
Keys list(const State& state, const std::string& name, unsigned int owner);

class Model {
public:
    explicit Model(Factory factory);

    // On the open transaction; false: refused. The value fits its type.
    bool write(const std::string& name, uint32_t index, const Value& value, bool mayCreate);
    bool erase(const std::string& name);
    bool instantiate(const std::string& templateName, const std::string& name, unsigned int owner);
    bool remove(const std::string& name, const Keys& keys);
    bool removeOwned(const std::string& name, unsigned int owner);
    void commit();

    State committed;
    std::optional<State> open;

private:
    void add(State& state, const Key& key, const Instance& instance) const;
    void freeNames();

    const Factory factory_;
};

}  // namespace reference
