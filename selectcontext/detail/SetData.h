// SetData: the private part of a set's data. Also the functions on a set's data that several sources use.
#pragma once

#include "selectcontext/GxapSelectSet.h"
#include "selectcontext/detail/IdIndex.h"
#include "selectcontext/detail/RecordPool.h"

#include <cstdint>
#include <memory>
#include <utility>

namespace kvdetail {

// The part of SSetData that callers do not see. Only the thread that may edit the data may use `records`, and
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

// Returns the record in the slot at this address. Returns null if the store has no occupied slot there, or if
// a caller has put null into the slot. Does not return the value of a free slot, which may be the address of
// a deleted record. O(1), or O(pages) for an address that is no slot.
inline selected_entity* recordAt(const Store& store, unsigned long address) noexcept {
    const Store::Slot* const slot = slotAt(address);
    return store.pageOf(slot) && !slot->free ? slot->value : nullptr;
}

// Returns whether the set has data with items.
inline bool hasItems(const GxapSelectSet& set) noexcept {
    return set.sharedData && set.sharedData->entityCount != 0;
}

// Returns whether the set has items and a store.
inline bool hasRecords(const GxapSelectSet& set) noexcept {
    return hasItems(set) && set.sharedData->entities;
}

// Returns new, empty data with a store. `unique` is true and `refCount` is 0.
std::unique_ptr<SSetData> makeData();

// Returns the set's data. If the set has no data, first gives it new, empty data, even if the set is const.
SSetData& dataOf(const GxapSelectSet& set);

// Returns a record with empty vectors, in memory from the data's record pool. Only one handle may use the
// data.
std::unique_ptr<selected_entity> newRecord(const SSetData& data);

// Appends the record to the store, adds its index entry, and raises `entityCount`. If an exception is thrown,
// changes nothing. `place` must be the place behind all index entries of the record's main id.
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
