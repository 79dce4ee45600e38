// The part of Model that hands out all it holds, sorted.
#include <algorithm>

#include "db/model.h"

namespace store {

void Model::visitElements(const Node& node, RowVisitor& visitor) const {
    if (!node.second.elements)
        return;
    for (const auto& [index, cell] : node.second.elements->cells) {
        if (cell.changed)
            cell.present ? visitor.value(rowKey(node, index), cell)
                         : visitor.erased(rowKey(node, index), Origin::factory);
    }
}

void Model::visitChanges(RowVisitor& visitor) const {
    // What frees names of the defaults comes first: another structure, which may sort before, has them now.
    for (const auto& [name, structure] : structures_) {
        for (const auto& [key, instance] : structure.instances) {
            if (instance.isRemoval())
                visitor.removed({name, key}, Origin::factory);
        }
    }
    for (const auto& [name, structure] : structures_) {
        if (structure.recordedKey != 0)
            visitor.lastKey(name, structure.recordedKey);
        for (const auto& [key, instance] : structure.instances) {
            if (instance.changed && instance.present)
                visitor.instance({name, key}, instance);
        }
    }
    std::vector<const Node*> sorted(changed_.begin(), changed_.end());
    std::ranges::sort(sorted, {}, [](const Node* node) -> std::string_view { return node->first; });
    for (const Node* node : sorted) {
        const Cell& plain = node->second.plain;
        if (plain.changed) {
            plain.present ? visitor.value({node->first}, plain)
                          : visitor.erased({node->first}, Origin::factory);
        }
        visitElements(*node, visitor);
    }
}

void Model::visitInstances(const Structures::value_type& structure, CellVisitor& visitor) const {
    const std::string_view name = structure.first;
    for (const auto& [key, instance] : structure.second.instances) {
        visitor.instance({name, key}, instance);
        for (const std::string& member : structure.second.members) {
            const Elements* found = elements(std::string(name) + '.' + member);
            if (found == nullptr || found->structure != &structure)
                continue;
            if (const auto cell = found->cells.find(key); cell != found->cells.end())
                visitor.cell({name, key, member}, cell->second);
        }
    }
}

void Model::visitCells(CellVisitor& visitor) const {
    struct Place {
        std::string_view name;
        const Structures::value_type* structure;
        const Node* node;
    };
    std::vector<Place> places;
    places.reserve(entries_.size() + structures_.size());
    for (const Node& node : entries_)
        places.push_back({node.first, nullptr, &node});
    for (const Structures::value_type& structure : structures_)
        places.push_back({structure.first, &structure, nullptr});
    std::ranges::stable_sort(places, {}, &Place::name);
    for (const auto& [name, structure, node] : places) {
        if (structure != nullptr) {
            visitInstances(*structure, visitor);
            continue;
        }
        const auto& [plain, changedAt, elements] = node->second;
        if (!plain.isBlank())
            visitor.cell({name}, plain);
        if (elements && elements->structure == nullptr) {
            for (const auto& [index, cell] : elements->cells)
                visitor.cell({name, index}, cell);
        }
    }
}

}  // namespace store
