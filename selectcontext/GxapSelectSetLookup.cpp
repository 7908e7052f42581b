// Lookup by id, positional access, comparison of sets.

#include "selectcontext/GxapSelectSet.h"
#include "selectcontext/detail/ItemSearch.h"
#include "selectcontext/detail/LookAhead.h"
#include "selectcontext/detail/SetData.h"

#include <cstdint>

using kvdetail::hasItems;
using kvdetail::hasRecords;

bool isGsMarkEqual(long a, long b) {
    const auto isNoMarker = [](long marker) { return marker == 0 || marker == -1; };
    return isNoMarker(a) ? isNoMarker(b) : a == b;
}

namespace {

using kvdetail::DataMap;
using kvdetail::indexOf;
using kvdetail::ItemKeys;
using kvdetail::Markers;
using kvdetail::SSetData;
using kvdetail::Store;

const SSetData& dataToSearch(const GxapSelectSet& set) {
    if (!set.sharedData)
        kvdetail::raiseMessage(
            L"Wrong way to use GxapSelectSet::findInMap, please check the sset is not a null data set!");
    return *set.sharedData;
}

// Returns the entry of the first item of the main id that passes `matches`. Returns the end of the index if
// there is none. `matches` must reject an item whose other keys differ from `keys`.
template <class Matches>
DataMap::const_iterator findInSet(const GxapSelectSet& set, const ItemKeys& keys, Matches matches) {
    const SSetData& data = dataToSearch(set);
    if (data.entityCount == 0 || !data.entities)
        return indexOf(data).end();
    const auto found = kvdetail::findItem(data, indexOf(data).find(keys.mainId), keys, matches);
    return found.isHeld ? found.entry : indexOf(data).end();
}

DataMap::const_iterator findInSet(const GxapSelectSet& set, const ItemKeys& keys) {
    return findInSet(set, keys,
                     [&](const selected_entity& record) { return kvdetail::hasKeys(record, keys); });
}

// Returns the position of the entry's slot, or -1 for the end of the index and for a slot without a position.
int positionOf(const SSetData& data, DataMap::const_iterator entry) {
    if (entry == indexOf(data).end() || !data.entities)
        return -1;
    const std::uint32_t position = data.entities->positionOf(kvdetail::slotAt(entry->second));
    return position == Store::kNoPosition ? -1 : static_cast<int>(position);
}

template <class... Keys>
int findPosition(const GxapSelectSet& set, const Keys&... keys) {
    return hasItems(set) ? positionOf(*set.sharedData, set.findInMap(keys...)) : -1;
}

template <class... Keys>
GxapSelectSet::ConstIterator findIterator(const GxapSelectSet& set, const Keys&... keys) {
    const int position = set.find(keys...);
    return position >= 0 ? GxapSelectSet::ConstIterator(&set, position) : set.end();
}

} // namespace

auto GxapSelectSet::findInMap(const GxDbObjectId& mainId) const -> SSetData::DataMap::const_iterator {
    const SSetData& data = dataToSearch(*this);
    const kvdetail::IdIndex& index = indexOf(data);
    if (data.entityCount == 0)
        return index.end();
    const kvdetail::IdIndex::Run run = index.find(mainId);
    return run.isHeld ? run.entry : index.end();
}

auto GxapSelectSet::findInMap(const GxDbObjectId& mainId, const GxDbObjectId& subId) const
    -> SSetData::DataMap::const_iterator {
    return findInSet(*this, {mainId, subId, 0, nullptr, Markers::kAny});
}

auto GxapSelectSet::findInMap(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker) const
    -> SSetData::DataMap::const_iterator {
    return findInMap(mainId, subId, gsMarker, nullptr);
}

auto GxapSelectSet::findInMap(const GxDbObjectId& mainId, const GxDbObjectId& subId,
                              const KvVector<GxDbObjectId>* path) const -> SSetData::DataMap::const_iterator {
    if (!path)
        return findInMap(mainId, subId);
    return findInSet(*this, {mainId, subId, 0, path, Markers::kAny});
}

auto GxapSelectSet::findInMap(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker,
                              const KvVector<GxDbObjectId>* path) const -> SSetData::DataMap::const_iterator {
    return findInSet(*this, {mainId, subId, gsMarker, path});
}

auto GxapSelectSet::findInMap(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker,
                              const KvVector<GxDbObjectId>* path, GxapSelectedEntInfo* info) const
    -> SSetData::DataMap::const_iterator {
    if (!path)
        return findInMap(mainId, subId, gsMarker);
    dataToSearch(*this); // raises the error before the arguments are read
    const ItemKeys keys{mainId, subId, gsMarker, path};
    const GxGeMatrix3d* const matrix = kvdetail::matrixOf(info);
    return findInSet(*this, keys,
                     [&](const selected_entity& record) { return kvdetail::isItem(record, keys, matrix); });
}

int GxapSelectSet::find(const GxDbObjectId& mainId) const {
    return findPosition(*this, mainId);
}

int GxapSelectSet::find(const GxDbObjectId& mainId, const GxDbObjectId& subId) const {
    return findPosition(*this, mainId, subId);
}

int GxapSelectSet::find(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker) const {
    return findPosition(*this, mainId, subId, gsMarker);
}

int GxapSelectSet::find(const GxDbObjectId& mainId, const GxDbObjectId& subId,
                        const KvVector<GxDbObjectId>* path) const {
    return findPosition(*this, mainId, subId, path);
}

int GxapSelectSet::find(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker,
                        const KvVector<GxDbObjectId>* path) const {
    return findPosition(*this, mainId, subId, gsMarker, path);
}

GxapSelectSet::ConstIterator GxapSelectSet::findItr(const GxDbObjectId& mainId) const {
    return findIterator(*this, mainId);
}

GxapSelectSet::ConstIterator GxapSelectSet::findItr(const GxDbObjectId& mainId,
                                                    const GxDbObjectId& subId) const {
    return findIterator(*this, mainId, subId);
}

GxapSelectSet::ConstIterator GxapSelectSet::findItr(const GxDbObjectId& mainId, const GxDbObjectId& subId,
                                                    long gsMarker) const {
    return findIterator(*this, mainId, subId, gsMarker);
}

GxapSelectSet::ConstIterator GxapSelectSet::findItr(const GxDbObjectId& mainId, const GxDbObjectId& subId,
                                                    const KvVector<GxDbObjectId>* path) const {
    return findIterator(*this, mainId, subId, path);
}

GxapSelectSet::ConstIterator GxapSelectSet::findItr(const GxDbObjectId& mainId, const GxDbObjectId& subId,
                                                    long gsMarker, const KvVector<GxDbObjectId>* path) const {
    return findIterator(*this, mainId, subId, gsMarker, path);
}

GxapSelectSet::ConstIterator GxapSelectSet::findMain(const GxDbObjectId& mainId) const {
    return findItr(mainId);
}

namespace {

selected_entity* recordIn(const Store::Slot* slot) {
    return slot ? slot->value : nullptr;
}

bool copyIds(const selected_entity* record, GxDbObjectId& mainId, GxDbObjectId* subId) {
    if (!record)
        return false;
    mainId = record->mainEntId;
    if (subId)
        *subId = record->subEntId;
    return true;
}

// Returns the store of the set. Returns null for a set without items.
const Store* storeOf(const GxapSelectSet& set) {
    return hasItems(set) ? set.sharedData->entities : nullptr;
}

bool idsAt(const GxapSelectSet& set, int index, GxDbObjectId& mainId, GxDbObjectId* subId) {
    const auto* const store = storeOf(set);
    if (!store || index < 0 || static_cast<std::uint32_t>(index) >= store->occupiedSlots())
        return false;
    return copyIds(store->at(index), mainId, subId);
}

// Does what idsAt() does, for the first or the last index. Does not compare the index with the number of
// items. If a caller has made `entityCount` wrong, at() may raise an error.
bool idsAtEdge(const GxapSelectSet& set, int index, GxDbObjectId& mainId, GxDbObjectId* subId) {
    const auto* const store = storeOf(set);
    return store && copyIds(store->at(index), mainId, subId);
}

int lastIndex(const GxapSelectSet& set) {
    return hasItems(set) ? static_cast<int>(set.sharedData->entityCount - 1) : 0;
}

// If `wanted` is true, returns whether `other` has a record that is in `set`. Otherwise returns whether
// `other` has a record that is not in `set`. Both sets must have a store.
bool anyRecord(const GxapSelectSet& other, const GxapSelectSet& set, bool wanted) {
    const SSetData& data = *set.sharedData;
    kvdetail::IdSearch search(set);
    kvdetail::LookAhead ahead(set, search);
    return ahead.anyRecordOf(*other.sharedData->entities, [&](const selected_entity& record) {
        const ItemKeys keys = kvdetail::keysOf(record);
        const auto found = kvdetail::findAnyItem(
            data, search, keys, [&](const selected_entity& held) { return kvdetail::hasKeys(held, keys); });
        return found.isHeld == wanted;
    });
}

} // namespace

selected_entity* GxapSelectSet::getAt(int index) const {
    const SSetData::Store* const store = storeOf(*this);
    return store && index >= 0 ? recordIn(store->elementAt(index)) : nullptr;
}

bool GxapSelectSet::getAt(int index, GxDbObjectId& mainId) const {
    return idsAt(*this, index, mainId, nullptr);
}

bool GxapSelectSet::getAt(int index, GxDbObjectId& mainId, GxDbObjectId& subId) const {
    return idsAt(*this, index, mainId, &subId);
}

selected_entity* GxapSelectSet::getFirst() const {
    return getAt(0);
}

bool GxapSelectSet::getFirst(GxDbObjectId& mainId) const {
    return idsAtEdge(*this, 0, mainId, nullptr);
}

bool GxapSelectSet::getFirst(GxDbObjectId& mainId, GxDbObjectId& subId) const {
    return idsAtEdge(*this, 0, mainId, &subId);
}

selected_entity* GxapSelectSet::getLast() const {
    return getAt(lastIndex(*this));
}

bool GxapSelectSet::getLast(GxDbObjectId& mainId) const {
    return idsAtEdge(*this, lastIndex(*this), mainId, nullptr);
}

bool GxapSelectSet::getLast(GxDbObjectId& mainId, GxDbObjectId& subId) const {
    return idsAtEdge(*this, lastIndex(*this), mainId, &subId);
}

bool GxapSelectSet::contains(const GxapSelectSet* other) const {
    return other && hasRecords(*other) && hasRecords(*this) && !anyRecord(*other, *this, false);
}

bool GxapSelectSet::intersectedWith(const GxapSelectSet* other) const {
    return other && hasRecords(*other) && hasRecords(*this) && anyRecord(*other, *this, true);
}
