// StoreEpoch: tells an iterator whether a page may have been freed.
#pragma once

#include "base/detail/Export.h"
#include "base/detail/Sanitizers.h"

#include <cstdint>

namespace kvdetail {

// The epoch of one store: a number that rises whenever the store frees a page. An iterator keeps the epoch at
// which its page was last seen. While the store still has that epoch, the page exists. Otherwise the iterator
// must look for its page before it reads the page.
//
// There are kGroups counters, and stores take them in turn. The stores with the same counter are a group.
// When one of them frees a page, the epoch of all of them rises. The iterators of the others then look for
// their pages once without need. Counters are never destroyed.
//
// Invariants:
//  1. A counter begins with the number of its group, and rises by kGroups. So its low bits stay the number of
//     the group, and no two groups have a value in common.
//  2. The values of one group are ordered modulo 2^32.
//
// Thread safety: any thread may call every function. Relaxed operations are enough: a thread needs to see
// only the pages that it has freed itself, and those freed by threads that it has synchronised with.
class KV_BASE_API StoreEpoch {
public:
    StoreEpoch() noexcept;
    StoreEpoch(const StoreEpoch&) = delete;
    StoreEpoch& operator=(const StoreEpoch&) = delete;
    ~StoreEpoch() = default;

    // Returns the present epoch. A walk calls this twice for every item, so the read is volatile and not
    // atomic. After a relaxed atomic load, compilers would read everything else again. That would cost a walk
    // six more instructions an item, a sixth of all. An aligned word is read as a whole even without an
    // atomic load.
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

    // Returns whether `a` is later than `b`. `a` and `b` must be values of one group.
    static bool isLater(std::uint32_t a, std::uint32_t b) noexcept {
        return static_cast<std::int32_t>(a - b) > 0;
    }

    static constexpr std::uint32_t kGroups = 64;

private:
    std::uint32_t* mCounter;
    std::uint32_t mSerial;
};

} // namespace kvdetail
