// GxapSSListSmartPtr: a counted handle to a list of named sets.
#pragma once

#include "selectcontext/GxapSelectSetList.h"
#include "selectcontext/KvSelectContextExport.h"
#include "selectcontext/detail/BuiltWith.h"

#include <cstdint>

// A handle to a list of named sets. Copies of a handle share one list. The last handle destroys the list.
//
// Invariant: `list` and `refCount` are both null, or `*refCount` is the number of handles that share the
// list.
//
// Thread safety: none. The count is not atomic. Code that shares a list between threads must hold
// GxapSelectSetListManager::s_locker.
class KVSELECTCONTEXT_CLASS GxapSSListSmartPtr {
public:
    // Makes a new, empty list. Throws std::bad_alloc if there is no memory.
    GxapSSListSmartPtr();

    // Shares the list of `other`. If `other` is null, the new handle has no list. O(1).
    GxapSSListSmartPtr(const GxapSSListSmartPtr& other);
    GxapSSListSmartPtr(const GxapSSListSmartPtr* other);

    // Calls release() and shares the list of `other`. Assigning a handle to itself does nothing. O(1), or
    // O(sets) if this was the last handle of its old list.
    GxapSSListSmartPtr& assign(const GxapSSListSmartPtr& other);
    GxapSSListSmartPtr& operator=(const GxapSSListSmartPtr& other);

    // Gives up the list. Destroys the list if this was the last handle of the list. Afterwards this handle
    // has no list, and calling release() again does nothing. O(1), or O(sets) for the last handle.
    void release();
    ~GxapSSListSmartPtr();

    GxapSelectSetList* list; // null after release()
    std::int32_t* refCount;  // the number of handles; null exactly when `list` is null
};

namespace kvdetail {

KV_LAYOUT_TAG(builtWithLayoutOfGxapSSListSmartPtr, sizeof(GxapSSListSmartPtr),
              offsetof(GxapSSListSmartPtr, list), offsetof(GxapSSListSmartPtr, refCount));

} // namespace kvdetail
