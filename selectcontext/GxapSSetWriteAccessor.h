// GxapSSetWriteAccessor: the editing interface of a selection set.
#pragma once

#include "selectcontext/GxapSelectSet.h"

// A set seen through its editing interface. The class has no members of its own and no virtual functions. So
// static_cast<GxapSSetWriteAccessor&>(set) is supported for any set.
//
// Every edit makes shared data private first (copy-on-write). Making data private disables the set's
// iterators. Iterators that the accessor returns afterwards are valid until the next copy-on-write. Adding
// never moves a record. Removing adjusts no iterator.
//
// Bad arguments throw nothing: edits return false or do nothing. There are two exceptions, documented at
// their functions: an iterator on a removed item, and a path index equal to the number of paths. Arguments
// may be references into this very set.
//
// If there is no memory, functions throw KvErrorStatus 6 or std::bad_alloc, and the set is as before the
// call. But an operation on many items may have added or removed some of them, each as a whole. merge() and
// minus() may also have replaced the items that the set had before the call.
//
// Costs: n is the number of items, and p = n / 4096 is the number of pages. A copy-on-write adds O(n) if the
// data is shared.
//
// Thread safety: one thread at a time.
class KVSELECTCONTEXT_API GxapSSetWriteAccessor : public GxapSelectSet {
public:
    using GxapSelectSet::GxapSelectSet;

    // Returns data that no other set uses: the set's own, or a clone of the shared data. The set owns it.
    // O(1), or O(n) for a clone.
    SSetData* writeData();

    // Rebuilds the index from the store. Call this after changing a record's keys, replacing a record, or
    // changing slots, pages and their chain. Does not copy shared data: all sets that share the data get the
    // new index. If there is no memory, the index is incomplete until the next updateDataMap(). O(n), or O(n
    // log n) if the order of the ids is not that of their stubs.
    void updateDataMap();

    // Removes every item. Private data keeps `unique` and `selectByNestedMode`. Shared data is replaced by
    // new data, with `unique` true and `selectByNestedMode` false. O(n) for private data, O(1) for shared
    // data.
    void clear();

    // Does the same as the assignment of GxapSelectSet.
    GxapSSetWriteAccessor& copyFrom(const GxapSelectSet& other);

    // Returns the slot of the record at `index`, or null for a bad index. A caller may edit or replace the
    // record through the slot. Makes shared data private, unless the index is negative or the set is empty.
    // O(p + slots of a page).
    selected_entity** getAt(int index);

    // Make shared data private and return writable iterators. Only end() leaves shared data shared. Otherwise
    // these functions do what those of GxapSelectSet do.
    Iterator findItr(const GxDbObjectId& mainId);
    Iterator findItr(const GxDbObjectId& mainId, const GxDbObjectId& subId);
    Iterator findItr(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker);
    Iterator findMain(const GxDbObjectId& mainId);
    Iterator iteratorAt(int index);
    Iterator begin();
    Iterator end();

    // Sets `selectByNestedMode`. Makes shared data private only if the value changes.
    void setSelectByNestedMode(bool on);

    // Calls it.setHighlightSegment(path).
    void setHighlightSegment(Iterator& it, const GxDbFullSubentPath* path);

    // Adds one item at the end. If `unique` is true, refuses an item that the set already has, and leaves
    // shared data shared.
    //
    // If the main id is null, does nothing, and the caller keeps `entInfo`. Otherwise the set owns `entInfo`,
    // and frees it if the item is refused or the call throws. `entInfo` is null, or constructed in memory
    // from _kvMalloc. `nestedPath` may be null. The item shares the block of `nestedPath`. O(log n), plus the
    // cost of findInMap() with these keys if `unique` is true.
    void select(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker,
                GxapSelectedEntInfo* entInfo, const KvVector<GxDbObjectId>* nestedPath);

    // Calls select() without marker, info and path.
    void append(const GxDbObjectId& mainId, const GxDbObjectId& subId);

    // Calls select() with the record's ids, marker and path, and a copy of its info. The caller keeps the
    // record. Returns false only if `record` is null. Returns true even if select() refuses the item.
    bool append(const selected_entity* record);

    // Removes items, and returns whether any was removed:
    //  - the form with one id: every item of the main id;
    //  - the form with two ids: every item that has both ids;
    //  - the form with three keys: the first item that has exactly these keys. Markers of 0 and -1 differ
    //    here.
    //
    // Frees the slots, but keeps the records allocated. Warning: the form with two ids erases all index
    // entries of the main id. Items with another sub id stay in the set, but lookups do not find them until
    // updateDataMap(). O(log n + items of the id) with one or two ids. With three keys, the cost is that of
    // findInMap(). A page that is freed adds O(p).
    bool remove(const GxDbObjectId& mainId);
    bool remove(const GxDbObjectId& mainId, const GxDbObjectId& subId);
    bool remove(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker);

    // Removes the item of the iterator, or the item at `index`. Returns whether an item was removed. Calls
    // remove() with the three keys of the item. So if several items have the same keys, the first of them in
    // the index is removed. Costs as much as remove() with three keys. The form with `index` adds the cost of
    // getAt().
    //
    // Afterwards `it` is on the previous item, or on the freed slot if there is no previous item. If the data
    // was shared, all iterators of the set are disabled, including `it`. Returns false for an iterator that
    // is done and for an index out of range. Throws KvExceptionWithMsg "Error access KvTrucker" if the item
    // of the iterator was removed before.
    bool removeAt(Iterator& it);
    bool removeAt(int index);

    // merge() makes this set the union of a and b. minus() gives this set the items of a that are not in b,
    // compared by their exact three keys. A null operand counts as empty. If the result equals an operand,
    // this set shares the data of that operand. O(items of b * log n).
    //
    // A union has all items of a, and then those of b that append() would add. It is `unique` if either
    // operand is, and in nested mode if either operand is. If one operand is empty, this set shares the data
    // of the other operand. An operand may be this set, but this set first takes the items of `a`. So
    // merge(&a, this) gives only the items of a (twice if no set is unique), and minus(&a, this) removes
    // every item that is in the index.
    void merge(const GxapSelectSet* a, const GxapSelectSet* b);
    void minus(const GxapSelectSet* a, const GxapSelectSet* b);

    // Sets `unique`. If `unique` becomes true, keeps only the first item of each main id, and removes the
    // others without deleting their records. O(n log n) if `unique` becomes true, otherwise O(1).
    void setUnique(bool on);

    // Returns an iterator on the first item of `id`, whatever its other keys. A null or absent id gives
    // end(). An empty set gives an iterator that is done. Makes shared data private only if the item is
    // found.
    Iterator findMainSubsel(const GxDbObjectId& id);

    // Adds a copy of the path to the sub-selection of the item of the path's last id. If the set has no such
    // item, adds an item without a sub-selection, with an info whose `word0` is 6. In that case nobody owns
    // or frees the copy of the path. Returns false for a path without ids, an invalid last id, and an item
    // without a sub-selection.
    bool appendSubentPathSubsel(const GxDbFullSubentPath& path);

    // Remove one path from the sub-selection of its item, and return whether a path was removed. They do not
    // delete the path object. They also remove the item if its sub-selection has no paths left. The form with
    // `path` also removes an item whose sub-selection had no paths before. A path index equal to the number
    // of paths throws KvErrorStatus 24.
    bool removeSubentPathSubsel(const GxDbFullSubentPath& path);
    bool removeSubentPathAtSubsel(int entityIndex, int pathIndex);
};

static_assert(sizeof(GxapSSetWriteAccessor) == sizeof(GxapSelectSet) &&
                  !std::is_polymorphic_v<GxapSSetWriteAccessor>,
              "a set can be seen as its accessor");
