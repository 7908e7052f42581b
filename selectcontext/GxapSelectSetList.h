// GxapSelectSetList: the selection sets that have names.
#pragma once

#include "selectcontext/GxapSelectSet.h"
#include "selectcontext/KvSelectContextExport.h"

#include <list>

// Owns the sets that were created under a name of two words: word 0 is the set's address and the only word
// that the list looks at; the platform completes word 1.
//
// Invariants:
//  1. `sets` is newest first.
//  2. Every set was made in memory from _kvMalloc, which the list gives back.
//
// A set that the list hands out stays the list's, and is gone after delSelectSet or the list's end. `name`
// points at two words; a null one gives null, or does nothing.
//
// Thread safety: none; code that shares a list between threads holds GxapSelectSetListManager::s_locker.
class KVSELECTCONTEXT_API GxapSelectSetList {
public:
    GxapSelectSetList();
    GxapSelectSetList(const GxapSelectSetList&) = delete;
    GxapSelectSetList& operator=(const GxapSelectSetList&) = delete;

    // Destroys every set, newest first. O(sets).
    ~GxapSelectSetList();

    // A new empty set and its name. Null, with list and name as they were, when _kvMalloc has no memory. With
    // list and word 0 as they were, too, std::bad_alloc or KvErrorStatus 6 where other memory is out, and
    // what gxdbInitGdsNameKey throws. O(1).
    GxapSelectSet* newSelectSet(long* name);

    // A new set that shares the data of `src`. As newSelectSet.
    GxapSelectSet* addSelectSet(const GxapSelectSet& src, long* name);

    // The set of that name, or null. O(sets).
    GxapSelectSet* getSSetByName(const long* name);

    // Destroys the set of that name; nothing when there is none. O(sets).
    void delSelectSet(long* name);

    std::list<GxapSelectSet*> sets;
};
