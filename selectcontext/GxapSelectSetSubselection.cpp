// Sub-selection: parts of an entity that are selected by their paths.

#include "selectcontext/GxapSSetWriteAccessor.h"
#include "selectcontext/detail/OwnedInfo.h"
#include "selectcontext/detail/SetData.h"
#include "selectcontext/detail/SharedPaths.h"

#include <cstdint>
#include <memory>

namespace {

using kvdetail::DataMap;
using kvdetail::hasItems;
using kvdetail::recordAt;
using kvdetail::SSetData;
using kvdetail::Store;

// Returns null for a record without a sub-selection.
KvVector<GxDbFullSubentPath*>* subselectionOf(const selected_entity* record) {
    return record && record->hasSubselPaths ? record->subselPathArray : nullptr;
}

// Returns the record's sub-selection list. Returns null if `pathIndex` is negative or larger than the length
// of the list. If `pathIndex` equals the length, returns the list. The caller's access to the list then
// raises KvErrorStatus 24.
KvVector<GxDbFullSubentPath*>* subselectionAt(const selected_entity* record, int pathIndex) {
    KvVector<GxDbFullSubentPath*>* const list = subselectionOf(record);
    return list && pathIndex >= 0 && pathIndex <= list->logicalLength() ? list : nullptr;
}

// Returns the last id of a path. Returns the null id if the path has no ids or an invalid last id.
GxDbObjectId entityOf(const GxDbFullSubentPath& path) {
    const GxArray<GxDbObjectId>& ids = path.objectIds();
    if (ids.logicalLength() == 0)
        return GxDbObjectId();
    const GxDbObjectId last = ids[ids.logicalLength() - 1];
    return last.isValid() ? last : GxDbObjectId();
}

// Returns the position of the path in the list, or -1. Makes the block of the list private, as at() of a
// non-const list does.
int positionIn(KvVector<GxDbFullSubentPath*>& list, const GxDbFullSubentPath& path) {
    for (int i = 0; i < list.logicalLength(); ++i) {
        const GxDbFullSubentPath* const held = list.at(i);
        if (held && *held == path)
            return i;
    }
    return -1;
}

// Returns the position that the entry's record will have in a clone of the data. Returns -1 if the entry has
// no record. A clone leaves out slots without a record.
int positionInCopy(const SSetData& data, DataMap::const_iterator entry) {
    const selected_entity* const record = data.entities ? recordAt(*data.entities, entry->second) : nullptr;
    if (!record)
        return -1;
    int position = -1;
    kvdetail::anyOccupied(*data.entities, [&](const Store::Slot* slot) {
        position += slot->value ? 1 : 0;
        return slot->value == record;
    });
    return position;
}

constexpr std::uint32_t kSubselectionInfoWord = 6;

} // namespace

GxapSelectSet::ConstIterator GxapSelectSet::findMainSubsel(const GxDbObjectId& id) const {
    if (!hasItems(*this))
        return ConstIterator(this, 0);
    if (id.isNull() || !kvdetail::indexOf(*sharedData).find(id).isHeld)
        return end();
    return iteratorAt(find(id));
}

GxapSelectSet::Iterator GxapSSetWriteAccessor::findMainSubsel(const GxDbObjectId& id) {
    if (!hasItems(*this))
        return Iterator(this, 0);
    const kvdetail::IdIndex::Run run = kvdetail::indexOf(*sharedData).find(id);
    if (id.isNull() || !run.isHeld)
        return end();
    // Finds the position before the data is cloned: the index of the clone may find another item of the id.
    return iteratorAt(sharedData->refCount.load() >= 2 ? positionInCopy(*sharedData, run.entry) : find(id));
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

    // append() copies neither `hasSubselPaths` nor `subselPathArray`. So the record in the set has no
    // sub-selection. The list is destroyed with `record`, but the copy of the path is not. The copy is left
    // without an owner on purpose.
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
