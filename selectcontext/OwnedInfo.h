// Ownership of entity infos, which live in memory from _kvMalloc.
#pragma once

#include "base/KvRaise.h"
#include "selectcontext/GxapSelectedEntInfo.h"

#include <memory>
#include <new>

namespace kvdetail {

struct InfoDeleter {
    void operator()(GxapSelectedEntInfo* info) const noexcept {
        info->~GxapSelectedEntInfo();
        _kvFree(info);
    }
};

using OwnedInfo = std::unique_ptr<GxapSelectedEntInfo, InfoDeleter>;

// An info made in memory from _kvMalloc. KvErrorStatus 6 when there is none.
template <class... Arguments>
OwnedInfo makeInfo(const Arguments&... arguments) {
    struct MemoryDeleter {
        void operator()(void* memory) const noexcept { _kvFree(memory); }
    };
    std::unique_ptr<void, MemoryDeleter> memory(_kvMalloc(sizeof(GxapSelectedEntInfo)));
    if (!memory)
        raiseStatus(kStatusOutOfMemory);
    OwnedInfo info(new (memory.get()) GxapSelectedEntInfo(arguments...));
    memory.release();
    return info;
}

// A deep copy, or null for null.
inline OwnedInfo copyInfo(const GxapSelectedEntInfo* info) {
    return info ? makeInfo(*info) : nullptr;
}

} // namespace kvdetail
