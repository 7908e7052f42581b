// StoreEpoch: tells an iterator whether a page may have been freed.
#pragma once

#include "base/detail/Export.h"
#include "base/detail/Sanitizers.h"

#include <cstdint>

namespace kvdetail {

// The epoch of one store. It rises whenever the store frees a page. The page of an iterator with the present
// value still exists. An iterator with an earlier value must look for its page before it reads the page.
//
// There is a fixed number of counters, and stores take them in turn. So an epoch also rises for the other
// stores of its group. The iterators of those stores only search once more than necessary. A counter outlives
// every store. So freeing a page can raise the counter of a store that no longer exists.
//
// Invariants:
//  1. A counter rises by kGroups. So its low bits are the number of its group, and no two groups have a value
//     in common.
//  2. The values of one group are ordered modulo 2^32.
//
// Thread safety: any thread may call every function. The counters are relaxed. A thread needs to see only the
// frees of its own stores, and those that it has synchronised with.
class KV_BASE_API StoreEpoch {
public:
    StoreEpoch() noexcept;
    StoreEpoch(const StoreEpoch&) = delete;
    StoreEpoch& operator=(const StoreEpoch&) = delete;
    ~StoreEpoch() = default;

    // Returns the present epoch. A walk calls this twice for every item. The read is volatile and not atomic.
    // A relaxed atomic load would make compilers read everything else again. That would cost a walk six
    // instructions an item, a sixth of its instructions. An aligned word is read whole even without an atomic
    // load.
    std::uint32_t current() const noexcept {
#if KV_THREAD_SANITIZER
        return __atomic_load_n(mCounter, __ATOMIC_RELAXED);
#else
        return *static_cast<const volatile std::uint32_t*>(mCounter);
#endif
    }

    // Raises the epoch. A store calls this when it frees a page that it has made.
    void raise() noexcept;

    // Raises all epochs. A store calls this when it frees a page that another store has made. Any store may
    // have iterators on such a page. O(kGroups).
    static void raiseAll() noexcept;

    // Returns a number that identifies the store. A later store at the same address has another number.
    std::uint32_t serial() const noexcept {
        return mSerial;
    }

    static bool isSameGroup(std::uint32_t a, std::uint32_t b) noexcept {
        return (a ^ b) % kGroups == 0;
    }

    // Returns whether `a` is later than `b`. Both must be values of one group.
    static bool isLater(std::uint32_t a, std::uint32_t b) noexcept {
        return static_cast<std::int32_t>(a - b) > 0;
    }

    static constexpr std::uint32_t kGroups = 64;

private:
    std::uint32_t* mCounter;
    std::uint32_t mSerial;
};

} // namespace kvdetail
