#include "base/detail/Same.h"

#include "base/KvVector.h"
#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/support/Ids.h"
#include "tests/support/KvTest.h"

#include <gtest/gtest.h>

namespace {

using kvdetail::isSame;
using kvtest::id;
using kvtest::idVector;

long comparisons() {
    return kvinmemory::idEqualityCalls() + kvinmemory::idOrderCalls();
}

class SameTest : public kvtest::KvTest {
protected:
    void SetUp() override {
        KvTest::SetUp();
        kvinmemory::makeEqual(id(3), id(900));
        kvinmemory::countIdComparisons(true);
    }
};

TEST_F(SameTest, IdsWithOneStubAreEqualWithoutAsking) {
    EXPECT_TRUE(isSame(id(1), id(1)));
    EXPECT_TRUE(isSame(GxDbObjectId(), GxDbObjectId()));
    EXPECT_EQ(comparisons(), 0);
}

TEST_F(SameTest, ApplicationIsAskedAboutDifferentStubs) {
    EXPECT_FALSE(isSame(id(1), id(2)));
    EXPECT_TRUE(isSame(id(3), id(900)));
    EXPECT_EQ(kvinmemory::idEqualityCalls(), 2);
}

TEST_F(SameTest, OtherValuesAreComparedByTheirOperator) {
    struct Value {
        int n;
        bool operator==(const Value& other) const { return n % 10 == other.n % 10; }
    };
    EXPECT_TRUE(isSame(Value{3}, Value{13}));
    EXPECT_FALSE(isSame(Value{3}, Value{4}));
}

// A NaN does not equal itself.
TEST_F(SameTest, OtherValuesAreComparedEvenIfTheyAreOneObject) {
    const double none = __builtin_nan("");
    EXPECT_FALSE(isSame(none, none));
}

TEST_F(SameTest, VectorsOfEqualStubsAreEqualWithoutAsking) {
    const KvVector<GxDbObjectId> one = idVector({1, 0, 3}), other = idVector({1, 0, 3});
    ASSERT_NE(one.data.block, other.data.block);
    EXPECT_TRUE(one == other);
    EXPECT_EQ(comparisons(), 0);
}

TEST_F(SameTest, ApplicationIsAskedAboutTheDifferentStubsOfVectors) {
    EXPECT_TRUE(idVector({1, 900, 2}) == idVector({1, 3, 2}));
    EXPECT_EQ(comparisons(), 1);
    EXPECT_FALSE(idVector({1, 4, 2}) == idVector({1, 3, 2}));
    EXPECT_EQ(comparisons(), 2);
}

} // namespace
