// OrderedIndex: enters the records of a whole store into an empty id index.
#pragma once

#include "base/KvLargeBlocks.h"
#include "selectcontext/GxapSelectSet.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kvdetail {

// Enters records in store order, as entering them one by one does, in linear time: ascending ids one behind
// the other, others once all of them are known and sorted. Sorting goes by the stubs' addresses, which most
// often is the order of the ids. Each entry is compared with the one before it as it is entered, so that an
// order which is not that of the ids is found out; the records are then entered one by one.
//
// Invariants until finish():
//  1. While mAscends is true, the index has an entry for every record that was added, and mWaiting is empty.
//  2. Otherwise the index is empty, and mWaiting has every record that was added, in store order.
//
// Thread safety: belongs to the thread that may edit the data.
class OrderedIndex {
public:
    // `data` has an empty index and outlives this.
    explicit OrderedIndex(GxapSelectSet::SSetData& data) : mData(data) {}
    OrderedIndex(const OrderedIndex&) = delete;
    OrderedIndex& operator=(const OrderedIndex&) = delete;

    // The slot is occupied, and holds a record. Amortised O(1).
    void add(const GxapSelectSet::SSetData::Store::Slot* slot);

    // Every record of the store was added: completes the index. O(n), O(n log n) where the ids are ordered in
    // a way of their own. An index that finds no memory is left incomplete.
    void finish();

private:
    struct Waiting {
        std::uintptr_t stub;
        const GxapSelectSet::SSetData::Store::Slot* slot;
    };
    using WaitingList = std::vector<Waiting, LargeArrayAllocator<Waiting>>;

    bool enterNext(const GxDbObjectId& id, unsigned long address);
    void startWaiting();
    bool enterSorted();
    void enterOneByOne();

    GxapSelectSet::SSetData& mData;
    WaitingList mWaiting;
    bool mAscends = true;
};

} // namespace kvdetail
