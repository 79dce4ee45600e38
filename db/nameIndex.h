// Finds a node by its name: one flat table of short hashes beside pointers, so that a look-up reads a slot,
// the node and nothing else.
//
// - Open addressing, linear probing, at most 7/8 full. An erased slot is closed by moving back what stands
// behind it.
// - Nodes are made one by one and stay where they are until they are erased.
// - Growth is nobody's pause: the table of twice the size is taken as zeroed pages, and each new name moves
// some slots
//   of the old table. Meanwhile a look-up that finds nothing in the new one tries the old one.
// - Clients may choose names, so the hash must be one whose collisions they cannot know.
// One thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>

namespace store {

// Hash: a uint32_t of a std::string_view.
template <class Value, class Hash>
class NameIndex {
public:
    using Node = std::pair<const std::string, Value>;

    NameIndex() = default;
    ~NameIndex() {
        forEach([](Node& node) { delete &node; });
    }
    NameIndex(const NameIndex&) = delete;
    NameIndex& operator=(const NameIndex&) = delete;

    size_t size() const { return table_.used + old_.used; }

    // Borrowed until it is erased; null: there is none.
    Node* find(std::string_view name) const {
        const uint32_t hash = hashOf(name);
        const Slot* found = table_.find(hash, name);
        if (found == nullptr && old_.used != 0)
            found = old_.find(hash, name);
        return found != nullptr ? found->node : nullptr;
    }

    // The node of the name, made when there is none.
    Node& make(std::string_view name) {
        if (Node* found = find(name))
            return *found;
        auto made = std::make_unique<Node>(std::piecewise_construct, std::forward_as_tuple(name),
                                           std::forward_as_tuple());
        makeRoom();
        table_.insert({made.get(), hashOf(name)});
        return *made.release();
    }

    void erase(Node& node) {
        const uint32_t hash = hashOf(node.first);
        if (Slot* slot = table_.find(hash, node.first)) {
            table_.close(slot);
        } else {
            old_.bury(old_.find(hash, node.first));
        }
        delete &node;
    }

    // Room for so many names, so that none of them makes the table grow. Only while the index is empty.
    void reserve(size_t names) {
        if (size() == 0 && !table_.hasRoomFor(names))
            table_ = Table(names);
    }

    // In no order.
    template <class Visit>
    void forEach(Visit visit) const {
        for (const Table* table : {&table_, &old_}) {
            for (size_t i = 0; i < table->capacity; ++i) {
                if (table->slots[i].node != nullptr)
                    visit(*table->slots[i].node);
            }
        }
    }

private:
    struct Slot {
        Node* node;  // null: empty, or buried
        uint32_t
            hash;  // 0: empty; what was moved or buried keeps its own, so that a search goes on behind it
    };

    static uint32_t hashOf(std::string_view name) {
        const uint32_t hash = Hash()(name);
        return hash != 0 ? hash : 1;
    }

    struct Free {
        void operator()(void* memory) const { std::free(memory); }
    };

    struct Table {
        Table() = default;
        explicit Table(size_t names) {
            constexpr size_t least = 16;
            for (capacity = least; !hasRoomFor(names);)
                capacity *= 2;
            // Pages that the system zeroes when they are first touched.
            slots.reset(static_cast<Slot*>(std::calloc(capacity, sizeof(Slot))));
            if (!slots)
                throw std::bad_alloc();
        }

        bool hasRoomFor(size_t names) const { return names <= capacity / 8 * 7; }
        size_t behind(size_t place) const { return (place + 1) & (capacity - 1); }
        size_t homeOf(uint32_t hash) const { return hash & (capacity - 1); }

        Slot* find(uint32_t hash, std::string_view name) const {
            if (capacity == 0)
                return nullptr;
            for (size_t place = homeOf(hash); slots[place].hash != 0; place = behind(place)) {
                Slot& slot = slots[place];
                if (slot.hash == hash && slot.node != nullptr && slot.node->first == name)
                    return &slot;
            }
            return nullptr;
        }
        void insert(Slot slot) {
            size_t place = homeOf(slot.hash);
            while (slots[place].hash != 0)
                place = behind(place);
            slots[place] = slot;
            ++used;
        }
        // Nothing is buried in this table.
        void close(Slot* slot) {
            auto hole = static_cast<size_t>(slot - slots.get());
            for (size_t place = behind(hole); slots[place].hash != 0; place = behind(place)) {
                // What is at home between the hole and its place stays.
                const size_t way = (place - homeOf(slots[place].hash)) & (capacity - 1);
                if (way < ((place - hole) & (capacity - 1)))
                    continue;
                slots[hole] = slots[place];
                hole = place;
            }
            slots[hole] = {};
            --used;
        }
        void bury(Slot* slot) {
            slot->node = nullptr;
            --used;
        }

        std::unique_ptr<Slot[], Free> slots;
        size_t capacity = 0;
        size_t used = 0;
    };

    // For one more name. The old table is empty long before the new one is full.
    void makeRoom() {
        constexpr size_t slotsAtATime = 8;
        for (size_t i = 0; i < slotsAtATime && moved_ < old_.capacity; ++i, ++moved_) {
            if (Slot& slot = old_.slots[moved_]; slot.node != nullptr) {
                table_.insert(slot);
                old_.bury(&slot);
            }
        }
        if (moved_ == old_.capacity) {
            old_ = Table();
            moved_ = 0;
        }
        if (table_.hasRoomFor(table_.used + 1))
            return;
        Table larger(table_.used + 1);
        old_ = std::exchange(table_, std::move(larger));
    }

    Table table_;
    Table old_;         // while names move to the larger one
    size_t moved_ = 0;  // slots of it that have
};

}  // namespace store
