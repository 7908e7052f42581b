#include "platform/KvGeometry.h"

#include <cmath>

GxGeTol GxGeContext::gTol;

GxGeMatrix3d::GxGeMatrix3d() {
    setToIdentity();
}

GxGeMatrix3d& GxGeMatrix3d::setToIdentity() {
    for (int row = 0; row < 4; ++row)
        for (int column = 0; column < 4; ++column)
            entry[row][column] = row == column ? 1 : 0;
    return *this;
}

bool GxGeMatrix3d::isEqualTo(const GxGeMatrix3d& other, const GxGeTol& tol) const {
    for (int row = 0; row < 4; ++row)
        for (int column = 0; column < 4; ++column)
            if (!(std::fabs(entry[row][column] - other.entry[row][column]) <= tol.equalVector))
                return false;
    return true;
}
