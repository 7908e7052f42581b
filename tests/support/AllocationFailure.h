// Runs an operation again and again, failing another one of its allocations each time.
#pragma once

#include "platform/KvOsBase.h"

#include <functional>
#include <gtest/gtest.h>
#include <iosfwd>
#include <new>

namespace kvtest {

enum class Allocation { KvMalloc, New };
enum class Failing { Once, FromThenOn };

struct Outcome {
    bool completed = false; // the operation came back
    bool failed = false;    // it threw KvErrorStatus 6 or std::bad_alloc, which was swallowed
    bool injected = false;  // an allocation really failed
};

// One allocation that is to fail: the nth of one kind.
class FailurePoint {
public:
    FailurePoint(Allocation allocation, Failing failing, long nth);

    // Arms the failure, runs the operation and disarms again. Exactly KvErrorStatus 6 and std::bad_alloc are
    // swallowed, and only if a failure fired; whatever else is thrown passes. To be called once.
    Outcome run(const std::function<void()>& operation);

    bool hasRun() const noexcept { return mHasRun; }
    const Outcome& outcome() const noexcept { return mOutcome; }
    Allocation allocation() const noexcept { return mAllocation; }
    Failing failing() const noexcept { return mFailing; }
    long nth() const noexcept { return mNth; }

private:
    void arm() const noexcept;
    void disarm() noexcept;

    Allocation mAllocation;
    Failing mFailing;
    long mNth;
    bool mHasRun = false;
    Outcome mOutcome;
};

std::ostream& operator<<(std::ostream& out, const FailurePoint& point);

enum class Expect {
    Failures, // the operation allocates: a failure has to fire at least once
    None      // it does not: no failure may ever fire
};

// Calls scenario(point) for the allocations number 1, 2, ... of each kind, failing once and from then on,
// until no failure fires any more. The scenario builds fresh state, calls point.run([&] { operation }) once
// and checks the state against point.outcome(). Ends early when a check has failed.
void forEachAllocationFailure(const std::function<void(FailurePoint&)>& scenario,
                              Expect expect = Expect::Failures);

} // namespace kvtest
