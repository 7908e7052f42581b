#include "tests/support/AllocationFailure.h"

#include "platform/inmemory/InMemoryOsBase.h"
#include "tests/support/NewTracking.h"

#include <memory>
#include <new>
#include <ostream>

namespace kvtest {

namespace {

constexpr int kOutOfMemory = 6;

// The test fails if an operation allocates more often than this. Without a limit, the test might never end.
constexpr long kMostAllocations = 1000000;

} // namespace

FailurePoint::FailurePoint(Allocation allocation, Failing failing, long nth)
    : mAllocation(allocation), mFailing(failing), mNth(nth) {}

Outcome FailurePoint::run(const std::function<void()>& operation) {
    EXPECT_FALSE(mHasRun) << "the operation is to be run once";
    mHasRun = true;
    arm();
    try {
        operation();
        disarm();
        mOutcome.completed = true;
    } catch (KvErrorStatus* exception) {
        disarm();
        if (!mOutcome.injected || exception->status() != kOutOfMemory)
            throw;
        const std::unique_ptr<KvErrorStatus> owner(exception);
        mOutcome.failed = true;
    } catch (const std::bad_alloc&) {
        disarm();
        if (!mOutcome.injected)
            throw;
        mOutcome.failed = true;
    } catch (...) {
        disarm();
        throw;
    }
    return mOutcome;
}

void FailurePoint::arm() const noexcept {
    if (mAllocation == Allocation::New)
        failNew(mNth, mFailing == Failing::FromThenOn);
    else
        kvinmemory::failMalloc(mNth, mFailing == Failing::FromThenOn ? kvinmemory::FailureMode::FromThenOn
                                                                     : kvinmemory::FailureMode::Once);
}

void FailurePoint::disarm() noexcept {
    allowNew();
    kvinmemory::allowMalloc();
    const long failures = mAllocation == Allocation::New ? failedNews() : kvinmemory::failedMallocs();
    mOutcome.injected = failures > 0;
}

std::ostream& operator<<(std::ostream& out, const FailurePoint& point) {
    out << (point.allocation() == Allocation::New ? "operator new" : "_kvMalloc") << " number "
        << point.nth();
    return out << (point.failing() == Failing::Once ? " fails once" : " and all after it fail");
}

namespace {

// Runs the scenario with one failure point. Returns whether the failure fired.
bool runOnce(const std::function<void(FailurePoint&)>& scenario, FailurePoint& point) {
    SCOPED_TRACE(::testing::Message() << point);
    scenario(point);
    EXPECT_TRUE(point.hasRun()) << "the scenario did not run its operation";
    return point.outcome().injected;
}

// Makes each allocation of this kind fail in turn. Stops when no failure fires, or after a failed check.
// Returns the number of failures that fired before the last run.
long failEach(const std::function<void(FailurePoint&)>& scenario, Allocation allocation, Failing failing) {
    for (long nth = 1; nth <= kMostAllocations; ++nth) {
        FailurePoint point(allocation, failing, nth);
        if (!runOnce(scenario, point) || ::testing::Test::HasFailure())
            return nth - 1;
    }
    ADD_FAILURE() << "the operation never ends allocating";
    return kMostAllocations;
}

} // namespace

void forEachAllocationFailure(const std::function<void(FailurePoint&)>& scenario, Expect expect) {
    long failures = 0;
    for (const Allocation allocation : {Allocation::KvMalloc, Allocation::New}) {
        for (const Failing failing : {Failing::Once, Failing::FromThenOn}) {
            failures += failEach(scenario, allocation, failing);
            if (::testing::Test::HasFailure())
                return;
        }
    }
    if (expect == Expect::Failures) {
        EXPECT_GT(failures, 0) << "no allocation of the operation was ever made to fail";
    } else {
        EXPECT_EQ(failures, 0) << "the operation allocates";
    }
}

} // namespace kvtest
