// libKvGeometry: points, tolerances and transforms.
//
// The application provides everything that this header declares. No function throws.
//
// Thread safety: several threads may read one value while no thread writes it.
#pragma once

#include "platform/KvSeamExport.h"

// A point in drawing units. The coordinates may be any numbers.
class GxGePoint3d {
public:
    double x = 0; // first coordinate
    double y = 0; // second coordinate
    double z = 0; // third coordinate
};

// The largest distances at which two values are still equal.
class GxGeTol {
public:
    double equalPoint = 1e-10;  // between points, in drawing units
    double equalVector = 1e-10; // between vectors, as a fraction of the unit length
};

// Global settings of the application's geometry.
struct GxGeContext {
    // The default tolerance of isEqualTo(). It is constant-initialised. The application may change the
    // tolerance while no other thread compares.
    KV_SEAM_API static GxGeTol gTol;
};

// A transform of points: entry[row][column], with the translation in column 3. The entries may be any
// numbers.
class GxGeMatrix3d {
public:
    // Makes the identity.
    KV_SEAM_API GxGeMatrix3d();

    // Makes this transform the identity, and returns *this.
    KV_SEAM_API GxGeMatrix3d& setToIdentity();

    // Returns whether both transforms are equal within `tol`.
    KV_SEAM_API bool isEqualTo(const GxGeMatrix3d& other, const GxGeTol& tol = GxGeContext::gTol) const;

    double entry[4][4]; // entry[row][column]
};
