#include "base/detail/HugePages.h"

#include <cerrno>
#include <new>

#ifdef __linux__
#include <sys/mman.h>
#endif

namespace kvdetail {
namespace {

constexpr std::align_val_t kAlignment{kHugePageBytes};

// A refusal changes nothing, and errno is the caller's.
void adviseHugePages([[maybe_unused]] void* memory, [[maybe_unused]] std::size_t bytes) noexcept {
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    const int held = errno;
    ::madvise(memory, bytes, MADV_HUGEPAGE);
    errno = held;
#endif
}

} // namespace

void* allocateHugePages(std::size_t bytes) {
    void* const memory = ::operator new(bytes, kAlignment);
    adviseHugePages(memory, bytes / kHugePageBytes * kHugePageBytes);
    return memory;
}

void deallocateHugePages(void* memory) noexcept {
    ::operator delete(memory, kAlignment);
}

} // namespace kvdetail
