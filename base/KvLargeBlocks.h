// Large blocks of memory that are read in no order.
#pragma once

#include "base/KvBaseExport.h"
#include "base/KvShortcuts.h"

#include <cstddef>
#include <limits>
#include <memory>

namespace kvdetail {

constexpr std::size_t kHugePageBytes = std::size_t{1} << 21;

// A block that begins with a huge page, and is made of them where the system grants any: reading at random in
// ordinary pages takes as long for finding the page as for the reading. Memory that comes from a heap keeps
// its huge pages when the heap uses it for something else. std::bad_alloc when there is no memory. Any
// thread.
KV_BASE_API void* allocateLarge(std::size_t bytes);
KV_BASE_API void deallocateLarge(void* memory) noexcept;

// Takes arrays of at least a huge page as large blocks. For tables that grow with a set.
template <class T>
struct LargeArrayAllocator {
    using value_type = T;

    LargeArrayAllocator() noexcept = default;
    template <class U>
    LargeArrayAllocator(const LargeArrayAllocator<U>& /*other*/) noexcept {}

    T* allocate(std::size_t n) {
        return isLarge(n) ? static_cast<T*>(allocateLarge(n * sizeof(T))) : std::allocator<T>().allocate(n);
    }

    void deallocate(T* memory, std::size_t n) noexcept {
        if (isLarge(n))
            deallocateLarge(memory);
        else
            std::allocator<T>().deallocate(memory, n);
    }

private:
    // A number beyond all memory is refused by the standard's own allocator.
    static bool isLarge(std::size_t n) noexcept {
        return kHasLargeBlocks && n >= kHugePageBytes / sizeof(T) &&
               n <= std::numeric_limits<std::ptrdiff_t>::max() / sizeof(T);
    }
};

template <class T, class U>
bool operator==(const LargeArrayAllocator<T>& /*a*/, const LargeArrayAllocator<U>& /*b*/) noexcept {
    return true;
}

template <class T, class U>
bool operator!=(const LargeArrayAllocator<T>& /*a*/, const LargeArrayAllocator<U>& /*b*/) noexcept {
    return false;
}

} // namespace kvdetail
