// The structures: which instances they have, which primary keys they gave, how their members are called.
//
// A table without rules (those are Instances'), and without the members' values (those are Cells'). Only
// replace(), record() and drop() change what the live file has to say; the totals are derived there.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "db/changeTotals.h"
#include "text/rows.h"

namespace store {

struct InstanceCell : Instance {
    bool present = false;
    bool hasDefault = false;
    bool changed = false;

    bool isBlank() const { return !present && !changed; }
    // Do the changes take a default instance away, or what a firmware may have as one?
    bool isRemoval() const { return changed && (!present || hasDefault); }
};

struct Structure {
    explicit Structure(std::string_view structureName) : name(structureName) {}

    const std::string name;
    uint32_t lastKey = 0;                        // the highest primary key ever given
    uint32_t recordedKey = 0;                    // the highest that the live file answers for
    std::map<uint32_t, InstanceCell> instances;  // none is blank
    // The primary keys of those that are present, by owner; none is empty. A question costs what its answer
    // does.
    std::map<uint32_t, std::set<uint32_t>> keysOfOwner;
    // By primary key: members that an instance has, and its template no longer; none is empty.
    std::map<uint32_t, std::set<std::string, std::less<>>> oddMembers;

    // null: none.
    const std::set<uint32_t>* keysOf(uint32_t owner) const {
        const auto found = keysOfOwner.find(owner);
        return found != keysOfOwner.end() ? &found->second : nullptr;
    }
};

class Structures {
public:
    using Map = std::map<std::string, Structure, std::less<>>;

    Structures() = default;
    ~Structures() = default;
    Structures(const Structures&) = delete;  // cells point to structures
    Structures& operator=(const Structures&) = delete;

    // Borrowed until drop(); null: there is none.
    const Structure* find(std::string_view name) const;
    // One that is present, borrowed until the next change of it; null: there is none.
    const InstanceCell* instance(std::string_view structure, uint32_t key) const;
    const Map& all() const { return structures_; }

    // The structure, made when there is none, whose primary keys up to this one are given.
    const Structure& make(std::string_view name, uint32_t lastKey);
    void addOddMember(const Structure& structure, uint32_t key, std::string_view member);
    void dropOddMembers(const Structure& structure, uint32_t key) { own(structure).oddMembers.erase(key); }
    // A blank cell takes the instance away. A default that a change replaces is kept.
    void replace(const Structure& structure, uint32_t key, InstanceCell cell);
    // The live file answers for a primary key once it has said so: the next rewrite must say so, too.
    void record(const Structure& structure, uint32_t key);
    // Of one without instances; the reference is gone with it.
    void drop(const Structure& structure);

    // The default instance that a change stands over, borrowed until it is taken; null: there is none.
    const Instance* kept(const Structure& structure, uint32_t key) const;
    std::optional<Instance> takeKept(const Structure& structure, uint32_t key);

    // The changes, in an order that Model can take: what frees names comes first.
    void visitChanges(RowVisitor& visitor) const;
    const ChangeTotals& totals() const { return totals_; }

private:
    Structure& own(const Structure& structure) { return structures_.find(structure.name)->second; }
    void setRecordedKey(Structure& structure, uint32_t key);

    Map structures_;
    std::map<std::pair<std::string, uint32_t>, Instance> kept_;  // by structure and primary key
    ChangeTotals totals_;
};

}  // namespace store
