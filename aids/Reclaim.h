// Removes items and hands their records over.
//
// The library leaves the record of a removed item allocated, to whoever has its address. The functions here
// do what the library's removals do, and return the records as owners. A caller that ignores the result
// destroys the records at once.
#pragma once

#include "aids/AidsExport.h"
#include "selectcontext/GxapSSetWriteAccessor.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

namespace kv {

// The removed records, which belong to the receiver. Any thread may destroy them. A record has its fields
// still: to end the highlights of a removed item, pass its `highlightSegmentArray` to
// gxutEntityGxDbFullPathHighlight(). Nobody else must use or delete the records.
using Record = std::unique_ptr<selected_entity>;
using Records = std::vector<Record>;

// Every function here makes shared data private if it removes something, which disables the set's iterators.
// A removal adjusts no iterator, unless the function says otherwise. If nothing is to be removed, shared data
// stays shared. The exceptions say so. Bad arguments (null ids, positions out of range, sets without data)
// remove nothing.
//
// If there is no memory, functions throw std::bad_alloc or KvErrorStatus 6, and the set's items are as
// before. Costs: n is the number of items. Private data is assumed; shared data adds O(n). Thread safety:
// that of the set.

// Do what remove() does with these keys. Return the records in the order of the set. O(log n + items of the
// main id). As in the library, the form with two ids leaves the other items of the main id without index
// entries.
KV_AIDS_API Records take(GxapSelectSet& set, const GxDbObjectId& mainId);
KV_AIDS_API Records take(GxapSelectSet& set, const GxDbObjectId& mainId, const GxDbObjectId& subId);
KV_AIDS_API Records take(GxapSelectSet& set, const GxDbObjectId& mainId, const GxDbObjectId& subId,
                         long gsMarker);

// Removes the item at `index`, and no other, also if an earlier item has the same keys. Returns null if there
// is no such item. O(log n + items of the main id + slots of a page).
KV_AIDS_API Record takeAt(GxapSelectSet& set, int index);

// Does what removeExactly() of Inspect.h does. Returns null if the iterator is on no item of this set.
KV_AIDS_API Record takeExactly(GxapSelectSet& set, GxapSelectSet::ConstIterator& it);

// Removes the items for which isDoomed(item) is true, and no others. Asks for each item once, in the order of
// the set. All are asked before the first is removed. If isDoomed() throws, nothing is removed. isDoomed()
// must not edit the set: if it does, nothing is removed either. O(n), plus O(log n + items of the main id)
// for each removed item's main id.
KV_AIDS_API Records takeIf(GxapSelectSet& set, const std::function<bool(const selected_entity&)>& isDoomed);

// Removes the items that are in `other`, as minus(&set, &other) does. Makes shared data private if both sets
// have items, even if nothing is removed. If there is no memory, some of the items may be removed already;
// their records are destroyed. O((n + items of other) * log n).
KV_AIDS_API Records takeMinus(GxapSelectSet& set, const GxapSelectSet& other);

// Does what setUnique() does. Makes shared data private if the value changes. O(n log n).
KV_AIDS_API Records takeSetUnique(GxapSelectSet& set, bool on);

// Owns the paths of sub-selections. The library copies each path that it adds to a sub-selection. It never
// deletes the copies, since copied records share them. The owner adds paths and deletes them: those that are
// not used any more when it is told to, and all others in its destructor.
//
// Invariant: the paths that were added through the owner exist until destroyUnused() or the destructor.
//
// The owner must outlive all sets that have its paths, and all copies of these sets, such as those in a
// History. Thread safety: one thread at a time, and that of the sets.
class KV_AIDS_API SubselectionPaths {
public:
    SubselectionPaths();
    SubselectionPaths(const SubselectionPaths&) = delete;
    SubselectionPaths& operator=(const SubselectionPaths&) = delete;
    ~SubselectionPaths();

    // Adds a copy of the path to the sub-selection of the first item whose main id is the path's last id. If
    // there is no such item, adds an item that has the path, which appendSubentPathSubsel() would not do.
    // Returns false, and adds nothing, for a path without ids, an invalid last id, and an item without a
    // sub-selection. Makes shared data private, unless it returns false. Throws what copying a path throws,
    // std::bad_alloc, or KvErrorStatus 6; the sub-selections are then as before. O(find + paths).
    bool add(GxapSelectSet& set, const GxDbFullSubentPath& path);

    // What a removal did.
    struct Removed {
        bool isRemoved = false; // whether a path was removed
        Record item; // the record of the item, which was removed with its last path; otherwise null
    };

    // Remove one path from the sub-selection of an item, and the item with its last path. remove() looks in
    // the first item whose main id is the path's last id. The removed copy exists until destroyUnused().
    // Unlike the library's functions, they throw nothing for a `pathIndex` out of range, and never remove
    // another item that has the same keys. O(find + paths).
    static Removed remove(GxapSelectSet& set, const GxDbFullSubentPath& path);
    static Removed removeAt(GxapSelectSet& set, int entityIndex, int pathIndex);

    // Returns the number of paths that the owner has.
    std::size_t size() const noexcept;

    // Deletes the paths that are in no sub-selection of these sets. The sets must be all that can have paths
    // of this owner; records that were taken out of a set must be destroyed before. Skips null. Returns the
    // number of deleted paths. Throws std::bad_alloc, and then deletes nothing. O(items + paths * log paths).
    std::size_t destroyUnused(const std::vector<const GxapSelectSet*>& sets);

private:
    using Slot = GxapSelectSet::SSetData::Store::Slot;

    bool addTo(GxapSelectSet& set, Slot* slot);
    void addItem(GxapSelectSet& set, const GxDbObjectId& id);
    static Removed removeFrom(GxapSelectSet& set, Slot* slot, int pathIndex);

    std::vector<std::unique_ptr<GxDbFullSubentPath>> mPaths;
};

} // namespace kv
