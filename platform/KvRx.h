// libKvRx: the root of the application's runtime classes.
//
// The application provides everything that this header declares.
#pragma once

#include "platform/KvSeamExport.h"

// Base class of the application's runtime objects. The owner of an object deletes it through this class.
//
// Invariants: none; the class has no state.
//
// Thread safety: that of the derived class.
class KV_SEAM_API GxRxObject {
public:
    // Called by the owner of the object.
    virtual ~GxRxObject();
};
