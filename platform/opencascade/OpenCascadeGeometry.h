// Converts between the kernel's geometry and that of the seam.
#pragma once

#include "platform/KvGeometry.h"

#include <gp_Pnt.hxx>
#include <gp_Trsf.hxx>

namespace kvopencascade {

// Return the same point or transform in the other type. Coordinates and entries are copied exactly.
KV_SEAM_API GxGePoint3d pointOf(const gp_Pnt& point);
KV_SEAM_API gp_Pnt pointOf(const GxGePoint3d& point);
KV_SEAM_API GxGeMatrix3d matrixOf(const gp_Trsf& transform);

} // namespace kvopencascade
