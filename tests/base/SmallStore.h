// A paged store with four slots a page. A few elements fill several pages.
#pragma once

#include "base/KvTrucker.h"
#include "tests/base/StoreSlots.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kvtest {

using SmallStore = KvTrucker<long, 64u>;

constexpr std::uint32_t kNotFound = 0xFFFFFFFFu;
constexpr unsigned kNoIndex = 0xFFFFFFFFu;
constexpr std::ptrdiff_t kSmallPageSlots = 4;

static_assert(sizeof(SmallStore::Slot) == 16, "a small page holds four slots");

// Appends 0, 1, ... count - 1 and returns their slots.
inline std::vector<SmallStore::Slot*> fill(SmallStore& store, int count) {
    std::vector<SmallStore::Slot*> slots;
    for (long value = 0; value < count; ++value)
        slots.push_back(store.append(value));
    return slots;
}

// Returns the page at this ordinal of the chain. The head has ordinal 0.
template <class Store>
typename Store::Page* pageAt(const Store& store, int ordinal) {
    auto* page = store.head;
    while (page && ordinal-- > 0)
        page = page->next;
    return page;
}

// Returns the values of the occupied slots. Reads the pages directly.
inline std::vector<long> valuesOf(const SmallStore& store) {
    std::vector<long> values;
    for (const SmallStore::Slot* slot : occupiedSlots(store))
        values.push_back(slot->value);
    return values;
}

// Returns the values from the iterator to the end. Gives up after more values than any test stores, because a
// faulty walk may never end.
inline std::vector<long> walkFrom(const SmallStore& store, SmallStore::iterator it) {
    constexpr std::size_t kGiveUp = 100000;
    std::vector<long> values;
    while (!store.isEnd(it) && values.size() < kGiveUp) {
        values.push_back(*it);
        it.next();
    }
    return values;
}

inline SmallStore::iterator beforeFirst(const SmallStore& store) {
    SmallStore::iterator it = store.end();
    it.page = nullptr;
    it.pageEnd = nullptr;
    it.slot = nullptr;
    it.position = kBeforeFirst;
    return it;
}

// Removes the element at this index through an iterator.
inline void removeIndex(SmallStore& store, int index) {
    SmallStore::iterator it = store.iteratorAt(index);
    store.removeAt(it);
}

} // namespace kvtest
