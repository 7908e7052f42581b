// Memory in huge pages, for large tables and pools that are read in no order.
#pragma once

#include "base/detail/Export.h"
#include "base/detail/Shortcuts.h"

#include <cstddef>
#include <limits>
#include <memory>

namespace kvdetail {

constexpr std::size_t kHugePageBytes = std::size_t{1} << 21;

// A block that begins with a huge page, and consists of them where the system grants any. A random read in
// ordinary pages spends half of its time on the translation of the address. The heap keeps the pages when it
// uses the memory again. std::bad_alloc when there is no memory. Any thread.
KV_BASE_API void* allocateHugePages(std::size_t bytes);
KV_BASE_API void deallocateHugePages(void* memory) noexcept;

// Takes arrays of a huge page or more in huge pages. For tables that grow with a set.
template <class T>
struct HugePageAllocator {
    using value_type = T;

    HugePageAllocator() noexcept = default;
    template <class U>
    HugePageAllocator(const HugePageAllocator<U>& /*other*/) noexcept {}

    T* allocate(std::size_t n) {
        return isLarge(n) ? static_cast<T*>(allocateHugePages(n * sizeof(T)))
                          : std::allocator<T>().allocate(n);
    }

    void deallocate(T* memory, std::size_t n) noexcept {
        if (isLarge(n))
            deallocateHugePages(memory);
        else
            std::allocator<T>().deallocate(memory, n);
    }

private:
    // The standard's own allocator refuses a number that exceeds all memory.
    static bool isLarge(std::size_t n) noexcept {
        return kHasHugePages && n >= kHugePageBytes / sizeof(T) &&
               n <= std::numeric_limits<std::ptrdiff_t>::max() / sizeof(T);
    }
};

template <class T, class U>
bool operator==(const HugePageAllocator<T>& /*a*/, const HugePageAllocator<U>& /*b*/) noexcept {
    return true;
}

template <class T, class U>
bool operator!=(const HugePageAllocator<T>& /*a*/, const HugePageAllocator<U>& /*b*/) noexcept {
    return false;
}

} // namespace kvdetail
