#include "selectcontext/StubSet.h"

#include "tests/support/AllocationFailure.h"
#include "tests/support/Ids.h"
#include "tests/support/KvTest.h"

#include <gtest/gtest.h>

#include <random>
#include <unordered_set>

namespace {

using kvdetail::StubSet;

class StubSetTest : public kvtest::KvTest {};

const GxDbStub* stub(unsigned long n) {
    return kvtest::id(n).stub();
}

TEST_F(StubSetTest, StubIsNewOnce) {
    StubSet met;
    EXPECT_TRUE(met.add(stub(1)));
    EXPECT_TRUE(met.add(stub(2)));
    EXPECT_FALSE(met.add(stub(1)));
    EXPECT_FALSE(met.add(stub(2)));
}

TEST_F(StubSetTest, NullIsNeverKnown) {
    StubSet met;
    EXPECT_TRUE(met.add(nullptr));
    EXPECT_TRUE(met.add(nullptr));
}

TEST_F(StubSetTest, KnowsWhatAStandardSetKnows) {
    std::mt19937 random(1);
    std::uniform_int_distribution<unsigned long> numbers(1, 3000);
    StubSet met;
    std::unordered_set<const GxDbStub*> expected;
    for (int i = 0; i < 20000; ++i) {
        const GxDbStub* const next = stub(numbers(random));
        ASSERT_EQ(met.add(next), expected.insert(next).second);
    }
}

// A stub is never called known that was not added before.
TEST_F(StubSetTest, SetThatCannotGrowForgetsButDoesNotInvent) {
    kvtest::forEachAllocationFailure([](kvtest::FailurePoint& point) {
        StubSet met;
        const kvtest::Outcome outcome = point.run([&] {
            for (unsigned long n = 1; n <= 1000; ++n)
                EXPECT_TRUE(met.add(stub(n))) << n;
        });
        EXPECT_FALSE(outcome.failed);
        EXPECT_EQ(met.add(stub(1)), outcome.injected);
    });
}

} // namespace
