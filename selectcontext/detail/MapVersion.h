// MapVersion: whether the id index has changed behind the back of what is kept beside it.
#pragma once

#include "base/detail/NodePool.h"
#include "selectcontext/GxapSelectSet.h"

#include <cstdint>

namespace kvdetail {

// The state of an index at one moment, by the generation of the pool of its nodes. Callers may change the
// index by hand, and replace it.
//
// Thread safety: one thread calls follow(). Any number of threads may ask isCurrent() at once.
class MapVersion {
public:
    using DataMap = GxapSelectSet::SSetData::DataMap;

    // The generation tells: the map has a pool, and no other map has nodes of it. O(1).
    static bool canFollow(const DataMap& map) noexcept {
        const NodePool* const pool = map.get_allocator().pool();
        return pool && pool->live() == map.size();
    }

    // From now on the version is that of the map as it is, for which canFollow(). O(1).
    void follow(const DataMap& map) noexcept {
        NodePool* const pool = map.get_allocator().pool();
        if (pool != mPool.get()) {
            pool->addOwner();
            mPool.reset(pool);
        }
        mGeneration = pool->generation();
    }

    // No entry has come, gone, or been extracted since follow(). O(1).
    bool isCurrent(const DataMap& map) const noexcept {
        const NodePool* const pool = map.get_allocator().pool();
        return pool && pool == mPool.get() && pool->generation() == mGeneration && pool->live() == map.size();
    }

private:
    OwnedNodePool mPool; // owned, so that no other pool gets its address meanwhile
    std::uint64_t mGeneration = 0;
};

} // namespace kvdetail
