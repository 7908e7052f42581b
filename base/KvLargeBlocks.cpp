#include "base/KvLargeBlocks.h"

#include <cerrno>
#include <new>

#ifdef __linux__
#include <sys/mman.h>
#endif

namespace kvdetail {
namespace {

constexpr std::align_val_t kAlignment{kHugePageBytes};

// Where the system refuses, all stays as it is: nobody has to hear of it.
void adviseHugePages([[maybe_unused]] void* memory, [[maybe_unused]] std::size_t bytes) noexcept {
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    const int held = errno;
    ::madvise(memory, bytes, MADV_HUGEPAGE);
    errno = held;
#endif
}

} // namespace

void* allocateLarge(std::size_t bytes) {
    void* const memory = ::operator new(bytes, kAlignment);
    adviseHugePages(memory, bytes / kHugePageBytes * kHugePageBytes);
    return memory;
}

void deallocateLarge(void* memory) noexcept {
    ::operator delete(memory, kAlignment);
}

} // namespace kvdetail
