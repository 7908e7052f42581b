// Entity infos that callers pass to a set.
#pragma once

#include "platform/KvOsBase.h"
#include "selectcontext/GxapSelectedEntInfo.h"

#include <new>

namespace kvtest {

// Makes a new info in memory from _kvMalloc. select() takes ownership of such an info.
inline GxapSelectedEntInfo* makeInfo() {
    return new (_kvMalloc(sizeof(GxapSelectedEntInfo))) GxapSelectedEntInfo();
}

// Destroys and frees an info that no set owns. Does nothing for null.
inline void freeInfo(GxapSelectedEntInfo* info) {
    if (info == nullptr)
        return;
    info->~GxapSelectedEntInfo();
    _kvFree(info);
}

} // namespace kvtest
