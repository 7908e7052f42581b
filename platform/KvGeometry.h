// libKvGeometry: points, tolerances and transforms.
//
// An application that uses the selection-set library provides everything that is declared here. Nothing
// throws, and values may be read on several threads at once as long as none of them writes.
#pragma once

#include "platform/KvSeamExport.h"

// A point in drawing units.
class GxGePoint3d {
public:
    double x = 0;
    double y = 0;
    double z = 0;
};

// How far apart two values may be and still count as equal: points in drawing units, vectors as fractions of
// the unit length.
class GxGeTol {
public:
    double equalPoint = 1e-10;
    double equalVector = 1e-10;
};

struct GxGeContext {
    // The application's global tolerance; constant-initialised. The application may change it while no other
    // thread compares.
    KV_SEAM_API static GxGeTol gTol;
};

// A transform of points written as columns: entry[row][column], the translation in column 3.
class GxGeMatrix3d {
public:
    // The identity.
    KV_SEAM_API GxGeMatrix3d();

    // Becomes the identity and answers itself.
    KV_SEAM_API GxGeMatrix3d& setToIdentity();

    // Whether both transforms map every point to places that tol does not tell apart.
    KV_SEAM_API bool isEqualTo(const GxGeMatrix3d& other, const GxGeTol& tol = GxGeContext::gTol) const;

    double entry[4][4];
};
