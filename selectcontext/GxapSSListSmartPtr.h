// GxapSSListSmartPtr: a counted handle to a list of named sets.
#pragma once

#include "selectcontext/GxapSelectSetList.h"
#include "selectcontext/KvSelectContextExport.h"

#include <cstdint>

// Handles that were copied from one another share one list; the last one destroys it.
//
// Invariant: `list` and `refCount` are both null, or `*refCount` is the number of handles that share both.
//
// Thread safety: none, the count is not atomic; code that shares a list between threads holds
// GxapSelectSetListManager::s_locker.
class KVSELECTCONTEXT_API GxapSSListSmartPtr {
public:
    // A new, empty list.
    GxapSSListSmartPtr();

    // Shares the other's list; a null pointer gives a handle that holds nothing. O(1).
    GxapSSListSmartPtr(const GxapSSListSmartPtr& other);
    GxapSSListSmartPtr(const GxapSSListSmartPtr* other);

    // Releases its own list and shares the other's. Assigning a handle to itself does nothing. O(1), O(sets)
    // for the last handle of a list.
    GxapSSListSmartPtr& assign(const GxapSSListSmartPtr& other);
    GxapSSListSmartPtr& operator=(const GxapSSListSmartPtr& other);

    // Holds nothing afterwards. Releasing twice is harmless.
    void release();
    ~GxapSSListSmartPtr();

    GxapSelectSetList* list;
    std::int32_t* refCount;
};
