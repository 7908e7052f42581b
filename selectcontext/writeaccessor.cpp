// Every operation that changes a set.

#include "selectcontext/GxapSSetWriteAccessor.h"
#include "selectcontext/OwnedInfo.h"
#include "selectcontext/SetDetail.h"
#include "selectcontext/SharedPaths.h"

#include <algorithm>
#include <cstdint>
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
    data.dataMap.clear();
    if (!data.entities)
        return;
    kvdetail::forEachOccupied(*data.entities, [&data](const SSetData::Store::Slot* slot) {
        if (slot->value)
            data.dataMap.emplace(slot->value->mainEntId, kvdetail::slotAddress(slot));
    });
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

void GxapSSetWriteAccessor::select(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker,
                                   GxapSelectedEntInfo* entInfo, const KvVector<GxDbObjectId>* nestedPath) {
    if (mainId.isNull())
        return;
    kvdetail::OwnedInfo info(entInfo);
    const SSetData& held = kvdetail::dataOf(*this);
    if (held.unique && findInMap(mainId, subId, gsMarker, nestedPath, info.get()) != held.dataMap.end())
        return;

    auto record = std::make_unique<selected_entity>();
    record->mainEntId = mainId;
    record->subEntId = subId;
    record->gsMarker = gsMarker;
    if (nestedPath)
        record->nestedEntFullPath = *nestedPath;
    record->selectedEntityInfo = info.release();

    // The arguments may be part of the data that this lets go: nothing of them is read from here on.
    SSetData& data = *writeData();
    kvdetail::appendRecord(data, std::move(record));
    ++data.entityCount;
}

void GxapSSetWriteAccessor::append(const GxDbObjectId& mainId, const GxDbObjectId& subId) {
    select(mainId, subId, -1, nullptr, nullptr);
}

bool GxapSSetWriteAccessor::append(const selected_entity* record) {
    if (!record)
        return false;
    // A null main id makes select() leave the copy to its caller.
    if (record->mainEntId.isNull())
        return true;
    select(record->mainEntId, record->subEntId, record->gsMarker,
           kvdetail::copyInfo(record->selectedEntityInfo).release(), &record->nestedEntFullPath);
    return true;
}

namespace {

using Store = GxapSelectSet::SSetData::Store;

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

void freeSlot(GxapSelectSet::SSetData& data, const OccupiedSlot& place) {
    if (place.slot)
        data.entities->removeSlot(place.slot, place.page, true);
}

bool holds(const OccupiedSlot& place, const GxDbObjectId& subId) {
    return place.slot && place.slot->value && place.slot->value->subEntId == subId;
}

void countDown(GxapSelectSet::SSetData& data) {
    if (data.entityCount > 0)
        --data.entityCount;
}

} // namespace

// The removals copy their keys first: these may be part of the data that the copy-on-write lets go, or of the
// index entry that is erased.

bool GxapSSetWriteAccessor::remove(const GxDbObjectId& mainId) {
    const GxDbObjectId id = mainId;
    if (id.isNull() || !hasItems(*this) || findInMap(id) == sharedData->dataMap.end())
        return false;
    SSetData& data = *writeData();
    if (!data.entities)
        return false;
    const auto run = data.dataMap.equal_range(id);
    for (auto entry = run.first; entry != run.second; ++entry) {
        freeSlot(data, OccupiedSlot(*data.entities, entry->second));
        countDown(data);
    }
    const bool removed = run.first != run.second;
    data.dataMap.erase(run.first, run.second);
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
    const auto run = data.dataMap.equal_range(id);
    for (auto entry = run.first; entry != run.second; ++entry) {
        const OccupiedSlot place(*data.entities, entry->second);
        if (!holds(place, sub))
            continue;
        freeSlot(data, place);
        countDown(data);
        removed = true;
    }
    // All entries of the id go, also those of the records that stay.
    data.dataMap.erase(run.first, run.second);
    return removed;
}

bool GxapSSetWriteAccessor::remove(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker) {
    const GxDbObjectId id = mainId;
    const GxDbObjectId sub = subId;
    if (id.isNull() || !hasItems(*this) || findInMap(id, sub, gsMarker) == sharedData->dataMap.end())
        return false;
    SSetData& data = *writeData();
    if (!data.entities)
        return false;
    const auto run = data.dataMap.equal_range(id);
    for (auto entry = run.first; entry != run.second; ++entry) {
        const OccupiedSlot place(*data.entities, entry->second);
        if (!holds(place, sub) || place.slot->value->gsMarker != gsMarker)
            continue;
        freeSlot(data, place);
        data.dataMap.erase(entry);
        countDown(data);
        return true;
    }
    return false;
}

bool GxapSSetWriteAccessor::removeAt(Iterator& it) {
    if (!hasItems(*this) || it.isDone())
        return false;
    const SSetData* const held = sharedData;
    const bool hasBefore = it.index >= 1;
    Store::iterator before = *it.truckerIterator;
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
    explicit HeldData(const GxapSelectSet::SSetData& data) : mData(data), mIsHeld(data.refCount.load() >= 2) {
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
    const GxapSelectSet::SSetData& mData;
    const bool mIsHeld;
};

// The records of the store at this moment, to be read while the set that holds them is edited: neither adding
// nor removing destroys a record.
std::vector<const selected_entity*> recordsOf(const GxapSelectSet::SSetData& data) {
    std::vector<const selected_entity*> records;
    kvdetail::forEachOccupied(*data.entities, [&records](const Store::Slot* slot) {
        if (slot->value)
            records.push_back(slot->value);
    });
    return records;
}

// Calls visit(record) for every record that the data holds now, also where the visitor edits `edited` and
// that holds this very data.
template <class Visit>
void forEachRecord(const GxapSelectSet::SSetData& data, const GxapSelectSet& edited, Visit visit) {
    if (edited.sharedData == &data && data.refCount.load() < 2) {
        for (const selected_entity* record : recordsOf(data))
            visit(*record);
        return;
    }
    kvdetail::forEachOccupied(*data.entities, [&visit](const Store::Slot* slot) {
        if (slot->value)
            visit(*slot->value);
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
    writeData()->unique = uniqueResult;
    forEachRecord(added, *this, [this](const selected_entity& record) { append(&record); });
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
    forEachRecord(taken, *this, [this](const selected_entity& record) {
        remove(record.mainEntId, record.subEntId, record.gsMarker);
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

    SSetData::DataMap kept;
    std::uint32_t staying = 0; // counts slots without a record, too
    std::vector<Store::Slot*> doomed;
    kvdetail::forEachOccupied(*data.entities, [&](Store::Slot* slot) {
        if (slot->value) {
            const GxDbObjectId& id = slot->value->mainEntId;
            const auto place = kept.lower_bound(id);
            if (place != kept.end() && !(id < place->first)) {
                doomed.push_back(slot);
                return;
            }
            kept.emplace_hint(place, id, kvdetail::slotAddress(slot));
        }
        ++staying;
    });
    data.unique = true;
    data.dataMap.swap(kept);
    data.entityCount = staying;
    // A slot's page is looked for anew each time: removing may free it.
    for (Store::Slot* slot : doomed)
        data.entities->removeSlot(slot, data.entities->pageOf(slot), true);
}

namespace {

// The sub-selection list of a record, or null for a record that is no sub-selection.
KvVector<GxDbFullSubentPath*>* subselectionOf(const selected_entity* record) {
    return record && record->hasSubselPaths ? record->subselPathArray : nullptr;
}

// The list that holds the path at `pathIndex`, or null for a bad index. An index of just the list's length is
// let through: the list itself raises the error.
KvVector<GxDbFullSubentPath*>* subselectionAt(const selected_entity* record, int pathIndex) {
    KvVector<GxDbFullSubentPath*>* const list = subselectionOf(record);
    return list && pathIndex >= 0 && pathIndex <= list->logicalLength() ? list : nullptr;
}

// The entity that a path leads to; the null id for a path without ids or one that leads to no valid id.
GxDbObjectId entityOf(const GxDbFullSubentPath& path) {
    const GxArray<GxDbObjectId>& ids = path.objectIds();
    if (ids.logicalLength() == 0)
        return GxDbObjectId();
    const GxDbObjectId last = ids[ids.logicalLength() - 1];
    return last.isValid() ? last : GxDbObjectId();
}

// The position of the path in the list, or -1. Reads by the writing access, which makes the list's block
// private.
int positionIn(KvVector<GxDbFullSubentPath*>& list, const GxDbFullSubentPath& path) {
    for (int i = 0; i < list.logicalLength(); ++i) {
        const GxDbFullSubentPath* const held = list.at(i);
        if (held && *held == path)
            return i;
    }
    return -1;
}

constexpr std::uint32_t kSubselectionInfoWord = 6;

} // namespace

GxapSelectSet::ConstIterator GxapSelectSet::findMainSubsel(const GxDbObjectId& id) const {
    if (!hasItems(*this))
        return ConstIterator(this, 0);
    if (id.isNull() || findInMap(id) == sharedData->dataMap.end())
        return end();
    return iteratorAt(find(id));
}

GxapSelectSet::Iterator GxapSSetWriteAccessor::findMainSubsel(const GxDbObjectId& id) {
    if (!hasItems(*this))
        return Iterator(this, 0);
    if (id.isNull() || findInMap(id) == sharedData->dataMap.end())
        return end();
    // The position is counted out before the data is copied: a copy is indexed anew.
    return iteratorAt(find(id));
}

bool GxapSSetWriteAccessor::appendSubentPathSubsel(const GxDbFullSubentPath& path) {
    const GxDbObjectId id = entityOf(path);
    if (id.isNull())
        return false;
    Iterator it = findMainSubsel(id);
    if (!it.isDone()) {
        KvVector<GxDbFullSubentPath*>* const list = subselectionOf(it.get());
        if (!list)
            return false;
        kvdetail::appendPathCopy(*list, path);
        return true;
    }

    // append() carries neither flag nor list over: the set gets a plain record, and the path's copy belongs
    // to nobody once the list is gone.
    selected_entity record;
    record.mainEntId = id;
    record.hasSubselPaths = true;
    record.selectedEntityInfo = kvdetail::makeInfo().release();
    record.selectedEntityInfo->word0 = kSubselectionInfoWord;
    record.subselPathArray = new KvVector<GxDbFullSubentPath*>;
    std::unique_ptr<GxDbFullSubentPath> copy(kvdetail::appendPathCopy(*record.subselPathArray, path));
    append(&record);
    copy.release();
    return true;
}

bool GxapSSetWriteAccessor::removeSubentPathSubsel(const GxDbFullSubentPath& path) {
    const GxDbObjectId id = entityOf(path);
    if (id.isNull())
        return false;
    Iterator it = findMainSubsel(id);
    KvVector<GxDbFullSubentPath*>* const list = subselectionOf(it.get());
    if (!list)
        return false;
    const int position = positionIn(*list, path);
    if (position >= 0)
        list->removeAt(position);
    if (list->logicalLength() == 0)
        removeAt(it);
    return position >= 0;
}

bool GxapSSetWriteAccessor::removeSubentPathAtSubsel(int entityIndex, int pathIndex) {
    if (!hasItems(*this) || entityIndex < 0 ||
        static_cast<std::uint32_t>(entityIndex) >= sharedData->entityCount)
        return false;
    selected_entity** const slot = getAt(entityIndex);
    KvVector<GxDbFullSubentPath*>* const list = subselectionAt(slot ? *slot : nullptr, pathIndex);
    if (!list)
        return false;
    list->removeAt(pathIndex);
    if (list->logicalLength() == 0)
        removeAt(entityIndex);
    return true;
}

int GxapSelectSet::findSubentPathSubsel(const GxDbObjectId& id, const GxDbFullSubentPath& path) const {
    if (!hasItems(*this) || id.isNull())
        return -1;
    const ConstIterator it = findItr(id);
    KvVector<GxDbFullSubentPath*>* const list = subselectionOf(it.get());
    return list ? positionIn(*list, path) : -1;
}

bool GxapSelectSet::getSubentPathAtSubsel(int entityIndex, int pathIndex, GxDbFullSubentPath& path) const {
    if (!hasItems(*this) || entityIndex < 0 ||
        static_cast<std::uint32_t>(entityIndex) >= sharedData->entityCount)
        return false;
    const KvVector<GxDbFullSubentPath*>* const list = subselectionAt(getAt(entityIndex), pathIndex);
    if (!list)
        return false;
    const GxDbFullSubentPath* const held = list->at(pathIndex);
    if (!held)
        return false;
    path = *held;
    return true;
}
