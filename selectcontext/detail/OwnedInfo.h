// Owners of memory from _kvMalloc: raw memory, and entity infos.
#pragma once

#include "base/detail/Raise.h"
#include "selectcontext/GxapSelectedEntInfo.h"

#include <memory>
#include <new>

namespace kvdetail {

struct MemoryDeleter {
    void operator()(void* memory) const noexcept { _kvFree(memory); }
};

using OwnedMemory = std::unique_ptr<void, MemoryDeleter>;

struct InfoDeleter {
    void operator()(GxapSelectedEntInfo* info) const noexcept {
        info->~GxapSelectedEntInfo();
        _kvFree(info);
    }
};

using OwnedInfo = std::unique_ptr<GxapSelectedEntInfo, InfoDeleter>;

// Makes an info in memory from _kvMalloc. Raises KvErrorStatus 6 if there is no memory.
template <class... Arguments>
OwnedInfo makeInfo(const Arguments&... arguments) {
    OwnedMemory memory(_kvMalloc(sizeof(GxapSelectedEntInfo)));
    if (!memory)
        raiseStatus(kStatusOutOfMemory);
    OwnedInfo info(new (memory.get()) GxapSelectedEntInfo(arguments...));
    memory.release();
    return info;
}

// Returns a deep copy of `info`. Returns null if `info` is null.
inline OwnedInfo copyInfo(const GxapSelectedEntInfo* info) {
    return info ? makeInfo(*info) : nullptr;
}

} // namespace kvdetail
