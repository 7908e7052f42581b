// IGxapSSetEntityExcluder: decides which entities a transfer keeps out.
#pragma once

#include "platform/KvDatabase.h"

// Implemented by callers of GxapSelectSet::transfer, who also own the object.
class IGxapSSetEntityExcluder {
public:
    // Called once per record with its main id; true keeps the record out of the target. May throw: the
    // transfer then ends with whole records done.
    virtual bool isExcluded(GxDbObjectId mainEntId) = 0;
    virtual ~IGxapSSetEntityExcluder() = default;
};
