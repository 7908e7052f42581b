// NthCallTrigger: counts the calls before an injected failure.
#pragma once

#include <atomic>

namespace kvinmemory::detail {

// Finds the nth call since arm(nth).
//
// Invariants:
//  1. nth() is 0 exactly while the trigger is disarmed.
//  2. While the trigger is armed, each call of countCall() returns a different number. So only one call
//     returns 0.
//
// Thread safety: every function may be called on any thread. A call of countCall() during arm() may count for
// the old nth call, for the new one, or for neither.
class NthCallTrigger {
public:
    // Starts a new count, whose nth call gets 0 from countCall(). If `nth` is 1, that is the next call. If
    // `nth` is 0, disarms the trigger.
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
