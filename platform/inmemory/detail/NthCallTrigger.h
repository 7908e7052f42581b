// NthCallTrigger: the counter of an injected failure.
#pragma once

#include <atomic>

namespace kvinmemory::detail {

// A one-shot counter that finds the nth call since it was armed.
//
// Invariants:
//  1. nth() is 0 exactly while the trigger is disarmed.
//  2. Each counted call has a distance of its own, so exactly one call is the nth.
//
// Thread safety: every function may be called on any thread. A call that another thread counts during arm()
// belongs to the old count, to the new one, or to none.
class NthCallTrigger {
public:
    // Selects the nth call from now on. 1 is the next call. 0 disarms the trigger.
    void arm(long nth) noexcept {
        mNth.store(0);
        mRemaining.store(nth);
        mNth.store(nth);
    }

    long nth() const noexcept { return mNth.load(); }

    // Counts one call. Returns its distance from the nth call: negative before it, 0 at it, positive after
    // it. If the trigger is disarmed, counts nothing and returns -1.
    long countCall() noexcept {
        if (mNth.load(std::memory_order_relaxed) == 0)
            return -1;
        return -(mRemaining.fetch_sub(1) - 1);
    }

private:
    std::atomic<long> mNth{0};
    std::atomic<long> mRemaining{0};
};

} // namespace kvinmemory::detail
