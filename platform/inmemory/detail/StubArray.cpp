#include "platform/inmemory/detail/StubArray.h"

#include <algorithm>
#include <cstdint>
#include <new>
#include <stdexcept>
#include <sys/mman.h>
#include <type_traits>

namespace kvinmemory::detail {

namespace {

// Reserved memory is made readable and writable in steps of this size. Memory that is only reserved costs
// nothing, even on a system that does not overcommit memory.
constexpr std::size_t kStepBytes = std::size_t{1} << 20;

std::size_t roundedUp(std::size_t bytes) noexcept {
    return (bytes + kStepBytes - 1) / kStepBytes * kStepBytes;
}

} // namespace

static_assert(std::is_trivially_destructible_v<GxDbStub>, "unmapping the pages ends the stubs");

StubArray::StubArray(std::size_t capacity)
    : mCapacity(capacity), mReservedBytes(roundedUp(std::max<std::size_t>(capacity, 1) * sizeof(GxDbStub))) {
    void* memory =
        mmap(nullptr, mReservedBytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED)
        throw std::bad_alloc();
    mFirst = static_cast<GxDbStub*>(memory);
}

StubArray::~StubArray() {
    munmap(mFirst, mReservedBytes);
}

GxDbStub& StubArray::append() {
    const std::size_t i = size();
    if (i == mCapacity)
        throw std::length_error("the database is full");
    commit((i + 1) * sizeof(GxDbStub));
    GxDbStub* stub = new (mFirst + i) GxDbStub;
    mSize.store(i + 1, std::memory_order_release);
    return *stub;
}

bool StubArray::contains(const GxDbStub* stub) const noexcept {
    const auto address = reinterpret_cast<std::uintptr_t>(stub);
    const auto first = reinterpret_cast<std::uintptr_t>(mFirst);
    if (address < first)
        return false;
    const std::uintptr_t offset = address - first;
    return offset % sizeof(GxDbStub) == 0 && offset / sizeof(GxDbStub) < size();
}

void StubArray::commit(std::size_t bytes) {
    if (bytes <= mCommittedBytes)
        return;
    const std::size_t wanted = roundedUp(bytes);
    if (mprotect(mFirst, wanted, PROT_READ | PROT_WRITE) != 0)
        throw std::bad_alloc();
    mCommittedBytes = wanted;
}

} // namespace kvinmemory::detail
