// _KvSTLAllocator: allocates the nodes of the id index.
#pragma once

#include "base/detail/Export.h"
#include "base/detail/PoolHandle.h"

#include <cstddef>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

// Takes memory from its pool, or from operator new if it has no pool. An instance can free what another
// allocated if both have the same pool, or if both have none. A copied container has no pool. Moving or
// swapping a container moves or swaps the pool too, and keeps it alive. The allocator that get_allocator()
// returns is valid as long as the container. std::bad_alloc if there is no memory. O(1).
//
// Thread safety: that of the pool, or of operator new.
template <class T>
struct _KvSTLAllocator {
    using value_type = T;
    using propagate_on_container_move_assignment = std::true_type;
    using propagate_on_container_swap = std::true_type;
    using is_always_equal = std::false_type;

    _KvSTLAllocator() noexcept = default;
    explicit _KvSTLAllocator(kvdetail::NodePool* nodes) noexcept : mNodes(nodes) {}
    template <class U>
    _KvSTLAllocator(const _KvSTLAllocator<U>& other) noexcept : mNodes(other.pool()) {}

    _KvSTLAllocator select_on_container_copy_construction() const noexcept { return {}; }

    T* allocate(std::size_t n) {
        kvdetail::NodePool* const nodes = pool();
        // std::allocator refuses a number that exceeds all memory.
        if (!nodes || n > std::numeric_limits<std::size_t>::max() / sizeof(T))
            return std::allocator<T>().allocate(n);
        return static_cast<T*>(nodes->allocate(n * sizeof(T)));
    }

    void deallocate(T* memory, std::size_t n) noexcept {
        if (kvdetail::NodePool* const nodes = pool())
            nodes->deallocate(memory, n * sizeof(T));
        else
            std::allocator<T>().deallocate(memory, n);
    }

    // An assignment to a container may reuse its old nodes. Only this call tells the pool so.
    template <class U, class... Args>
    void construct(U* value, Args&&... args) {
        if (kvdetail::NodePool* const nodes = pool())
            nodes->noteChanged();
        ::new (static_cast<void*>(value)) U(std::forward<Args>(args)...);
    }

    template <class U>
    void destroy(U* value) noexcept {
        if (kvdetail::NodePool* const nodes = pool())
            nodes->noteChanged();
        value->~U();
    }

    kvdetail::NodePool* pool() const noexcept { return mNodes.get(); }

private:
    typename kvdetail::PoolHolder<T>::type mNodes;
};

template <class T, class U>
bool operator==(const _KvSTLAllocator<T>& a, const _KvSTLAllocator<U>& b) noexcept {
    return a.pool() == b.pool();
}

template <class T, class U>
bool operator!=(const _KvSTLAllocator<T>& a, const _KvSTLAllocator<U>& b) noexcept {
    return !(a == b);
}
