// IGxapSSetEntityExcluder: decides which entities a transfer excludes.
#pragma once

#include "platform/KvDatabase.h"

// Callers of GxapSelectSet::transfer() implement this interface and own the object.
class IGxapSSetEntityExcluder {
public:
    // Returns true if the record with this main id must not be copied to the target of transfer(). transfer()
    // calls isExcluded() once per record. If isExcluded() throws, transfer() ends, and the earlier records
    // stay copied. isExcluded() may edit the sets of the transfer; transfer() says what happens then.
    virtual bool isExcluded(GxDbObjectId mainEntId) = 0;

    // The library never deletes an excluder.
    virtual ~IGxapSSetEntityExcluder() = default;
};
