#include "tests/selectcontext/model/RecordTracking.h"

#include "selectcontext/RecordPool.h"
#include "selectcontext/selected_entity.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <new>
#include <unordered_set>

// The linker takes what shared libraries call for references to the wrappers, which have to be visible for
// that.
extern "C" {
void* __real_malloc(std::size_t bytes);
void __real_free(void* memory);
__attribute__((visibility("default"))) void* __wrap_malloc(std::size_t bytes);
__attribute__((visibility("default"))) void __wrap_free(void* memory);
}

namespace {

// The books are no part of what they watch.
template <class T>
struct UnwatchedAllocator {
    using value_type = T;

    UnwatchedAllocator() noexcept = default;
    template <class U>
    UnwatchedAllocator(const UnwatchedAllocator<U>&) noexcept {}

    T* allocate(std::size_t n) {
        void* const memory = __real_malloc(n * sizeof(T));
        if (!memory)
            throw std::bad_alloc();
        return static_cast<T*>(memory);
    }
    void deallocate(T* memory, std::size_t) noexcept { __real_free(memory); }
};

template <class T, class U>
bool operator==(const UnwatchedAllocator<T>&, const UnwatchedAllocator<U>&) noexcept {
    return true;
}

using Blocks =
    std::unordered_set<const void*, std::hash<const void*>, std::equal_to<>, UnwatchedAllocator<const void*>>;

struct Books {
    Blocks records;
    std::vector<void*, UnwatchedAllocator<void*>> fresh;
    Blocks chunks;       // each with many records of a larger set
    Blocks chunkRecords; // those of them that were taken as new
};

// Brings the books on the records of chunks up to date: strikes those that are gone, and enters those that
// are new. Returns how many there are.
std::size_t countChunkRecords(Books& books) {
    Blocks live;
    for (const void* chunk : books.chunks) {
        kvdetail::RecordPool::forEachOfChunk(const_cast<void*>(chunk), [&](selected_entity* record) {
            live.insert(record);
            if (books.chunkRecords.count(record) == 0)
                books.fresh.push_back(record);
        });
    }
    books.chunkRecords.swap(live);
    return books.chunkRecords.size();
}

// Made on first use and never destroyed: blocks come before main() and go after it.
Books& books() {
    static auto* const instance = new (__real_malloc(sizeof(Books))) Books;
    return *instance;
}

// Another chunk may come to lie where this one was, with records that are new.
void forgetRecordsOf(const void* chunk) {
    Blocks& records = books().chunkRecords;
    const auto* const first = static_cast<const unsigned char*>(chunk);
    for (auto record = records.begin(); record != records.end();) {
        const auto* const at = static_cast<const unsigned char*>(*record);
        const bool isOfChunk = at >= first && at < first + kvdetail::RecordPool::kChunkBytes;
        record = isOfChunk ? records.erase(record) : std::next(record);
    }
}

bool gRecordsAreMade = false;

} // namespace

void* __wrap_malloc(std::size_t bytes) {
    void* const memory = __real_malloc(bytes);
    if (gRecordsAreMade && memory && bytes == sizeof(selected_entity)) {
        books().records.insert(memory);
        books().fresh.push_back(memory);
    }
    if (memory && bytes == kvdetail::RecordPool::kChunkBytes)
        books().chunks.insert(memory);
    return memory;
}

void __wrap_free(void* memory) {
    if (memory) {
        books().records.erase(memory);
        if (books().chunks.erase(memory) != 0)
            forgetRecordsOf(memory);
    }
    __real_free(memory);
}

namespace kvmodel {

RecordsAreMade::RecordsAreMade() noexcept {
    gRecordsAreMade = true;
}

RecordsAreMade::~RecordsAreMade() {
    gRecordsAreMade = false;
}

void isNoRecord(const void* block) {
    books().records.erase(block);
}

bool isLiveRecord(const void* record) {
    return books().records.count(record) != 0 || books().chunkRecords.count(record) != 0;
}

std::size_t liveRecordCount() {
    return books().records.size() + countChunkRecords(books());
}

std::vector<void*> takeNewRecords() {
    Books& b = books();
    countChunkRecords(b);
    std::vector<void*> taken(b.fresh.begin(), b.fresh.end());
    // An address may have been given out twice.
    std::sort(taken.begin(), taken.end());
    taken.erase(std::unique(taken.begin(), taken.end()), taken.end());
    taken.erase(std::remove_if(taken.begin(), taken.end(), [](void* r) { return !isLiveRecord(r); }),
                taken.end());
    b.fresh.clear();
    return taken;
}

} // namespace kvmodel
