#include "tests/selectcontext/support/RecordLedger.h"

#include "selectcontext/RecordPool.h"

#include <cstddef>
#include <functional>
#include <new>
#include <unordered_set>
#include <utility>

// The linker counts the calls of shared libraries as references to the wrappers, so these have to be visible.
extern "C" {
void* __real_malloc(std::size_t bytes);
void __real_free(void* memory);
__attribute__((visibility("default"))) void* __wrap_malloc(std::size_t bytes);
__attribute__((visibility("default"))) void __wrap_free(void* memory);
}

namespace {

// The ledger's own memory is no business of the ledger.
template <class T>
struct UnwrappedAllocator {
    using value_type = T;

    UnwrappedAllocator() noexcept = default;
    template <class U>
    UnwrappedAllocator(const UnwrappedAllocator<U>&) noexcept {}

    T* allocate(std::size_t n) {
        void* memory = __real_malloc(n * sizeof(T));
        if (memory == nullptr)
            throw std::bad_alloc();
        return static_cast<T*>(memory);
    }
    void deallocate(T* memory, std::size_t) noexcept { __real_free(memory); }
};

template <class T, class U>
bool operator==(const UnwrappedAllocator<T>&, const UnwrappedAllocator<U>&) noexcept {
    return true;
}

template <class T, class U>
bool operator!=(const UnwrappedAllocator<T>&, const UnwrappedAllocator<U>&) noexcept {
    return false;
}

using Addresses =
    std::unordered_set<void*, std::hash<void*>, std::equal_to<void*>, UnwrappedAllocator<void*>>;

Addresses& addresses() {
    static Addresses instance;
    return instance;
}

// Those of a larger set, many to a block.
Addresses& chunks() {
    static Addresses instance;
    return instance;
}

// Calls visit(record) for every record of a chunk, too.
template <class Visit>
void forEachRecord(Visit visit) {
    for (void* memory : addresses())
        visit(static_cast<selected_entity*>(memory));
    for (void* memory : chunks())
        kvdetail::RecordPool::forEachOfChunk(memory, visit);
}

bool gOpen = false;
std::function<void()> gAtNextRecord;

void recordMade(void* memory) {
    addresses().insert(memory);
    if (!gAtNextRecord)
        return;
    const std::function<void()> call = std::exchange(gAtNextRecord, nullptr);
    call();
}

} // namespace

void* __wrap_malloc(std::size_t bytes) {
    void* const memory = __real_malloc(bytes);
    if (gOpen && memory != nullptr && bytes == sizeof(selected_entity))
        recordMade(memory);
    if (gOpen && memory != nullptr && bytes == kvdetail::RecordPool::kChunkBytes)
        chunks().insert(memory);
    return memory;
}

void __wrap_free(void* memory) {
    if (gOpen) {
        addresses().erase(memory);
        chunks().erase(memory);
    }
    __real_free(memory);
}

namespace kvtest {

void openRecordLedger() {
    addresses().clear();
    chunks().clear();
    gOpen = true;
}

void closeRecordLedger() {
    gOpen = false;
    gAtNextRecord = nullptr;
    addresses().clear();
    chunks().clear();
}

// The answer's own memory may have the size of a record, too.
std::vector<selected_entity*> liveRecords() {
    const bool wasOpen = std::exchange(gOpen, false);
    std::vector<selected_entity*> records;
    forEachRecord([&records](selected_entity* record) { records.push_back(record); });
    gOpen = wasOpen;
    return records;
}

long liveRecordBlocks() {
    return static_cast<long>(addresses().size());
}

bool isLiveRecord(const selected_entity* record) {
    bool isLive = false;
    forEachRecord([&](const selected_entity* live) { isLive = isLive || live == record; });
    return isLive;
}

void atNextRecord(std::function<void()> call) {
    gAtNextRecord = std::move(call);
}

} // namespace kvtest
