// Log of the in-memory libKvGeometry.
//
// Thread safety: matrixComparisons() may be called on any thread. No other thread may compare during
// resetGeometry().
#pragma once

#include "platform/KvGeometry.h"
#include "platform/inmemory/InMemoryOsBase.h"

#include <cstdint>

namespace kvinmemory {

// One logged call of GxGeMatrix3d::isEqualTo(). The pointers are for comparisons only: the objects may be
// gone.
struct MatrixComparison {
    std::uint64_t sequence;    // from nextSequence()
    const GxGeMatrix3d* left;  // the object that isEqualTo() is called on
    const GxGeMatrix3d* right; // the argument
    const GxGeTol* tolerance;  // the argument
    bool equal;                // the result
};

// Returns the calls of GxGeMatrix3d::isEqualTo that were made while logging was on, oldest first.
KV_SEAM_API MallocVector<MatrixComparison> matrixComparisons();

// Empties the log and sets the global tolerance to its initial value.
KV_SEAM_API void resetGeometry();

} // namespace kvinmemory
