#include "tests/support/NewTracking.h"

#include "platform/inmemory/InMemoryOsBase.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <new>
#include <unordered_map>

namespace {

template <class Key, class Value>
using MallocMap = std::unordered_map<Key, Value, std::hash<Key>, std::equal_to<Key>,
                                     kvinmemory::MallocAllocator<std::pair<const Key, Value>>>;

// The blocks of operator new. The table's own memory comes from malloc.
//
// Invariants:
//  1. liveBlocks, liveBySize and callsBySize describe the blocks and calls since tracking was turned on.
//  2. alignedBlocks has each live block that only an aligned operator delete may free.
//
// Thread safety: `mutex` guards the other members.
struct BlockTable {
    std::mutex mutex;
    MallocMap<void*, std::size_t> liveBlocks; // their sizes
    MallocMap<std::size_t, long> liveBySize;
    MallocMap<std::size_t, long> callsBySize;
    MallocMap<void*, std::size_t> alignedBlocks; // their alignments
};

// Returns the table. The first call makes the table, because operator new may run before main(). The table is
// never destroyed, because operator delete may run after main().
BlockTable& blockTable() {
    static auto* const instance = new (std::malloc(sizeof(BlockTable))) BlockTable;
    return *instance;
}

// Every allocation accesses some of these variables. The accesses are relaxed while no failure is armed: a
// stronger order would also order the threads of a test, and hide data races from the thread sanitizer.
std::atomic<bool> gTrackSizes{false};
std::atomic<long> gLiveBlocks{0};
std::atomic<long> gCalls{0};
std::atomic<long> gWrongDeletes{0};
std::atomic<long> gAlignedBlocks{0};

std::atomic<bool> gArmed{false};
std::atomic<bool> gFromThenOn{false};
std::atomic<long> gRemaining{0};
std::atomic<long> gFailed{0};

// Counts a call of operator new while failures are armed. Returns whether the call must fail.
bool injectsFailure() noexcept {
    if (!gArmed.load(std::memory_order_relaxed))
        return false;
    const long remaining = --gRemaining;
    const bool fails = remaining == 0 || (remaining < 0 && gFromThenOn.load());
    if (fails)
        ++gFailed;
    return fails;
}

void recordAllocation(void* memory, std::size_t bytes) {
    BlockTable& table = blockTable();
    const std::lock_guard<std::mutex> guard(table.mutex);
    table.liveBlocks[memory] = bytes;
    ++table.liveBySize[bytes];
}

void recordCall(std::size_t bytes) {
    BlockTable& table = blockTable();
    const std::lock_guard<std::mutex> guard(table.mutex);
    ++table.callsBySize[bytes];
}

void recordFree(void* memory) {
    BlockTable& table = blockTable();
    const std::lock_guard<std::mutex> guard(table.mutex);
    const auto found = table.liveBlocks.find(memory);
    if (found == table.liveBlocks.end())
        return;
    --table.liveBySize[found->second];
    table.liveBlocks.erase(found);
}

void recordAligned(void* memory, std::size_t alignment) {
    BlockTable& table = blockTable();
    const std::lock_guard<std::mutex> guard(table.mutex);
    table.alignedBlocks[memory] = alignment;
    gAlignedBlocks.fetch_add(1, std::memory_order_relaxed);
}

// Forgets an aligned block. Returns whether the block was aligned.
bool forgetAligned(void* memory) {
    if (gAlignedBlocks.load(std::memory_order_relaxed) == 0)
        return false;
    BlockTable& table = blockTable();
    const std::lock_guard<std::mutex> guard(table.mutex);
    if (table.alignedBlocks.erase(memory) == 0)
        return false;
    gAlignedBlocks.fetch_sub(1, std::memory_order_relaxed);
    return true;
}

void* newMemory(std::size_t bytes, std::size_t alignment) noexcept {
    gCalls.fetch_add(1, std::memory_order_relaxed);
    const bool tracked = gTrackSizes.load(std::memory_order_relaxed);
    if (tracked)
        recordCall(bytes);
    if (injectsFailure())
        return nullptr;
    const std::size_t wanted = std::max<std::size_t>(bytes, 1);
    void* memory = nullptr;
    if (alignment <= alignof(std::max_align_t))
        memory = std::malloc(wanted);
    else if (posix_memalign(&memory, alignment, wanted) != 0)
        memory = nullptr;
    if (memory == nullptr)
        return nullptr;
    if (alignment > alignof(std::max_align_t))
        recordAligned(memory, alignment);
    gLiveBlocks.fetch_add(1, std::memory_order_relaxed);
    if (tracked)
        recordAllocation(memory, bytes);
    return memory;
}

void* newMemoryOrThrow(std::size_t bytes, std::size_t alignment) {
    void* memory = newMemory(bytes, alignment);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

void deleteMemory(void* memory, bool asAligned = false) noexcept {
    if (memory == nullptr)
        return;
    if (forgetAligned(memory) != asAligned)
        ++gWrongDeletes;
    if (kvinmemory::isTrackingMemory() && kvinmemory::isLiveBlock(memory)) {
        ++gWrongDeletes;
        return;
    }
    gLiveBlocks.fetch_sub(1, std::memory_order_relaxed);
    if (gTrackSizes.load(std::memory_order_relaxed))
        recordFree(memory);
    std::free(memory);
}

constexpr std::size_t kDefaultAlignment = alignof(std::max_align_t);

std::size_t number(std::align_val_t alignment) noexcept {
    return static_cast<std::size_t>(alignment);
}

} // namespace

void* operator new(std::size_t bytes) {
    return newMemoryOrThrow(bytes, kDefaultAlignment);
}
void* operator new[](std::size_t bytes) {
    return newMemoryOrThrow(bytes, kDefaultAlignment);
}
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
    return newMemory(bytes, kDefaultAlignment);
}
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept {
    return newMemory(bytes, kDefaultAlignment);
}
void* operator new(std::size_t bytes, std::align_val_t alignment) {
    return newMemoryOrThrow(bytes, number(alignment));
}
void* operator new[](std::size_t bytes, std::align_val_t alignment) {
    return newMemoryOrThrow(bytes, number(alignment));
}
void* operator new(std::size_t bytes, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return newMemory(bytes, number(alignment));
}
void* operator new[](std::size_t bytes, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return newMemory(bytes, number(alignment));
}

void operator delete(void* memory) noexcept {
    deleteMemory(memory);
}
void operator delete[](void* memory) noexcept {
    deleteMemory(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
    deleteMemory(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
    deleteMemory(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    deleteMemory(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    deleteMemory(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    deleteMemory(memory, true);
}
void operator delete[](void* memory, std::align_val_t) noexcept {
    deleteMemory(memory, true);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    deleteMemory(memory, true);
}
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept {
    deleteMemory(memory, true);
}
void operator delete(void* memory, std::align_val_t, const std::nothrow_t&) noexcept {
    deleteMemory(memory, true);
}
void operator delete[](void* memory, std::align_val_t, const std::nothrow_t&) noexcept {
    deleteMemory(memory, true);
}

namespace kvtest {

long liveNewBlocks() noexcept {
    return gLiveBlocks.load();
}

long newCalls() noexcept {
    return gCalls.load();
}

void trackNewSizes(bool on) {
    BlockTable& table = blockTable();
    const std::lock_guard<std::mutex> guard(table.mutex);
    table.liveBlocks.clear();
    table.liveBySize.clear();
    table.callsBySize.clear();
    gTrackSizes.store(on);
}

long liveNewBlocksOfSize(std::size_t bytes) {
    BlockTable& table = blockTable();
    const std::lock_guard<std::mutex> guard(table.mutex);
    const auto found = table.liveBySize.find(bytes);
    return found == table.liveBySize.end() ? 0 : found->second;
}

long newCallsOfSize(std::size_t bytes) {
    BlockTable& table = blockTable();
    const std::lock_guard<std::mutex> guard(table.mutex);
    const auto found = table.callsBySize.find(bytes);
    return found == table.callsBySize.end() ? 0 : found->second;
}

long wrongDeletes() noexcept {
    return gWrongDeletes.load();
}

void failNew(long nth, bool fromThenOn) noexcept {
    gArmed.store(false);
    gFailed.store(0);
    gRemaining.store(nth);
    gFromThenOn.store(fromThenOn);
    gArmed.store(true);
}

void allowNew() noexcept {
    gArmed.store(false);
}

long failedNews() noexcept {
    return gFailed.load();
}

} // namespace kvtest
