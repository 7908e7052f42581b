#include "tests/selectcontext/RecordLedger.h"

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
    return memory;
}

void __wrap_free(void* memory) {
    if (gOpen)
        addresses().erase(memory);
    __real_free(memory);
}

namespace kvtest {

void openRecordLedger() {
    addresses().clear();
    gOpen = true;
}

void closeRecordLedger() {
    gOpen = false;
    gAtNextRecord = nullptr;
    addresses().clear();
}

// The answer's own memory may have the size of a record, too.
std::vector<selected_entity*> liveRecords() {
    const bool wasOpen = std::exchange(gOpen, false);
    std::vector<selected_entity*> records;
    records.reserve(addresses().size());
    for (void* memory : addresses())
        records.push_back(static_cast<selected_entity*>(memory));
    gOpen = wasOpen;
    return records;
}

bool isLiveRecord(const selected_entity* record) {
    return addresses().count(const_cast<selected_entity*>(record)) != 0;
}

void atNextRecord(std::function<void()> call) {
    gAtNextRecord = std::move(call);
}

} // namespace kvtest
