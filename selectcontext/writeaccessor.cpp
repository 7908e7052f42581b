// Every operation that changes a set.

#include "selectcontext/BulkAppend.h"
#include "selectcontext/GxapSSetWriteAccessor.h"
#include "selectcontext/Lookups.h"
#include "selectcontext/OwnedInfo.h"
#include "selectcontext/SetDetail.h"
#include "selectcontext/SetShortcuts.h"
#include "selectcontext/StubSet.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

using kvdetail::hasItems;

GxapSelectSet::SSetData* GxapSSetWriteAccessor::writeData() {
    if (!sharedData)
        return createData();
    if (sharedData->refCount.load() >= 2)
        assignData(sharedData->clone());
    return sharedData;
}

void GxapSSetWriteAccessor::updateDataMap() {
    SSetData& data = kvdetail::dataOf(*this);
    kvdetail::clearIndex(data);
    if (data.entities)
        kvdetail::indexRecords(data);
}

void GxapSSetWriteAccessor::clear() {
    if (sharedData && sharedData->refCount.load() < 2)
        sharedData->clear();
    else
        createData();
}

GxapSSetWriteAccessor& GxapSSetWriteAccessor::copyFrom(const GxapSelectSet& other) {
    GxapSelectSet::operator=(other);
    return *this;
}

selected_entity** GxapSSetWriteAccessor::getAt(int index) {
    if (!sharedData || sharedData->entityCount == 0 || index < 0)
        return nullptr;
    const SSetData& data = *writeData();
    SSetData::Store::Slot* const slot = data.entities ? data.entities->elementAt(index) : nullptr;
    return slot ? &slot->value : nullptr;
}

namespace {

// The keys come by value: the data that writing lets go may hold what the caller passed.
template <class... Keys>
GxapSelectSet::Iterator findForWriting(GxapSSetWriteAccessor& set, Keys... keys) {
    set.writeData();
    const int position = set.find(keys...);
    return position < 0 ? set.end() : GxapSelectSet::Iterator(&set, position);
}

} // namespace

GxapSelectSet::Iterator GxapSSetWriteAccessor::findItr(const GxDbObjectId& mainId) {
    return findForWriting(*this, mainId);
}

GxapSelectSet::Iterator GxapSSetWriteAccessor::findItr(const GxDbObjectId& mainId,
                                                       const GxDbObjectId& subId) {
    return findForWriting(*this, mainId, subId);
}

GxapSelectSet::Iterator GxapSSetWriteAccessor::findItr(const GxDbObjectId& mainId, const GxDbObjectId& subId,
                                                       long gsMarker) {
    return findForWriting(*this, mainId, subId, gsMarker);
}

GxapSelectSet::Iterator GxapSSetWriteAccessor::findMain(const GxDbObjectId& mainId) {
    return findItr(mainId);
}

GxapSelectSet::Iterator GxapSSetWriteAccessor::iteratorAt(int index) {
    const SSetData& data = *writeData();
    return Iterator(this, std::min(index, static_cast<std::int32_t>(data.entityCount)));
}

GxapSelectSet::Iterator GxapSSetWriteAccessor::begin() {
    return iteratorAt(0);
}

GxapSelectSet::Iterator GxapSSetWriteAccessor::end() {
    return Iterator(this, static_cast<int>(kvdetail::dataOf(*this).entityCount));
}

void GxapSSetWriteAccessor::setSelectByNestedMode(bool on) {
    if (kvdetail::dataOf(*this).selectByNestedMode != on)
        writeData()->selectByNestedMode = on;
}

void GxapSSetWriteAccessor::setHighlightSegment(Iterator& it, const GxDbFullSubentPath* path) {
    it.setHighlightSegment(path);
}

namespace {

using kvdetail::DataMap;
using kvdetail::Found;
using kvdetail::ItemKeys;
using kvdetail::Lookups;
using kvdetail::SSetData;
using kvdetail::Store;

// The item of these keys, and of the info's transform where there is a path, in the data as it is; its place
// where it is not there.
Found findEqual(const SSetData& data, const ItemKeys& keys, const GxapSelectedEntInfo* info,
                Lookups* lookups) {
    if (!data.unique || data.entityCount == 0 || !data.entities)
        return {data.dataMap.end(), kvdetail::runEnd(data, keys.mainId)};
    const auto run = kvdetail::runOf(data, keys.mainId, lookups ? lookups->cursor() : nullptr);
    if (!run.isHeld && !lookups)
        return {data.dataMap.end(), run.first};
    const Found found = keys.path ? kvdetail::findItem(data, keys, run, kvdetail::matrixOf(info))
                                  : kvdetail::findItem(data, keys, run);
    return lookups ? lookups->noted(found) : found;
}

// select() of a main id that is not null, as one of many lookups or on its own.
void selectItem(GxapSSetWriteAccessor& set, const ItemKeys& keys, kvdetail::OwnedInfo info,
                Lookups* lookups) {
    SSetData& held = kvdetail::dataOf(set);
    Found found = findEqual(held, keys, info.get(), lookups);
    if (found.entry != held.dataMap.end())
        return;

    // Memory of data that others share is not touched.
    const bool isShared = held.refCount.load() >= 2;
    auto record = isShared ? std::make_unique<selected_entity>() : kvdetail::newRecord(held);
    kvdetail::setKeys(*record, keys, std::move(info));

    // The keys may be part of the data that this lets go: nothing of them is read from here on.
    SSetData& data = isShared ? *set.writeData() : held;
    if (isShared)
        found.place = kvdetail::runEnd(data, record->mainEntId);
    kvdetail::appendRecord(data, std::move(record), found.place);
    ++data.entityCount;
}

// append() of a record, as one of many lookups or on its own. A null main id makes select() leave the copy of
// the info to its caller, so none is made.
void appendItem(GxapSSetWriteAccessor& set, const selected_entity& record, Lookups* lookups) {
    if (record.mainEntId.isNull())
        return;
    selectItem(set, {record.mainEntId, record.subEntId, record.gsMarker, &record.nestedEntFullPath},
               kvdetail::copyInfo(record.selectedEntityInfo), lookups);
}

} // namespace

void GxapSSetWriteAccessor::select(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker,
                                   GxapSelectedEntInfo* entInfo, const KvVector<GxDbObjectId>* nestedPath) {
    if (!mainId.isNull())
        selectItem(*this, {mainId, subId, gsMarker, nestedPath}, kvdetail::OwnedInfo(entInfo), nullptr);
}

void GxapSSetWriteAccessor::append(const GxDbObjectId& mainId, const GxDbObjectId& subId) {
    select(mainId, subId, -1, nullptr, nullptr);
}

bool GxapSSetWriteAccessor::append(const selected_entity* record) {
    if (!record)
        return false;
    appendItem(*this, *record, nullptr);
    return true;
}

namespace {

// The occupied slot that an index entry names, with its page; both null for an entry without one.
struct OccupiedSlot {
    OccupiedSlot(const Store& store, unsigned long address)
        : slot(kvdetail::slotAt(address)), page(store.pageOf(slot)) {
        if (page && !slot->free)
            return;
        slot = nullptr;
        page = nullptr;
    }

    Store::Slot* slot;
    Store::Page* page;
};

void freeSlot(SSetData& data, const OccupiedSlot& place) {
    if (place.slot)
        data.entities->removeSlot(place.slot, place.page, true);
}

bool holds(const OccupiedSlot& place, const GxDbObjectId& subId) {
    return place.slot && place.slot->value && place.slot->value->subEntId == subId;
}

void countDown(SSetData& data) {
    if (data.entityCount > 0)
        --data.entityCount;
}

// The first entry of the id's run in data that may have been copied since `found` was found.
DataMap::const_iterator firstEntry(const SSetData& data, const SSetData* searched, const GxDbObjectId& id,
                                   DataMap::const_iterator found) {
    return &data == searched ? found : kvdetail::runOf(data, id).first;
}

// remove() of three keys, as one of many lookups or on its own.
bool removeItem(GxapSSetWriteAccessor& set, GxDbObjectId id, GxDbObjectId sub, long gsMarker,
                Lookups* lookups) {
    if (id.isNull() || !hasItems(set) || !set.sharedData->entities)
        return false;
    const SSetData* const searched = set.sharedData;
    const auto run = kvdetail::runForRemoval(*searched, id, lookups ? lookups->cursor() : nullptr);
    const Found found = kvdetail::findItem(*searched, {id, sub, gsMarker, nullptr}, run);
    if (lookups)
        lookups->noted(found);
    if (found.entry == searched->dataMap.end())
        return false;
    SSetData& data = *set.writeData();
    for (auto entry = firstEntry(data, searched, id, run.first); kvdetail::isOfId(data.dataMap, entry, id);
         ++entry) {
        const OccupiedSlot place(*data.entities, entry->second);
        if (!holds(place, sub) || place.slot->value->gsMarker != gsMarker)
            continue;
        freeSlot(data, place);
        if (lookups && lookups->cursor()->isGuessing())
            lookups->cursor()->standAt(std::next(entry));
        kvdetail::eraseEntry(data, entry);
        countDown(data);
        return true;
    }
    return false;
}

} // namespace

// The removals copy their keys first: these may be part of the data that the copy-on-write lets go, or of the
// index entry that is erased.

bool GxapSSetWriteAccessor::remove(const GxDbObjectId& mainId) {
    const GxDbObjectId id = mainId;
    if (id.isNull() || !hasItems(*this))
        return false;
    const SSetData* const searched = sharedData;
    const auto found = findInMap(id);
    if (found == searched->dataMap.end())
        return false;
    SSetData& data = *writeData();
    if (!data.entities)
        return false;
    bool removed = false;
    for (auto entry = firstEntry(data, searched, id, found); kvdetail::isOfId(data.dataMap, entry, id);) {
        freeSlot(data, OccupiedSlot(*data.entities, entry->second));
        countDown(data);
        kvdetail::eraseEntry(data, entry++);
        removed = true;
    }
    return removed;
}

bool GxapSSetWriteAccessor::remove(const GxDbObjectId& mainId, const GxDbObjectId& subId) {
    const GxDbObjectId id = mainId;
    const GxDbObjectId sub = subId;
    if (id.isNull() || !hasItems(*this) || findInMap(id, sub) == sharedData->dataMap.end())
        return false;
    SSetData& data = *writeData();
    if (!data.entities)
        return false;
    bool removed = false;
    // All entries of the id go, also those of the records that stay.
    for (auto entry = kvdetail::runOf(data, id).first; kvdetail::isOfId(data.dataMap, entry, id);) {
        const OccupiedSlot place(*data.entities, entry->second);
        kvdetail::eraseEntry(data, entry++);
        if (!holds(place, sub))
            continue;
        freeSlot(data, place);
        countDown(data);
        removed = true;
    }
    return removed;
}

bool GxapSSetWriteAccessor::remove(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker) {
    return removeItem(*this, mainId, subId, gsMarker, nullptr);
}

bool GxapSSetWriteAccessor::removeAt(Iterator& it) {
    if (!hasItems(*this) || it.isDone())
        return false;
    const SSetData* const held = sharedData;
    const bool hasBefore = it.index >= 1;
    Store::iterator before = *it.truckerIterator;
    if (hasBefore)
        kvdetail::stepBack(it.set->sharedData->entities, before);
    if (!remove(it.mainEntId(), it.subEntId(), it.gsMarker()))
        return false;
    if (!hasBefore)
        return true;

    --it.index;
    // An iterator that the registry does not know is still positioned in the data that was let go.
    if (it.set == this && sharedData != held)
        it.disable();
    else
        *it.truckerIterator = before;
    return true;
}

bool GxapSSetWriteAccessor::removeAt(int index) {
    if (!hasItems(*this) || index < 0 || static_cast<std::uint32_t>(index) >= sharedData->entityCount)
        return false;
    const SSetData& data = *writeData();
    const Store::Slot* const slot = data.entities ? data.entities->elementAt(index) : nullptr;
    const selected_entity* const record = slot ? slot->value : nullptr;
    return record && remove(record->mainEntId, record->subEntId, record->gsMarker);
}

namespace {

// Keeps shared data alive while its records are read and the set through which it was reached lets it go.
// Data that nobody shares is left alone: one more holder would make the next write copy it.
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

// The records of the store at this moment, to be read while the set that holds them is edited: neither adding
// nor removing destroys a record.
std::vector<const selected_entity*> recordsOf(const SSetData& data) {
    std::vector<const selected_entity*> records;
    kvdetail::forEachOccupied(*data.entities, [&records](const Store::Slot* slot) {
        if (slot->value)
            records.push_back(slot->value);
    });
    return records;
}

// Calls visit(record) for every record that the data holds now, to be looked up in `edited`, also where the
// visitor edits that and it holds this very data.
template <class Visit>
void forEachRecord(const SSetData& data, const GxapSelectSet& edited, Lookups& lookups, Visit visit) {
    if (edited.sharedData == &data && data.refCount.load() < 2) {
        for (const selected_entity* record : recordsOf(data))
            visit(*record);
        return;
    }
    kvdetail::anyRecordOf(*data.entities, lookups, [&visit](const selected_entity& record) {
        visit(record);
        return false;
    });
}

bool hasRecords(const GxapSelectSet* set) {
    return set && hasItems(*set) && set->sharedData->entities;
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
    if (!hasRecords(b))
        return;

    // From here on `a` and `b` may be this set, and writing lets the data go that was captured.
    const SSetData& added = *b->sharedData;
    const HeldData held(added);
    const bool uniqueResult = sharedData->unique || added.unique;
    if (added.selectByNestedMode)
        setSelectByNestedMode(true);
    SSetData& data = *writeData();
    data.unique = uniqueResult;
    if (kvdetail::isWorthAppendingInBulk(data, added) && kvdetail::appendInBulk(data, added))
        return;
    Lookups lookups(*this);
    forEachRecord(added, *this, lookups,
                  [this, &lookups](const selected_entity& record) { appendItem(*this, record, &lookups); });
}

void GxapSSetWriteAccessor::minus(const GxapSelectSet* a, const GxapSelectSet* b) {
    if (this != a)
        clear();
    if (!a || !hasItems(*a))
        return;
    copyFrom(*a);
    if (!hasRecords(b))
        return;

    const SSetData& taken = *b->sharedData;
    const HeldData held(taken);
    Lookups lookups(*this);
    forEachRecord(taken, *this, lookups, [this, &lookups](const selected_entity& record) {
        removeItem(*this, record.mainEntId, record.subEntId, record.gsMarker, &lookups);
    });
}

void GxapSelectSet::transfer(GxapSelectSet& target, IGxapSSetEntityExcluder* excluder,
                             GxapSelectSet* excludedOut) const {
    if (!excluder) {
        static_cast<GxapSSetWriteAccessor&>(target).copyFrom(*this);
        return;
    }
    // Items that a transfer into this very set appends are not visited in their turn.
    const bool grows = &target == this || excludedOut == this;
    const std::uint32_t count = sharedData ? sharedData->entityCount : 0;
    const ConstIterator it = begin();
    for (std::uint32_t visited = 0; !it.isDone() && !(grows && visited == count); ++visited, it.step(true)) {
        const GxDbObjectId id = it.mainEntId();
        if (id.isNull())
            continue;
        GxapSelectSet* const receiver = excluder->isExcluded(id) ? excludedOut : &target;
        if (receiver)
            static_cast<GxapSSetWriteAccessor*>(receiver)->append(it.get());
    }
}

namespace {

// The first record of each main id of a store: an index of them, with nodes of its own, and the slots of all
// others.
class FirstOfEachId {
public:
    explicit FirstOfEachId(const Store& store) {
        kvdetail::forEachOccupied(store, [this](Store::Slot* slot) { add(slot); });
    }

    // Takes the place of the data's index. The entries that were there are forgotten at once.
    void install(SSetData& data) noexcept {
        kvdetail::clearIndex(data);
        data.dataMap.swap(mKept);
        kvdetail::SetShortcuts::of(data).nodes.swap(mNodes);
    }

    // The number of slots that stay, with those that have no record.
    std::uint32_t staying() const noexcept { return mStaying; }
    const std::vector<Store::Slot*>& doomed() const noexcept { return mDoomed; }

private:
    void add(Store::Slot* slot) {
        if (slot->value && !enter(slot->value->mainEntId, slot))
            mDoomed.push_back(slot);
        else
            ++mStaying;
    }

    // False where the id is there. Ids that ascend are entered behind all others.
    bool enter(const GxDbObjectId& id, const Store::Slot* slot) {
        if (kvdetail::kHasStubSet && !mSeen.add(id.stub()))
            return false;
        DataMap::const_iterator place = mKept.end();
        if (!mKept.empty() && !(mKept.rbegin()->first < id))
            place = mKept.lower_bound(id);
        if (kvdetail::isOfId(mKept, place, id))
            return false;
        mKept.emplace_hint(place, id, kvdetail::slotAddress(slot));
        return true;
    }

    kvdetail::OwnedNodePool mNodes = kvdetail::makeNodePool();
    DataMap mKept{DataMap::allocator_type(mNodes.get())};
    kvdetail::StubSet mSeen;
    std::uint32_t mStaying = 0;
    std::vector<Store::Slot*> mDoomed;
};

} // namespace

// What needs memory comes before the first change of what is held.
void GxapSSetWriteAccessor::setUnique(bool on) {
    const SSetData& held = kvdetail::dataOf(*this);
    if (held.unique == on)
        return;
    SSetData& data = *writeData();
    if (!on || data.entityCount == 0 || !data.entities) {
        data.unique = on;
        return;
    }

    FirstOfEachId first(*data.entities);
    first.install(data);
    data.unique = true;
    data.entityCount = first.staying();
    // A slot's page is looked for anew each time: removing may free it.
    for (Store::Slot* slot : first.doomed())
        data.entities->removeSlot(slot, data.entities->pageOf(slot), true);
}
