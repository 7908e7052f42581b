// GxapSelectSetList: the selection sets that have names.
#pragma once

#include "selectcontext/GxapSelectSet.h"
#include "selectcontext/KvSelectContextExport.h"
#include "selectcontext/detail/BuiltWith.h"

#include <list>

// Owns sets that have names. A name has two words. Word 0 is the set's address. The platform sets word 1,
// which the list does not read.
//
// Invariants:
//  1. `sets` has the newest set first.
//  2. Every set is in memory from _kvMalloc. The list frees that memory.
//
// Functions return sets that the list owns. A set lives until delSelectSet() destroys it, or until the list
// is destroyed. `name` points to two words. For a null `name`, functions return null or do nothing.
//
// Thread safety: none. Code that shares a list between threads must hold GxapSelectSetListManager::s_locker.
class KVSELECTCONTEXT_CLASS GxapSelectSetList {
public:
    // Makes an empty list.
    GxapSelectSetList();
    GxapSelectSetList(const GxapSelectSetList&) = delete;
    GxapSelectSetList& operator=(const GxapSelectSetList&) = delete;

    // Destroys every set, the newest first. O(sets).
    ~GxapSelectSetList();

    // Makes a new empty set, and writes its name to `name`. Returns null, and changes neither list nor name,
    // if `name` is null or _kvMalloc has no memory. Throws std::bad_alloc or KvErrorStatus 6 if any other
    // allocation fails. Also throws what gxdbInitGdsNameKey() throws. After an exception, the list and
    // name[0] are as before the call, and name[1] may have changed. O(1).
    GxapSelectSet* newSelectSet(long* name);

    // Does what newSelectSet() does, and makes the new set share the data of `src`. O(1).
    GxapSelectSet* addSelectSet(const GxapSelectSet& src, long* name);

    // Returns the set of that name, or null. O(sets).
    GxapSelectSet* getSSetByName(const long* name);

    // Destroys the set of that name. Does nothing if there is no such set. O(sets).
    void delSelectSet(long* name);

    std::list<GxapSelectSet*> sets; // owned; the newest set first
};

namespace kvdetail {

KV_LAYOUT_TAG(builtWithLayoutOfGxapSelectSetList, sizeof(GxapSelectSetList));

} // namespace kvdetail
