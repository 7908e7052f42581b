// IdHash: finds the first index entry of an id without searching the index.
#pragma once

#include "base/detail/NodePool.h"
#include "selectcontext/GxapSelectSet.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace kvdetail {

// A hash table from the id's stub to the first entry of the id in the index: open addressing with linear
// probing, backward-shift deletion, and a load factor of at most three fifths. It is a hint. The id of the
// entry that it finds is compared with c5ObjIdIsEqualTo, and an id that it does not find is searched in the
// index.
//
// Invariants while isCurrent():
//  1. For every id of the index there is one bucket, which leads to the id's first entry.
//  2. No two stubs among the ids name one object, as a hash of stubs would take them for two.
//  3. mGeneration is that of the index's pool. No entry has come, gone or been extracted without the hash
//     being updated, so every bucket leads to an entry that is there.
//
// Thread safety: one thread builds and changes it. Any number of threads may find at once.
class IdHash {
public:
    using DataMap = GxapSelectSet::SSetData::DataMap;

    // The hash of an index, or null where two stubs name one object or there is no memory. O(n).
    static std::unique_ptr<IdHash> build(const DataMap& map) noexcept;

    // The index has not changed without the hash being updated. O(1).
    bool isCurrent(const DataMap& map) const noexcept;

    // The first entry of the id; the end if the hash does not know one. O(1).
    DataMap::const_iterator find(const DataMap& map, const GxDbObjectId& id) const;

    // Loads the id's bucket into the caches, for a peek() or find() that follows soon.
    void prefetch(const GxDbObjectId& id) const noexcept { __builtin_prefetch(&mBuckets[homeOf(id.stub())]); }

    // The entry that find() would compare, or null. For prefetching it: it need not be one of the id. O(1).
    const DataMap::value_type* peek(const GxDbObjectId& id) const noexcept {
        const Bucket& bucket = mBuckets[bucketOf(id.stub())];
        return bucket.stub ? &*bucket.first : nullptr;
    }

    // The entry was added behind the id's other entries. False if the hash cannot follow and has to go.
    // Amortised O(1).
    bool noteAdded(const DataMap& map, DataMap::const_iterator entry) noexcept;

    // The entry is about to be erased. Amortised O(1).
    void noteErasing(const DataMap& map, DataMap::const_iterator entry) noexcept;

    // The hash is up to date with the index as it is now.
    void follow(const DataMap& map) noexcept;

private:
    struct Bucket {
        const GxDbStub* stub = nullptr; // null: an empty bucket
        DataMap::const_iterator first;
    };

    bool collectFirsts(const DataMap& map, std::vector<Bucket>& firsts);
    static unsigned commonLowBits(const std::vector<Bucket>& firsts) noexcept;
    std::size_t next(std::size_t i) const noexcept { return (i + 1) & (mBuckets.size() - 1); }
    std::size_t homeOf(const GxDbStub* stub) const noexcept;
    std::size_t bucketOf(const GxDbStub* stub) const noexcept;
    void enter(const GxDbStub* stub, DataMap::const_iterator first) noexcept;
    void removeBucket(std::size_t gap) noexcept;
    bool hasRoom() const noexcept { return (mUsed + 1) * 5 <= mBuckets.size() * 3; }
    void rehash(std::size_t buckets);
    void useLowerBits(std::uintptr_t differences);

    std::vector<Bucket> mBuckets; // a power of two
    std::size_t mUsed = 0;
    OwnedNodePool mPool; // the index's; owned, so that no other pool gets its address meanwhile
    std::uint64_t mGeneration = 0;
    std::uintptr_t mLowBits = 0;  // of every stub: those in which no two stubs differ
    unsigned mShift = 0;          // the number of these bits
    bool mHasRepeatedIds = false; // some id has, or had, several entries
};

} // namespace kvdetail
