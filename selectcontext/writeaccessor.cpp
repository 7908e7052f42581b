// Every operation that changes a set.

#include "selectcontext/GxapSSetWriteAccessor.h"
#include "selectcontext/OwnedInfo.h"
#include "selectcontext/SetDetail.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <utility>

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

GxapSelectSet::Iterator GxapSSetWriteAccessor::findItr(const GxDbObjectId& mainId) {
    writeData();
    const int position = find(mainId);
    return position < 0 ? end() : Iterator(this, position);
}

GxapSelectSet::Iterator GxapSSetWriteAccessor::findItr(const GxDbObjectId& mainId,
                                                       const GxDbObjectId& subId) {
    writeData();
    const int position = find(mainId, subId);
    return position < 0 ? end() : Iterator(this, position);
}

GxapSelectSet::Iterator GxapSSetWriteAccessor::findItr(const GxDbObjectId& mainId, const GxDbObjectId& subId,
                                                       long gsMarker) {
    writeData();
    const int position = find(mainId, subId, gsMarker);
    return position < 0 ? end() : Iterator(this, position);
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
