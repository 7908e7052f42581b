// _KvSTLAllocator: allocates the nodes of the id index, and of sets of ids.
#pragma once

#include "base/detail/Export.h"
#include "base/detail/PoolHandle.h"

#include <cstddef>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

// Allocates from a pool, or by operator new if the allocator has no pool. An allocator can free the memory of
// another one if both have the same pool, or if neither has a pool. Throws std::bad_alloc if there is no
// memory. O(1).
//
// A container that is constructed as a copy of another one has no pool. When a container is moved, the new
// container uses the same pool. When two containers are swapped, their pools are swapped, too. A pool lives
// as long as a container uses it. An allocator that get_allocator() returns must not be used after its
// container is gone.
//
// Thread safety: that of the pool, or of operator new.
template <class T>
struct _KvSTLAllocator {
    // What containers ask of an allocator.
    using value_type = T;
    using propagate_on_container_move_assignment = std::true_type;
    using propagate_on_container_swap = std::true_type;
    using is_always_equal = std::false_type;

    // Makes an allocator without a pool.
    _KvSTLAllocator() noexcept = default;

    // Makes an allocator with this pool. Null means no pool.
    explicit _KvSTLAllocator(kvdetail::NodePool* nodes) noexcept : mNodes(nodes) {}

    // Makes an allocator with the pool of `other`.
    template <class U>
    _KvSTLAllocator(const _KvSTLAllocator<U>& other) noexcept : mNodes(other.pool()) {}

    // Returns an allocator without a pool, for the copy of a container.
    _KvSTLAllocator select_on_container_copy_construction() const noexcept { return {}; }

    // Returns memory for n values.
    T* allocate(std::size_t n) {
        kvdetail::NodePool* const nodes = pool();
        // std::allocator throws if the size in bytes overflows.
        if (!nodes || n > std::numeric_limits<std::size_t>::max() / sizeof(T))
            return std::allocator<T>().allocate(n);
        return static_cast<T*>(nodes->allocate(n * sizeof(T)));
    }

    // Frees memory for n values that an equal allocator has returned.
    void deallocate(T* memory, std::size_t n) noexcept {
        if (kvdetail::NodePool* const nodes = pool())
            nodes->deallocate(memory, n * sizeof(T));
        else
            std::allocator<T>().deallocate(memory, n);
    }

    // Constructs a value, and raises the pool's generation. It would not be enough if allocate() raised the
    // generation: a container that is assigned to may reuse its nodes without calling allocate().
    template <class U, class... Args>
    void construct(U* value, Args&&... args) {
        if (kvdetail::NodePool* const nodes = pool())
            nodes->noteChanged();
        ::new (static_cast<void*>(value)) U(std::forward<Args>(args)...);
    }

    // Destroys a value, and raises the pool's generation.
    template <class U>
    void destroy(U* value) noexcept {
        if (kvdetail::NodePool* const nodes = pool())
            nodes->noteChanged();
        value->~U();
    }

    // Returns the pool, which the allocator does not own alone, or null.
    kvdetail::NodePool* pool() const noexcept { return mNodes.get(); }

private:
    typename kvdetail::PoolHolder<T>::type mNodes;
};

// Returns whether both allocators have the same pool, or none. Then each can free the memory of the other.
template <class T, class U>
bool operator==(const _KvSTLAllocator<T>& a, const _KvSTLAllocator<U>& b) noexcept {
    return a.pool() == b.pool();
}

// Returns the opposite of ==.
template <class T, class U>
bool operator!=(const _KvSTLAllocator<T>& a, const _KvSTLAllocator<U>& b) noexcept {
    return !(a == b);
}
