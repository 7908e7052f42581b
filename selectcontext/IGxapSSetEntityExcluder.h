// IGxapSSetEntityExcluder: decides which entities a transfer excludes.
#pragma once

#include "platform/KvDatabase.h"

// Callers of GxapSelectSet::transfer implement this and own the object.
class IGxapSSetEntityExcluder {
public:
    // The transfer calls this once per record, with the main id. True excludes the record from the target. If
    // it throws, the transfer ends, and the records before this one are transferred.
    virtual bool isExcluded(GxDbObjectId mainEntId) = 0;
    virtual ~IGxapSSetEntityExcluder() = default;
};
