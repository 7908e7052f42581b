// NthCallTrigger: the counter of an injected failure.
#pragma once

#include <atomic>

namespace kvinmemory::detail {

// Finds the nth call since arm(nth).
//
// Invariants:
//  1. nth() is 0 exactly while the trigger is disarmed.
//  2. countCall() returns another number for each call, so it returns 0 for exactly one call.
//
// Thread safety: every function may be called on any thread. A call that another thread counts during arm()
// belongs to the old count, to the new one, or to none.
class NthCallTrigger {
public:
    // Selects the nth call of countCall() from now on. If `nth` is 1, that is the next call. 0 disarms the
    // trigger.
    void arm(long nth) noexcept {
        mNth.store(0);
        mRemaining.store(nth);
        mNth.store(nth);
    }

    long nth() const noexcept { return mNth.load(); }

    // Counts one call. Returns 0 for the nth call, a negative number for a call before the nth, and a
    // positive number for a call after the nth. If the trigger is disarmed, counts nothing and returns -1.
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
