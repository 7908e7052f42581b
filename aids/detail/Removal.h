// Removal: removes exact items from a set's data, by the public fields.
#pragma once

#include "aids/Reclaim.h"
#include "selectcontext/GxapSSetWriteAccessor.h"

#include <cstddef>
#include <vector>

namespace kv::detail {

using Data = GxapSelectSet::SSetData;
using Store = Data::Store;
using Slot = Store::Slot;
using Page = Store::Page;

inline GxapSSetWriteAccessor& editingOf(GxapSelectSet& set) noexcept {
    return static_cast<GxapSSetWriteAccessor&>(set);
}

inline bool hasItems(const GxapSelectSet& set) noexcept {
    return set.sharedData && set.sharedData->entityCount != 0 && set.sharedData->entities;
}

// The value of a slot's index entry.
inline unsigned long addressOf(const Slot* slot) noexcept {
    return reinterpret_cast<unsigned long>(slot);
}

// Returns whether the store still has an item in this slot. O(1), or O(pages) for a slot of a freed page.
inline bool holdsItem(const Store& store, const Slot* slot) noexcept {
    return store.pageOf(slot) && !slot->free && slot->value;
}

// Calls visit(slot) for the slot of every item, in the order of the set. visit() must not edit the store.
template <class Visit>
void forEachSlot(const Store& store, Visit visit) {
    for (const Page* page = store.head; page; page = page->next) {
        for (Slot* slot = page->slots; slot < page->fillEnd; ++slot) {
            if (!slot->free && slot->value)
                visit(slot);
        }
    }
}

// Sorts the slots of items in the order of the set. O(k log k) for k slots, without holes or with bitmaps of
// them.
void sortByPosition(const Store& store, std::vector<Slot*>& slots);

// Returns the slots of the items of the id that are in the index, in the order of the index. O(log n + items
// of the id).
std::vector<Slot*> slotsOfId(const Data& data, const GxDbObjectId& mainId);

// Returns the slots of the items with these numbers. The numbers must ascend. The number of an item is the
// number of items before it, so that it is the same in a copy of the data. O(n).
std::vector<Slot*> slotsOfNumbers(const Data& data, const std::vector<std::size_t>& numbers);

// Returns the number of the item in this slot. O(n).
std::size_t numberOf(const Data& data, const Slot* slot);

// Makes the set's data private. Returns the slot of the item that was in `slot`. O(1), or O(n) for shared
// data.
Slot* slotForWriting(GxapSelectSet& set, Slot* slot);

// Makes the set's data private. Returns the slots of the items that were in `slots`, in the order of the set
// and each once. O(k log k) for k slots, or O(n + k log k) for shared data.
std::vector<Slot*> slotsForWriting(GxapSelectSet& set, std::vector<Slot*> slots);

// Removes the item from private data: its index entry, its slot, and its count. Returns the record. Needs no
// memory. O(log n + items of the main id). If a caller has changed the main id in the record, O(n).
Record freeItem(Data& data, Slot* slot);

// Does what freeItem() does, for many items. Returns the records in the order of `slots`. If there is no
// memory, removes nothing and throws std::bad_alloc. Each run of entries with one id is walked once.
Records freeItems(Data& data, const std::vector<Slot*>& slots);

} // namespace kv::detail
