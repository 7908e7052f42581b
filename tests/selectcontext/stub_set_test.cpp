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

TEST_F(StubSetTest, SetThatCannotGrowKnowsWhatItKnew) {
    kvtest::forEachAllocationFailure([](kvtest::FailurePoint& point) {
        StubSet met;
        unsigned long added = 0;
        const kvtest::Outcome outcome = point.run([&] {
            while (added < 1000 && met.add(stub(added + 1)))
                ++added;
        });
        EXPECT_EQ(outcome.failed, outcome.injected);
        for (unsigned long n = 1; n <= added; ++n)
            ASSERT_FALSE(met.add(stub(n))) << n;
        EXPECT_TRUE(met.add(stub(added + 1)));
    });
}

} // namespace
