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
// Thread safety: a failure point belongs to one thread. The armed failure counts the allocations of all
// threads.
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

// Calls scenario(point) with a failure at allocation 1, then at allocation 2, and so on, until no failure
// fires. Does so for each kind of allocation, and in two modes: only that allocation fails, or all later ones
// fail, too. Each call of the scenario must make new objects, call point.run([&] { operation }) once, and
// check the objects against point.outcome(). The function returns early after a failed check.
void forEachAllocationFailure(const std::function<void(FailurePoint&)>& scenario,
                              Expect expect = Expect::Failures);

} // namespace kvtest
