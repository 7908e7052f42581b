// _KvSTLAllocator: supplies the nodes of the id index.
#pragma once

#include "base/KvNodePool.h"
#include "base/KvShortcuts.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <type_traits>
#include <utility>

namespace kvdetail {

// A pointer to a pool in six bytes, which leave one for a flag beside it: seven fit in where a map has room
// beside its comparison, so that a map is as large as with an allocator that has no state. A pool whose
// address has more than 48 bits is none.
class [[gnu::packed]] PoolPointer {
public:
    PoolPointer() noexcept = default;
    explicit PoolPointer(KvNodePool* pool) noexcept {
        const auto address = reinterpret_cast<std::uintptr_t>(pool);
        if (address >> 48 != 0)
            return;
        mLow = static_cast<std::uint32_t>(address);
        mHigh = static_cast<std::uint16_t>(address >> 32);
    }

    KvNodePool* get() const noexcept {
        return reinterpret_cast<KvNodePool*>(std::uintptr_t{mHigh} << 32 | mLow);
    }

private:
    // In parts that are read as they were written: assembling bytes would make every read wait.
    std::uint32_t mLow = 0;
    std::uint16_t mHigh = 0;
};

// The same as one of the pool's owners, in the allocator that a container keeps. A copy is made for a node
// that is taken out, and tells the pool; it owns nothing, for a node keeps its pool alive itself, and not
// every standard library destroys the copy. Whatever is moved owns as its origin does, which keeps its pool.
class PoolShare {
public:
    PoolShare() noexcept = default;
    explicit PoolShare(KvNodePool* pool) noexcept : PoolShare(pool, true) {}
    PoolShare(const PoolShare& other) noexcept : PoolShare(other.get(), false) {
        if (KvNodePool* const lender = get())
            lender->noteTakenOut();
    }
    PoolShare(PoolShare&& other) noexcept : PoolShare(other.get(), other.mIsOwner) {}
    PoolShare& operator=(const PoolShare& other) noexcept {
        PoolShare fresh(other.get(), mIsOwner);
        std::swap(mPool, fresh.mPool);
        return *this;
    }
    ~PoolShare() {
        if (KvNodePool* const shared = mIsOwner ? get() : nullptr)
            shared->release();
    }

    KvNodePool* get() const noexcept { return mPool.get(); }

private:
    PoolShare(KvNodePool* pool, bool isOwner) noexcept : mPool(pool), mIsOwner(isOwner) {
        if (KvNodePool* const shared = isOwner ? get() : nullptr)
            shared->addOwner();
    }

    PoolPointer mPool;
    bool mIsOwner = true;
};
static_assert(sizeof(PoolShare) == 7);

// A map holds the allocator of its nodes. That of its values is what get_allocator() makes of it, also for
// many readers at once, which would hinder each other at counting owners.
template <class T>
struct PoolHolderFor {
    using type = PoolShare;
};
template <class First, class Second>
struct PoolHolderFor<std::pair<First, Second>> {
    using type = PoolPointer;
};

} // namespace kvdetail

// Takes memory from a pool where it has one, else from operator new. Instances with the same pool, or without
// one, free what the others have allocated. A copy of a container takes no part in its pool; a container that
// is moved or swapped takes its pool along, and keeps it alive. What get_allocator() answers does not: it is
// good for as long as the container. std::bad_alloc when there is no memory. O(1).
//
// Thread safety: that of the pool, or of operator new.
template <class T>
struct _KvSTLAllocator {
    using value_type = T;
    using propagate_on_container_move_assignment = std::true_type;
    using propagate_on_container_swap = std::true_type;
    using is_always_equal = std::false_type;

    _KvSTLAllocator() noexcept = default;
    explicit _KvSTLAllocator(KvNodePool* nodes) noexcept : mNodes(nodes) {}
    template <class U>
    _KvSTLAllocator(const _KvSTLAllocator<U>& other) noexcept : mNodes(other.pool()) {}

    _KvSTLAllocator select_on_container_copy_construction() const noexcept { return {}; }

    T* allocate(std::size_t n) {
        KvNodePool* const nodes = pool();
        // A number beyond all memory is refused by the standard's own allocator.
        if (!nodes || n > std::numeric_limits<std::size_t>::max() / sizeof(T))
            return std::allocator<T>().allocate(n);
        return static_cast<T*>(nodes->allocate(n * sizeof(T)));
    }

    void deallocate(T* memory, std::size_t n) noexcept {
        if (KvNodePool* const nodes = pool())
            nodes->deallocate(memory, n * sizeof(T));
        else
            std::allocator<T>().deallocate(memory, n);
    }

    KvNodePool* pool() const noexcept { return mNodes.get(); }

private:
    typename kvdetail::PoolHolderFor<T>::type mNodes;
};

template <class T, class U>
bool operator==(const _KvSTLAllocator<T>& a, const _KvSTLAllocator<U>& b) noexcept {
    return a.pool() == b.pool();
}

template <class T, class U>
bool operator!=(const _KvSTLAllocator<T>& a, const _KvSTLAllocator<U>& b) noexcept {
    return !(a == b);
}
