// GxapSelectSetListManager: the process-wide list of named sets.
#pragma once

#include "platform/KvOsBase.h"
#include "selectcontext/GxapSSListSmartPtr.h"
#include "selectcontext/KvSelectContextExport.h"

// Holds the one handle through which the LISP layer reaches named sets.
//
// Thread safety: none of these takes a lock; callers that use the manager from several threads hold
// `s_locker`, which the library itself never locks.
class KVSELECTCONTEXT_API GxapSelectSetListManager {
public:
    // The handle, created on first use; both do the same. It stays the manager's. O(1).
    static GxapSSListSmartPtr* newInstance();
    static GxapSSListSmartPtr* getInstance();

    // Lets the handle go; copies of it that callers hold keep the list alive. O(sets) for the last.
    static void destroy();

    static GxapSSListSmartPtr* s_smartPtrSSList; // null until first requested, and after destroy()
    static KvLocker s_locker;
};
