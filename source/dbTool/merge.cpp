#include "dbTool/merge.h"

#include <map>
#include <set>
#include <tuple>

#include "dbTool/changeLines.h"

namespace {

// Sorts as the changes have to be applied: structures before values.
struct ChangeKey {
    bool isValue = false;
    std::string name;
    uint32_t index = 0;  // 0 of a structure: its last primary key
    std::string member;

    bool operator<(const ChangeKey& other) const {
        return std::tie(isValue, name, index, member) <
               std::tie(other.isValue, other.name, other.index, other.member);
    }
};

using Table = std::map<ChangeKey, std::string>;  // each change as its line
using InstanceKey = std::pair<std::string, uint32_t>;

Table tableOf(const store::Model& model) {
    Table table;
    forEachChange(model, [&](store::Line::Kind kind, const store::RowKey& key, std::string line) {
        const bool isValue = kind == store::Line::Kind::value || kind == store::Line::Kind::erased;
        table[{isValue, std::string(key.name), key.index, std::string(key.member)}] = std::move(line);
    });
    return table;
}

// Empty: no change of that key.
std::string_view lineOf(const Table& table, const ChangeKey& key) {
    const auto found = table.find(key);
    return found != table.end() ? std::string_view(found->second) : std::string_view();
}

// What the two say differently.
std::set<ChangeKey> difference(const Table& left, const Table& right) {
    std::set<ChangeKey> keys;
    for (const Table* table : {&left, &right}) {
        for (const auto& [key, line] : *table) {
            if (lineOf(left, key) != lineOf(right, key))
                keys.insert(key);
        }
    }
    return keys;
}

class Merger {
public:
    Merger(Table base, Table theirs, store::Model& ours, const std::string& file)
        : base_(std::move(base)),
          theirs_(std::move(theirs)),
          ours_(tableOf(ours)),
          model_(ours),
          file_(file) {
        for (const ChangeKey& key : difference(base_, ours_)) {
            if (!key.isValue || !key.member.empty())
                touched_.emplace(key.name, key.index);
        }
    }

    void run() {
        for (const ChangeKey& key : difference(base_, theirs_)) {
            if (isLost(key)) {
                lose(key, "the live file has changed it since, too");
            } else if (lineOf(ours_, key) != lineOf(theirs_, key)) {
                take(key);
            }
        }
    }

    Faults faults;

private:
    // Remembers a contested instance for its members, which come after it.
    bool isLost(const ChangeKey& key) {
        const InstanceKey instance(key.name, key.index);
        if (!key.isValue && key.index == 0)
            return false;  // the higher one stays by itself
        if (!key.isValue && touched_.contains(instance)) {
            if (lineOf(ours_, key) == lineOf(theirs_, key) && model_.instance(key.name, key.index) == nullptr)
                return false;  // both have removed it
            contested_.insert(instance);
            return true;
        }
        if (!key.member.empty() && contested_.contains(instance))
            return true;
        return lineOf(ours_, key) != lineOf(base_, key) && lineOf(ours_, key) != lineOf(theirs_, key);
    }

    void take(const ChangeKey& key) {
        std::string line(lineOf(theirs_, key));
        if (line.empty() && !key.member.empty())
            return;  // it went with its instance
        if (line.empty())
            line = undoing(key);
        store::Line parsed;
        // Cannot fail: the store's own writer made it.
        if (const store::Result result = parseLine(line, parsed); !result.ok())
            return lose(key, result.refusal);
        applyChange({file_, 0, line}, parsed, model_, faults);
    }

    static std::string undoing(const ChangeKey& key) {
        store::LineWriter writer;
        // Nothing is left there of what base has: it was no default.
        key.isValue ? writer.erased({key.name, key.index}, store::Origin::created)
                    : writer.removed({key.name, key.index}, store::Origin::created);
        writer.text.pop_back();
        return writer.text;
    }

    void lose(const ChangeKey& key, const char* reason) {
        const std::string_view line = lineOf(theirs_, key);
        const std::string text = line.empty() && key.member.empty() ? undoing(key) : std::string(line);
        if (!text.empty())
            faults.fault({file_, 0, text}, store::LineFault::orphaned, reason);
    }

    const Table base_;
    const Table theirs_;
    const Table ours_;
    store::Model& model_;
    const std::string& file_;
    std::set<InstanceKey> touched_;    // by ours since base
    std::set<InstanceKey> contested_;  // and made or removed by theirs
};

}  // namespace

Faults merge(const store::Model& base, const store::Model& theirs, store::Model& ours,
             const std::string& file) {
    Merger merger(tableOf(base), tableOf(theirs), ours, file);
    merger.run();
    return std::move(merger.faults);
}
