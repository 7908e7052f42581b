// Edits: adds and removes one item, for single edits and for whole-set operations.
#pragma once

#include "selectcontext/GxapSSetWriteAccessor.h"
#include "selectcontext/detail/ItemSearch.h"
#include "selectcontext/detail/SetData.h"

namespace kvdetail {

// Returns whether select() must look for an equal item before it adds an item to `data`.
inline bool isDuplicateLookedFor(const SSetData& data) noexcept {
    return data.unique && data.entityCount != 0 && data.entities;
}

// Adds an item at the end, even if the set has an equal one. `place` must be the place behind all index
// entries of the main id. The keys may be references into shared data that addItem() releases when it makes
// the set's data private.
void addItem(GxapSSetWriteAccessor& set, const ItemKeys& keys, OwnedInfo&& info, IdIndex::Entry place);

// The occupied slot that an index entry leads to, and the page of the slot. Both are null if the entry leads
// to no occupied slot.
struct OccupiedSlot {
    OccupiedSlot() = default;
    OccupiedSlot(const Store& store, unsigned long address)
        : slot(slotAt(address)), page(store.pageOf(slot)) {
        if (page && !slot->free)
            return;
        slot = nullptr;
        page = nullptr;
    }

    bool holds(const GxDbObjectId& subId) const {
        return slot && slot->value && isSame(slot->value->subEntId, subId);
    }

    Store::Slot* slot = nullptr;
    Store::Page* page = nullptr;
};

inline void freeSlot(SSetData& data, const OccupiedSlot& place) {
    if (place.slot)
        data.entities->removeSlot(place.slot, place.page, true);
}

inline void countDown(SSetData& data) noexcept {
    if (data.entityCount > 0)
        --data.entityCount;
}

// An item whose index entry has the wanted main id, and whose record has exactly the wanted sub id and
// marker. The markers 0 and -1 differ here.
struct ExactItem {
    IdIndex::Entry entry;
    OccupiedSlot place; // has no slot if no item was found
};

// Searches twice. Returns an item without a slot if one of the searches fails.
//
// The first search looks for an item with equal keys. For it, the markers 0 and -1 are equal. If it succeeds,
// the data is made private. The second search is findExact(): it tells 0 and -1 apart. Its item is the
// result.
//
// `run` must be at the first entry of the main id. The set must have a store.
ExactItem findToRemove(GxapSSetWriteAccessor& set, const ItemKeys& keys, const IdIndex::Run& run);

// Returns the first item of the run that has exactly the sub id and the marker of `keys`. Returns an item
// without a slot if there is none. `run` must be at the first entry of the main id.
ExactItem findExact(const SSetData& data, const IdIndex::Run& run, ItemKeys keys);

// Erases the item's entry and frees its slot.
void removeItem(SSetData& data, const ExactItem& item);

} // namespace kvdetail
