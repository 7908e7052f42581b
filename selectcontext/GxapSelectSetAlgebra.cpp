// Set algebra: merge, minus, transfer, unique.

#include "selectcontext/GxapSSetWriteAccessor.h"
#include "selectcontext/detail/Edits.h"
#include "selectcontext/detail/IdBatch.h"
#include "selectcontext/detail/LookAhead.h"
#include "selectcontext/detail/OwnedInfo.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <new>
#include <utility>
#include <vector>

using kvdetail::hasItems;
using kvdetail::hasRecords;

namespace {

using kvdetail::IdBatch;
using kvdetail::IdIndex;
using kvdetail::IdSearch;
using kvdetail::indexOf;
using kvdetail::ItemKeys;
using kvdetail::SSetData;
using kvdetail::Store;

// Keeps shared data alive while its records are read, by one more reference. Private data gets none: the next
// write would then copy the data.
class HeldData {
public:
    explicit HeldData(const SSetData& data) : mData(data), mIsHeld(data.refCount.load() >= 2) {
        if (mIsHeld)
            mData.addRef();
    }
    HeldData(const HeldData&) = delete;
    HeldData& operator=(const HeldData&) = delete;
    ~HeldData() {
        if (mIsHeld)
            mData.delRef();
    }

private:
    const SSetData& mData;
    const bool mIsHeld;
};

// Returns the records that the data has now. They stay readable while the set is edited, since neither adding
// nor removing destroys a record.
std::vector<const selected_entity*> recordsOf(const SSetData& data) {
    std::vector<const selected_entity*> records;
    kvdetail::forEachOccupied(*data.entities, [&records](const Store::Slot* slot) {
        if (slot->value)
            records.push_back(slot->value);
    });
    return records;
}

// Calls visit(record) for each record that the data has now. visit() may edit `edited`, even if `data` is the
// data of `edited`. Prefetches memory for looking the records up in `edited`.
template <class Visit>
void forEachRecord(const SSetData& data, const GxapSelectSet& edited, const IdSearch& search, Visit visit) {
    if (edited.sharedData == &data && data.refCount.load() < 2) {
        for (const selected_entity* record : recordsOf(data))
            visit(*record);
        return;
    }
    kvdetail::LookAhead(edited, search).anyRecordOf(*data.entities, [&visit](const selected_entity& record) {
        visit(record);
        return false;
    });
}

// Returns whether sorting `records` by id saves time when they are looked up in `data`. Looking up sorted
// records walks through all index entries of `data`. So sorting pays only if there are many records, and at
// least one for every kMostEntriesPerRecord entries.
bool isSortingWorthIt(const SSetData& data, const SSetData& records) noexcept {
    constexpr std::size_t kFewestRecords = 16;
    constexpr std::size_t kMostEntriesPerRecord = 4;
    return kvdetail::kHasIdBatch && data.entities && records.entityCount >= kFewestRecords &&
           indexOf(data).size() / kMostEntriesPerRecord <= records.entityCount;
}

// Returns the keys by which remove() looks for the record's item.
ItemKeys keysToRemove(const selected_entity& record) noexcept {
    return {record.mainEntId, record.subEntId, record.gsMarker, nullptr};
}

// Appends copies of the records of one set to the data of another set. The result is the same as if the
// records were appended one after the other. The records are looked up and indexed in the order of their ids.
// So one walk through the index is enough. All decisions are made before the first change.
//
// Invariants from decide() on:
//  1. A refused record is null in mRecords.
//  2. mNew has the other records in the order of their ids.
//
// Thread safety: belongs to the thread that may edit the data.
class BulkAppend {
public:
    explicit BulkAppend(SSetData& data) : mData(data), mIndex(indexOf(data)) {}

    // Collects the records of `added`, sorted by id. Returns false if the records cannot be sorted in the
    // order of the index, or if there is no memory.
    bool collect(const SSetData& added) noexcept try {
        mRecords.reserve(added.entities->usedSlots());
        mBatch.reserve(mRecords.capacity());
        kvdetail::forEachOccupied(*added.entities, [this](const Store::Slot* slot) {
            if (!slot->value || slot->value->mainEntId.isNull())
                return;
            mBatch.add(slot->value->mainEntId, mRecords.size());
            mRecords.push_back({slot->value, nullptr});
        });
        return mBatch.sort();
    } catch (const std::bad_alloc&) {
        return false;
    }

    // Decides which records to append. Returns false if one id has so many records that comparing them with
    // each other takes too long.
    bool decide() {
        IdIndex::Entry place = mIndex.begin();
        for (const IdBatch::Item* first = mBatch.begin(); first != mBatch.end();) {
            const IdBatch::Item* const last = mBatch.endOfId(first);
            if (mData.unique && static_cast<std::size_t>(last - first) > kvdetail::RunIndex::kFewestItems)
                return false;
            place = decideId(first, last, mIndex.findFrom(place, first->id()));
            first = last;
        }
        return true;
    }

    // Appends all records that decide() did not refuse. Appends none if an exception is thrown.
    void append() {
        kvdetail::AppendedRecords appended(*mData.entities);
        for (Arrival& arrival : mRecords) {
            if (arrival.record)
                arrival.slot = appended.append(copyOf(*arrival.record));
        }
        enter();
        mData.entityCount += appended.keep();
    }

private:
    struct Arrival {
        const selected_entity* record;
        const Store::Slot* slot; // the slot of the record's copy
    };
    struct NewEntry {
        std::size_t arrival;
        IdIndex::Entry entry; // before enter(): the place behind all entries of the id; then the new entry
    };

    // Decides which records of one id to append. `run` must be at the first index entry of the id. Returns
    // the place behind all entries of the id.
    IdIndex::Entry decideId(const IdBatch::Item* first, const IdBatch::Item* last, const IdIndex::Run& run) {
        const GxDbObjectId id = first->id();
        IdIndex::Run behind = run;
        while (behind.isHeld)
            mIndex.next(behind, id);
        const bool isAlone = !run.isHeld && last - first == 1;
        const std::size_t before = mNew.size();
        for (; first != last; ++first) {
            Arrival& arrival = mRecords[first->value];
            if (mData.unique && !isAlone && isDuplicate(*arrival.record, run, before))
                arrival.record = nullptr;
            else
                mNew.push_back({first->value, behind.entry});
        }
        return behind.entry;
    }

    // Returns whether the record equals a record in `run`, or a record of mNew at or behind index `firstNew`.
    bool isDuplicate(const selected_entity& record, const IdIndex::Run& run, std::size_t firstNew) const {
        const ItemKeys keys = kvdetail::keysOf(record);
        const GxGeMatrix3d* const matrix = kvdetail::matrixOf(record.selectedEntityInfo);
        if (kvdetail::findItem(mData, run, keys, matrix).isHeld)
            return true;
        return std::any_of(mNew.begin() + static_cast<std::ptrdiff_t>(firstNew), mNew.end(),
                           [&](const NewEntry& other) {
                               return kvdetail::isItem(*mRecords[other.arrival].record, keys, matrix);
                           });
    }

    std::unique_ptr<selected_entity> copyOf(const selected_entity& record) const {
        kvdetail::OwnedInfo info = kvdetail::copyInfo(record.selectedEntityInfo);
        auto copy = kvdetail::newRecord(mData);
        kvdetail::setKeys(*copy, kvdetail::keysOf(record), std::move(info));
        return copy;
    }

    // Adds the index entries of the copies, or none if an exception is thrown. First calls dropHints():
    // updating the hashes for so many entries would cost more than the hashes save.
    void enter() {
        struct Entered {
            IdIndex& index;
            std::vector<NewEntry>& entries;
            std::size_t count = 0;
            ~Entered() {
                while (count > 0)
                    index.erase(entries[--count].entry);
            }
        } entered{mIndex, mNew};
        mIndex.dropHints();
        for (NewEntry& entry : mNew) {
            const Arrival& arrival = mRecords[entry.arrival];
            entry.entry = mIndex.insert(entry.entry, arrival.record->mainEntId, arrival.slot);
            ++entered.count;
        }
        entered.count = 0;
    }

    SSetData& mData;
    IdIndex& mIndex;
    IdBatch mBatch;
    std::vector<Arrival> mRecords; // in store order
    std::vector<NewEntry> mNew;
};

bool appendInBulk(SSetData& data, const SSetData& added) {
    BulkAppend bulk(data);
    if (!isSortingWorthIt(data, added) || !bulk.collect(added) || !bulk.decide())
        return false;
    bulk.append();
    return true;
}

// Does what GxapSSetWriteAccessor::append() does, for one of many records. Copies the info only if the item
// is added.
void appendItem(GxapSSetWriteAccessor& set, const selected_entity& record, IdSearch& search) {
    if (record.mainEntId.isNull())
        return;
    const SSetData& data = *set.sharedData;
    const ItemKeys keys = kvdetail::keysOf(record);
    const auto matches = [&, matrix = kvdetail::matrixOf(record.selectedEntityInfo)](
                             const selected_entity& held) { return kvdetail::isItem(held, keys, matrix); };
    const IdIndex::Run run = data.unique ? kvdetail::findAnyItem(data, search, keys, matches)
                                         : IdIndex::Run{indexOf(data).endOf(keys.mainId), false};
    if (!run.isHeld)
        kvdetail::addItem(set, keys, kvdetail::copyInfo(record.selectedEntityInfo), run.entry);
}

// Does what remove() does with the record's three keys, for one of many records.
void removeEqual(GxapSSetWriteAccessor& set, const selected_entity& record, IdSearch& search) {
    if (record.mainEntId.isNull() || !hasRecords(set))
        return;
    const ItemKeys keys = keysToRemove(record);
    const IdIndex::Run run = search.find(keys.mainId);
    search.goOnBehind(run);
    const kvdetail::ExactItem item = kvdetail::findToRemove(set, keys, run);
    if (!item.place.slot)
        return;
    if (search.isTrying())
        search.goOnAt(std::next(item.entry));
    kvdetail::removeItem(*set.sharedData, item);
}

// Removes the items that equal records in `batch`. The set's data must be private. The result is the same as
// if the items were removed one after the other. Handles the records in the order of their ids. So one walk
// through the index is enough. Records of one id are handled in the order of the batch.
void removeInOrder(GxapSSetWriteAccessor& set, const IdBatch& batch) {
    SSetData& data = *set.sharedData;
    IdIndex& index = indexOf(data);
    index.expectErasures();
    IdIndex::Entry place = index.begin();
    for (const IdBatch::Item* first = batch.begin(); first != batch.end();) {
        const IdBatch::Item* const last = batch.endOfId(first);
        const GxDbObjectId id = first->id();
        IdIndex::Run run = index.findFrom(place, id);
        for (; first != last && run.isHeld; ++first) {
            const auto& record = *reinterpret_cast<const selected_entity*>(first->value);
            const kvdetail::ExactItem item = kvdetail::findToRemove(set, keysToRemove(record), run);
            if (!item.place.slot)
                continue;
            if (item.entry == run.entry)
                index.next(run, id);
            kvdetail::removeItem(data, item);
        }
        first = last;
        place = run.entry;
    }
}

// Returns the records of `taken` that must be looked up for removal, in store order. If the set's data is
// shared, leaves out the records before the first one that the set has.
//
// In the shared data, looking up a record that the set lacks changes nothing. The first record that the set
// has makes the data private, with a new index. The new index may have entries that the old one lacks, and
// might find an earlier record. So the earlier records must not be looked up there.
std::vector<const selected_entity*> recordsToRemove(const GxapSelectSet& set, const SSetData& taken) {
    std::vector<const selected_entity*> records = recordsOf(taken);
    const SSetData& data = *set.sharedData;
    const bool isShared = data.refCount.load() >= 2;
    const auto changesNothing = [&](const selected_entity* record) {
        if (record->mainEntId.isNull() || !isShared)
            return record->mainEntId.isNull();
        const ItemKeys keys = keysToRemove(*record);
        return !kvdetail::findItem(data, indexOf(data).findToRemove(keys.mainId), keys).isHeld;
    };
    records.erase(records.begin(), std::find_if_not(records.begin(), records.end(), changesNothing));
    return records;
}

// Sorts the records by id into `batch`. Returns false if the records cannot be sorted in the order of the
// ids.
bool sortRecords(const std::vector<const selected_entity*>& records, IdBatch& batch) {
    batch.reserve(records.size());
    for (const selected_entity* record : records) {
        if (!record->mainEntId.isNull())
            batch.add(record->mainEntId, reinterpret_cast<std::uintptr_t>(record));
    }
    return batch.sort();
}

// Returns whether the set has at most `entityCount` items. A caller may have made `entityCount` too small.
// Removing one item after the other then ends when the count is 0, so the order of the removals matters.
bool areAllCounted(const SSetData& data) {
    return indexOf(data).size() <= data.entityCount && data.entities->occupiedSlots() <= data.entityCount;
}

// Removes the records of `taken` from the set. Returns false, and does nothing, if sorting the records does
// not save time or is impossible.
bool removeInBulk(GxapSSetWriteAccessor& set, const SSetData& taken) {
    if (!isSortingWorthIt(*set.sharedData, taken) || !areAllCounted(*set.sharedData))
        return false;
    IdBatch batch;
    try {
        if (!sortRecords(recordsToRemove(set, taken), batch))
            return false;
    } catch (const std::bad_alloc&) {
        return false;
    }
    if (batch.size() != 0) {
        set.writeData();
        removeInOrder(set, batch);
    }
    return true;
}

} // namespace

void GxapSSetWriteAccessor::merge(const GxapSelectSet* a, const GxapSelectSet* b) {
    if (this != a && this != b)
        clear();
    if (!a && !b)
        return;
    if (!a || !b) {
        copyFrom(a ? *a : *b);
        return;
    }
    if (!hasItems(*a)) {
        copyFrom(*b);
        return;
    }
    copyFrom(*a);
    if (!hasRecords(*b))
        return;

    // `a` or `b` may be this set, and writeData() may replace the data of this set. So the data of `b` is
    // fetched first.
    const SSetData& added = *b->sharedData;
    const HeldData held(added);
    const bool uniqueResult = sharedData->unique || added.unique;
    if (added.selectByNestedMode)
        setSelectByNestedMode(true);
    SSetData& data = *writeData();
    data.unique = uniqueResult;
    if (appendInBulk(data, added))
        return;
    IdSearch search(*this);
    forEachRecord(added, *this, search,
                  [this, &search](const selected_entity& record) { appendItem(*this, record, search); });
}

void GxapSSetWriteAccessor::minus(const GxapSelectSet* a, const GxapSelectSet* b) {
    if (this != a)
        clear();
    if (!a || !hasItems(*a))
        return;
    copyFrom(*a);
    if (!b || !hasRecords(*b))
        return;

    const SSetData& taken = *b->sharedData;
    const HeldData held(taken);
    if (removeInBulk(*this, taken))
        return;
    IdSearch search(*this);
    forEachRecord(taken, *this, search,
                  [this, &search](const selected_entity& record) { removeEqual(*this, record, search); });
}

// If the set appends to itself, the walk stops where the set ended before. It would otherwise also visit the
// appended items, and never end.
void GxapSelectSet::transfer(GxapSelectSet& target, IGxapSSetEntityExcluder* excluder,
                             GxapSelectSet* excludedOut) const {
    if (!excluder) {
        static_cast<GxapSSetWriteAccessor&>(target).copyFrom(*this);
        return;
    }
    const SSetData::Store* const store = sharedData ? sharedData->entities : nullptr;
    const bool grows = store && (&target == this || excludedOut == this);
    const Store::Mark end = store ? store->mark() : Store::Mark();
    const ConstIterator it = begin();
    for (; !it.isDone(); it.step(true)) {
        if (grows && sharedData->entities == store && store->isBehind(*it.truckerIterator, end))
            break;
        const GxDbObjectId id = it.mainEntId();
        if (id.isNull())
            continue;
        GxapSelectSet* const receiver = excluder->isExcluded(id) ? excludedOut : &target;
        if (receiver)
            static_cast<GxapSSetWriteAccessor*>(receiver)->append(it.get());
    }
}

// Allocates all memory before it changes the private data.
void GxapSSetWriteAccessor::setUnique(bool on) {
    const SSetData& held = kvdetail::dataOf(*this);
    if (held.unique == on)
        return;
    SSetData& data = *writeData();
    if (!on || data.entityCount == 0 || !data.entities) {
        data.unique = on;
        return;
    }

    const std::vector<Store::Slot*> others = indexOf(data).rebuildOfFirsts();
    data.unique = true;
    // Looks for the page of each slot again, since the removal before may have freed pages.
    for (Store::Slot* slot : others)
        data.entities->removeSlot(slot, data.entities->pageOf(slot), true);
    data.entityCount = data.entities->occupiedSlots();
}
