#include "tests/support/AllocationFailure.h"

#include "platform/inmemory/InMemoryOsBase.h"
#include "tests/support/KvTest.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace kvtest;

using AllocationFailure = KvTest;

struct Free {
    void operator()(void* memory) const { _kvFree(memory); }
};

// Allocates twice with operator new and twice with _kvMalloc. Every block is freed, also after an exception.
void allocateTwiceEach() {
    for (int i = 0; i < 2; ++i) {
        ::operator delete(::operator new(8));
        const std::unique_ptr<void, Free> block(_kvMalloc(8));
        if (block == nullptr)
            throw new KvErrorStatus(6, L"", 0);
    }
}

TEST_F(AllocationFailure, EveryAllocationFailsInTurnOnceAndFromThenOn) {
    expectNothingLeft();
    std::vector<std::string> fired;
    forEachAllocationFailure([&](FailurePoint& point) {
        const Outcome outcome = point.run(allocateTwiceEach);
        EXPECT_NE(outcome.completed, outcome.failed);
        EXPECT_EQ(outcome.failed, outcome.injected);
        if (outcome.injected)
            fired.push_back((std::ostringstream() << point).str());
    });
    EXPECT_THAT(fired, testing::ElementsAre(
                           "_kvMalloc number 1 fails once", "_kvMalloc number 2 fails once",
                           "_kvMalloc number 1 and all after it fail",
                           "_kvMalloc number 2 and all after it fail", "operator new number 1 fails once",
                           "operator new number 2 fails once", "operator new number 1 and all after it fail",
                           "operator new number 2 and all after it fail"));
    fired = {};
}

TEST_F(AllocationFailure, AFailureThatIsDealtWithIsACompletion) {
    int dealtWith = 0;
    forEachAllocationFailure([&](FailurePoint& point) {
        const Outcome outcome = point.run([] { ::operator delete(::operator new(8, std::nothrow)); });
        EXPECT_TRUE(outcome.completed);
        EXPECT_FALSE(outcome.failed);
        dealtWith += outcome.injected ? 1 : 0;
    });
    EXPECT_EQ(dealtWith, 2);
}

TEST_F(AllocationFailure, MemoryIsThereAgainAfterTheOperation) {
    FailurePoint point(Allocation::New, Failing::FromThenOn, 1);
    EXPECT_TRUE(point.run([] { ::operator delete(::operator new(8)); }).failed);
    EXPECT_NO_THROW(::operator delete(::operator new(8)));
    FailurePoint other(Allocation::KvMalloc, Failing::FromThenOn, 1);
    EXPECT_TRUE(other.run([] { _kvFree(_kvMalloc(8)); }).injected);
    void* block = _kvMalloc(8);
    EXPECT_NE(block, nullptr);
    _kvFree(block);
}

TEST_F(AllocationFailure, AnotherStatusPasses) {
    FailurePoint point(Allocation::KvMalloc, Failing::Once, 1);
    KvErrorStatus* passed = nullptr;
    try {
        point.run([] {
            _kvFree(_kvMalloc(8));
            throw new KvErrorStatus(24, L"", 0);
        });
    } catch (KvErrorStatus* exception) {
        passed = exception;
    }
    ASSERT_NE(passed, nullptr);
    EXPECT_EQ(passed->status(), 24);
    delete passed;
}

TEST_F(AllocationFailure, AnExceptionWithoutAFailurePasses) {
    FailurePoint point(Allocation::KvMalloc, Failing::Once, 1);
    EXPECT_THROW(point.run([] { throw std::bad_alloc(); }), std::bad_alloc);
    FailurePoint other(Allocation::New, Failing::Once, 1);
    EXPECT_THROW(other.run([] { throw 42; }), int);
}

TEST_F(AllocationFailure, AnOperationThatAllocatesNothingIsReported) {
    const auto nothing = [](FailurePoint& point) { point.run([] {}); };
    EXPECT_NONFATAL_FAILURE(forEachAllocationFailure(nothing), "no allocation of the operation");
}

TEST_F(AllocationFailure, AnOperationThatMayNotAllocateIsAskedToBeSilent) {
    forEachAllocationFailure([](FailurePoint& point) { point.run([] {}); }, Expect::None);
    const auto allocating = [](FailurePoint& point) { point.run([] { _kvFree(_kvMalloc(8)); }); };
    EXPECT_NONFATAL_FAILURE(forEachAllocationFailure(allocating, Expect::None), "the operation allocates");
}

} // namespace
