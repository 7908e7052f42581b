// libKvRx: the root of the application's runtime classes.
//
// An application that uses the selection-set library provides everything that is declared here.
#pragma once

#include "platform/KvSeamExport.h"

// Objects of runtime classes are deleted through this destructor by whoever owns them.
class KV_SEAM_API GxRxObject {
public:
    virtual ~GxRxObject();
};
