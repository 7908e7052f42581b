// The in-memory libKvGeometry: defines what KvGeometry.h declares, and the log.
#include "platform/KvGeometry.h"

#include "platform/inmemory/InMemoryGeometry.h"
#include "platform/inmemory/detail/EventLog.h"

#include <cmath>

GxGeTol GxGeContext::gTol;

namespace kvinmemory {

namespace {

constexpr int kSize = 4;
constexpr int kTranslation = 3; // the column of the translation

detail::EventLog<MatrixComparison> gComparisons;

// Returns whether two entries are equal within the tolerance. An infinity is near only the same infinity. NaN
// is near nothing.
bool isNear(double a, double b, double tolerance) {
    return a == b || std::fabs(a - b) <= tolerance;
}

bool isEqual(const GxGeMatrix3d& a, const GxGeMatrix3d& b, const GxGeTol& tolerance) {
    for (int row = 0; row < kSize; ++row)
        for (int column = 0; column < kSize; ++column) {
            const double limit = column == kTranslation ? tolerance.equalPoint : tolerance.equalVector;
            if (!isNear(a.entry[row][column], b.entry[row][column], limit))
                return false;
        }
    return true;
}

} // namespace

MallocVector<MatrixComparison> matrixComparisons() {
    return gComparisons.events();
}

void resetGeometry() {
    gComparisons.clear();
    GxGeContext::gTol = GxGeTol();
}

} // namespace kvinmemory

GxGeMatrix3d::GxGeMatrix3d() {
    setToIdentity();
}

GxGeMatrix3d& GxGeMatrix3d::setToIdentity() {
    for (int row = 0; row < kvinmemory::kSize; ++row)
        for (int column = 0; column < kvinmemory::kSize; ++column)
            entry[row][column] = row == column ? 1.0 : 0.0;
    return *this;
}

bool GxGeMatrix3d::isEqualTo(const GxGeMatrix3d& other, const GxGeTol& tol) const {
    const bool equal = kvinmemory::isEqual(*this, other, tol);
    if (kvinmemory::isLogging())
        kvinmemory::gComparisons.append({0, this, &other, &tol, equal});
    return equal;
}
