// Edits of single items, as steps of an operation on one item or on many.
#pragma once

#include "selectcontext/GxapSSetWriteAccessor.h"
#include "selectcontext/detail/ItemKeys.h"
#include "selectcontext/detail/SetData.h"

namespace kvdetail {

// Selecting into this data looks for an equal item first.
inline bool isDuplicateLookedFor(const SSetData& data) noexcept {
    return data.unique && data.entityCount != 0 && data.entities;
}

// Adds an item, at the end and whether or not it is there. `place` is the one behind all index entries of its
// id. The keys may be part of the data that a copy-on-write lets go.
void addItem(GxapSSetWriteAccessor& set, const ItemKeys& keys, OwnedInfo&& info, IdIndex::Entry place);

// The occupied slot that an index entry names, with its page; both null for an entry without one.
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
        return slot && slot->value && slot->value->subEntId == subId;
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

// An item whose main id, sub id and marker are exactly the wanted ones.
struct ExactItem {
    IdIndex::Entry entry;
    OccupiedSlot place; // without a slot: there is none
};

// The first such item, in data that was made private if an item has equal keys: there, unlike here, markers
// of 0 and -1 are equal. `run` is the main id's in the data as it is. The set has records.
ExactItem findToRemove(GxapSSetWriteAccessor& set, const ItemKeys& keys, const IdIndex::Run& run);

// Frees the item's slot and erases its entry.
void removeItem(SSetData& data, const ExactItem& item);

} // namespace kvdetail
