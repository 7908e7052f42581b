// IdHash: finds the first index entry of an id without descending the index.
#pragma once

#include "base/KvLargeBlocks.h"
#include "selectcontext/GxapSelectSet.h"
#include "selectcontext/OwnedNodePool.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace kvdetail {

// A hash from the id's stub to the first entry of the id's run in the index. It is a hint: what it finds is
// compared with c5ObjIdIsEqualTo before it is believed, and what it does not find is looked up in the index.
//
// Invariants while isCurrent():
//  1. For every id of the index there is one place, which leads to the first entry of the id's run.
//  2. No two stubs among the ids name one object: a hash of stubs would not know them for the same.
//  3. mChanges is the number of changes that the index's pool has counted: no entry has come, gone or been
//     taken out behind the hash, so every place leads to an entry that is there.
//
// Thread safety: built and changed by one thread; finding changes nothing.
class IdHash {
public:
    using DataMap = GxapSelectSet::SSetData::DataMap;

    // The hash of an index, or null where two stubs name one object or there is no memory. O(n).
    static std::unique_ptr<IdHash> build(const DataMap& map) noexcept;

    // Nothing has changed the index but what this hash was told of. O(1).
    bool isCurrent(const DataMap& map) const noexcept;

    // The first entry of the id's run; the end where the hash does not know one. O(1).
    DataMap::const_iterator find(const DataMap& map, const GxDbObjectId& id) const;

    // Draws the id's place into the caches, for a peek() or find() that follows soon.
    void prefetch(const GxDbObjectId& id) const noexcept { __builtin_prefetch(&mPlaces[homeOf(id.stub())]); }

    // The entry that find() would look at, or null: for drawing it into the caches, not to be believed. O(1).
    const DataMap::value_type* peek(const GxDbObjectId& id) const noexcept {
        const Place& place = mPlaces[placeOf(id.stub())];
        return place.stub ? &*place.first : nullptr;
    }

    // The entry was added at the end of its id's run. False: the hash cannot follow and has to go. Amortised
    // O(1).
    bool noteAdded(const DataMap& map, DataMap::const_iterator entry) noexcept;

    // The entry is about to be erased. Amortised O(1).
    void noteErasing(const DataMap& map, DataMap::const_iterator entry) noexcept;

    // The index has changed as the hash was told.
    void follow(const DataMap& map) noexcept {
        KvNodePool* const pool = map.get_allocator().pool();
        if (pool != mPool.get()) {
            pool->addOwner();
            mPool.reset(pool);
        }
        mChanges = pool->changes();
    }

private:
    struct Place {
        const GxDbStub* stub = nullptr; // null: a free place
        DataMap::const_iterator first;
    };
    using Places = std::vector<Place, LargeArrayAllocator<Place>>;

    bool collectRuns(const DataMap& map, Places& runs);
    static unsigned commonZeros(const Places& runs) noexcept;
    std::size_t next(std::size_t i) const noexcept { return (i + 1) & (mPlaces.size() - 1); }
    std::size_t homeOf(const GxDbStub* stub) const noexcept;
    std::size_t placeOf(const GxDbStub* stub) const noexcept;
    void enter(const GxDbStub* stub, DataMap::const_iterator first) noexcept;
    void removePlace(std::size_t i) noexcept;
    bool hasRoom() const noexcept { return (mUsed + 1) * 5 <= mPlaces.size() * 3; }
    void grow();

    Places mPlaces; // a power of two
    std::size_t mUsed = 0;
    OwnedNodePool mPool; // the index's; owned, so that no other pool gets its address meanwhile
    std::uint64_t mChanges = 0;
    unsigned mShift = 0;    // low bits that tell no two stubs apart
    bool mHasTwins = false; // some id has, or had, several entries
};

} // namespace kvdetail
