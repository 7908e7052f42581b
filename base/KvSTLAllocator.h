// _KvSTLAllocator: supplies the nodes of the id index.
#pragma once

#include <cstddef>
#include <memory>

// A stateless allocator: any instance frees what any other has allocated. std::bad_alloc when there is no
// memory. Thread safety: that of operator new.
template <class T>
struct _KvSTLAllocator {
    using value_type = T;

    _KvSTLAllocator() noexcept = default;
    template <class U>
    _KvSTLAllocator(const _KvSTLAllocator<U>&) noexcept {}

    T* allocate(std::size_t n) { return std::allocator<T>().allocate(n); }
    void deallocate(T* memory, std::size_t n) noexcept { std::allocator<T>().deallocate(memory, n); }
};

template <class T, class U>
bool operator==(const _KvSTLAllocator<T>&, const _KvSTLAllocator<U>&) noexcept {
    return true;
}

template <class T, class U>
bool operator!=(const _KvSTLAllocator<T>& a, const _KvSTLAllocator<U>& b) noexcept {
    return !(a == b);
}
