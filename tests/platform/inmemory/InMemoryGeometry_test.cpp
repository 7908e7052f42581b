#include "platform/inmemory/InMemoryGeometry.h"

#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/support/KvTest.h"

#include <gtest/gtest.h>

namespace {

using InMemoryGeometry = kvtest::KvTest;

TEST_F(InMemoryGeometry, ComparisonsAreLogged) {
    const GxGeMatrix3d left;
    GxGeMatrix3d right;
    right.entry[0][3] = 1;
    const GxGeTol tolerance{2, 2};
    left.isEqualTo(right);
    left.isEqualTo(right, tolerance);
    const auto comparisons = kvinmemory::matrixComparisons();
    ASSERT_EQ(comparisons.size(), 2u);
    EXPECT_EQ(comparisons[0].left, &left);
    EXPECT_EQ(comparisons[0].right, &right);
    EXPECT_EQ(comparisons[0].tolerance, &GxGeContext::gTol);
    EXPECT_FALSE(comparisons[0].equal);
    EXPECT_EQ(comparisons[1].tolerance, &tolerance);
    EXPECT_TRUE(comparisons[1].equal);
    EXPECT_LT(comparisons[0].sequence, comparisons[1].sequence);
}

TEST_F(InMemoryGeometry, NothingIsLoggedWhileLoggingIsOff) {
    kvinmemory::setLogging(false);
    const GxGeMatrix3d matrix;
    EXPECT_TRUE(matrix.isEqualTo(matrix));
    EXPECT_TRUE(kvinmemory::matrixComparisons().empty());
}

TEST_F(InMemoryGeometry, ResettingEmptiesTheLogAndPutsTheToleranceBack) {
    const GxGeMatrix3d matrix;
    GxGeContext::gTol.equalPoint = 5;
    matrix.isEqualTo(matrix);
    kvinmemory::resetAll();
    EXPECT_TRUE(kvinmemory::matrixComparisons().empty());
    EXPECT_EQ(GxGeContext::gTol.equalPoint, 1e-10);
}

} // namespace
