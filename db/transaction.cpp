#include "db/transaction.h"

#include <cstddef>
#include <optional>
#include <string>
#include <utility>

#include "text/names.h"

namespace store {

const Value* Transaction::find(std::string_view name, uint32_t index) const {
    if (const std::optional<Value>* mine = values_.cell(name, index); mine != nullptr)
        return *mine ? &**mine : nullptr;
    const Value* committed = base_.find(name, index);
    if (index == 0)
        return committed;
    if (committed == nullptr)
        return instances_.newMember(name, index).value;
    const Structure* structure = base_.elements(name)->structure;
    return structure == nullptr || instances_.find(structure->name, index) != nullptr ? committed : nullptr;
}

bool Transaction::isMember(std::string_view name) const {
    const ValueChanges::OfName* mine = values_.find(name);
    const Elements* committed = base_.elements(name);
    return (mine != nullptr && !mine->structure.empty()) ||
           (committed != nullptr && committed->structure != nullptr);
}

std::string_view Transaction::memberOf(std::string_view name, uint32_t key) const {
    const Elements* committed = base_.elements(name);
    return committed != nullptr && committed->structure != nullptr
               ? std::string_view(committed->structure->name)
               : instances_.newMember(name, key).structure;
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
    const Elements* committed = committedVector(name);
    return (committed != nullptr && committed->hasDefaults) || hasElements(name);
}

// Of a vector.
bool Transaction::hasElements(std::string_view name) const {
    const ValueChanges::OfName* mine = values_.find(name);
    const Elements* committed = committedVector(name);
    return (mine != nullptr ? mine->present : 0) +
               (committed != nullptr ? static_cast<ptrdiff_t>(committed->present) : 0) !=
           0;
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
    if (const ValueChanges::OfName* mine = values_.find(name);
        mine != nullptr && mine->vectorType != ostrelTypeNone)
        return mine->vectorType;
    const Elements* vector = committedVector(name);
    return vector != nullptr ? vector->type : ostrelTypeNone;
}

Result Transaction::checkNewElement(std::string_view name) const {
    if (isKnown(name, 1))
        return {};
    if (instances_.isStructure(name))
        return {"the name is a structure's"};
    const bool isUnderStructure = anySplit(
        name, [this](std::string_view prefix, std::string_view) { return instances_.isStructure(prefix); });
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

void Transaction::set(std::string_view name, uint32_t index, Value value) {
    const std::string_view structure = index != 0 ? memberOf(name, index) : std::string_view();
    if (index != 0 && structure.empty())
        return values_.setElement(name, index, std::move(value), find(name, index) == nullptr);
    if (!structure.empty())
        values_.makeMember(name, structure);
    values_.set(name, index, std::move(value));
}

std::vector<uint32_t> Transaction::elementsOf(std::string_view name) const {
    std::vector<uint32_t> indices;
    if (isMember(name) || !hasElements(name))
        return indices;
    if (const Elements* committed = base_.elements(name); committed != nullptr) {
        for (const auto& [index, cell] : committed->cells) {
            if (find(name, index) != nullptr)
                indices.push_back(index);
        }
    }
    if (const ValueChanges::OfName* mine = values_.find(name); mine != nullptr) {
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
        values_.erase(name, 0);
    for (const uint32_t index : elements)
        values_.erase(name, index);
    return {};
}

// A name that this transaction has freed can serve another purpose only after the commit.
Result Transaction::checkNewInstance(std::string_view name, const Template& members) const {
    if (const Result result = base_.nameRules().checkStructure(name); !result.ok())
        return result;
    const ValueChanges::OfName* own = values_.find(name);
    if (own != nullptr && (own->vectorType != ostrelTypeNone || !own->structure.empty()))
        return {"the name is a vector's or a member's"};
    for (const auto& [member, value] : members) {
        const std::string whole = memberName(name, member);
        if (const Result result = base_.nameRules().checkMember(whole, name); !result.ok())
            return result;
        const ValueChanges::OfName* changes = values_.find(whole);
        const bool isTaken =
            changes != nullptr && (changes->vectorType != ostrelTypeNone ||
                                   (!changes->structure.empty() && changes->structure != name));
        if (isTaken || instances_.isStructure(whole))
            return {"a member's name serves another purpose"};
    }
    return {};
}

Result Transaction::instantiate(std::string_view templateName, std::string_view name, uint32_t owner,
                                uint32_t& key) {
    if (const Result result = checkName(name); !result.ok())
        return result;
    const Template* members = base_.findTemplate(templateName);
    if (members == nullptr)
        return {"unknown template"};
    if (const Result result = checkNewInstance(name, *members); !result.ok())
        return result;
    const std::optional<uint32_t> next = instances_.nextKey(name);
    if (!next)
        return {"the structure has no primary key left"};
    key = *next;
    instances_.add(name, key, Instance{std::string(templateName), owner});
    for (const auto& [member, value] : *members)
        values_.makeMember(memberName(name, member), name);
    return {};
}

Result Transaction::remove(std::string_view name, std::span<const unsigned int> keys) {
    const bool ofStructure = instances_.isStructure(name);
    if (!ofStructure && isMember(name))
        return {"a member cannot be removed, only its instance"};
    for (const unsigned int key : keys) {
        const bool exists =
            ofStructure ? instances_.find(name, key) != nullptr : key != 0 && find(name, key) != nullptr;
        if (!exists)
            return {"there is no such instance"};
    }
    for (const unsigned int key : keys) {
        if (ofStructure) {
            removeInstance(name, key);
        } else if (find(name, key) != nullptr) {
            values_.erase(name, key);
        }
    }
    return {};
}

Result Transaction::removeOwned(std::string_view name, uint32_t owner) {
    if (instances_.isStructure(name)) {
        for (const uint32_t key : instances_.keysOf(name, owner))
            removeInstance(name, key);
        instances_.noteRemoved(name, owner);
    } else if (isMember(name)) {
        return {"a member cannot be removed, only its instance"};
    } else if (owner == 0) {
        for (const uint32_t index : elementsOf(name))
            values_.erase(name, index);
    }
    return {};
}

// With all that was written to its members.
void Transaction::removeInstance(std::string_view structure, uint32_t key) {
    for (const std::string& member : instances_.memberNames(structure, key))
        values_.forget(member, key);
    instances_.remove(structure, key);
}

void Transaction::visit(RowVisitor& visitor) const {
    instances_.visit(visitor);
    values_.visit(visitor);
}

}  // namespace store
