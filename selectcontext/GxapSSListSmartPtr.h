// GxapSSListSmartPtr: a counted handle to a list of named sets.
#pragma once

#include "selectcontext/GxapSelectSetList.h"
#include "selectcontext/KvSelectContextExport.h"

#include <cstdint>

// Handles that were copied from one another share one list. The last handle destroys the list.
//
// Invariant: `list` and `refCount` are both null, or `*refCount` is the number of handles that share both.
//
// Thread safety: none. The count is not atomic. Code that shares a list between threads must hold
// GxapSelectSetListManager::s_locker.
class KVSELECTCONTEXT_API GxapSSListSmartPtr {
public:
    // Makes a new, empty list.
    GxapSSListSmartPtr();

    // Shares the other's list. A null pointer gives a handle without a list. O(1).
    GxapSSListSmartPtr(const GxapSSListSmartPtr& other);
    GxapSSListSmartPtr(const GxapSSListSmartPtr* other);

    // Releases the old list and shares the other's. Assigning a handle to itself does nothing. O(1), or
    // O(sets) if this was the last handle of the old list.
    GxapSSListSmartPtr& assign(const GxapSSListSmartPtr& other);
    GxapSSListSmartPtr& operator=(const GxapSSListSmartPtr& other);

    // Gives up the list; the last handle destroys it. The handle has no list afterwards, and releasing again
    // does nothing.
    void release();
    ~GxapSSListSmartPtr();

    GxapSelectSetList* list;
    std::int32_t* refCount;
};
