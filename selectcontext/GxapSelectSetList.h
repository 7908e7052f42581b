// GxapSelectSetList: the selection sets that have names.
#pragma once

#include "selectcontext/GxapSelectSet.h"
#include "selectcontext/KvSelectContextExport.h"

#include <list>

// Owns sets that have names. A name has two words. Word 0 is the set's address, and the list reads no other
// word. The platform sets word 1.
//
// Invariants:
//  1. `sets` has the newest set first.
//  2. Every set is in memory from _kvMalloc. The list frees that memory.
//
// The list owns the sets that it returns. They live until delSelectSet(), or until the list is destroyed.
// `name` points to two words. For a null `name`, functions return null or do nothing.
//
// Thread safety: none. Code that shares a list between threads must hold GxapSelectSetListManager::s_locker.
class KVSELECTCONTEXT_API GxapSelectSetList {
public:
    GxapSelectSetList();
    GxapSelectSetList(const GxapSelectSetList&) = delete;
    GxapSelectSetList& operator=(const GxapSelectSetList&) = delete;

    // Destroys every set, the newest first. O(sets).
    ~GxapSelectSetList();

    // Makes a new empty set, and writes its name to `name`. If _kvMalloc has no memory, it returns null and
    // leaves list and name unchanged. If other memory runs out, it throws std::bad_alloc or KvErrorStatus 6.
    // It also throws what gxdbInitGdsNameKey() throws. An exception leaves the list and word 0 unchanged.
    // O(1).
    GxapSelectSet* newSelectSet(long* name);

    // Makes a new set that shares the data of `src`. Everything else is as in newSelectSet().
    GxapSelectSet* addSelectSet(const GxapSelectSet& src, long* name);

    // Returns the set of that name, or null. O(sets).
    GxapSelectSet* getSSetByName(const long* name);

    // Destroys the set of that name. Does nothing if there is no such set. O(sets).
    void delSelectSet(long* name);

    std::list<GxapSelectSet*> sets;
};
