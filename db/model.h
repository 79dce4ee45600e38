// The committed database: templates, the defaults, and the changes over them.
//
// Knows no files, and of their grammar only how long a change's line is. A commit and the replay of the live
// file go through the same change operations, so a restart finds what was there before. The rules for plain
// values and vectors are here, those for instances and their members in Instances; what there is stands in
// two tables, Cells and Structures. One thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "db/cells.h"
#include "db/instances.h"
#include "db/nameRules.h"
#include "db/structures.h"
#include "db/templates.h"
#include "text/rows.h"
#include "text/values.h"

namespace store {

// Sees what is there, and what was erased or removed (it is not present).
class CellVisitor {
public:
    virtual void instance(const RowKey& key, const InstanceCell& cell) = 0;
    virtual void cell(const RowKey& key, const Cell& cell) = 0;

protected:
    ~CellVisitor() = default;
};

class Model {
public:
    Model() = default;
    ~Model() = default;
    Model(const Model&) = delete;  // its parts refer to each other
    Model& operator=(const Model&) = delete;

    // Pointers are borrowed until the next call that is not const; null: there is none. index 0: the plain
    // value. instance() gives a present one only.
    const Entry* entry(std::string_view name) const { return cells_.entry(name); }
    const Elements* elements(std::string_view name) const { return cells_.elements(name); }
    const Cell* cell(std::string_view name, uint32_t index) const { return cells_.cell(name, index); }
    const Value* find(std::string_view name, uint32_t index) const { return cells_.find(name, index); }
    const Structure* structure(std::string_view name) const { return structures_.find(name); }
    const InstanceCell* instance(std::string_view structure, uint32_t key) const {
        return structures_.instance(structure, key);
    }
    std::vector<std::string_view> membersOf(const Structure& structure, uint32_t key) const {
        return instances_.membersOf(structure, key);
    }
    const Template* findTemplate(std::string_view name) const { return templates_.find(name); }
    const Templates::Map& templates() const { return templates_.all(); }
    const NameRules& nameRules() const { return nameRules_; }

    // How many primary keys (or indices, whose owner is 0) the structure, member or vector has for the owner;
    // the first room of them, ascending, go to keys (null: none).
    size_t list(std::string_view name, uint32_t owner, unsigned int* keys, size_t room) const;

    // The factory's files.
    void reserve(size_t names) { cells_.reserve(names); }
    void addTemplate(std::string_view name) { templates_.add(name); }
    Result addTemplateMember(std::string_view templateName, std::string_view member, Value value);
    Result addDefaultInstance(const RowKey& key, const Instance& instance);
    Result addDefault(const RowKey& key, Value value);

    // Changes, as committed. A refusal (only at a replay, when the defaults have changed) leaves all as if
    // nobody had changed the key since; primary keys count as given all the same.
    Result setValue(const RowKey& key, const Value& value);
    Result erase(const RowKey& key, Origin origin);
    Result addInstance(const RowKey& key, const Instance& instance) { return instances_.add(key, instance); }
    Result removeInstance(const RowKey& key, Origin origin) { return instances_.remove(key, origin); }
    Result setLastKey(std::string_view structure, uint32_t last);

    // While it lives, a change whose name older changes use for another purpose takes it from them: they were
    // not in force when it was committed. (Defaults keep theirs.) Without it such a change is refused.
    class Replay {
    public:
        explicit Replay(Model& model) : model_(model) { model_.instances_.setReplaying(true); }
        ~Replay() { model_.instances_.setReplaying(false); }
        Replay(const Replay&) = delete;
        Replay& operator=(const Replay&) = delete;

    private:
        Model& model_;
    };

    // All changes over the defaults, in a stable order that setValue() and the others can take.
    void visitChanges(RowVisitor& visitor) const;
    // The rows of visitChanges(), and the bytes of their lines.
    size_t changes() const { return structures_.totals().rows + cells_.totals().rows; }
    size_t changedBytes() const { return structures_.totals().bytes + cells_.totals().bytes; }
    // Everything, sorted by name; each instance is followed by its members.
    void visitCells(CellVisitor& visitor) const;

private:
    bool isBelowStructure(std::string_view name) const;
    void restoreDefault(const RowKey& key);
    void visitInstances(const Structure& structure, CellVisitor& visitor) const;

    Templates templates_;
    Structures structures_;
    Cells cells_;
    const NameRules nameRules_{cells_, structures_};
    Instances instances_{cells_, structures_, templates_, nameRules_};
};

}  // namespace store
