// PoolHandle: a reference to a node pool, in the allocator of a map.
#pragma once

#include "base/detail/NodePool.h"

#include <cstdint>
#include <utility>

namespace kvdetail {

// A pointer of 48 bits. A map has seven bytes of padding after its comparator. The pointer and a flag fit
// into that padding, so a map with a pool is as large as a map without one. For a pool whose address needs
// more than 48 bits, the pointer is null.
//
// The pointer is written and read as one number of four bytes and one of two bytes. If six single bytes were
// written, reading them as wider numbers would have to wait until all of them are in the cache.
class [[gnu::packed]] PoolPointer {
public:
    PoolPointer() noexcept = default;
    explicit PoolPointer(NodePool* pool) noexcept {
        const auto address = reinterpret_cast<std::uintptr_t>(pool);
        if (address >> 48 != 0)
            return;
        mLow = static_cast<std::uint32_t>(address);
        mHigh = static_cast<std::uint16_t>(address >> 32);
    }

    NodePool* get() const noexcept { return reinterpret_cast<NodePool*>(std::uintptr_t{mHigh} << 32 | mLow); }

private:
    std::uint32_t mLow = 0;
    std::uint16_t mHigh = 0;
};

// Refers to the pool of a map's node allocator.
//
// Invariants:
//  1. The handle in a map is an owner of the pool. When a map is moved, both maps own the pool. Swapping two
//     maps swaps their handles.
//  2. A copy of a handle is no owner. A map copies its node allocator only into the node handle that
//     extract() returns. Some standard libraries never destroy that copy. The extracted node itself keeps the
//     pool alive.
//  3. Copying a handle raises the pool's generation. Nothing else shows that a node was extracted, since the
//     node keeps its address. If copying did not raise the generation, the hash of ids would have to read the
//     entry before each entry that it finds. In a large index, that would be a cache miss per look-up.
//
// Thread safety: that of the pool.
class PoolHandle {
public:
    PoolHandle() noexcept = default;
    explicit PoolHandle(NodePool* pool) noexcept : PoolHandle(pool, true) {}
    PoolHandle(const PoolHandle& other) noexcept : PoolHandle(other.get(), false) {
        if (NodePool* const pool = get())
            pool->noteChanged();
    }
    PoolHandle(PoolHandle&& other) noexcept : PoolHandle(other.get(), other.mIsOwner) {}
    PoolHandle& operator=(const PoolHandle& other) noexcept {
        PoolHandle fresh(other.get(), mIsOwner);
        std::swap(mPool, fresh.mPool);
        return *this;
    }
    ~PoolHandle() {
        if (NodePool* const owned = mIsOwner ? get() : nullptr)
            owned->release();
    }

    NodePool* get() const noexcept { return mPool.get(); }

private:
    PoolHandle(NodePool* pool, bool isOwner) noexcept : mPool(pool), mIsOwner(isOwner) {
        if (NodePool* const owned = isOwner ? get() : nullptr)
            owned->addOwner();
    }

    PoolPointer mPool;
    bool mIsOwner = true;
};
static_assert(sizeof(PoolHandle) == 7, "a map has room for seven bytes behind its comparison");

// Selects how an allocator refers to its pool. The allocator of a map's nodes has a PoolHandle. The allocator
// of the map's values has a PoolPointer, which does not count owners. get_allocator() returns the allocator
// of values, possibly to many readers at once. Counting owners is atomic, so with a PoolHandle the readers
// would wait for each other.
template <class T>
struct PoolHolder {
    using type = PoolHandle;
};
template <class First, class Second>
struct PoolHolder<std::pair<First, Second>> {
    using type = PoolPointer;
};

} // namespace kvdetail
