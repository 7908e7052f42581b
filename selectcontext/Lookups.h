// Lookups: looks many items up in one set.
#pragma once

#include "selectcontext/IndexCursor.h"
#include "selectcontext/SetDetail.h"
#include "selectcontext/SetShortcuts.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace kvdetail {

// The lookups of one whole-set operation: first by guessing the next entry of the index, and where the ids
// come in another order by the hash, drawing what the next items need into the caches meanwhile.
//
// The set may be edited between two lookups, and change its data.
//
// Thread safety: that of the set.
class Lookups {
public:
    explicit Lookups(const GxapSelectSet& set) : mSet(set) {}
    Lookups(const Lookups&) = delete;
    Lookups& operator=(const Lookups&) = delete;

    // The set holds an item with the record's main id, sub id, marker and path.
    bool holds(const selected_entity& record) {
        const SSetData& data = *mSet.sharedData;
        if (data.entityCount == 0 || !data.entities)
            return false;
        const ItemKeys keys{record.mainEntId, record.subEntId, record.gsMarker, &record.nestedEntFullPath};
        return noted(findItem(data, keys, runOf(data, keys.mainId, cursor()))).entry != data.dataMap.end();
    }

    // Where to look first, for the set's data of this moment.
    IndexCursor* cursor() {
        if (mData != mSet.sharedData)
            mCursor.lift();
        mData = mSet.sharedData;
        return &mCursor;
    }

    // The next guess is the entry behind what was found, or the place where it would be.
    const Found& noted(const Found& found) {
        if (!mCursor.isGuessing())
            return found;
        const bool isFound = found.entry != mData->dataMap.end();
        mCursor.standAt(isFound ? std::next(found.entry) : found.place);
        return found;
    }

    // The record in `slot` is looked up next, those up to `last` later. O(1), O(n) where a hash is made.
    void drawNear(const Store::Slot* slot, const Store::Slot* last) {
        ++mCount;
        if (mCursor.isGuessing() || !mSet.sharedData || !mSet.sharedData->entities)
            return;
        const SSetData& data = *mSet.sharedData;
        const SetShortcuts& shortcuts = SetShortcuts::of(data);
        // Once: where no hash can be made, trying again for every record would cost a walk each.
        if (!mHasAskedForHash && mCount > data.dataMap.size() / kEntriesPerRecord) {
            mHasAskedForHash = true;
            shortcuts.expectLookups(data);
        }
        if (const IdHash* const hash = shortcuts.hashFor(data))
            drawNear(*hash, *data.entities, slot, last);
    }

private:
    // So many records are looked up before a hash is made for the rest: most comparisons end early.
    static constexpr std::size_t kEntriesPerRecord = 64;

    static const selected_entity* recordAhead(const Store::Slot* slot, const Store::Slot* last,
                                              std::ptrdiff_t distance) {
        return last - slot > distance && !slot[distance].free ? slot[distance].value : nullptr;
    }

    // In four steps, each needing what the one before has drawn near.
    static void drawNear(const IdHash& hash, const Store& store, const Store::Slot* slot,
                         const Store::Slot* last) {
        if (const selected_entity* const record = recordAhead(slot, last, 16))
            hash.prefetch(record->mainEntId);
        if (const selected_entity* const record = recordAhead(slot, last, 12))
            __builtin_prefetch(hash.peek(record->mainEntId));
        if (const selected_entity* const record = recordAhead(slot, last, 8)) {
            if (const auto* const entry = hash.peek(record->mainEntId))
                __builtin_prefetch(slotAt(entry->second));
        }
        if (const selected_entity* const record = recordAhead(slot, last, 4)) {
            if (const auto* const entry = hash.peek(record->mainEntId))
                __builtin_prefetch(recordAt(store, entry->second));
        }
    }

    const GxapSelectSet& mSet;
    const SSetData* mData = nullptr; // the data in which the cursor stands
    IndexCursor mCursor;
    std::size_t mCount = 0;
    bool mHasAskedForHash = false;
};

// Whether visit(record) is true for a record of the store that is looked up in a set, asked in store order up
// to the first.
template <class Visit>
bool anyRecordOf(const Store& store, Lookups& lookups, Visit visit) {
    for (const Store::Page* page = store.head; page; page = page->next) {
        for (const Store::Slot* slot = page->slots; slot < page->fillEnd; ++slot) {
            if (slot->free || !slot->value)
                continue;
            lookups.drawNear(slot, page->fillEnd);
            if (visit(*slot->value))
                return true;
        }
    }
    return false;
}

} // namespace kvdetail
