// SetData: the private part of a set's data, and the functions on a set's data that sources of the library
// share.
#pragma once

#include "selectcontext/GxapSelectSet.h"
#include "selectcontext/detail/IdIndex.h"
#include "selectcontext/detail/RecordPool.h"

#include <cstdint>
#include <memory>
#include <utility>

namespace kvdetail {

// The part of SSetData without named fields. Only the thread that may edit the data may use `records`, and
// only while no other handle shares the data.
struct SetData {
    explicit SetData(SSetData& data) : index(data) {}

    static SetData& of(const SSetData& data) { return *data.mInside; }

    IdIndex index;
    RecordPool records;
};

inline IdIndex& indexOf(const SSetData& data) {
    return SetData::of(data).index;
}

// Returns the record in the slot at this address. Returns null if the store has no occupied slot there, or
// if a caller has put null into the slot. A free slot may have the address of a deleted record, so that
// address is not returned. O(1), or O(pages) for an address that is no slot.
inline selected_entity* recordAt(const Store& store, unsigned long address) noexcept {
    const Store::Slot* const slot = slotAt(address);
    return store.pageOf(slot) && !slot->free ? slot->value : nullptr;
}

// Returns whether the set has data with items. Almost every operation calls this first.
inline bool hasItems(const GxapSelectSet& set) noexcept {
    return set.sharedData && set.sharedData->entityCount != 0;
}

// Returns whether the set has items and a store.
inline bool hasRecords(const GxapSelectSet& set) noexcept {
    return hasItems(set) && set.sharedData->entities;
}

// Makes the data of a new set: unique, empty, with a store of its own, and with no handle yet.
std::unique_ptr<SSetData> makeData();

// Returns the set's data. Makes the data if the set has none, also for const operations.
SSetData& dataOf(const GxapSelectSet& set);

// Makes a record with empty vectors, in memory from the data's record pool. No other handle may share the
// data.
std::unique_ptr<selected_entity> newRecord(const SSetData& data);

// Appends the record to the store, the index and the count. Changes none of them if an exception is thrown.
// `place` must be the place behind all index entries of the record's main id.
void appendRecord(SSetData& data, std::unique_ptr<selected_entity>&& record, IdIndex::Entry place);

// Appends records to a store. The destructor removes and deletes these records, unless keep() was called.
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

    // Keeps the appended records in the store. Returns the number of these records.
    std::uint32_t keep() noexcept { return std::exchange(mCount, 0); }

private:
    Store& mStore;
    std::uint32_t mCount = 0;
};

} // namespace kvdetail
