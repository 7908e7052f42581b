// Log of the in-memory libKvGeometry.
#pragma once

#include "platform/KvGeometry.h"
#include "platform/inmemory/InMemoryOsBase.h"

#include <cstdint>

namespace kvinmemory {

struct MatrixComparison {
    std::uint64_t sequence;
    const GxGeMatrix3d* left; // the object that was asked
    const GxGeMatrix3d* right;
    const GxGeTol* tolerance;
    bool equal; // the answer
};

// Calls of GxGeMatrix3d::isEqualTo while logging was on, oldest first.
KV_SEAM_API MallocVector<MatrixComparison> matrixComparisons();

// Empties the log and puts the global tolerance back.
KV_SEAM_API void resetGeometry();

} // namespace kvinmemory
