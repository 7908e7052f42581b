// The libKvGeometry of the kernel's platform.
#include "platform/KvGeometry.h"

#include "platform/opencascade/OpenCascadeGeometry.h"

#include <cmath>

GxGeTol GxGeContext::gTol;

namespace {

constexpr int kSize = 4;
constexpr int kTranslation = 3; // the column of the translation

// An infinity is near the same infinity only. NaN is near nothing.
bool isNear(double a, double b, double tolerance) {
    return a == b || std::fabs(a - b) <= tolerance;
}

} // namespace

GxGeMatrix3d::GxGeMatrix3d() {
    setToIdentity();
}

GxGeMatrix3d& GxGeMatrix3d::setToIdentity() {
    for (int row = 0; row < kSize; ++row) {
        for (int column = 0; column < kSize; ++column)
            entry[row][column] = row == column ? 1.0 : 0.0;
    }
    return *this;
}

bool GxGeMatrix3d::isEqualTo(const GxGeMatrix3d& other, const GxGeTol& tol) const {
    for (int row = 0; row < kSize; ++row) {
        for (int column = 0; column < kSize; ++column) {
            const double limit = column == kTranslation ? tol.equalPoint : tol.equalVector;
            if (!isNear(entry[row][column], other.entry[row][column], limit))
                return false;
        }
    }
    return true;
}

namespace kvopencascade {

GxGePoint3d pointOf(const gp_Pnt& point) {
    return {point.X(), point.Y(), point.Z()};
}

gp_Pnt pointOf(const GxGePoint3d& point) {
    return {point.x, point.y, point.z};
}

// The kernel stores three rows and counts from 1. The last row is always 0, 0, 0, 1.
GxGeMatrix3d matrixOf(const gp_Trsf& transform) {
    GxGeMatrix3d matrix;
    for (int row = 0; row < kSize - 1; ++row) {
        for (int column = 0; column < kSize; ++column)
            matrix.entry[row][column] = transform.Value(row + 1, column + 1);
    }
    return matrix;
}

} // namespace kvopencascade
