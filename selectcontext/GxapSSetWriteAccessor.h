// GxapSSetWriteAccessor: the editing interface of a selection set.
#pragma once

#include "selectcontext/GxapSelectSet.h"

// A set seen through its editing interface. The class has no data members of its own and no virtual
// functions. So static_cast<GxapSSetWriteAccessor&>(set) is supported for any set.
//
// An edit that changes shared data makes the data private first (copy-on-write), which disables the set's
// iterators. updateDataMap() is the exception: it never copies. Iterators that the accessor returns
// afterwards are valid until the next copy-on-write. Adding never moves a record. Removing adjusts no
// iterator, except the argument of removeAt().
//
// Bad arguments make edits return false or do nothing. Two bad arguments throw instead: an iterator on a
// removed item, and a path index equal to the number of paths. Their functions document this. Arguments may
// be references into this very set.
//
// If there is no memory, functions throw KvErrorStatus 6 or std::bad_alloc, and the set is as before the
// call. But an operation on many items may have added or removed some of them, each as a whole. merge() and
// minus() first replace the items of this set by those of their first operand. If there is no memory after
// that, the items that the set had before may be gone. After updateDataMap(), the index may be incomplete.
//
// Costs: n is the number of items, and p = n / 4096 is the number of pages. If the data is shared, the
// copy-on-write adds O(n).
//
// Thread safety: one thread at a time.
class KVSELECTCONTEXT_CLASS GxapSSetWriteAccessor : public GxapSelectSet {
public:
    using GxapSelectSet::GxapSelectSet;

    // Returns data that no other set uses, and that the set owns. Clones the data first if it is shared. A
    // set without data gets new, empty data. O(1), or O(n) for a clone.
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

    // Do what the functions of GxapSelectSet do, but return writable iterators. All except end() make shared
    // data private.
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

    // Adds one item at the end. If `unique` is true and findInMap() would find an item with the same
    // arguments, adds nothing, and leaves shared data shared.
    //
    // If the main id is null, does nothing, and the caller keeps `entInfo`. Otherwise the set owns `entInfo`,
    // and frees it if the item is not added. `entInfo` must be null, or constructed in memory from _kvMalloc.
    // `nestedPath` may be null. The item shares the block of `nestedPath`. O(log n), plus the cost of
    // findInMap() if `unique` is true.
    void select(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker,
                GxapSelectedEntInfo* entInfo, const KvVector<GxDbObjectId>* nestedPath);

    // Calls select() without marker, info and path.
    void append(const GxDbObjectId& mainId, const GxDbObjectId& subId);

    // Calls select() with the record's ids, marker and path, and with a copy of its info. The caller keeps
    // the record. Returns false only if `record` is null. Returns true even if select() adds nothing.
    bool append(const selected_entity* record);

    // Removes items, and returns whether any was removed:
    //  - the form with one id: every item of the main id;
    //  - the form with two ids: every item that has both ids;
    //  - the form with three keys: the first item that has exactly these keys. Here, the markers 0 and -1
    //    differ.
    //
    // Frees the slots, but keeps the records allocated. Warning: the form with two ids erases all index
    // entries of the main id. Items with another sub id stay in the set, but lookups do not find them until
    // updateDataMap().
    //
    // O(log n + items of the id) with one or two ids. With three keys, the cost is that of findInMap(). A
    // page that is freed adds O(p).
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
    // is done and for an index out of range. Throws KvExceptionWithMsg "Error access KvTrucker" if the
    // iterator's item was already removed.
    bool removeAt(Iterator& it);
    bool removeAt(int index);

    // merge() makes this set the union of a and b: all items of a, and then the items of b that append()
    // would add. minus() makes this set the items of a that are not in b, compared by main id, sub id and
    // exact marker. A null operand counts as empty. O(items of b * log n).
    //
    // If one operand of merge() is empty, this set shares the data of the other operand. Otherwise `unique`
    // and `selectByNestedMode` are each true if they are true in a or in b. If minus() finds none of the
    // items of b, this set shares the data of a.
    //
    // An operand may be this set, but this set first takes the items of a. So merge(&a, this) gives only the
    // items of a (twice if a is not unique), and minus(&a, this) removes every item that is in the index.
    void merge(const GxapSelectSet* a, const GxapSelectSet* b);
    void minus(const GxapSelectSet* a, const GxapSelectSet* b);

    // Sets `unique`. If `unique` becomes true, keeps only the first item of each main id. Removes the others
    // without deleting their records. O(n log n) if `unique` becomes true, otherwise O(1).
    void setUnique(bool on);

    // Returns an iterator on the first item of `id`, whatever its other keys. Returns end() for a null id,
    // and for an id without items. An empty set gives an iterator that is done. Makes shared data private
    // only if there is such an item. Same cost as find(), or O(n) if the data was shared.
    Iterator findMainSubsel(const GxDbObjectId& id);

    // Adds a copy of the path to the sub-selection of the first item whose main id is the path's last id. If
    // there is no such item, adds an item without a sub-selection, with an info whose `word0` is 6. In that
    // case, nobody owns or frees the copy of the path. Returns false for a path without ids, an invalid last
    // id, and an item without a sub-selection. O(find + paths).
    bool appendSubentPathSubsel(const GxDbFullSubentPath& path);

    // Remove one path from the sub-selection of an item, and return whether a path was removed. They do not
    // delete the path object. They also remove the item if no path is left. removeSubentPathSubsel() looks in
    // the first item whose main id is the path's last id, and removes that item even if there were no paths
    // before. removeSubentPathAtSubsel() throws KvErrorStatus 24 if `pathIndex` equals the number of paths.
    // O(find + paths).
    bool removeSubentPathSubsel(const GxDbFullSubentPath& path);
    bool removeSubentPathAtSubsel(int entityIndex, int pathIndex);
};

static_assert(sizeof(GxapSSetWriteAccessor) == sizeof(GxapSelectSet) &&
                  !std::is_polymorphic_v<GxapSSetWriteAccessor>,
              "a set can be seen as its accessor");
