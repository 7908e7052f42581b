// GxapSelectSet: the handle of a selection set, which owns and reads the set.
#pragma once

#include "base/GxArray.h"
#include "base/KvSTLAllocator.h"
#include "base/KvTrucker.h"
#include "base/KvVector.h"
#include "platform/KvDatabase.h"
#include "selectcontext/IGxapSSetEntityExcluder.h"
#include "selectcontext/KvSelectContextExport.h"
#include "selectcontext/detail/BuiltWith.h"
#include "selectcontext/selected_entity.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <type_traits>
#include <utility>

namespace kvdetail {
struct SetData;
} // namespace kvdetail

// Returns whether two markers are equal. The values 0 and -1 both mean "no marker", and equal each other.
KVSELECTCONTEXT_API bool isGsMarkEqual(long a, long b);

// An ordered collection of selected items. Copies share their data. An edit goes through
// GxapSSetWriteAccessor, which makes the data private first. Any set is its own accessor:
// static_cast<GxapSSetWriteAccessor&>(set).
//
// Invariants while no operation is running:
//  1. `sharedData` is null only after releaseData() or assignData(nullptr), and in a copy of a set without
//     data. Readers treat null as an empty set, except findInMap(), which throws.
//  2. `iterators` has each registered iterator once, in the order of registration. A copy of the handle does
//     not share `iterators`.
//  3. An iterator that is not in `iterators` is disabled, or was disabled and then assigned another iterator
//     of the same set.
//
// Bad arguments (null ids, null pointers, positions out of range) throw nothing, unless a function says
// otherwise. The result is then null, false, -1 or the end. If there is no memory, the containers raise
// KvErrorStatus 6, and other code throws std::bad_alloc. The set is then unchanged. Costs: n is the number of
// items, and p = n / 4096 is the number of pages.
//
// Ids may stop being valid while a set has them. Their items are still found, edited and removed. But ids
// whose stubs are gone must not be compared. A set that has such ids may only be walked, read by position,
// copied without being written, cleared and destroyed.
//
// If the application changes the order or the equality of ids, which it must not do (see KvDatabase.h), sets
// may miss or confuse the items of these ids until updateDataMap(). All records stay in their sets.
//
// Thread safety: handles that share data may be copied, read and destroyed on different threads. A handle,
// with its iterators, belongs to one thread at a time.
class KVSELECTCONTEXT_CLASS GxapSelectSet {
public:
    // The reference-counted data of one or more handles.
    //
    // Invariants while no operation is running:
    //  1. `entities`, the store, is non-null in data that a handle uses. The slots of the store own the
    //     records, in the order of selection.
    //  2. `entityCount` is the number of occupied slots.
    //  3. `dataMap` has one entry per record: the main id and the address of the slot. Entries of one id are
    //     in the order of their insertion. remove() with a main id and a sub id breaks this invariant. So
    //     does a caller that changes the main id of an item. The caller must call updateDataMap() afterwards.
    //  4. `refCount` is the number of handles that share the data. While `refCount` is above 1, no edit
    //     changes the data. There are three exceptions: updateDataMap(), an Iterator that does not come from
    //     the accessor, and findSubentPathSubsel(), which makes the block of a list private.
    //
    // Thread safety: `refCount` may be changed from any thread. Several threads may read the other members
    // while the data is shared. If only one handle uses the data, the thread of that handle may change them.
    class KVSELECTCONTEXT_CLASS SSetData {
    public:
        // Callers may change the map, but must not move nodes from the map of one set to that of another.
        // They may copy entries, or swap whole maps. An extracted node must stay on the set's thread.
        using DataMap = std::multimap<GxDbObjectId, unsigned long, std::less<GxDbObjectId>,
                                      _KvSTLAllocator<std::pair<GxDbObjectId const, unsigned long>>>;

        // The store: a slot has the address of a record. A page has 4096 slots.
        using Store = KvTrucker<selected_entity*, 65536u, KvTkDefaultAllocator<selected_entity*>>;

        // Makes empty data: `unique` is true, `refCount` is 0 and `entities` is null.
        SSetData();

        // Destroys the records in the store, its pages and the store. O(n).
        ~SSetData();
        SSetData(const SSetData&) = delete;
        SSetData& operator=(const SSetData&) = delete;

        // addRef() counts one handle more, delRef() one less. The last delRef() destroys the data. Any thread
        // may call these functions. O(1), or O(n) for the last delRef().
        KVSELECTCONTEXT_API void addRef() const;
        KVSELECTCONTEXT_API void delRef() const;

        // Destroys every record, and empties the index and the store. `unique` and `selectByNestedMode` keep
        // their values. Does nothing while more than one handle uses the data. O(n).
        void clear();

        // Returns new data with a copy of every record, in consecutive slots, and with an index of its own.
        // Copies `unique`, `selectByNestedMode` and `entityCount`. `refCount` is 0; the caller must assign
        // the data to a set. The copied records share the vectors and highlight paths of the original
        // records, but have infos of their own. O(n), or O(n log n) if the order of the ids is not that of
        // their stubs.
        SSetData* clone() const;

        mutable std::atomic<std::uint32_t> refCount; // the number of handles on the data
        DataMap dataMap;                             // the index: main id -> address of the slot
        bool unique;                                 // select() refuses an item that the set already has
        bool selectByNestedMode;                     // the library only stores it
        std::uint32_t entityCount;                   // the number of items
        Store* entities;                             // the data owns the store; null in new data

    private:
        friend struct kvdetail::SetData;

        void destroy() const;

        std::unique_ptr<kvdetail::SetData> mInside;
    };

    // A cursor over a set's items in store order. A set registers its iterators, and disables them when it
    // releases its data. Removing adjusts no iterator, except the argument of removeAt(). An iterator never
    // reads a freed page. If the page of an iterator was freed, reading the item throws KvExceptionWithMsg
    // "Error access KvTrucker", step() moves the iterator to the end, and getPrevIterator() gives an iterator
    // before the first item.
    //
    // Invariants:
    //  1. `truckerIterator` is null, or a store position on the heap that only this iterator uses. Null means
    //     that the iterator is disabled: isDone() returns true, and get() returns null.
    //  2. `set` is the set from which the destructor unregisters the iterator. disable() does not change
    //     `set`.
    //
    // The caller must destroy an iterator before its set. If the set is destroyed first, its registered
    // iterators are disabled, and their destructors do not touch the set. Constructing, copying, assigning
    // and destroying an iterator cost O(registered iterators). Thread safety: that of the set.
    class KVSELECTCONTEXT_CLASS ConstIterator {
    public:
        // Makes an iterator on the item at `index`. If `index` is the number of items, the iterator is at the
        // end. If `index` is negative, the iterator is done. If `index` is larger than the number of items,
        // and the store has pages, the iterator is neither done nor on an item, and reading its item throws.
        // If the set is null or without data, the iterator is disabled. O(p + slots of a page).
        ConstIterator(const GxapSelectSet* set, int index);

        // Copies the position, and registers the copy as well. A copy of a disabled iterator is disabled.
        ConstIterator(const ConstIterator& other);

        // Copies the position of `other`. Registers this iterator only if `set` changes. So a disabled
        // iterator that is assigned another iterator of the same set has a position but is not registered.
        ConstIterator& operator=(const ConstIterator& other);

        // Unregisters the iterator from `set`. O(registered iterators).
        ~ConstIterator();

        // Deletes `truckerIterator` and sets it to null. The iterator stays registered.
        void disable();

        // Returns true if the iterator is disabled or at the end of the set. Reads neither a page nor a slot.
        // O(1).
        KVSELECTCONTEXT_API bool isDone() const;

        // Advances to the next item, and ignores the argument. Returns false if there is no next item, or if
        // the iterator was done before. The step that reaches the end also advances `index`. O(slots
        // skipped).
        KVSELECTCONTEXT_API bool step(bool forward = true) const;

        // Makes `prev` an iterator on the item before this iterator's item. If this iterator is on the first
        // item or disabled, returns false and leaves `prev` unchanged. O(slots skipped), or O(p) to change
        // page.
        bool getPrevIterator(ConstIterator& prev) const;

        // Returns whether set, index and store position are equal. Returns false for a disabled iterator,
        // even if it is compared with itself. O(1).
        bool operator==(const ConstIterator& other) const;
        bool operator!=(const ConstIterator& other) const;

        // Returns the current record, which the set owns. Without a current record, get() and the accessors
        // below return null, 0, the null id or an empty path. They throw KvExceptionWithMsg "Error access
        // KvTrucker" if the current item was removed. O(1), or O(p) after a page was freed.
        KVSELECTCONTEXT_API selected_entity* get() const;
        KVSELECTCONTEXT_API GxDbObjectId mainEntId() const;
        KVSELECTCONTEXT_API GxDbObjectId subEntId() const;
        KVSELECTCONTEXT_API long gsMarker() const;
        GxapSelectedEntInfo* selectedEntityInfo() const;
        KvVector<GxDbFullSubentPath*>* highlightSegmentArray() const;
        KvVector<int>* hlVpArray() const;
        const KvVector<GxDbObjectId>& nestedEntFullPath() const;

        // Returns whether the item was picked inside a block reference: whether its nested path has more than
        // one id. For a path of two ids, the sub id must also be null or equal to the main id. O(1).
        bool isNestedEnt() const;

        // Sets the ids of `path` to the nested path up to and including the main id. Sets the sub-entity type
        // of `path` to 0, and the sub-entity index to the marker. Returns false, and leaves `path` unchanged,
        // if there is no nested path, or if the nested path lacks the main id. O(path).
        bool getFullSubentPath(GxDbFullSubentPath& path) const;

        // Fills `ids` with those ids of the nested path that can be opened as entities. If the iterator is
        // disabled, returns false and leaves `ids` unchanged. If the nested path is empty, returns false and
        // empties `ids`. Opens one entity at a time. O(path).
        bool getFilteredNestedFullPath(KvVector<GxDbObjectId>& ids) const;

        const GxapSelectSet* set;                   // the set of the iterator, or null
        mutable std::int32_t index;                 // the position, as far as the iterator has counted
        SSetData::Store::iterator* truckerIterator; // owned; null: disabled
    };

    // A cursor with write access to the record. Take an Iterator from the write accessor, which makes the
    // data private first. An Iterator on shared data changes what other sets see.
    class KVSELECTCONTEXT_CLASS Iterator : public ConstIterator {
    public:
        // Do what the functions of ConstIterator do.
        Iterator(const GxapSelectSet* set, int index);
        Iterator(const Iterator& other);
        Iterator& operator=(const Iterator& other);

        // Returns the current record for editing, which the set owns. Null and errors are those of
        // ConstIterator::get(). After changing a key, call updateDataMap() of the accessor.
        selected_entity* get();

        // Makes the nested path of the record share the block of `path`. Does nothing if there is no record.
        // O(1).
        void setNestedEntFullPath(const KvVector<GxDbObjectId>& path);

        // Adds a copy of the path to the record's highlight segments. A null path removes all segments. Does
        // nothing if there is no record. O(1) if the list has room, otherwise O(segments).
        void setHighlightSegment(const GxDbFullSubentPath* path);
    };

    // Makes an empty set with data of its own. The argument is ignored. O(1).
    explicit GxapSelectSet(bool ignored = true);

    // Shares the data of `other`. Copies neither `iterators` nor `lispRefCnt`. O(1).
    KVSELECTCONTEXT_API GxapSelectSet(const GxapSelectSet& other);

    // Releases the data of this set and shares the data of `other`. Does nothing if both sets share their
    // data already. Otherwise disables every iterator of this set. O(1), or O(n) if this was the last handle
    // on the old data.
    GxapSelectSet& operator=(const GxapSelectSet& other);

    // Disables the iterators that are still registered, and releases the data. O(registered iterators), and
    // O(n) if this was the last handle on the data.
    KVSELECTCONTEXT_API ~GxapSelectSet();

    // Replaces the data of the set by new, empty data, and disables every iterator. Returns the new data,
    // which the set owns.
    SSetData* createData();

    // Replaces the data of the set by `data`, and disables every iterator. If `data` is null, the set has no
    // data afterwards. Does nothing if the set uses `data` already.
    void assignData(SSetData* data);

    // Disables every iterator and releases the data. The set has no data afterwards.
    void releaseData();

    // Returns `selectByNestedMode`. Returns false for a set without data. O(1).
    bool isSelectByNestedMode() const;

    // The LISP layer counts its references to the set in `lispRefCnt`. These functions read, raise or lower
    // the count, and return the result. A negative count counts as 0. O(1).
    long getLispRefCnt();
    long addLispRefCnt();
    long subtractLispRefCnt();

    // Iterators call these functions to register with their set. addIterator() and removeIterator() ignore
    // null. addIterator() registers an iterator only once. removeIterator() keeps the order of the other
    // iterators. disableAllIterator() disables every iterator and empties `iterators`. O(registered
    // iterators).
    void addIterator(ConstIterator* it) const;
    void removeIterator(ConstIterator* it) const;
    void disableAllIterator() const;

    // Return iterators by value, each registered once. A set without data gets empty data first. iteratorAt()
    // returns the end for an index above the count, and an iterator that is done for a negative index.
    // cbegin() and cend() do what begin() and end() do, for a set that is not const. O(registered iterators).
    // A position before the end adds O(p + slots of a page).
    ConstIterator begin() const;
    ConstIterator end() const;
    ConstIterator cbegin();
    ConstIterator cend();
    ConstIterator iteratorAt(int index) const;

    // Returns the first entry of `dataMap`, in order of insertion, whose record has the same keys as the
    // arguments. The keys are main id, sub id, marker (by isGsMarkEqual), nested path, and the block
    // transform of `info`. Keys that a form does not take are not compared. If `path` is null, neither path
    // nor info is compared. Returns dataMap.end() if there is no such entry. The form with one id reads no
    // record. Throws KvExceptionWithMsg on a set without data.
    //
    // O(log n) for an id of at most 64 items. If an id has more, say k items, the first look-up that passes
    // 64 of them makes a hash of all k, in O(k log k). Later look-ups cost O(log n + items with equal keys).
    // There is one hash for look-ups with a path, and one for those without. Adding and removing single items
    // updates the hashes. Once more items were removed than are left, the next look-up makes the hash again.
    //
    // There are four cases without such a hash, where a look-up costs O(log n + k): there is no memory for
    // it; the main id has several stubs; a caller has changed `dataMap`; the arguments include no marker, and
    // the items have more than four different markers.
    //
    // As third argument, a literal 0 could be a marker or a null path. The overload with int makes 0 a
    // marker.
    SSetData::DataMap::const_iterator findInMap(const GxDbObjectId& mainId) const;
    SSetData::DataMap::const_iterator findInMap(const GxDbObjectId& mainId, const GxDbObjectId& subId) const;
    SSetData::DataMap::const_iterator findInMap(const GxDbObjectId& mainId, const GxDbObjectId& subId,
                                                long gsMarker) const;
    SSetData::DataMap::const_iterator findInMap(const GxDbObjectId& mainId, const GxDbObjectId& subId,
                                                int gsMarker) const {
        return findInMap(mainId, subId, static_cast<long>(gsMarker));
    }
    SSetData::DataMap::const_iterator findInMap(const GxDbObjectId& mainId, const GxDbObjectId& subId,
                                                const KvVector<GxDbObjectId>* path) const;
    SSetData::DataMap::const_iterator findInMap(const GxDbObjectId& mainId, const GxDbObjectId& subId,
                                                long gsMarker, const KvVector<GxDbObjectId>* path) const;
    SSetData::DataMap::const_iterator findInMap(const GxDbObjectId& mainId, const GxDbObjectId& subId,
                                                long gsMarker, const KvVector<GxDbObjectId>* path,
                                                GxapSelectedEntInfo* info) const;

    // Returns the position of the item that findInMap() finds. Returns -1 if there is no such item, and for a
    // set without data. Costs O(p + slots of a page) more than findInMap(). To test only for presence, call
    // findInMap().
    int find(const GxDbObjectId& mainId) const;
    int find(const GxDbObjectId& mainId, const GxDbObjectId& subId) const;
    int find(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker) const;
    int find(const GxDbObjectId& mainId, const GxDbObjectId& subId, int gsMarker) const {
        return find(mainId, subId, static_cast<long>(gsMarker));
    }
    int find(const GxDbObjectId& mainId, const GxDbObjectId& subId, const KvVector<GxDbObjectId>* path) const;
    int find(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker,
             const KvVector<GxDbObjectId>* path) const;

    // Returns an iterator on the item that find() finds, or end(). findMain() does what the form with one id
    // does. Same cost as find().
    ConstIterator findItr(const GxDbObjectId& mainId) const;
    ConstIterator findItr(const GxDbObjectId& mainId, const GxDbObjectId& subId) const;
    ConstIterator findItr(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker) const;
    ConstIterator findItr(const GxDbObjectId& mainId, const GxDbObjectId& subId, int gsMarker) const {
        return findItr(mainId, subId, static_cast<long>(gsMarker));
    }
    ConstIterator findItr(const GxDbObjectId& mainId, const GxDbObjectId& subId,
                          const KvVector<GxDbObjectId>* path) const;
    ConstIterator findItr(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker,
                          const KvVector<GxDbObjectId>* path) const;
    ConstIterator findMain(const GxDbObjectId& mainId) const;

    // Returns an iterator on the first item of `id`, whatever its other keys. Returns end() for a null id,
    // and for an id without items. An empty set gives an iterator that is done. Same cost as find().
    ConstIterator findMainSubsel(const GxDbObjectId& id) const;

    // Return the record at `index`, the first record, or the last record. The set owns the record. They
    // return null if there is no such record. The forms with ids copy the ids of the record and return true.
    // If there is no record, they return false and leave the ids unchanged. getFirst() and getLast() with ids
    // throw KvErrorStatus 24 if a caller has made `entityCount` differ from the store. O(p + slots of a
    // page).
    selected_entity* getAt(int index) const;
    bool getAt(int index, GxDbObjectId& mainId) const;
    bool getAt(int index, GxDbObjectId& mainId, GxDbObjectId& subId) const;
    selected_entity* getFirst() const;
    bool getFirst(GxDbObjectId& mainId) const;
    bool getFirst(GxDbObjectId& mainId, GxDbObjectId& subId) const;
    selected_entity* getLast() const;
    bool getLast(GxDbObjectId& mainId) const;
    bool getLast(GxDbObjectId& mainId, GxDbObjectId& subId) const;

    // contains() returns whether this set has every item of `other`. intersectedWith() returns whether it has
    // at least one of them. Items are compared by main id, sub id, marker and nested path. Both functions
    // return false if `other` is null, and if a set is empty or without data. O(items of other * log n). They
    // stop at the first item that decides the result.
    bool contains(const GxapSelectSet* other) const;
    bool intersectedWith(const GxapSelectSet* other) const;

    // Appends a copy of every item to `target`, or to `excludedOut` if the excluder excludes the main id. If
    // `excludedOut` is null, excluded items are not copied. A receiving set whose `unique` is true refuses
    // items that it has. If `excluder` is null, `target` shares the data of this set instead. O(n log n).
    //
    // The excluder may edit all three sets. transfer() then goes on as an iterator does. It ends if this set
    // gets other data or is destroyed. It throws KvExceptionWithMsg "Error access KvTrucker" if the item that
    // it has asked about was removed. It also asks about the items that the excluder appends to this set,
    // unless this set receives items. So an excluder that never stops appending is the caller's error, and so
    // is one that destroys a receiving set or itself.
    void transfer(GxapSelectSet& target, IGxapSSetEntityExcluder* excluder, GxapSelectSet* excludedOut) const;

    // Looks for `path` in the sub-selection of the first item of `id`. Returns the position of the path
    // there, or -1. Makes the block of `subselPathArray` private, also in shared data. So several threads
    // must not call findSubentPathSubsel() at once on shared data. O(find + paths).
    int findSubentPathSubsel(const GxDbObjectId& id, const GxDbFullSubentPath& path) const;

    // Copies the path at `pathIndex` to `path`. The path is looked up in the sub-selection of the item at
    // `entityIndex`. Returns false for positions out of range, but throws KvErrorStatus 24 if `pathIndex`
    // equals the number of paths. Also returns false for an item without a sub-selection. O(getAt).
    bool getSubentPathAtSubsel(int entityIndex, int pathIndex, GxDbFullSubentPath& path) const;

    // Highlight or unhighlight the segments of the iterator's item, or of every item, by
    // gxutEntityGxDbFullPathHighlight(). Items without segments are not drawn. O(segments), or O(n +
    // segments) for every item.
    //
    // An entity may edit or destroy the set while it is opened or highlighted. Its own segments are then all
    // drawn, and draw() goes on as an iterator does. It ends if the set gets other data or is destroyed.
    // Selecting one item more with each call never lets it end, and is the caller's error.
    void draw(ConstIterator& it, bool entityFlag, bool highlight) const;
    void draw(bool entityFlag, bool highlight) const;

    mutable SSetData* sharedData; // the set is one of its handles; see the invariants for null
    // The registered iterators, which the set does not own.
    mutable GxArray<ConstIterator*, GxArrayMemCopyReallocator<ConstIterator*>> iterators;
    std::int64_t lispRefCnt; // the references of the LISP layer; the library does not read it otherwise

private:
    void orphanIterators() const;
};

// The functions below are inline because they are called often: for every item of a walk, or for every copy
// of a set.

KVSELECTCONTEXT_INLINE void GxapSelectSet::SSetData::addRef() const {
    refCount.fetch_add(1);
}

KVSELECTCONTEXT_INLINE void GxapSelectSet::SSetData::delRef() const {
    if (refCount.fetch_sub(1) == 1)
        destroy();
}

KVSELECTCONTEXT_INLINE GxapSelectSet::GxapSelectSet(const GxapSelectSet& other)
    : sharedData(other.sharedData), lispRefCnt(0) {
    if (sharedData)
        sharedData->addRef();
}

KVSELECTCONTEXT_INLINE GxapSelectSet::~GxapSelectSet() {
    if (iterators.logicalLength() != 0)
        orphanIterators();
    if (sharedData)
        sharedData->delRef();
}

KVSELECTCONTEXT_INLINE bool GxapSelectSet::ConstIterator::isDone() const {
    if (!truckerIterator || !set || !set->sharedData)
        return true;
    const SSetData::Store* const store = set->sharedData->entities;
    return !store || (!truckerIterator->isOnSlot() && store->isEnd(*truckerIterator));
}

KVSELECTCONTEXT_INLINE bool GxapSelectSet::ConstIterator::step(bool /*forward*/) const {
    if (isDone())
        return false;
    index = static_cast<std::int32_t>(static_cast<std::uint32_t>(index) + 1);
    // The set may have another store by now. The iterator then moves to the end of that store.
    const SSetData::Store* const store = set->sharedData->entities;
    if (truckerIterator->trucker != store)
        *truckerIterator = store->end();
    else if (truckerIterator->nextNeighbour())
        return true;
    else
        truckerIterator->next();
    return !isDone();
}

KVSELECTCONTEXT_INLINE selected_entity* GxapSelectSet::ConstIterator::get() const {
    if (isDone())
        return nullptr;
    if (truckerIterator->trucker != set->sharedData->entities)
        kvdetail::raiseMessage(kvdetail::kStoreAccessMessage);
    selected_entity** const value = truckerIterator->valueHere();
    return value ? *value : **truckerIterator;
}

KVSELECTCONTEXT_INLINE GxDbObjectId GxapSelectSet::ConstIterator::mainEntId() const {
    const selected_entity* const record = get();
    return record ? record->mainEntId : GxDbObjectId::kNull;
}

KVSELECTCONTEXT_INLINE GxDbObjectId GxapSelectSet::ConstIterator::subEntId() const {
    const selected_entity* const record = get();
    return record ? record->subEntId : GxDbObjectId::kNull;
}

KVSELECTCONTEXT_INLINE long GxapSelectSet::ConstIterator::gsMarker() const {
    const selected_entity* const record = get();
    return record ? record->gsMarker : 0;
}

static_assert(sizeof(GxapSelectSet::SSetData::Store::Slot) == 16, "a page holds 4096 slots");
static_assert(sizeof(GxapSelectSet::SSetData::Store::iterator) == 40,
              "callers are compiled against this layout");
static_assert(sizeof(GxapSelectSet) == 40 && !std::is_polymorphic_v<GxapSelectSet>,
              "callers are compiled against this layout");
static_assert(sizeof(GxapSelectSet::ConstIterator) == 24 && sizeof(GxapSelectSet::Iterator) == 24,
              "callers are compiled against this layout");

namespace kvdetail {

// Some of these classes have private fields, too. Compilers warn about offsetof in such classes, but support
// it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

using TaggedIterator = GxapSelectSet::ConstIterator;
using TaggedData = GxapSelectSet::SSetData;
using TaggedStore = TaggedData::Store;

KV_LAYOUT_TAG(builtWithLayoutOfGxapSelectSet, sizeof(GxapSelectSet), offsetof(GxapSelectSet, sharedData),
              offsetof(GxapSelectSet, iterators), offsetof(GxapSelectSet, lispRefCnt));
KV_LAYOUT_TAG(builtWithLayoutOfConstIterator, sizeof(TaggedIterator), offsetof(TaggedIterator, set),
              offsetof(TaggedIterator, index), offsetof(TaggedIterator, truckerIterator));
KV_LAYOUT_TAG(builtWithLayoutOfSSetData, sizeof(TaggedData), offsetof(TaggedData, refCount),
              offsetof(TaggedData, dataMap), offsetof(TaggedData, unique),
              offsetof(TaggedData, selectByNestedMode), offsetof(TaggedData, entityCount),
              offsetof(TaggedData, entities));
KV_LAYOUT_TAG(builtWithLayoutOfDataMap, sizeof(TaggedData::DataMap),
              sizeof(TaggedData::DataMap::const_iterator));
KV_LAYOUT_TAG(builtWithLayoutOfStore, sizeof(TaggedStore), sizeof(TaggedStore::iterator),
              sizeof(TaggedStore::Slot));
KV_LAYOUT_TAG(builtWithLayoutOfStorePage, sizeof(TaggedStore::Page), offsetof(TaggedStore::Page, next),
              offsetof(TaggedStore::Page, liveCount), offsetof(TaggedStore::Page, slots),
              offsetof(TaggedStore::Page, fillEnd), offsetof(TaggedStore::Page, number),
              offsetof(TaggedStore::Page, occupied));

#pragma GCC diagnostic pop

} // namespace kvdetail
