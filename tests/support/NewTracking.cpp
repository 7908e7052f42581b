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
using BookMap = std::unordered_map<Key, Value, std::hash<Key>, std::equal_to<Key>,
                                   kvinmemory::BookAllocator<std::pair<const Key, Value>>>;

struct Sizes {
    std::mutex mutex;
    BookMap<void*, std::size_t> liveBlocks;
    BookMap<std::size_t, long> liveBySize;
    BookMap<std::size_t, long> callsBySize;
    BookMap<void*, std::size_t> alignedBlocks; // those that only an aligned operator delete may take
};

// Made on first use, since the first block may be wanted before main(), and never destroyed, since the last
// one may be deleted after it.
Sizes& sizes() {
    static auto* const instance = new (std::malloc(sizeof(Sizes))) Sizes;
    return *instance;
}

// Relaxed wherever every allocation passes: a stronger order would order the threads of a test as well, and
// hide from the thread sanitizer what the code under test leaves unordered.
std::atomic<bool> gTrackSizes{false};
std::atomic<long> gLiveBlocks{0};
std::atomic<long> gCalls{0};
std::atomic<long> gWrongDeletes{0};
std::atomic<long> gAlignedBlocks{0};

std::atomic<bool> gArmed{false};
std::atomic<bool> gFromThenOn{false};
std::atomic<long> gCountdown{0};
std::atomic<long> gFailed{0};

bool failsOnDemand() noexcept {
    if (!gArmed.load(std::memory_order_relaxed))
        return false;
    const long left = --gCountdown;
    const bool fails = left == 0 || (left < 0 && gFromThenOn.load());
    if (fails)
        ++gFailed;
    return fails;
}

void enter(void* memory, std::size_t bytes) {
    Sizes& books = sizes();
    const std::lock_guard<std::mutex> guard(books.mutex);
    books.liveBlocks[memory] = bytes;
    ++books.liveBySize[bytes];
}

void countCall(std::size_t bytes) {
    Sizes& books = sizes();
    const std::lock_guard<std::mutex> guard(books.mutex);
    ++books.callsBySize[bytes];
}

void strike(void* memory) {
    Sizes& books = sizes();
    const std::lock_guard<std::mutex> guard(books.mutex);
    const auto found = books.liveBlocks.find(memory);
    if (found == books.liveBlocks.end())
        return;
    --books.liveBySize[found->second];
    books.liveBlocks.erase(found);
}

void noteAligned(void* memory, std::size_t alignment) {
    Sizes& books = sizes();
    const std::lock_guard<std::mutex> guard(books.mutex);
    books.alignedBlocks[memory] = alignment;
    gAlignedBlocks.fetch_add(1, std::memory_order_relaxed);
}

bool forgetAligned(void* memory) {
    if (gAlignedBlocks.load(std::memory_order_relaxed) == 0)
        return false;
    Sizes& books = sizes();
    const std::lock_guard<std::mutex> guard(books.mutex);
    if (books.alignedBlocks.erase(memory) == 0)
        return false;
    gAlignedBlocks.fetch_sub(1, std::memory_order_relaxed);
    return true;
}

void* newMemory(std::size_t bytes, std::size_t alignment) noexcept {
    gCalls.fetch_add(1, std::memory_order_relaxed);
    const bool tracked = gTrackSizes.load(std::memory_order_relaxed);
    if (tracked)
        countCall(bytes);
    if (failsOnDemand())
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
        noteAligned(memory, alignment);
    gLiveBlocks.fetch_add(1, std::memory_order_relaxed);
    if (tracked)
        enter(memory, bytes);
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
        strike(memory);
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
    Sizes& books = sizes();
    const std::lock_guard<std::mutex> guard(books.mutex);
    books.liveBlocks.clear();
    books.liveBySize.clear();
    books.callsBySize.clear();
    gTrackSizes.store(on);
}

long liveNewBlocksOfSize(std::size_t bytes) {
    Sizes& books = sizes();
    const std::lock_guard<std::mutex> guard(books.mutex);
    const auto found = books.liveBySize.find(bytes);
    return found == books.liveBySize.end() ? 0 : found->second;
}

long newCallsOfSize(std::size_t bytes) {
    Sizes& books = sizes();
    const std::lock_guard<std::mutex> guard(books.mutex);
    const auto found = books.callsBySize.find(bytes);
    return found == books.callsBySize.end() ? 0 : found->second;
}

long wrongDeletes() noexcept {
    return gWrongDeletes.load();
}

void failNew(long nth, bool fromThenOn) noexcept {
    gArmed.store(false);
    gFailed.store(0);
    gCountdown.store(nth);
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
