#include "platform/KvGeometry.h"

#include "tests/support/KvTest.h"

#include <gtest/gtest.h>
#include <limits>
#include <type_traits>

namespace {

using KvGeometry = kvtest::KvTest;

static_assert(sizeof(GxGePoint3d) == 24 && sizeof(GxGeMatrix3d) == 128, "plain values");
static_assert(std::is_trivially_copyable_v<GxGeMatrix3d> && std::is_trivially_destructible_v<GxGeMatrix3d>,
              "a matrix is its 16 numbers");

TEST_F(KvGeometry, APointStartsAtTheOrigin) {
    const GxGePoint3d point;
    EXPECT_EQ(point.x, 0);
    EXPECT_EQ(point.y, 0);
    EXPECT_EQ(point.z, 0);
}

TEST_F(KvGeometry, TheGlobalToleranceIsFine) {
    EXPECT_EQ(GxGeContext::gTol.equalPoint, 1e-10);
    EXPECT_EQ(GxGeContext::gTol.equalVector, 1e-10);
}

TEST_F(KvGeometry, AMatrixStartsAsTheIdentity) {
    const GxGeMatrix3d matrix;
    for (int row = 0; row < 4; ++row) {
        for (int column = 0; column < 4; ++column)
            EXPECT_EQ(matrix.entry[row][column], row == column ? 1.0 : 0.0);
    }
}

TEST_F(KvGeometry, SettingToIdentityAnswersTheMatrixItself) {
    GxGeMatrix3d matrix;
    matrix.entry[1][2] = 5;
    EXPECT_EQ(&matrix.setToIdentity(), &matrix);
    EXPECT_EQ(matrix.entry[1][2], 0);
}

TEST_F(KvGeometry, EqualMatricesAreEqual) {
    GxGeMatrix3d a;
    a.entry[0][3] = 100;
    const GxGeMatrix3d b = a;
    EXPECT_TRUE(a.isEqualTo(b));
}

TEST_F(KvGeometry, EveryEntryCounts) {
    const GxGeMatrix3d identity;
    for (int row = 0; row < 4; ++row) {
        for (int column = 0; column < 4; ++column) {
            GxGeMatrix3d other;
            other.entry[row][column] += 0.001;
            EXPECT_FALSE(identity.isEqualTo(other)) << row << ", " << column;
        }
    }
}

TEST_F(KvGeometry, DirectionsAreComparedUnderTheVectorTolerance) {
    const GxGeMatrix3d identity;
    GxGeMatrix3d turned;
    turned.entry[0][1] = 0.01;
    GxGeTol tolerance;
    tolerance.equalPoint = 1;
    EXPECT_FALSE(identity.isEqualTo(turned, tolerance));
    tolerance.equalVector = 0.02;
    EXPECT_TRUE(identity.isEqualTo(turned, tolerance));
}

TEST_F(KvGeometry, TranslationsAreComparedUnderThePointTolerance) {
    const GxGeMatrix3d identity;
    GxGeMatrix3d moved;
    moved.entry[1][3] = 0.5;
    GxGeTol tolerance;
    tolerance.equalVector = 1;
    EXPECT_FALSE(identity.isEqualTo(moved, tolerance));
    tolerance.equalPoint = 0.5;
    EXPECT_TRUE(identity.isEqualTo(moved, tolerance));
}

TEST_F(KvGeometry, TheGlobalToleranceIsTheDefaultOne) {
    const GxGeMatrix3d identity;
    GxGeMatrix3d moved;
    moved.entry[0][3] = 0.5;
    EXPECT_FALSE(identity.isEqualTo(moved));
    GxGeContext::gTol.equalPoint = 1;
    EXPECT_TRUE(identity.isEqualTo(moved));
}

TEST_F(KvGeometry, WhatIsNotANumberEqualsNothing) {
    GxGeMatrix3d matrix;
    matrix.entry[2][2] = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(matrix.isEqualTo(matrix));
}

TEST_F(KvGeometry, TheSameInfinityEqualsItself) {
    GxGeMatrix3d matrix;
    matrix.entry[0][3] = std::numeric_limits<double>::infinity();
    const GxGeMatrix3d copy = matrix;
    EXPECT_TRUE(matrix.isEqualTo(copy));
}

} // namespace
