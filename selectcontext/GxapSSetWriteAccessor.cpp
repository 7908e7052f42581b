// Editing: private data, writable access, selecting and removing.

#include "selectcontext/GxapSSetWriteAccessor.h"
#include "selectcontext/detail/Edits.h"
#include "selectcontext/detail/ItemSearch.h"
#include "selectcontext/detail/OwnedInfo.h"
#include "selectcontext/detail/SetData.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <utility>

using kvdetail::hasItems;
using kvdetail::indexOf;

GxapSelectSet::SSetData* GxapSSetWriteAccessor::writeData() {
    if (!sharedData)
        return createData();
    if (sharedData->refCount.load() >= 2)
        assignData(sharedData->clone());
    return sharedData;
}

void GxapSSetWriteAccessor::updateDataMap() {
    SSetData& data = kvdetail::dataOf(*this);
    if (data.entities)
        data.entities->forgetHints();
    indexOf(data).rebuild();
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

// Takes the keys by value: they may be references into data that writeData() releases.
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
    const kvdetail::ItemKeys keys{mainId, subId, gsMarker, nestedPath};
    kvdetail::OwnedInfo info(entInfo);
    const SSetData& data = kvdetail::dataOf(*this);
    kvdetail::IdIndex::Run run = kvdetail::isDuplicateLookedFor(data)
                                     ? indexOf(data).find(mainId)
                                     : kvdetail::IdIndex::Run{indexOf(data).endOf(mainId), false};
    if (run.isHeld)
        run = kvdetail::findItem(data, run, keys, kvdetail::matrixOf(entInfo));
    if (!run.isHeld)
        kvdetail::addItem(*this, keys, std::move(info), run.entry);
}

void GxapSSetWriteAccessor::append(const GxDbObjectId& mainId, const GxDbObjectId& subId) {
    select(mainId, subId, -1, nullptr, nullptr);
}

// Copies the info only if the main id is not null: for a null main id, select() would not become the owner of
// the copy.
bool GxapSSetWriteAccessor::append(const selected_entity* record) {
    if (!record)
        return false;
    if (!record->mainEntId.isNull())
        select(record->mainEntId, record->subEntId, record->gsMarker,
               kvdetail::copyInfo(record->selectedEntityInfo).release(), &record->nestedEntFullPath);
    return true;
}

// The forms of remove() copy their keys first. The keys may be references into data that writeData()
// releases, or into an index entry that is erased.

bool GxapSSetWriteAccessor::remove(const GxDbObjectId& mainId) {
    const GxDbObjectId id = mainId;
    if (id.isNull() || !hasItems(*this))
        return false;
    const SSetData* const searched = sharedData;
    const kvdetail::IdIndex::Run found = indexOf(*searched).findToRemove(id);
    if (!found.isHeld)
        return false;
    SSetData& data = *writeData();
    if (!data.entities)
        return false;
    kvdetail::IdIndex& index = indexOf(data);
    kvdetail::IdIndex::Run run = &data == searched ? found : index.find(id);
    const bool removed = run.isHeld;
    if (removed)
        index.expectErasing(run);
    while (run.isHeld) {
        const kvdetail::IdIndex::Entry entry = run.entry;
        index.next(run, id);
        kvdetail::freeSlot(data, kvdetail::OccupiedSlot(*data.entities, entry->second));
        kvdetail::countDown(data);
        index.erase(entry);
    }
    return removed;
}

bool GxapSSetWriteAccessor::remove(const GxDbObjectId& mainId, const GxDbObjectId& subId) {
    const GxDbObjectId id = mainId;
    const GxDbObjectId sub = subId;
    if (id.isNull() || !hasItems(*this) || findInMap(id, sub) == indexOf(*sharedData).end())
        return false;
    SSetData& data = *writeData();
    kvdetail::IdIndex& index = indexOf(data);
    bool removed = false;
    kvdetail::IdIndex::Run run = index.find(id);
    if (run.isHeld)
        index.expectErasing(run);
    // Erases the index entries of all items of the main id. Items with another sub id stay in the store.
    while (run.isHeld) {
        const kvdetail::IdIndex::Entry entry = run.entry;
        index.next(run, id);
        const kvdetail::OccupiedSlot place(*data.entities, entry->second);
        index.erase(entry);
        if (!place.holds(sub))
            continue;
        kvdetail::freeSlot(data, place);
        kvdetail::countDown(data);
        removed = true;
    }
    return removed;
}

bool GxapSSetWriteAccessor::remove(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker) {
    const GxDbObjectId id = mainId;
    const GxDbObjectId sub = subId;
    if (id.isNull() || !kvdetail::hasRecords(*this))
        return false;
    const kvdetail::ExactItem item =
        kvdetail::findToRemove(*this, {id, sub, gsMarker, nullptr}, indexOf(*sharedData).findToRemove(id));
    if (!item.place.slot)
        return false;
    kvdetail::removeItem(*sharedData, item);
    return true;
}

// Steps back with an iterator of the store. An iterator of the set would be allocated and registered, which
// would double the instructions of a removal.
bool GxapSSetWriteAccessor::removeAt(Iterator& it) {
    if (!hasItems(*this) || it.isDone())
        return false;
    const SSetData* const held = sharedData;
    const bool hasBefore = it.index >= 1;
    SSetData::Store::iterator before = *it.truckerIterator;
    if (hasBefore)
        kvdetail::stepBack(it.set->sharedData->entities, before);
    const selected_entity* const record = it.get();
    if (!record || !remove(record->mainEntId, record->subEntId, record->gsMarker))
        return false;
    if (!hasBefore)
        return true;

    --it.index;
    // If remove() has replaced the data, `it` must not refer to the old data. remove() has already disabled
    // every registered iterator, but `it` may not be registered.
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
    const SSetData::Store::Slot* const slot = data.entities ? data.entities->elementAt(index) : nullptr;
    const selected_entity* const record = slot ? slot->value : nullptr;
    return record && remove(record->mainEntId, record->subEntId, record->gsMarker);
}
