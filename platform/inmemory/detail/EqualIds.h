// EqualIds: the ids that makeEqual() has made equal.
#pragma once

#include "platform/KvDatabase.h"
#include "platform/inmemory/detail/MallocContainers.h"

#include <atomic>
#include <shared_mutex>

namespace kvinmemory::detail {

// Sets of equal ids. The lowest id of a set represents the set.
//
// Invariants:
//  1. mLowest maps each id of a set to the lowest id of the set. The lowest id itself may be absent, and so
//     may an id that equals no other id.
//  2. isEmpty() is true from construction or clear() until the next call of unite().
//
// Thread safety: every function may be called on any thread.
class EqualIds {
public:
    // Takes no lock, because every comparison of ids calls this function.
    bool isEmpty() const noexcept { return !mAny.load(std::memory_order_relaxed); }

    // Makes the ids of both sets equal: the set of `a` and the set of `b`.
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
