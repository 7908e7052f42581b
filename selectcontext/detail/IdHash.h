// IdHash: finds the first index entry of an id without searching the index.
#pragma once

#include "base/detail/Same.h"
#include "selectcontext/GxapSelectSet.h"
#include "selectcontext/detail/HashTable.h"
#include "selectcontext/detail/MapVersion.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace kvdetail {

// A hash table from the stub of an id to the id's first entry in the index. The hash is a hint: an id that it
// does not have is searched in the index.
//
// Invariants while isCurrent():
//  1. The hash has the first entry of every id of the index, except the null id.
//  2. No two stubs in the index name one object. A hash of stubs would treat them as two ids.
//  3. Every added, erased or extracted entry has updated the hash. So every entry in the hash exists.
//
// Thread safety: one thread builds and changes the hash. Any number of threads may find ids at once.
class IdHash {
public:
    using DataMap = GxapSelectSet::SSetData::DataMap;

    // Hashes an index. Returns null if two stubs name one object, or if there is no memory. O(n).
    static std::unique_ptr<IdHash> build(const DataMap& map) noexcept;

    // Returns whether the hash has been updated with every change of the index. O(1).
    bool isCurrent(const DataMap& map) const noexcept { return mVersion.isCurrent(map); }

    // Returns the first entry of the id, or the end if the hash does not have the id. isCurrent() must be
    // true. O(1).
    DataMap::const_iterator find(const DataMap& map, const GxDbObjectId& id) const;

    // Loads the id's bucket into the caches, for a peek() or find() that follows soon.
    void prefetch(const GxDbObjectId& id) const noexcept { mFirsts.prefetch(keyOf(id)); }

    // Returns the entry that the hash has for the id, or null. For prefetching. O(1).
    const DataMap::value_type* peek(const GxDbObjectId& id) const noexcept {
        const auto* const first = mFirsts.find(keyOf(id));
        return first ? &**first : nullptr;
    }

    // Updates the hash for an entry that was added behind the id's other entries. Returns false if that is
    // impossible: two stubs name one object, or there is no memory. The caller must then delete the hash.
    // Amortised O(1).
    bool noteAdded(const DataMap& map, DataMap::const_iterator entry) noexcept;

    // Updates the hash before an entry is erased. The caller must then erase the entry. O(1).
    void noteErasing(const DataMap& map, DataMap::const_iterator entry) noexcept;

    // Returns whether most of the ids have been erased, so that the hash wastes memory. O(1).
    bool isSparse() const noexcept { return mFirsts.isSparse(); }

    // Marks the hash as up to date with the present index. O(1).
    void follow(const DataMap& map) noexcept { mVersion.follow(map); }

    explicit IdHash(std::size_t ids) : mFirsts(ids) {}

private:
    // Returns the key of the id. The null id has the key 0, which is never found.
    static std::uintptr_t keyOf(const GxDbObjectId& id) noexcept {
        return reinterpret_cast<std::uintptr_t>(id.stub());
    }

    HashTable<std::uintptr_t, DataMap::const_iterator> mFirsts;
    MapVersion mVersion;
    bool mHasRepeatedIds = false; // some id has, or had, several entries
};

} // namespace kvdetail
