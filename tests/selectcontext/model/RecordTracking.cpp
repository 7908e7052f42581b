#include "tests/selectcontext/model/RecordTracking.h"

#include "selectcontext/selected_entity.h"

#include <algorithm>
#include <functional>
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

struct Books {
    std::unordered_set<const void*, std::hash<const void*>, std::equal_to<>, UnwatchedAllocator<const void*>>
        records;
    std::vector<void*, UnwatchedAllocator<void*>> fresh;
};

// Made on first use and never destroyed: blocks come before main() and go after it.
Books& books() {
    static auto* const instance = new (__real_malloc(sizeof(Books))) Books;
    return *instance;
}

bool gRecordsAreMade = false;

} // namespace

void* __wrap_malloc(std::size_t bytes) {
    void* const memory = __real_malloc(bytes);
    if (gRecordsAreMade && memory && bytes == sizeof(selected_entity)) {
        books().records.insert(memory);
        books().fresh.push_back(memory);
    }
    return memory;
}

void __wrap_free(void* memory) {
    if (memory)
        books().records.erase(memory);
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
    return books().records.count(record) != 0;
}

std::size_t liveRecordCount() {
    return books().records.size();
}

std::vector<void*> takeNewRecords() {
    Books& b = books();
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
