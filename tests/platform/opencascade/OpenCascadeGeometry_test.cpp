#include "platform/opencascade/OpenCascadeGeometry.h"

#include <gp_Ax1.hxx>
#include <gtest/gtest.h>

namespace {

using namespace kvopencascade;

TEST(OpenCascadeGeometry, PointsKeepTheirCoordinates) {
    const GxGePoint3d point = pointOf(gp_Pnt(1.5, -2, 1e9));
    EXPECT_EQ(point.x, 1.5);
    EXPECT_EQ(point.y, -2);
    EXPECT_EQ(point.z, 1e9);
    EXPECT_EQ(pointOf(point).Distance(gp_Pnt(1.5, -2, 1e9)), 0);
}

TEST(OpenCascadeGeometry, ATransformHasItsTranslationInColumn3) {
    gp_Trsf transform;
    transform.SetTranslation(gp_Vec(7, 8, 9));
    const GxGeMatrix3d matrix = matrixOf(transform);
    EXPECT_EQ(matrix.entry[0][3], 7);
    EXPECT_EQ(matrix.entry[1][3], 8);
    EXPECT_EQ(matrix.entry[2][3], 9);
    EXPECT_EQ(matrix.entry[3][3], 1);
    EXPECT_EQ(matrix.entry[0][0], 1);
}

TEST(OpenCascadeGeometry, ATransformMovesPointsAsTheKernelDoes) {
    gp_Trsf transform;
    transform.SetRotation(gp_Ax1(gp_Pnt(1, 2, 3), gp_Dir(1, 1, 0)), 0.7);
    const GxGeMatrix3d matrix = matrixOf(transform);
    const double from[4] = {5, -6, 7, 1};
    const gp_Pnt expected = gp_Pnt(5, -6, 7).Transformed(transform);
    for (int row = 0; row < 3; ++row) {
        double sum = 0;
        for (int column = 0; column < 4; ++column)
            sum += matrix.entry[row][column] * from[column];
        EXPECT_NEAR(sum, expected.Coord(row + 1), 1e-12);
    }
}

TEST(OpenCascadeGeometry, NoTransformIsTheIdentity) {
    EXPECT_TRUE(matrixOf(gp_Trsf()).isEqualTo(GxGeMatrix3d()));
}

} // namespace
