// GxapSelectSetListManager: the process-wide list of named sets.
#pragma once

#include "platform/KvOsBase.h"
#include "selectcontext/GxapSSListSmartPtr.h"
#include "selectcontext/KvSelectContextExport.h"
#include "selectcontext/detail/BuiltWith.h"

// Owns the handle through which the LISP layer reaches named sets.
//
// Thread safety: no function takes a lock. Callers that use the manager from several threads must hold
// `s_locker`. The library never locks `s_locker`.
class KVSELECTCONTEXT_CLASS GxapSelectSetListManager {
public:
    // Return s_smartPtrSSList, which the manager owns. If s_smartPtrSSList is null, they first create the
    // handle and an empty list. They throw std::bad_alloc if there is no memory. O(1).
    static GxapSSListSmartPtr* newInstance();
    static GxapSSListSmartPtr* getInstance();

    // Destroys the handle. Copies of the handle keep the list alive. O(1), or O(sets) if there are no copies.
    static void destroy();

    static GxapSSListSmartPtr* s_smartPtrSSList; // null before the first use and after destroy()
    static KvLocker s_locker;                    // for callers; the library never locks it
};
