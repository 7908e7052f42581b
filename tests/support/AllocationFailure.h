// Failure injection: runs an operation repeatedly, and makes one allocation after the other fail.
#pragma once

#include "platform/KvOsBase.h"

#include <functional>
#include <gtest/gtest.h>
#include <iosfwd>
#include <new>

namespace kvtest {

enum class Allocation { KvMalloc, New };
enum class Failing { Once, FromThenOn };

// What happened in a run of the operation.
struct Outcome {
    bool completed = false; // the operation returned
    bool failed = false;    // the operation threw KvErrorStatus 6 or std::bad_alloc
    bool injected = false;  // the failure fired
};

// One injected failure: the nth allocation of one kind.
//
// Invariants:
//  1. The failure is armed only during run().
//  2. run() may be called once. hasRun() returns whether it was called.
//
// Thread safety: a failure point belongs to one thread. It makes allocations of every thread fail.
class FailurePoint {
public:
    FailurePoint(Allocation allocation, Failing failing, long nth);

    // Arms the failure, runs the operation and disarms the failure. If the failure fired, run() catches
    // KvErrorStatus 6 and std::bad_alloc. It lets every other exception pass.
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
    Failures, // the operation allocates: a failure must fire at least once
    None      // the operation does not allocate: no failure may fire
};

// Calls scenario(point) with a failure at allocation 1, 2, ... of each kind, until no failure fires. Does
// this in two modes: the allocation fails once, or it and all later ones fail. The scenario must make new
// objects, and call point.run([&] { operation }) once. Then it must check the objects against
// point.outcome(). The function returns early after a failed check.
void forEachAllocationFailure(const std::function<void(FailurePoint&)>& scenario,
                              Expect expect = Expect::Failures);

} // namespace kvtest
