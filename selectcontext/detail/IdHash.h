// IdHash: finds the first index entry of an id without searching the index.
#pragma once

#include "base/detail/Same.h"
#include "selectcontext/GxapSelectSet.h"
#include "selectcontext/detail/HashTable.h"
#include "selectcontext/detail/MapVersion.h"

#include <cstddef>
#include <cstdint>

namespace kvdetail {

// A hash table from the stub of an id to the id's first entry in the index. IdIndex searches the index for an
// id that the hash does not have. The hash is built in steps, since building the hash of a million entries at
// once takes 100 to 300 ms.
//
// Invariants while isCurrent():
//  1. The hash has the first entry of every id before mNext, except the null id.
//  2. No two stubs of entries before mNext name one object. The hash would treat two such stubs as two ids.
//  3. The hash was updated for every entry that was added, erased or extracted, and has each entry under its
//     own stub only. So every entry in the hash exists, even if the application makes different ids equal.
//
// Thread safety: one thread builds and changes the hash. Any number of threads may find ids at once.
class IdHash {
public:
    using DataMap = GxapSelectSet::SSetData::DataMap;

    // Makes a hash that has no entry yet. Throws std::bad_alloc if there is no memory.
    explicit IdHash(const DataMap& map) : mNext(map.begin()) { follow(map); }

    // Adds up to kEntriesPerStep further entries of the index. isCurrent() must be true. Returns false if two
    // stubs name one object, or if there is no memory. The caller must then delete the hash. O(1).
    bool addSome(const DataMap& map) noexcept;

    // Returns whether the hash has all entries of the index. O(1).
    bool isComplete(const DataMap& map) const noexcept { return mNext == map.end(); }

    // Returns whether the index has not changed since the last follow(). O(1).
    bool isCurrent(const DataMap& map) const noexcept { return mVersion.isCurrent(map); }

    // Returns the first entry of the id, or the end if the hash does not have the id. isCurrent() and
    // isComplete() must be true. O(1).
    DataMap::const_iterator find(const DataMap& map, const GxDbObjectId& id) const;

    // Loads the id's bucket into the caches, for a peek() or find() that follows soon.
    void prefetch(const GxDbObjectId& id) const noexcept { mFirsts.prefetch(keyOf(id)); }

    // Returns the entry that the hash has for the id, or null. Does not check that the entry is the first of
    // its id. So only prefetching may use the result. O(1).
    const DataMap::value_type* peek(const GxDbObjectId& id) const noexcept {
        const auto* const first = mFirsts.find(keyOf(id));
        return first ? &**first : nullptr;
    }

    // Updates the hash for an entry that was added behind the other entries of its id. Returns false if two
    // stubs name the id's object, or if there is no memory. The caller must then delete the hash. Amortised
    // O(1).
    bool noteAdded(const DataMap& map, DataMap::const_iterator entry) noexcept;

    // Updates the hash before an entry is erased. The caller must then erase the entry. O(1).
    void noteErasing(const DataMap& map, DataMap::const_iterator entry) noexcept;

    // Returns whether so many ids were erased that the hash wastes memory. O(1).
    bool isSparse() const noexcept { return mFirsts.isSparse(); }

    // Marks the hash as up to date with `map`. O(1).
    void follow(const DataMap& map) noexcept { mVersion.follow(map); }

private:
    // Adding this many entries takes at most 0.1 ms, even if they are in no cache.
    static constexpr std::size_t kEntriesPerStep = 256;

    // Returns the key of the id. The null id has the key 0, which is never found.
    static std::uintptr_t keyOf(const GxDbObjectId& id) noexcept {
        return reinterpret_cast<std::uintptr_t>(id.stub());
    }

    HashTable<std::uintptr_t, DataMap::const_iterator> mFirsts;
    MapVersion mVersion;
    DataMap::const_iterator mNext; // the next entry for addSome()
    bool mHasRepeatedIds = false;  // some id has, or had, several entries
};

} // namespace kvdetail
