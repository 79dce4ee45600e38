#include "db/transaction.h"

#include <algorithm>
#include <utility>

#include "text/names.h"

namespace store {
namespace {

Origin originOf(bool hasDefault) { return hasDefault ? Origin::factory : Origin::created; }

}  // namespace

const Transaction::NameChanges* Transaction::changesOf(std::string_view name) const {
    const auto found = names_.find(name);
    return found != names_.end() ? &found->second : nullptr;
}

Transaction::NameChanges& Transaction::makeChanges(std::string_view name) {
    const auto found = names_.find(name);
    return found != names_.end() ? found->second : names_[std::string(name)];
}

const Value* Transaction::find(std::string_view name, uint32_t index) const {
    if (const NameChanges* mine = changesOf(name); mine != nullptr) {
        if (const auto cell = mine->cells.find(index); cell != mine->cells.end())
            return cell->second ? &*cell->second : nullptr;
    }
    const Value* committed = base_.find(name, index);
    if (index == 0)
        return committed;
    if (committed == nullptr)
        return newMember(name, index).value;
    const Structures::value_type* structure = base_.elements(name)->structure;
    return structure == nullptr || instance(structure->first, index) != nullptr ? committed : nullptr;
}

bool Transaction::isMember(std::string_view name) const {
    const NameChanges* mine = changesOf(name);
    const Elements* committed = base_.elements(name);
    return (mine != nullptr && !mine->structure.empty()) ||
           (committed != nullptr && committed->structure != nullptr);
}

const Elements* Transaction::committedVector(std::string_view name) const {
    const Elements* committed = base_.elements(name);
    return committed != nullptr && committed->structure == nullptr ? committed : nullptr;
}

// By its kind: that a name has a plain value does not make it known as a vector, nor the reverse.
bool Transaction::isKnown(std::string_view name, uint32_t index) const {
    if (index == 0) {
        const Entry* committed = base_.entry(name);
        return find(name, 0) != nullptr || (committed != nullptr && committed->plain.hasDefault);
    }
    const NameChanges* mine = changesOf(name);
    std::ptrdiff_t present = mine != nullptr ? mine->present : 0;
    if (const Elements* committed = committedVector(name); committed != nullptr) {
        if (committed->defaults != 0)
            return true;
        present += static_cast<std::ptrdiff_t>(committed->present);
    }
    return present != 0;
}

// The one type of the name's plain value and vector elements; none when nothing fixes it.
ostrelValueType Transaction::knownType(std::string_view name) const {
    const Entry* committed = base_.entry(name);
    if (committed != nullptr && committed->plain.hasDefault)
        return committed->plain.type;
    if (const Value* plain = find(name, 0); plain != nullptr)
        return plain->type;
    if (!isKnown(name, 1))
        return ostrelTypeNone;
    if (const NameChanges* mine = changesOf(name); mine != nullptr && mine->vectorType != ostrelTypeNone)
        return mine->vectorType;
    const Elements* vector = committedVector(name);
    return vector != nullptr ? vector->type : ostrelTypeNone;
}

Result Transaction::checkNewElement(std::string_view name) const {
    if (isKnown(name, 1))
        return {};
    if (isStructure(name))
        return {"the name is a structure's"};
    const bool isUnderStructure =
        anySplit(name, [this](std::string_view prefix, std::string_view) { return isStructure(prefix); });
    return isUnderStructure ? Result{"there is no such instance, or it has no such member"} : Result{};
}

Result Transaction::write(std::string_view name, uint32_t index, Value value, bool mayCreate) {
    if (const Result result = checkName(name); !result.ok())
        return result;
    const Value* old = find(name, index);
    if (old == nullptr && index != 0) {
        if (const Result result = checkNewElement(name); !result.ok())
            return result;
    }
    if (old == nullptr && !mayCreate && !isKnown(name, index))
        return {"the key is unknown, and creating keys is not allowed"};
    const ostrelValueType known = old != nullptr ? old->type : knownType(name);
    if (known != ostrelTypeNone && known != value.type)
        return {"the key has another type"};
    set(name, index, std::move(value));
    return {};
}

// What the live file says already is no change.
void Transaction::set(std::string_view name, uint32_t index, Value value) {
    NameChanges& mine = makeChanges(name);
    if (index != 0) {
        if (const std::string_view structure = memberOf(name, index); !structure.empty()) {
            mine.structure = structure;
        } else {
            mine.present += find(name, index) == nullptr ? 1 : 0;
            mine.vectorType = value.type;
        }
    }
    const Cell* committed = base_.cell(name, index);
    if (committed != nullptr && committed->present && committed->changed &&
        static_cast<const Value&>(*committed) == value) {
        mine.cells.erase(index);
    } else {
        mine.cells[index] = std::move(value);
    }
}

void Transaction::erase(std::string_view name, uint32_t index) {
    NameChanges& mine = makeChanges(name);
    mine.present -= index != 0 ? 1 : 0;
    if (base_.find(name, index) != nullptr) {
        mine.cells[index] = std::nullopt;
    } else {
        mine.cells.erase(index);
    }
}

std::vector<uint32_t> Transaction::elementsOf(std::string_view name) const {
    std::vector<uint32_t> indices;
    if (isMember(name))
        return indices;
    if (const Elements* committed = base_.elements(name); committed != nullptr) {
        for (const auto& [index, cell] : committed->cells) {
            if (find(name, index) != nullptr)
                indices.push_back(index);
        }
    }
    if (const NameChanges* mine = changesOf(name); mine != nullptr) {
        for (const auto& [index, value] : mine->cells) {
            if (index != 0 && value && base_.cell(name, index) == nullptr)
                indices.push_back(index);
        }
    }
    return indices;
}

Result Transaction::destroy(std::string_view name) {
    const std::vector<uint32_t> elements = elementsOf(name);
    const bool hasPlain = find(name, 0) != nullptr;
    if (!hasPlain && elements.empty())
        return {isMember(name) ? "a member cannot be erased" : "there is nothing to erase"};
    if (hasPlain)
        erase(name, 0);
    for (const uint32_t index : elements)
        erase(name, index);
    return {};
}

void Transaction::visit(RowVisitor& visitor) const {
    for (const auto& [name, changes] : structures_) {
        const auto& instances = changes.instances;
        // An instance's row says that its key was given; one that is removed again within the transaction has
        // none.
        const auto newest = std::find_if(instances.rbegin(), instances.rend(),
                                         [](const auto& row) { return row.second.has_value(); });
        if (changes.lastKey > (newest != instances.rend() ? newest->first : 0))
            visitor.lastKey(name, changes.lastKey);
        for (const auto& [key, instance] : instances) {
            instance ? visitor.instance({name, key}, *instance)
                     : visitor.removed({name, key}, originOf(base_.instance(name, key)->hasDefault));
        }
    }
    for (const auto& [name, changes] : names_) {
        for (const auto& [index, value] : changes.cells) {
            RowKey key{name, index};
            if (index != 0 && !changes.structure.empty()) {
                key.name = changes.structure;
                key.member = std::string_view(name).substr(key.name.size() + 1);
            }
            value ? visitor.value(key, *value)
                  : visitor.erased(key, originOf(base_.cell(name, index)->hasDefault));
        }
    }
}

}  // namespace store
