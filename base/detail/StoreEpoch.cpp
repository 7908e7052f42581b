#include "base/detail/StoreEpoch.h"

#include <atomic>

namespace kvdetail {
namespace {

// Each counter has a cache line of its own. So threads that edit different sets do not slow each other down.
struct alignas(64) Counter {
    std::uint32_t value = 0;
};

template <std::uint32_t Count>
struct Counters {
    constexpr Counters() noexcept {
        for (std::uint32_t i = 0; i < Count; ++i)
            values[i].value = i;
    }

    Counter values[Count];
};

} // namespace

// sCounters is initialised at compile time, since static objects of the application may make sets before the
// constructors of this library run.
static Counters<StoreEpoch::kGroups> sCounters;
static std::atomic<std::uint32_t> sStores{0};

StoreEpoch::StoreEpoch() noexcept
    : mCounter(nullptr), mSerial(sStores.fetch_add(1, std::memory_order_relaxed)) {
    mCounter = &sCounters.values[mSerial % kGroups].value;
}

void StoreEpoch::raise() noexcept {
    __atomic_fetch_add(mCounter, kGroups, __ATOMIC_RELAXED);
}

void StoreEpoch::raiseAll() noexcept {
    for (Counter& counter : sCounters.values)
        __atomic_fetch_add(&counter.value, kGroups, __ATOMIC_RELAXED);
}

} // namespace kvdetail
