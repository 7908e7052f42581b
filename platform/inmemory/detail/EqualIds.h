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
//  1. mLowest maps each id that is not the lowest of its set to the lowest id of the set. Lowest ids, and ids
//     that equal no other, may be absent.
//  2. isEmpty() is true exactly while no two ids have been made equal.
//
// Thread safety: every function may be called on any thread.
class EqualIds {
public:
    // Returns true while no ids have been made equal. Comparisons of ids call isEmpty() first. isEmpty()
    // takes no lock.
    bool isEmpty() const noexcept { return !mAny.load(std::memory_order_relaxed); }

    // Unites the sets of two ids.
    void unite(const GxDbStub* a, const GxDbStub* b);

    // Returns the lowest id of this id's set.
    const GxDbStub* lowest(const GxDbStub* stub) const noexcept;

    void clear();

private:
    const GxDbStub* find(const GxDbStub* stub) const noexcept;

    std::atomic<bool> mAny{false};
    mutable std::shared_mutex mMutex;
    MallocMap<const GxDbStub*, const GxDbStub*> mLowest;
};

} // namespace kvinmemory::detail
