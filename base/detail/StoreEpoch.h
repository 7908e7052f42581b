// StoreEpoch: tells an iterator whether it may have missed that a page was freed.
#pragma once

#include "base/detail/Export.h"
#include "base/detail/Sanitizers.h"

#include <cstdint>

namespace kvdetail {

// The epoch of one store. It is raised whenever the store frees a page. An iterator that carries the present
// value stands on a page that is still there. An iterator that carries an earlier one has to look for its
// page before it reads it.
//
// Stores share a fixed number of counters in turn, so an epoch rises for the other stores of its group, too:
// the only cost is a search that was not needed. A counter outlives every store, so a page that a caller has
// moved into another store can raise the epoch of the one that it left.
//
// Invariants:
//  1. A counter rises by kGroups, so its low bits are the number of its group and no two groups ever have a
//     value in common.
//  2. The values of one group are ordered modulo 2^32.
//
// Thread safety: every function may be called from any thread. The counters are relaxed: a thread has to see
// the frees of its own stores, and those it has synchronised with.
class KV_BASE_API StoreEpoch {
public:
    StoreEpoch() noexcept;
    StoreEpoch(const StoreEpoch&) = delete;
    StoreEpoch& operator=(const StoreEpoch&) = delete;
    ~StoreEpoch() = default;

    // A walk asks twice for every item. The read is volatile and not atomic: compilers take even a relaxed
    // atomic load for a reason to read everything else again, which costs a walk six instructions an item
    // (a sixth of it). An aligned word is read whole all the same.
    std::uint32_t current() const noexcept {
#if KV_THREAD_SANITIZER
        return __atomic_load_n(mCounter, __ATOMIC_RELAXED);
#else
        return *static_cast<const volatile std::uint32_t*>(mCounter);
#endif
    }

    // A page that was made in this store is freed by it.
    void raise() noexcept;

    // A page that was made in another store is freed. Any store may have iterators on it. O(kGroups).
    static void raiseAll() noexcept;

    // Tells stores apart, also those that lie at the same address one after the other.
    std::uint32_t serial() const noexcept {
        return mSerial;
    }

    static bool isSameGroup(std::uint32_t a, std::uint32_t b) noexcept {
        return (a ^ b) % kGroups == 0;
    }

    // For two values of one group.
    static bool isLater(std::uint32_t a, std::uint32_t b) noexcept {
        return static_cast<std::int32_t>(a - b) > 0;
    }

    static constexpr std::uint32_t kGroups = 64;

private:
    std::uint32_t* mCounter;
    std::uint32_t mSerial;
};

} // namespace kvdetail
