// The committed database: templates, the defaults, and the changes over them.
//
// Knows no files, and of their grammar only how long a change's line is. A commit and the replay of the live
// file go through the same change operations, so a restart finds what was there before. A read is one
// look-up: the members of an instance are cells of their own, made with it. Defaults that a change stands
// over are kept beside, for changes that a replay finds undone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

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

struct InstanceCell : Instance {
    bool present = false;
    bool hasDefault = false;
    bool changed = false;

    // Do the changes take a default instance away, or what a firmware may have as one?
    bool isRemoval() const { return changed && (!present || hasDefault); }
};

struct Structure {
    uint32_t lastKey = 0;      // the highest primary key ever given
    uint32_t recordedKey = 0;  // the highest that the live file answers for
    std::map<uint32_t, InstanceCell> instances;
    std::set<std::string, std::less<>> members;  // that any of its instances has, or had
};

using Template = std::map<std::string, Value, std::less<>>;  // members and their defaults
using Structures = std::map<std::string, Structure, std::less<>>;

// What a name has beside its plain value: a vector, or one structure's member, never both.
struct Elements {
    std::map<uint32_t, Cell> cells;
    const Structures::value_type* structure = nullptr;  // null: a vector
    ostrelValueType type = ostrelTypeNone;              // of a vector's elements
    size_t present = 0;                                 // cells with a value
    size_t defaults = 0;                                // cells with a default

    bool isKnownVector() const { return structure == nullptr && present + defaults != 0; }
};

struct Entry {
    static constexpr uint32_t unchanged = 4294967295;

    Cell plain;
    uint32_t changedAt = unchanged;  // place in Model's list of changed names
    std::unique_ptr<Elements> elements;
};

// Sees what is there, and what was erased or removed (it is not present).
class CellVisitor {
public:
    virtual void instance(const RowKey& key, const InstanceCell& cell) = 0;
    virtual void cell(const RowKey& key, const Cell& cell) = 0;

protected:
    ~CellVisitor() = default;
};

using Templates = std::map<std::string, Template, std::less<>>;

class Model {
public:
    Model() = default;
    ~Model() = default;
    Model(const Model&) = delete;  // entries point to structures
    Model& operator=(const Model&) = delete;

    // Pointers are borrowed until the next call that is not const; null: there is none.
    const Entry* entry(std::string_view name) const;
    const Elements* elements(std::string_view name) const;
    const Cell* cell(std::string_view name, uint32_t index) const;
    const Value* find(std::string_view name, uint32_t index) const;
    const Structure* structure(std::string_view name) const;
    const InstanceCell* instance(std::string_view structure, uint32_t key) const;  // a present one
    const Template* findTemplate(std::string_view name) const;
    const Templates& templates() const { return templates_; }

    // How many primary keys (or indices, whose owner is 0) the structure, member or vector has for the owner;
    // the first room of them, ascending, go to keys (null: none).
    size_t list(std::string_view name, uint32_t owner, unsigned int* keys, size_t room) const;

    // May the name serve as a member of the structure, now or in future?
    Result checkMemberName(std::string_view name, std::string_view structure) const;
    // May instances be made under the name?
    Result checkStructureName(std::string_view name) const;

    // The factory's files.
    void reserve(size_t names) { entries_.reserve(names); }
    void addTemplate(std::string_view name);
    Result addTemplateMember(std::string_view templateName, std::string_view member, Value value);
    Result addDefaultInstance(const RowKey& key, const Instance& instance);
    Result addDefault(const RowKey& key, Value value);

    // Changes, as committed. A refusal (only at a replay, when the defaults have changed) leaves all as if
    // nobody had changed the key since; primary keys count as given all the same.
    Result setValue(const RowKey& key, const Value& value);
    Result erase(const RowKey& key, Origin origin);
    Result addInstance(const RowKey& key, const Instance& instance);
    Result removeInstance(const RowKey& key, Origin origin);
    Result setLastKey(std::string_view structure, uint32_t last);

    // While it lives, a change whose name older changes use for another purpose takes it from them: they were
    // not in force when it was committed. (Defaults keep theirs.) Without it such a change is refused.
    class Replay {
    public:
        explicit Replay(Model& model) : model_(model) { model_.isReplaying_ = true; }
        ~Replay() { model_.isReplaying_ = false; }
        Replay(const Replay&) = delete;
        Replay& operator=(const Replay&) = delete;

    private:
        Model& model_;
    };

    // All changes over the defaults, in a stable order that setValue() and the others can take.
    void visitChanges(RowVisitor& visitor) const;
    // The rows of visitChanges(), and the bytes of their lines.
    size_t changes() const { return changes_; }
    size_t changedBytes() const { return changedBytes_; }
    // Everything, sorted by name; each instance is followed by its members.
    void visitCells(CellVisitor& visitor) const;

private:
    // The hash may throw as far as its type tells: then the map keeps each hash, which long chains need.
    struct Hash {
        using is_transparent = void;
        size_t operator()(std::string_view name) const { return std::hash<std::string_view>()(name); }
    };
    using Entries = std::unordered_map<std::string, Entry, Hash, std::equal_to<>>;
    using Node = Entries::value_type;
    using FactoryKey = std::pair<std::string, uint32_t>;  // a name or structure, with index or primary key

    const Node* node(std::string_view name) const;
    Node& makeNode(std::string_view name);
    void put(Node& node, uint32_t index, Cell cell, const Structures::value_type* structure = nullptr);
    void count(Node& node, const Cell& cell, uint32_t index, bool added);
    void tally(size_t lineBytes, bool added);
    void tallyInstance(const Structures::value_type& structure, uint32_t key, bool added);
    void dropIfBlank(Node& node);
    static RowKey rowKey(const Node& node, uint32_t index);
    void restoreDefault(const RowKey& key);
    void keepDefault(const Node& node, uint32_t index, const Cell& old, const Cell& cell);
    Result checkElementName(const RowKey& key) const;
    Result setMember(const RowKey& key, const Value& value);
    Result addDefaultMember(std::string_view name, uint32_t index, Value value);
    Result checkInstance(const RowKey& key, const Template* members) const;
    void dropVector(std::string_view name);
    void takeName(std::string_view name, std::string_view keeper);
    void takeFromStructure(const Structures::value_type* structure, const Elements* member);
    void restoreMember(const RowKey& key);
    void takeMemberNames(std::string_view structure, const Template* members);
    Structures::value_type& makeStructure(std::string_view name, uint32_t lastKey);
    void record(Structures::value_type& structure, uint32_t key);
    void setInstance(Structures::value_type& structure, uint32_t key, InstanceCell cell);
    void putInstance(Structures::value_type& structure, uint32_t key, const Instance& instance,
                     bool isDefault);
    Result undoInstance(Structures::value_type& structure, uint32_t key);
    void restoreInstance(Structures::value_type& structure, uint32_t key, const Instance& instance);
    void putMember(Structures::value_type& structure, uint32_t key, std::string_view member, Cell cell);
    void dropMembers(const Structures::value_type& structure, uint32_t key);
    void visitElements(const Node& node, RowVisitor& visitor) const;
    void visitInstances(const Structures::value_type& structure, CellVisitor& visitor) const;

    Entries entries_;
    Structures structures_;
    Templates templates_;
    std::vector<Node*>
        changed_;  // names that may have changed cells; a rewrite must not walk the whole database
    bool isReplaying_ = false;
    size_t changes_ = 0;
    size_t changedBytes_ = 0;
    std::map<FactoryKey, Cell> factoryCells_;          // defaults that a change stands over
    std::map<FactoryKey, Instance> factoryInstances_;  // the same
    mutable const Node* lastFound_ = nullptr;  // callers ask for type, value and type of one key in a row
};

// Calls use(structure name, member name) for each way to read the name as STRUCTURE.MEMBER, until it returns
// true.
template <class Use>
bool anySplit(std::string_view name, Use use) {
    for (size_t dot = name.find('.'); dot != std::string_view::npos; dot = name.find('.', dot + 1)) {
        if (use(name.substr(0, dot), name.substr(dot + 1)))
            return true;
    }
    return false;
}

}  // namespace store
