// A call that is to fail: the nth from the moment of arming.
#pragma once

#include <atomic>

namespace kvinmemory {

class Countdown {
public:
    // 0 never fires.
    void arm(long nth) noexcept {
        mNth.store(nth);
        mLeft.store(nth);
    }

    long nth() const noexcept { return mNth.load(); }

    // Counts one call. Answers how far it is beyond the nth: negative before, 0 for the call itself. Not
    // armed: -1.
    long count() noexcept {
        if (mNth.load(std::memory_order_relaxed) == 0)
            return -1;
        return -(mLeft.fetch_sub(1) - 1);
    }

private:
    std::atomic<long> mNth{0};
    std::atomic<long> mLeft{0};
};

} // namespace kvinmemory
