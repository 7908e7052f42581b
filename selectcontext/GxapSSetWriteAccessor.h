// GxapSSetWriteAccessor: the editing interface of a selection set.
#pragma once

#include "selectcontext/GxapSelectSet.h"

// A set seen through its editing interface. The class has no members of its own and no virtual functions. So
// static_cast<GxapSSetWriteAccessor&>(set) is supported for any set.
//
// Every edit makes shared data private first (copy-on-write), which disables the set's iterators. Iterators
// that the accessor returns afterwards are valid until the next copy-on-write. Adding never moves a record.
// Removing adjusts no iterator.
//
// Bad arguments throw nothing: edits return false or do nothing. There are two exceptions, documented at
// their functions: an iterator on a removed item, and a path index equal to the number of paths. Arguments
// may be references into this very set.
//
// Running out of memory is KvErrorStatus 6 or std::bad_alloc. It leaves the set as it was. An operation that
// edits many items may have completed some of them, each as a whole. merge() and minus() have replaced the
// earlier items by then.
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

    // Rebuilds the index from the store. Call it after changing a record's keys, replacing a record, or
    // changing slots, pages and their chain. Does not copy shared data: it rebuilds the index in place. If it
    // runs out of memory, the index is incomplete until the next call. O(n), or O(n log n) if the ids are not
    // in ascending order.
    void updateDataMap();

    // Removes every item. Private data keeps its two flags. Shared data is replaced by new data with the
    // default flags. O(n) for private data, O(1) for shared data.
    void clear();

    // Does the same as the assignment of GxapSelectSet.
    GxapSSetWriteAccessor& copyFrom(const GxapSelectSet& other);

    // Returns the slot of the record at `index`, or null for a bad index. A caller may edit or replace the
    // record through the slot. A negative index, or an empty set, does not copy shared data. O(p + slots of a
    // page).
    selected_entity** getAt(int index);

    // Return writable iterators on private data. end() alone never copies shared data. Everything else is as
    // in GxapSelectSet.
    Iterator findItr(const GxDbObjectId& mainId);
    Iterator findItr(const GxDbObjectId& mainId, const GxDbObjectId& subId);
    Iterator findItr(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker);
    Iterator findMain(const GxDbObjectId& mainId);
    Iterator iteratorAt(int index);
    Iterator begin();
    Iterator end();

    // Sets the mode. Copies shared data only if the mode changes.
    void setSelectByNestedMode(bool on);

    // Calls it.setHighlightSegment(path).
    void setHighlightSegment(Iterator& it, const GxDbFullSubentPath* path);

    // Adds one item at the end. With `unique` on, it refuses an item that the set already has, without
    // copying shared data.
    //
    // A null main id does nothing, and the caller keeps `entInfo`. Otherwise the set owns `entInfo`, and
    // frees it if the item is refused or the call throws. `entInfo` is null, or constructed in memory from
    // _kvMalloc. `nestedPath` may be null; the item shares its block. O(log n), plus a findInMap() with these
    // keys if `unique` is on.
    void select(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker,
                GxapSelectedEntInfo* entInfo, const KvVector<GxDbObjectId>* nestedPath);

    // Calls select() without marker, info and path.
    void append(const GxDbObjectId& mainId, const GxDbObjectId& subId);

    // Calls select() with the record's ids, marker and path, and a copy of its info. The caller keeps the
    // record. Returns false only for null: a refused item gives true.
    bool append(const selected_entity* record);

    // Removes items, and returns whether any was removed:
    //  - with one id, every item of the main id;
    //  - with two ids, every item that has both;
    //  - with three keys, the first item that has exactly these. Markers of 0 and -1 differ here.
    //
    // Frees the slots, but keeps the records allocated. Warning: the form with two ids erases all index
    // entries of the main id. Items with another sub id stay in the set, but lookups do not find them until
    // updateDataMap(). O(log n + items of the id) with one or two ids. With three keys, the cost is that of
    // findInMap(). A page that is freed adds O(p).
    bool remove(const GxDbObjectId& mainId);
    bool remove(const GxDbObjectId& mainId, const GxDbObjectId& subId);
    bool remove(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker);

    // Removes the item of the iterator, or the item at `index`, and returns whether it did. The item is
    // looked up by its three keys. If several items have the same keys, the first of them in the index is
    // removed. The cost is that of remove() with three keys, plus getAt() for an index.
    //
    // Afterwards `it` is on the previous item, or on the freed slot if there is no previous item. If shared
    // data was copied, all iterators of the set are disabled, including `it`. Returns false for an iterator
    // that is done and for an index out of range. An iterator on an item that was removed earlier throws
    // KvExceptionWithMsg "Error access KvTrucker".
    bool removeAt(Iterator& it);
    bool removeAt(int index);

    // merge() makes this set the union of a and b. minus() makes it a without the items of b, by their exact
    // three keys. Null operands count as empty. The data is shared if nothing has to be changed. O(items of b
    // * log n).
    //
    // A union has all items of a, and then those of b that append() would add. It is `unique` if either
    // operand is, and in nested mode if either operand is. If one operand is empty, this set shares the
    // other's data with its flags. An operand may be this set, but this set becomes `a` first. So merge(&a,
    // this) gives only the items of a (twice if no set is unique), and minus(&a, this) removes every item
    // that is in the index.
    void merge(const GxapSelectSet* a, const GxapSelectSet* b);
    void minus(const GxapSelectSet* a, const GxapSelectSet* b);

    // Sets the flag. Switching it on keeps only the first item of each main id, and does not delete the
    // records of the others. O(n log n) for that, otherwise O(1).
    void setUnique(bool on);

    // Returns an iterator on the first item of `id`, whatever its other keys. A null or absent id gives
    // end(). An empty set gives an iterator that is done. Shared data is copied only if the item is found.
    Iterator findMainSubsel(const GxDbObjectId& id);

    // Adds a copy of the path to the sub-selection of the item of the path's last id. If the set lacks that
    // entity, it adds a plain item, with an info whose first word is 6. Nobody owns or frees the path's copy
    // then. Returns false for a path without ids, an invalid last id, and an item without a sub-selection.
    bool appendSubentPathSubsel(const GxDbFullSubentPath& path);

    // Remove one path from the sub-selection of its item, and return whether they did. They do not delete the
    // path object. They remove an item that has no paths left. The form with `path` also removes an item that
    // had no paths before. A path index equal to the number of paths throws KvErrorStatus 24.
    bool removeSubentPathSubsel(const GxDbFullSubentPath& path);
    bool removeSubentPathAtSubsel(int entityIndex, int pathIndex);
};

static_assert(sizeof(GxapSSetWriteAccessor) == sizeof(GxapSelectSet) &&
                  !std::is_polymorphic_v<GxapSSetWriteAccessor>,
              "a set can be seen as its accessor");
