// Lets the owner of long work watch it and end it.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <stdexcept>

namespace picker {

// Thrown by work that was told to end.
class Cancelled : public std::runtime_error {
public:
    Cancelled() : std::runtime_error("cancelled") {}
};

// The link between long work and its owner. The work calls check() at each of its steps.
//
// Thread safety: request() may be called on any thread and in a signal handler. Everything else belongs to
// the thread of the work.
class Interrupt {
public:
    // Called now and then with the number of steps since reset(). May call request().
    using Progress = std::function<void(std::size_t)>;

    void request() noexcept { mIsRequested = true; }
    bool isRequested() const noexcept { return mIsRequested; }
    // Forgets a request that came before the work began, and counts steps from 0.
    void reset() noexcept {
        mIsRequested = false;
        mSteps = 0;
    }
    void setProgress(Progress progress) { mProgress = std::move(progress); }

    // Throws Cancelled if the end was requested.
    void check() {
        constexpr std::size_t kStepsBetweenReports = 4096;
        if (++mSteps % kStepsBetweenReports == 0 && mProgress)
            mProgress(mSteps);
        if (mIsRequested)
            throw Cancelled();
    }

private:
    static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler sets it");
    std::atomic<bool> mIsRequested{false};
    std::size_t mSteps = 0;
    Progress mProgress;
};

} // namespace picker
