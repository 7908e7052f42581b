// EqualIds: the ids that a test has made equal.
#pragma once

#include "platform/KvDatabase.h"
#include "platform/inmemory/detail/MallocContainers.h"

#include <atomic>
#include <shared_mutex>

namespace kvinmemory::detail {

// Disjoint sets of ids. The lowest id of a set represents it.
//
// Invariants:
//  1. mLowest maps each id that is not the lowest of its set to the lowest one. Representatives and ids that
//     equal no other may be absent.
//  2. isEmpty() is true exactly while no two ids were made equal.
//
// Thread safety: every function may be called on any thread.
class EqualIds {
public:
    // Comparisons of ids ask this first, without a lock.
    bool isEmpty() const noexcept { return !mAny.load(std::memory_order_relaxed); }

    // Unites the sets of two ids.
    void unite(const GxDbStub* a, const GxDbStub* b);

    // The lowest id of the set of this id.
    const GxDbStub* lowest(const GxDbStub* stub) const noexcept;

    void clear();

private:
    const GxDbStub* find(const GxDbStub* stub) const noexcept;

    std::atomic<bool> mAny{false};
    mutable std::shared_mutex mMutex;
    MallocMap<const GxDbStub*, const GxDbStub*> mLowest;
};

} // namespace kvinmemory::detail
