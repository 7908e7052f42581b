// SetData: the inside of a set's data, and what the sources of the library share about it.
#pragma once

#include "selectcontext/GxapSelectSet.h"
#include "selectcontext/detail/IdIndex.h"
#include "selectcontext/detail/RecordPool.h"

#include <cstdint>
#include <memory>
#include <utility>

namespace kvdetail {

// What SSetData has behind its named fields. Only the thread that may edit the data uses `records`, and only
// while no other handle shares the data.
struct SetData {
    explicit SetData(SSetData& data) : index(data) {}

    static SetData& of(const SSetData& data) { return *data.mInside; }

    IdIndex index;
    RecordPool records;
};

inline IdIndex& indexOf(const SSetData& data) {
    return SetData::of(data).index;
}

// Null for an entry without an occupied slot of the store, and for a slot into which a caller has put null.
// The record of a slot that a caller has freed may be deleted. O(1).
inline selected_entity* recordAt(const Store& store, unsigned long address) noexcept {
    const Store::Slot* const slot = slotAt(address);
    return store.pageOf(slot) && !slot->free ? slot->value : nullptr;
}

// The set has data, and items in it. Almost every operation asks this first.
inline bool hasItems(const GxapSelectSet& set) noexcept {
    return set.sharedData && set.sharedData->entityCount != 0;
}

// The set has items, and a store.
inline bool hasRecords(const GxapSelectSet& set) noexcept {
    return hasItems(set) && set.sharedData->entities;
}

// Data as a fresh set has it: unique, empty, with a store of its own, held by no handle yet.
std::unique_ptr<SSetData> makeData();

// The set's data, made first if it has none. For const operations that may have to create it.
SSetData& dataOf(const GxapSelectSet& set);

// Makes a record with empty vectors, in memory from the data's record pool. No other handle may share the
// data.
std::unique_ptr<selected_entity> newRecord(const SSetData& data);

// Appends the record to store, count and index. All or nothing. `place` is the one behind all index entries
// of the record's id.
void appendRecord(SSetData& data, std::unique_ptr<selected_entity>&& record, IdIndex::Entry place);

// Records that are appended to a store. Takes them back and deletes them, unless keep() is called.
class AppendedRecords {
public:
    explicit AppendedRecords(Store& store) : mStore(store) {}
    AppendedRecords(const AppendedRecords&) = delete;
    AppendedRecords& operator=(const AppendedRecords&) = delete;
    ~AppendedRecords() {
        for (; mCount > 0; --mCount)
            delete mStore.undoAppend();
    }

    const Store::Slot* append(std::unique_ptr<selected_entity>&& record) {
        const Store::Slot* const slot = mStore.append(record.get());
        record.release();
        ++mCount;
        return slot;
    }

    // Returns their number.
    std::uint32_t keep() noexcept { return std::exchange(mCount, 0); }

private:
    Store& mStore;
    std::uint32_t mCount = 0;
};

} // namespace kvdetail
