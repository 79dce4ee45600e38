// The values by name: plain ones, vectors' elements and structures' members.
//
// A table without rules: who may hold what is Model's and Instances' to know. It sees to this:
// - A cell that says nothing is not there, nor a name without cells.
// - All elements of a name are one vector's, or one structure's member's: as the first of them was.
// - Counters, totals and the list of changed names follow from the cells, in replace() and nowhere else.
// - A default over which a change comes is kept, for when the change is undone.
// A read is one look-up: members are cells of their own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "db/changeTotals.h"
#include "db/nameHash.h"
#include "db/nameIndex.h"
#include "db/structures.h"
#include "text/rows.h"
#include "text/values.h"

namespace store {

struct Cell : Value {
    bool present = false;       // has a value; otherwise a default that was erased
    bool hasDefault = false;    // the defaults, or for a member the template, give it a value
    bool changed = false;       // the live file says so
    bool fromTemplate = false;  // its default is the template's

    bool isBlank() const { return !present && !hasDefault && !changed; }
};

// What a name has beside its plain value: a vector, or one structure's member, never both.
struct Elements {
    std::map<uint32_t, Cell> cells;
    const Structure* structure = nullptr;   // null: a vector
    ostrelValueType type = ostrelTypeNone;  // of a vector's elements
    size_t present = 0;                     // cells with a value
    bool hasDefaults = false;               // a cell has a default, or (only a member's) had one

    bool isKnownVector() const { return structure == nullptr && (present != 0 || hasDefaults); }
};

struct Entry {
    static constexpr uint32_t unchanged = 4294967295;

    Cell plain;
    uint32_t changedAt = unchanged;  // place in Cells' list of changed names
    std::unique_ptr<Elements> elements;
};

class Cells {
    struct Hash {
        uint32_t operator()(std::string_view name) const { return hashOfName(name); }
    };
    using Entries = NameIndex<Entry, Hash>;

public:
    using Node = Entries::Node;

    Cells() = default;
    ~Cells() = default;
    Cells(const Cells&) = delete;
    Cells& operator=(const Cells&) = delete;

    // Pointers are borrowed until the next call that is not const; null: there is none. index 0: the plain
    // value. find() gives only what has a value.
    const Entry* entry(std::string_view name) const;
    const Elements* elements(std::string_view name) const;
    const Cell* cell(std::string_view name, uint32_t index) const;
    const Value* find(std::string_view name, uint32_t index) const;
    std::vector<const Node*> sorted() const;

    void reserve(size_t names) { entries_.reserve(names); }
    // A blank cell takes away what is there. structure: of whose member the name's first element is (null: a
    // vector's); must outlive it, and have the instance already.
    void set(std::string_view name, uint32_t index, Cell cell, const Structure* structure = nullptr);
    // All elements, unless they are a member's.
    void dropVector(std::string_view name);
    // The default that a change of the key stands over.
    std::optional<Cell> takeKept(std::string_view name, uint32_t index);

    // The changes, sorted by name.
    void visitChanges(RowVisitor& visitor) const;
    const ChangeTotals& totals() const { return totals_; }

private:
    const Node* node(std::string_view name) const;
    void replace(Node& node, uint32_t index, Cell& place, Cell cell);
    void keepDefault(const Node& node, uint32_t index, const Cell& old, const Cell& cell);
    void dropIfBlank(Node& node);

    Entries entries_;
    std::vector<Node*> changed_;  // names that may have changed cells; a rewrite must not walk them all
    std::map<std::pair<std::string, uint32_t>, Cell> kept_;  // defaults that a change stands over
    ChangeTotals totals_;
    mutable const Node* lastFound_ = nullptr;  // callers ask for type, value and type of one key in a row
};

}  // namespace store
