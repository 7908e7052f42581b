// BulkAppend: appends the records of a whole set at once.
#pragma once

#include "base/KvLargeBlocks.h"
#include "selectcontext/SetDetail.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kvdetail {

// Appends copies of records to data, as appending one after the other does, but looks them up and enters them
// into the index in the order of their ids: the index is walked once, instead of descended for each of them.
// The order of the ids is taken to be that of the stubs' addresses, and each id is compared with the one
// before it, so that an order which is another one is found out.
//
// Invariants:
//  1. A record that is new has an entry in the index from findPlaces() on. The entry names no slot until
//     append() gives it that of the copy.
//  2. Every other record has the end of the index. The entries without a slot go with the BulkAppend.
//
// Thread safety: belongs to the thread that may edit the data.
class BulkAppend {
public:
    // Looking many items up in an order that is not that of their ids is what this is for. O(1).
    static bool isWorthIt(const SSetData& data, const SSetData& added) noexcept;

    // Takes down the records of `added`, which outlive this. `data` has a store, and is shared with nobody.
    // O(n).
    BulkAppend(SSetData& data, const SSetData& added);
    BulkAppend(const BulkAppend&) = delete;
    BulkAppend& operator=(const BulkAppend&) = delete;
    ~BulkAppend();

    // Finds out which records are new. False where the ids have another order, or where two stubs name one
    // object; then nothing is to be appended. std::bad_alloc when there is no memory. O(n + entries of the
    // index).
    bool findPlaces();

    // Appends those that are new. Where memory runs out, those that were appended stay. O(n).
    void append();

private:
    struct Candidate {
        const selected_entity* record;
        DataMap::iterator entry;
    };
    struct Arrival {
        std::uintptr_t stub;
        std::size_t number; // of the candidate
    };
    using Arrivals = std::vector<Arrival, LargeArrayAllocator<Arrival>>;

    Arrivals sortedArrivals() const;
    DataMap::const_iterator enterAllOf(const Arrival* first, const Arrival* last, Run run);
    bool isAmong(const Arrival* first, const Arrival* last, const ItemKeys& keys,
                 const GxGeMatrix3d* matrix) const;

    SSetData& mData;
    std::vector<Candidate, LargeArrayAllocator<Candidate>> mCandidates; // in store order
};

} // namespace kvdetail
