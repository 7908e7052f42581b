// Entity infos as callers make them for a set.
#pragma once

#include "platform/KvOsBase.h"
#include "selectcontext/GxapSelectedEntInfo.h"

#include <new>

namespace kvtest {

// An info in memory of _kvMalloc, as select takes it over.
inline GxapSelectedEntInfo* makeInfo() {
    return new (_kvMalloc(sizeof(GxapSelectedEntInfo))) GxapSelectedEntInfo();
}

// Ends an info that nobody took over. Null is fine.
inline void freeInfo(GxapSelectedEntInfo* info) {
    if (info == nullptr)
        return;
    info->~GxapSelectedEntInfo();
    _kvFree(info);
}

} // namespace kvtest
