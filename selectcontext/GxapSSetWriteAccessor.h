// GxapSSetWriteAccessor: the editing interface of a selection set.
#pragma once

#include "selectcontext/GxapSelectSet.h"

// A set seen through its editing interface: no member and no virtual of its own, so that
// static_cast<GxapSSetWriteAccessor&>(set) is supported for any set.
//
// Every edit makes shared data private first (copy-on-write), which disables the iterators that the set had;
// iterators that the accessor hands out afterwards are good until the next such step. Adding never moves a
// record; removing adjusts no iterator.
//
// Bad arguments throw nothing: edits return false or do nothing. There are two exceptions, which their
// functions name: an iterator left on an item that was removed, and a path index equal to the number of
// paths. Out of memory is KvErrorStatus 6 or std::bad_alloc. It leaves the set as it was or, for operations
// that edit many items, with some of them done, each of them whole. merge() and minus() have replaced the
// earlier items by then. Arguments may be references into this very set. Costs: n is
// the number of items, p = n / 4096 the number of pages. A copy-on-write adds O(n) where the data is shared.
//
// Thread safety: one thread at a time.
class KVSELECTCONTEXT_API GxapSSetWriteAccessor : public GxapSelectSet {
public:
    using GxapSelectSet::GxapSelectSet;

    // Data that no other set holds: the set's own, or a clone of the data that it shared. The data stays the
    // set's. O(1), or O(n) for a clone.
    SSetData* writeData();

    // Rebuilds the index from the store, for callers that changed a record's keys or replaced a record. It
    // also follows what a caller has changed by hand in slots, pages and their chain. Does not copy shared
    // data: the index is rebuilt in place. If it runs out of memory, the index is incomplete until the next
    // call. O(n), O(n log n) for ids in an order of their own.
    void updateDataMap();

    // Removes every item. Private data keeps its two flags; shared data is let go, and the fresh data has the
    // default flags. O(n) or O(1).
    void clear();

    // As GxapSelectSet's assignment.
    GxapSSetWriteAccessor& copyFrom(const GxapSelectSet& other);

    // The slot of the record at `index`, through which a caller may edit or replace the record; null for a
    // bad index. A negative index, or an empty set, does not copy shared data. O(p + slots of a page).
    selected_entity** getAt(int index);

    // Writable iterators on private data. Only end() never copies shared data. Otherwise as those of
    // GxapSelectSet.
    Iterator findItr(const GxDbObjectId& mainId);
    Iterator findItr(const GxDbObjectId& mainId, const GxDbObjectId& subId);
    Iterator findItr(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker);
    Iterator findMain(const GxDbObjectId& mainId);
    Iterator iteratorAt(int index);
    Iterator begin();
    Iterator end();

    // Shared data is copied only when the mode changes.
    void setSelectByNestedMode(bool on);

    // Forwards to it.setHighlightSegment(path).
    void setHighlightSegment(Iterator& it, const GxDbFullSubentPath* path);

    // Adds one item at the end. With `unique` on, an item that the set holds already is refused, and shared
    // data is not copied for it.
    //
    // A null main id does nothing, and the caller keeps `entInfo`. Otherwise the set takes `entInfo` over,
    // and frees it if the item is refused or the call throws. `entInfo` is made in place in memory from
    // _kvMalloc, or null. `nestedPath` may be null; its block is shared. O(log n + items of the id).
    void select(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker,
                GxapSelectedEntInfo* entInfo, const KvVector<GxDbObjectId>* nestedPath);

    // select() without marker, info and path.
    void append(const GxDbObjectId& mainId, const GxDbObjectId& subId);

    // select() with the record's ids, marker and path, and a copy of its info. False only for null: an item
    // that is refused gives true. The record stays the caller's.
    bool append(const selected_entity* record);

    // Removes items, and returns whether any was removed:
    //  - with one id, every item of the main id;
    //  - with two ids, every item that has both;
    //  - with three keys, the first item that has exactly these. Markers of 0 and -1 differ here.
    //
    // The slots are freed, the records stay allocated. Warning: the form with two ids erases all index
    // entries of the main id. Items with another sub id stay in the set, but are not found until
    // updateDataMap(). O(log n + items of the id), and O(p) for a page that is freed.
    bool remove(const GxDbObjectId& mainId);
    bool remove(const GxDbObjectId& mainId, const GxDbObjectId& subId);
    bool remove(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker);

    // Removes the item of the iterator, or the item at `index`. The item is looked up by its three keys. If
    // several items have the same keys, the first of them in the index is removed.
    //
    // Afterwards `it` is on the previous item. If there is none, it stays on the freed slot. If shared data
    // was copied, `it` is disabled, as all iterators are. False for a done iterator and an index out of
    // range. KvExceptionWithMsg "Error access KvTrucker" for an iterator on an item that was removed before.
    // Cost of the three-key remove(), and of getAt() for an index.
    bool removeAt(Iterator& it);
    bool removeAt(int index);

    // Makes this set the union of a and b, or a without the items of b (by their exact three keys). Null
    // operands count as empty. Data is shared where nothing has to be changed. O(items of b * log n).
    //
    // A union has a's items as they are, and then those of b that append() takes. It is `unique` if either
    // operand is, and in nested mode if either is. If one operand is empty it shares the other's data with
    // its flags. Operands may be this set, but it becomes `a` first: merge(&a, this) gives a's items only
    // (twice if neither set is unique), and minus(&a, this) takes away every item that the index has.
    void merge(const GxapSelectSet* a, const GxapSelectSet* b);
    void minus(const GxapSelectSet* a, const GxapSelectSet* b);

    // Sets the flag; switching it on keeps the first item of each main id only, and leaves the records of the
    // others unreleased. O(n log n) for that, else O(1).
    void setUnique(bool on);

    // The first item of `id`, whatever its other keys; end() for a null or absent id; done at once on an
    // empty set. Shared data is copied only when the item is found.
    Iterator findMainSubsel(const GxDbObjectId& id);

    // Adds a copy of the path to the sub-selection of the item of the path's last id. An entity that the set
    // does not hold is added as a plain item, marked by an info whose first word is 6; the path's copy is
    // left unreleased then, without an owner. False for a path without ids, an invalid last id, and an item
    // that is no sub-selection.
    bool appendSubentPathSubsel(const GxDbFullSubentPath& path);

    // Removes one path from the sub-selection of its item, and returns whether it did. The path object stays
    // allocated. An item that is left without paths is removed, too; by the form with `path` also an item
    // that had none before. A path index equal to the number of paths throws KvErrorStatus 24.
    bool removeSubentPathSubsel(const GxDbFullSubentPath& path);
    bool removeSubentPathAtSubsel(int entityIndex, int pathIndex);
};

static_assert(sizeof(GxapSSetWriteAccessor) == sizeof(GxapSelectSet) &&
                  !std::is_polymorphic_v<GxapSSetWriteAccessor>,
              "a set can be seen as its accessor");
