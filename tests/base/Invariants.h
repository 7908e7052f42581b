// Checks the invariants of the containers in base/. The invariants hold between two operations.
#pragma once

#include "base/GxArray.h"
#include "base/KvTrucker.h"
#include "base/KvVector.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

namespace kvtest {

template <class T, class Allocator, class RefCounter, class GrowPolicy>
::testing::AssertionResult invariants(const KvVector<T, Allocator, RefCounter, GrowPolicy>& vector) {
    using ::testing::AssertionFailure;
    const KvVectorBlock* block = vector.data.block;
    if (!block) {
        if (vector.logicalLength() != 0 || vector.physicalLength() != 0)
            return AssertionFailure() << "a vector without a block has length " << vector.logicalLength()
                                      << " and capacity " << vector.physicalLength();
        return ::testing::AssertionSuccess();
    }
    if (block->refCount.load() == 0)
        return AssertionFailure() << "the block of a living vector has no owner";
    if (block->logicalLength < 0 || block->logicalLength > block->physicalLength)
        return AssertionFailure() << "length " << block->logicalLength << " does not fit capacity "
                                  << block->physicalLength;
    if ((block->physicalLength > 0) != (block->array != nullptr))
        return AssertionFailure() << "capacity " << block->physicalLength << " with storage " << block->array;
    if (vector.logicalLength() != block->logicalLength || vector.physicalLength() != block->physicalLength ||
        vector.growLength() != block->growLength)
        return AssertionFailure() << "the vector reports other lengths than its block holds";
    const KvVectorBlock* empty = gpEmptyVectorData;
    if (empty && (empty->logicalLength != 0 || empty->physicalLength != 0 || empty->array))
        return AssertionFailure() << "the shared empty block is no longer empty";
    return ::testing::AssertionSuccess();
}

template <class T, class Reallocator>
::testing::AssertionResult invariants(const GxArray<T, Reallocator>& array) {
    using ::testing::AssertionFailure;
    if (array.mLogicalLength < 0 || array.mLogicalLength > array.mPhysicalLength)
        return AssertionFailure() << "length " << array.mLogicalLength << " does not fit capacity "
                                  << array.mPhysicalLength;
    if ((array.mPhysicalLength > 0) != (array.mArray != nullptr))
        return AssertionFailure() << "capacity " << array.mPhysicalLength << " with storage "
                                  << static_cast<const void*>(array.mArray);
    if (array.logicalLength() != array.mLogicalLength || array.physicalLength() != array.mPhysicalLength ||
        array.growLength() != array.mGrowLength)
        return AssertionFailure() << "the array reports other lengths than it holds";
    return ::testing::AssertionSuccess();
}

template <class T, unsigned PageBytes, class Allocator>
::testing::AssertionResult pageInvariants(const KvTrucker<T, PageBytes, Allocator>& store,
                                          const typename KvTrucker<T, PageBytes, Allocator>::Page& page) {
    using ::testing::AssertionFailure;
    using Slot = typename KvTrucker<T, PageBytes, Allocator>::Slot;
    constexpr std::ptrdiff_t kSlots = PageBytes / sizeof(Slot);
    if (!page.slots)
        return AssertionFailure() << "a page without slots";
    const std::ptrdiff_t used = page.fillEnd - page.slots;
    if (used < 0 || used > kSlots)
        return AssertionFailure() << "the filled part ends at slot " << used << " of " << kSlots;
    if (&page != store.tail && used != kSlots)
        return AssertionFailure() << "a page before the tail has " << used << " used slots of " << kSlots;
    std::uint32_t occupied = 0;
    for (std::ptrdiff_t i = 0; i < kSlots; ++i) {
        const Slot& slot = page.slots[i];
        if (slot.free > 1)
            return AssertionFailure() << "slot " << i << " is marked " << int{slot.free};
        if (slot.free == 0 && i >= used)
            return AssertionFailure() << "slot " << i << " was never handed out but is occupied";
        occupied += slot.free == 0 ? 1u : 0u;
    }
    if (occupied != page.liveCount)
        return AssertionFailure() << "a page counts " << page.liveCount << " but holds " << occupied;
    return ::testing::AssertionSuccess();
}

template <class T, unsigned PageBytes, class Allocator>
::testing::AssertionResult invariants(const KvTrucker<T, PageBytes, Allocator>& store) {
    using ::testing::AssertionFailure;
    using Page = typename KvTrucker<T, PageBytes, Allocator>::Page;
    if ((store.head == nullptr) != (store.tail == nullptr))
        return AssertionFailure() << "a store with a head or a tail alone";
    const Page* last = nullptr;
    const Page* slow = store.head;
    bool stepSlow = false;
    for (const Page* page = store.head; page; page = page->next) {
        const auto sound = pageInvariants(store, *page);
        if (!sound)
            return sound;
        last = page;
        slow = stepSlow ? slow->next : slow;
        stepSlow = !stepSlow;
        if (page->next && page->next == slow)
            return AssertionFailure() << "the pages form a ring";
    }
    if (last != store.tail)
        return AssertionFailure() << "the last page of the chain is not the tail";
    return ::testing::AssertionSuccess();
}

} // namespace kvtest
