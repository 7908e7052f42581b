// GxapSelectSet: the handle through which a selection set is held and read.
#pragma once

#include "base/GxArray.h"
#include "base/KvSTLAllocator.h"
#include "base/KvTrucker.h"
#include "base/KvVector.h"
#include "platform/KvDatabase.h"
#include "selectcontext/IGxapSSetEntityExcluder.h"
#include "selectcontext/KvSelectContextExport.h"
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

// Two markers are the same when they are the same value, or when both mean that there is no marker: 0 and -1.
KVSELECTCONTEXT_API bool isGsMarkEqual(long a, long b);

// An ordered collection of selected items. Copies share their data; an edit goes through
// GxapSSetWriteAccessor, which makes the data private first. Any set is its own accessor:
// static_cast<GxapSSetWriteAccessor&>(set).
//
// Invariants while no operation is under way:
//  1. `sharedData` is non-null from construction on, but for the time between releaseData() and the next
//     createData() or assignData(), and in a copy of a set without data. Every reader takes null for an
//     empty set.
//  2. `iterators` holds each registered iterator once, in the order of registration. It is the handle's own.
//  3. An iterator that `iterators` does not hold is disabled, or was assigned within its set after being
//     disabled.
//
// Bad arguments (null ids, null pointers, positions out of range) give null, false, -1 or the end; they throw
// nothing. Running out of memory is KvErrorStatus 6 in the containers and std::bad_alloc elsewhere; both
// leave the set as it was. Costs: n is the number of items, p = n / 4096 the number of pages.
//
// Thread safety: handles that share data may be copied, read and destroyed on different threads. A handle,
// with its iterators, belongs to one thread at a time.
class KVSELECTCONTEXT_API GxapSelectSet {
public:
    // The counted data behind one or more handles.
    //
    // Invariants while no operation is under way:
    //  1. `entities` is non-null in data that a handle holds; its slots own the records, in the order of
    //     selection.
    //  2. `entityCount` is the number of occupied slots.
    //  3. `dataMap` has one entry per record: its main id and the address of its slot. Entries of one id are
    //     in the order of their insertion. Two documented operations depart from this: the removal by main
    //     and sub id, and a caller's own change of a record, after which updateDataMap() is due.
    //  4. `refCount` is the number of handles that share the data; while it is above 1, no edit changes the
    //     data. What writes into shared data all the same says so: updateDataMap(), an Iterator that does
    //     not come from the accessor, findSubentPathSubsel() (which makes a list's block private).
    //
    // Thread safety: `refCount` may be changed from any thread. The rest may be read on several threads while
    // the data is shared. Only the thread of a sole handle may change it.
    class KVSELECTCONTEXT_API SSetData {
    public:
        // Callers may change it as they like, but for one thing: entries move from one set's index to
        // another's by value, or with the whole index by swap, never as nodes. A node that was extracted
        // stays on the set's thread.
        using DataMap = std::multimap<GxDbObjectId, unsigned long, std::less<GxDbObjectId>,
                                      _KvSTLAllocator<std::pair<GxDbObjectId const, unsigned long>>>;
        using Store = KvTrucker<selected_entity*, 65536u, KvTkDefaultAllocator<selected_entity*>>;

        // Empty, unique, count 0, no store yet.
        SSetData();

        // Destroys the records that the store still holds, its pages and the store. O(n).
        ~SSetData();
        SSetData(const SSetData&) = delete;
        SSetData& operator=(const SSetData&) = delete;

        // One handle more, one less; the last one destroys the data. Any thread. O(1), O(n) for the last.
        KVSELECTCONTEXT_API void addRef() const;
        KVSELECTCONTEXT_API void delRef() const;

        // Destroys every record and empties index and store; both flags stay. Does nothing while more than
        // one handle holds the data. O(n).
        void clear();

        // A copy of every record, in consecutive slots, with flags, count and an index of its own; refCount
        // 0, the caller's to assign. Vectors and highlight paths are shared, infos copied. O(n).
        SSetData* clone() const;

        mutable std::atomic<std::uint32_t> refCount;
        DataMap dataMap;
        bool unique;             // select() refuses an item that the set holds
        bool selectByNestedMode; // kept for callers
        std::uint32_t entityCount;
        Store* entities;

    private:
        friend struct kvdetail::SetData;

        void destroy() const;

        std::unique_ptr<kvdetail::SetData> mInside;
    };

    // A cursor over a set's items in store order, registered with the set: it is disabled when the set gives
    // its data up. No removal adjusts an iterator; one left on a released page never reads it (it goes to the
    // end, or to before the first, and reading there throws KvExceptionWithMsg "Error access KvTrucker").
    //
    // Invariants:
    //  1. `truckerIterator` is null (disabled: done, without a record) or the iterator's own heap copy of a
    //     store position.
    //  2. `set` names the set that the iterator unregisters from when destroyed; it survives disabling.
    //
    // An iterator has to be destroyed before its set; a set that dies first makes the destructors of its
    // registered iterators harmless. Constructing, copying and assigning register the iterator: O(registered
    // iterators). Thread safety: that of the set.
    class KVSELECTCONTEXT_API ConstIterator {
    public:
        // On the item at `index`; the number of items gives the end. A null set, or one without data, gives a
        // disabled iterator; a negative index one that is done, and an index above the number one that
        // is neither done nor on an item (reading there throws). O(p + slots of a page).
        ConstIterator(const GxapSelectSet* set, int index);

        // The same position, registered in its own right; a copy of a disabled iterator is disabled.
        ConstIterator(const ConstIterator& other);

        // Takes the other's position. Registers only where `set` changes: an iterator that its set has
        // disabled and that is then assigned within that set has a position but is not registered.
        ConstIterator& operator=(const ConstIterator& other);
        ~ConstIterator();

        // Gives the position up; the registration stays.
        void disable();

        // No position, or the set's end. Reads nothing through the position. O(1).
        KVSELECTCONTEXT_API bool isDone() const;

        // To the next item; the argument is ignored. False when there is none, or when already done. The step
        // that reaches the end still advances `index`. O(slots skipped).
        KVSELECTCONTEXT_API bool step(bool forward = true) const;

        // Makes `prev` an iterator on the item before this one. False, and `prev` as it was, on the first
        // item or without a position. O(slots skipped), O(p) to change page.
        bool getPrevIterator(ConstIterator& prev) const;

        // Same set, index and store position. A disabled iterator equals nothing, not even itself. O(1).
        bool operator==(const ConstIterator& other) const;
        bool operator!=(const ConstIterator& other) const;

        // The current record, which stays the set's. Without a current record, get() and the accessors below
        // return null, 0, the null id or an empty path. KvExceptionWithMsg "Error access KvTrucker" on an
        // item that was removed. O(1), or O(p) after a page was freed.
        KVSELECTCONTEXT_API selected_entity* get() const;
        KVSELECTCONTEXT_API GxDbObjectId mainEntId() const;
        KVSELECTCONTEXT_API GxDbObjectId subEntId() const;
        KVSELECTCONTEXT_API long gsMarker() const;
        GxapSelectedEntInfo* selectedEntityInfo() const;
        KvVector<GxDbFullSubentPath*>* highlightSegmentArray() const;
        KvVector<int>* hlVpArray() const;
        const KvVector<GxDbObjectId>& nestedEntFullPath() const;

        // The item was picked inside block references: its path has more than one id, where a path of two
        // counts only when the sub id is null or the main id. O(1).
        bool isNestedEnt() const;

        // Fills `path` with the nested path up to and including the main id, the null sub-entity type and the
        // marker as index. False, and `path` as it was, where there is no path or the main id is not on it.
        // O(path).
        bool getFullSubentPath(GxDbFullSubentPath& path) const;

        // Fills `ids` with those ids of the nested path that open as entities. False without a position
        // (`ids` as it was) or without a path (`ids` emptied). Opens one entity at a time. O(path).
        bool getFilteredNestedFullPath(KvVector<GxDbObjectId>& ids) const;

        const GxapSelectSet* set;
        mutable std::int32_t index;
        SSetData::Store::iterator* truckerIterator;
    };

    // The same cursor with write access to the record. Take it from the write accessor, which has made the
    // data private; on shared data it writes into what other sets see.
    class KVSELECTCONTEXT_API Iterator : public ConstIterator {
    public:
        Iterator(const GxapSelectSet* set, int index);
        Iterator(const Iterator& other);
        Iterator& operator=(const Iterator& other);

        selected_entity* get();

        // The record shares the path's block. Nothing without a record. O(1).
        void setNestedEntFullPath(const KvVector<GxDbObjectId>& path);

        // Adds a copy of the path to the record's highlight segments; null removes all segments. Nothing
        // without a record. O(1) where the list has room, else O(segments).
        void setHighlightSegment(const GxDbFullSubentPath* path);
    };

    // An empty set with data of its own; the argument is ignored. O(1).
    explicit GxapSelectSet(bool ignored = true);

    // Shares the other's data; neither iterators nor the LISP count are copied. O(1).
    KVSELECTCONTEXT_API GxapSelectSet(const GxapSelectSet& other);

    // Shares the other's data in place of its own; nothing when it does already. Otherwise every iterator of
    // this set is disabled. O(1), O(n) where this was the last handle on its data.
    GxapSelectSet& operator=(const GxapSelectSet& other);
    KVSELECTCONTEXT_API ~GxapSelectSet();

    // Fresh empty data in place of what the set has. Returns it; it stays the set's.
    SSetData* createData();

    // Holds `data`, or none when null, in place of what the set has. Nothing when it is held already.
    void assignData(SSetData* data);

    // Disables every iterator and lets the data go. The set has no data afterwards.
    void releaseData();

    bool isSelectByNestedMode() const;

    // The count that the LISP layer keeps on the set; a negative count reads as 0. O(1).
    long getLispRefCnt();
    long addLispRefCnt();
    long subtractLispRefCnt();

    // The registry, for iterators. Null is ignored. addIterator registers once; removeIterator keeps the
    // order of the others; disableAllIterator disables each and empties the registry. O(registered
    // iterators).
    void addIterator(ConstIterator* it) const;
    void removeIterator(ConstIterator* it) const;
    void disableAllIterator() const;

    // Iterators by value, each with one registration. A set without data gets fresh data first. iteratorAt
    // takes an index above the count for the end; a negative one is done at once. cbegin and cend are the
    // same positions for a non-const set. O(registered iterators), and O(p + slots of a page) but for the
    // end.
    ConstIterator begin() const;
    ConstIterator end() const;
    ConstIterator cbegin();
    ConstIterator cend();
    ConstIterator iteratorAt(int index) const;

    // The first index entry, in order of insertion, whose record agrees in all keys given: main id, sub id,
    // marker (by isGsMarkEqual), nested path, and block transform of the info. dataMap.end() when there is
    // none. A null `path` falls back to the form without path, which looks at no info either. The one-id form
    // reads no record. Throws KvExceptionWithMsg on a set without data. O(log n + items of the id).
    //
    // A literal 0 is ambiguous between a marker and a null path. The overloads with int resolve it.
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

    // The position of what findInMap finds, or -1; also -1 on a set without data. O(p + slots of a page) on
    // top of findInMap: ask findInMap where presence is all that matters.
    int find(const GxDbObjectId& mainId) const;
    int find(const GxDbObjectId& mainId, const GxDbObjectId& subId) const;
    int find(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker) const;
    int find(const GxDbObjectId& mainId, const GxDbObjectId& subId, int gsMarker) const {
        return find(mainId, subId, static_cast<long>(gsMarker));
    }
    int find(const GxDbObjectId& mainId, const GxDbObjectId& subId, const KvVector<GxDbObjectId>* path) const;
    int find(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker,
             const KvVector<GxDbObjectId>* path) const;

    // An iterator on what find finds, or end(). Cost of find.
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

    // The first item of `id`, whatever its other keys; end() for a null or absent id; done at once on an
    // empty set.
    ConstIterator findMainSubsel(const GxDbObjectId& id) const;

    // The n-th, first and last record, or null; the forms with ids return false then and leave the ids as
    // they were. The record stays the set's. The id forms of getFirst and getLast throw KvErrorStatus 24
    // where a caller has made `entityCount` disagree with the store. O(p + slots of a page).
    selected_entity* getAt(int index) const;
    bool getAt(int index, GxDbObjectId& mainId) const;
    bool getAt(int index, GxDbObjectId& mainId, GxDbObjectId& subId) const;
    selected_entity* getFirst() const;
    bool getFirst(GxDbObjectId& mainId) const;
    bool getFirst(GxDbObjectId& mainId, GxDbObjectId& subId) const;
    selected_entity* getLast() const;
    bool getLast(GxDbObjectId& mainId) const;
    bool getLast(GxDbObjectId& mainId, GxDbObjectId& subId) const;

    // Every item, at least one item, of `other` is held here, by main id, sub id, marker and nested path.
    // False when either set is null, without data or empty. O(items of other * log n), up to the first
    // decisive one.
    bool contains(const GxapSelectSet* other) const;
    bool intersectedWith(const GxapSelectSet* other) const;

    // Appends a copy of every item to `target`, or to `excludedOut` (null: dropped) if the excluder says so.
    // A receiver with `unique` on refuses items that it holds. A null excluder makes `target` share this
    // set's data instead. O(n log n).
    void transfer(GxapSelectSet& target, IGxapSSetEntityExcluder* excluder, GxapSelectSet* excludedOut) const;

    // The position of `path` in the sub-selection of the item of `id`, or -1. Makes the list's block private,
    // also in shared data: not for several readers at once. O(find + paths).
    int findSubentPathSubsel(const GxDbObjectId& id, const GxDbFullSubentPath& path) const;

    // Copies the path at `pathIndex` of the sub-selection of the item at `entityIndex` out. False for bad
    // positions, except that a path index of just the number of paths throws KvErrorStatus 24. O(getAt).
    bool getSubentPathAtSubsel(int entityIndex, int pathIndex, GxDbFullSubentPath& path) const;

    // Highlights, or unhighlights, the segments of the iterator's item, or of every item, as
    // gxutEntityGxDbFullPathHighlight does; items without segments are not drawn. O(segments), O(n +
    // segments).
    void draw(ConstIterator& it, bool entityFlag, bool highlight) const;
    void draw(bool entityFlag, bool highlight) const;

    mutable SSetData* sharedData;
    mutable GxArray<ConstIterator*, GxArrayMemCopyReallocator<ConstIterator*>> iterators;
    std::int64_t lispRefCnt;

private:
    void orphanIterators() const;
};

// Inline: what a walk over a set calls for every item, and what copies and destroys a set.

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
    // A position in a store that the set has given up leads to the end of the one that it has.
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
