#include "db/cells.h"

#include <algorithm>

namespace store {
namespace {

RowKey rowKey(const Cells::Node& node, uint32_t index) {
    const Elements* elements = node.second.elements.get();
    if (index == 0 || elements == nullptr || elements->structure == nullptr)
        return {node.first, index};
    const std::string_view structure = elements->structure->name;
    return {structure, index, std::string_view(node.first).substr(structure.size() + 1)};
}

void visitChange(const Cells::Node& node, uint32_t index, const Cell& cell, RowVisitor& visitor) {
    if (!cell.changed)
        return;
    cell.present ? visitor.value(rowKey(node, index), cell)
                 : visitor.erased(rowKey(node, index), Origin::factory);
}

ChangeTotals totalsOfCell(const Cells::Node& node, uint32_t index, const Cell& cell) {
    if (!cell.changed)
        return {};
    return totalsOf([&](RowVisitor& visitor) { visitChange(node, index, cell, visitor); });
}

void count(Elements& elements, const Cell& old, const Cell& cell) {
    elements.present += size_t{cell.present} - size_t{old.present};
    elements.hasDefaults = elements.hasDefaults || cell.hasDefault;
    // An erased element, without a default, says nothing about what the vector holds now.
    if (cell.present || cell.hasDefault)
        elements.type = cell.type;
}

}  // namespace

const Cells::Node* Cells::node(std::string_view name) const {
    if (lastFound_ != nullptr && lastFound_->first == name)
        return lastFound_;
    const Node* found = entries_.find(name);
    if (found != nullptr)
        lastFound_ = found;
    return found;
}

const Entry* Cells::entry(std::string_view name) const {
    const Node* found = node(name);
    return found != nullptr ? &found->second : nullptr;
}

const Elements* Cells::elements(std::string_view name) const {
    const Entry* found = entry(name);
    return found != nullptr ? found->elements.get() : nullptr;
}

const Cell* Cells::cell(std::string_view name, uint32_t index) const {
    const Entry* found = entry(name);
    if (found == nullptr || index == 0)
        return found != nullptr && !found->plain.isBlank() ? &found->plain : nullptr;
    if (!found->elements)
        return nullptr;
    const auto element = found->elements->cells.find(index);
    return element != found->elements->cells.end() ? &element->second : nullptr;
}

const Value* Cells::find(std::string_view name, uint32_t index) const {
    const Cell* found = cell(name, index);
    return found != nullptr && found->present ? found : nullptr;
}

void Cells::set(std::string_view name, uint32_t index, Cell cell, const Structure* structure) {
    Node& node = entries_.make(name);
    Entry& entry = node.second;
    if (index != 0 && !entry.elements) {
        entry.elements = std::make_unique<Elements>();
        entry.elements->structure = structure;
    }
    Cell& place = index == 0 ? entry.plain : entry.elements->cells[index];
    replace(node, index, place, std::move(cell));
    if (place.isBlank()) {
        if (index != 0)
            entry.elements->cells.erase(index);
        dropIfBlank(node);
    }
}

void Cells::replace(Node& node, uint32_t index, Cell& place, Cell cell) {
    keepDefault(node, index, place, cell);
    totals_.replace(totalsOfCell(node, index, place), totalsOfCell(node, index, cell));
    if (index != 0)
        count(*node.second.elements, place, cell);
    if (cell.changed && node.second.changedAt == Entry::unchanged) {
        node.second.changedAt = static_cast<uint32_t>(changed_.size());
        changed_.push_back(&node);
    }
    place = std::move(cell);
}

// Before a change takes its place. A member's is one only as long as its instance is a default one.
void Cells::keepDefault(const Node& node, uint32_t index, const Cell& old, const Cell& cell) {
    if (!old.hasDefault || old.changed || (cell.hasDefault && !cell.changed))
        return;
    const Structure* structure = index != 0 ? node.second.elements->structure : nullptr;
    if (structure == nullptr || !structure->instances.at(index).changed)
        kept_.insert_or_assign({node.first, index}, old);
}

void Cells::dropIfBlank(Node& node) {
    Entry& entry = node.second;
    if (entry.elements && entry.elements->cells.empty())
        entry.elements.reset();
    if (entry.elements || !entry.plain.isBlank())
        return;
    if (entry.changedAt != Entry::unchanged) {
        changed_.back()->second.changedAt = entry.changedAt;
        changed_[entry.changedAt] = changed_.back();
        changed_.pop_back();
    }
    lastFound_ = nullptr;
    entries_.erase(node);
}

void Cells::dropVector(std::string_view name) {
    for (const Elements* old = elements(name); old != nullptr && old->structure == nullptr;
         old = elements(name)) {
        set(name, old->cells.begin()->first, Cell());
    }
}

std::optional<Cell> Cells::takeKept(std::string_view name, uint32_t index) {
    auto taken = kept_.extract({std::string(name), index});
    return taken.empty() ? std::nullopt : std::optional(std::move(taken.mapped()));
}

std::vector<const Cells::Node*> Cells::sorted() const {
    std::vector<const Node*> nodes;
    nodes.reserve(entries_.size());
    entries_.forEach([&](const Node& node) { nodes.push_back(&node); });
    std::ranges::sort(nodes, {}, [](const Node* node) -> std::string_view { return node->first; });
    return nodes;
}

void Cells::visitChanges(RowVisitor& visitor) const {
    const auto nameOf = [](const Node* node) -> std::string_view { return node->first; };
    std::vector<const Node*> nodes(changed_.begin(), changed_.end());
    // Most are sorted: a start reads them as the last rewrite wrote them.
    const auto late = std::ranges::is_sorted_until(nodes, {}, nameOf);
    std::ranges::sort(late, nodes.end(), {}, nameOf);
    std::ranges::inplace_merge(nodes, late, {}, nameOf);
    for (const Node* node : nodes) {
        visitChange(*node, 0, node->second.plain, visitor);
        if (!node->second.elements)
            continue;
        for (const auto& [index, cell] : node->second.elements->cells)
            visitChange(*node, index, cell, visitor);
    }
}

}  // namespace store
