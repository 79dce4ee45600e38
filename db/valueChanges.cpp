#include "db/valueChanges.h"

#include <utility>

namespace store {

const ValueChanges::OfName* ValueChanges::find(std::string_view name) const {
    const auto found = names_.find(name);
    return found != names_.end() ? &found->second : nullptr;
}

ValueChanges::OfName& ValueChanges::make(std::string_view name) {
    const auto found = names_.find(name);
    return found != names_.end() ? found->second : names_[std::string(name)];
}

const std::optional<Value>* ValueChanges::cell(std::string_view name, uint32_t index) const {
    const OfName* mine = find(name);
    if (mine == nullptr)
        return nullptr;
    const auto found = mine->cells.find(index);
    return found != mine->cells.end() ? &found->second : nullptr;
}

void ValueChanges::makeMember(std::string_view name, std::string_view structure) {
    make(name).structure = structure;
}

// What the live file says already is no change.
void ValueChanges::set(std::string_view name, uint32_t index, Value value) {
    OfName& mine = make(name);
    const Cell* committed = base_.cell(name, index);
    if (committed != nullptr && committed->present && committed->changed &&
        static_cast<const Value&>(*committed) == value) {
        mine.cells.erase(index);
    } else {
        mine.cells[index] = std::move(value);
    }
}

void ValueChanges::setElement(std::string_view name, uint32_t index, Value value, bool isNew) {
    OfName& mine = make(name);
    mine.present += isNew ? 1 : 0;
    mine.vectorType = value.type;
    set(name, index, std::move(value));
}

void ValueChanges::erase(std::string_view name, uint32_t index) {
    OfName& mine = make(name);
    mine.present -= index != 0 ? 1 : 0;
    if (base_.find(name, index) != nullptr) {
        mine.cells[index] = std::nullopt;
    } else {
        mine.cells.erase(index);
    }
}

void ValueChanges::forget(std::string_view name, uint32_t index) {
    if (const auto found = names_.find(name); found != names_.end())
        found->second.cells.erase(index);
}

void ValueChanges::visit(RowVisitor& visitor) const {
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
