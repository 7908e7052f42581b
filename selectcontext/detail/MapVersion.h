// MapVersion: tells whether the id index has changed since something was last derived from it.
#pragma once

#include "base/detail/NodePool.h"
#include "selectcontext/GxapSelectSet.h"

#include <cstdint>

namespace kvdetail {

// Tells whether a map is as it was when follow() was called. follow() notes the map's node pool, and the
// pool's generation. So isCurrent() also notices that a caller has changed the map by hand, or has replaced
// the map.
//
// Thread safety: only one thread may call follow(). Any number of threads may call isCurrent() at once.
class MapVersion {
public:
    using DataMap = GxapSelectSet::SSetData::DataMap;

    // Returns whether the pool's generation shows every change of the map. For that, the map must have a
    // pool, and the pool must not have nodes of other maps. O(1).
    static bool canFollow(const DataMap& map) noexcept {
        const NodePool* const pool = map.get_allocator().pool();
        return pool && pool->live() == map.size();
    }

    // Records the present state of the map. canFollow() must be true for the map. O(1).
    void follow(const DataMap& map) noexcept {
        NodePool* const pool = map.get_allocator().pool();
        if (!pool)
            return;
        if (pool != mPool.get()) {
            pool->addOwner();
            mPool.reset(pool);
        }
        mGeneration = pool->generation();
    }

    // Returns whether no entry was added, erased or extracted since follow(), and the map still has the pool.
    // O(1).
    bool isCurrent(const DataMap& map) const noexcept {
        const NodePool* const pool = map.get_allocator().pool();
        return pool && pool == mPool.get() && pool->generation() == mGeneration && pool->live() == map.size();
    }

private:
    OwnedNodePool mPool; // owned: otherwise a new pool could get the same address
    std::uint64_t mGeneration = 0;
};

} // namespace kvdetail
