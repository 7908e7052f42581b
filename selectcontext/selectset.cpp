// The set handle and its shared data: lifecycle, lookup by id, positional access, comparison.

#include "selectcontext/GxapSelectSet.h"
#include "selectcontext/OwnedInfo.h"
#include "selectcontext/SetDetail.h"
#include "selectcontext/SharedPaths.h"

#include <cstdint>
#include <memory>
#include <utility>

using kvdetail::hasItems;
using kvdetail::recordAt;

namespace kvdetail {
namespace {

// An entry of the index that is taken back unless keep() gives it its slot.
class PendingEntry {
public:
    PendingEntry(DataMap& map, const GxDbObjectId& id) : mMap(map), mEntry(map.emplace(id, 0)) {}
    PendingEntry(const PendingEntry&) = delete;
    PendingEntry& operator=(const PendingEntry&) = delete;
    ~PendingEntry() {
        if (mEntry->second == 0)
            mMap.erase(mEntry);
    }

    void keep(const Store::Slot* slot) { mEntry->second = slotAddress(slot); }

private:
    DataMap& mMap;
    DataMap::iterator mEntry;
};

// A list that shares the block of `list`, or null where that is null or empty.
std::unique_ptr<KvVector<GxDbFullSubentPath*>> shareList(const KvVector<GxDbFullSubentPath*>* list) {
    if (!list || list->logicalLength() == 0)
        return nullptr;
    return std::make_unique<KvVector<GxDbFullSubentPath*>>(*list);
}

std::unique_ptr<selected_entity> cloneRecord(const selected_entity& source) {
    auto copy = std::make_unique<selected_entity>();
    copy->mainEntId = source.mainEntId;
    copy->subEntId = source.subEntId;
    copy->gsMarker = source.gsMarker;
    copy->hlVpArray = source.hlVpArray;
    copy->nestedEntFullPath = source.nestedEntFullPath;
    copy->hasSubselPaths = source.hasSubselPaths;
    copy->selectedEntityInfo = copyInfo(source.selectedEntityInfo).release();
    copy->subselPathArray = shareList(source.subselPathArray).release();
    if (auto segments = shareList(source.highlightSegmentArray)) {
        addPathOwners(*segments);
        copy->highlightSegmentArray = segments.release();
    }
    return copy;
}

} // namespace

std::unique_ptr<SSetData> makeData() {
    auto data = std::make_unique<SSetData>();
    data->entities = new Store;
    return data;
}

SSetData& dataOf(const GxapSelectSet& set) {
    if (!set.sharedData) {
        set.sharedData = makeData().release();
        set.sharedData->addRef();
    }
    return *set.sharedData;
}

// The entry comes first, without its slot: it is the one part that can be taken back without a trace.
void appendRecord(SSetData& data, std::unique_ptr<selected_entity> record) {
    if (!data.entities)
        data.entities = new Store; // data that a caller has made by hand
    PendingEntry entry(data.dataMap, record->mainEntId);
    entry.keep(data.entities->append(record.get()));
    record.release();
}

} // namespace kvdetail

GxapSelectSet::SSetData::SSetData()
    : refCount(0), unique(true), selectByNestedMode(false), entityCount(0), entities(nullptr) {}

GxapSelectSet::SSetData::~SSetData() {
    clear();
    delete entities;
}

void GxapSelectSet::SSetData::addRef() const {
    refCount.fetch_add(1);
}

void GxapSelectSet::SSetData::delRef() const {
    if (refCount.fetch_sub(1) == 1)
        delete this;
}

void GxapSelectSet::SSetData::clear() {
    if (refCount.load() > 1)
        return;
    dataMap.clear();
    entityCount = 0;
    if (!entities)
        return;
    kvdetail::forEachOccupied(*entities, [](const Store::Slot* slot) { delete slot->value; });
    entities->freeAllPages();
}

GxapSelectSet::SSetData* GxapSelectSet::SSetData::clone() const {
    auto copy = kvdetail::makeData();
    copy->unique = unique;
    copy->selectByNestedMode = selectByNestedMode;
    copy->entityCount = entityCount;
    if (!entities)
        return copy.release();
    kvdetail::forEachOccupied(*entities, [&copy](const Store::Slot* slot) {
        if (slot->value)
            kvdetail::appendRecord(*copy, kvdetail::cloneRecord(*slot->value));
    });
    return copy.release();
}

GxapSelectSet::GxapSelectSet(bool /*ignored*/) : sharedData(nullptr), lispRefCnt(0) {
    createData();
}

GxapSelectSet::GxapSelectSet(const GxapSelectSet& other) : sharedData(nullptr), lispRefCnt(0) {
    assignData(other.sharedData);
}

GxapSelectSet& GxapSelectSet::operator=(const GxapSelectSet& other) {
    assignData(other.sharedData);
    return *this;
}

GxapSelectSet::~GxapSelectSet() {
    // An iterator that outlives its set must not unregister from it.
    for (int i = 0; i < iterators.logicalLength(); ++i)
        iterators[i]->set = nullptr;
    releaseData();
}

// The old data goes only once the fresh data is complete.
GxapSelectSet::SSetData* GxapSelectSet::createData() {
    assignData(kvdetail::makeData().release());
    return sharedData;
}

void GxapSelectSet::assignData(SSetData* data) {
    if (data == sharedData)
        return;
    releaseData();
    if (!data)
        return;
    sharedData = data;
    sharedData->addRef();
}

void GxapSelectSet::releaseData() {
    if (!sharedData)
        return;
    disableAllIterator();
    sharedData->delRef();
    sharedData = nullptr;
}

bool GxapSelectSet::isSelectByNestedMode() const {
    return sharedData && sharedData->selectByNestedMode;
}

long GxapSelectSet::getLispRefCnt() {
    if (lispRefCnt < 0)
        lispRefCnt = 0;
    return lispRefCnt;
}

long GxapSelectSet::addLispRefCnt() {
    // Unsigned, so that the count wraps as two's complement does.
    lispRefCnt = lispRefCnt < 0 ? 1 : static_cast<std::int64_t>(static_cast<std::uint64_t>(lispRefCnt) + 1);
    return lispRefCnt;
}

long GxapSelectSet::subtractLispRefCnt() {
    const auto less = static_cast<std::int64_t>(static_cast<std::uint64_t>(lispRefCnt) - 1);
    lispRefCnt = less < 0 ? 0 : less;
    return lispRefCnt;
}

bool isGsMarkEqual(long a, long b) {
    const auto isNoMarker = [](long marker) { return marker == 0 || marker == -1; };
    return isNoMarker(a) ? isNoMarker(b) : a == b;
}

namespace {

using DataMap = GxapSelectSet::SSetData::DataMap;
using Store = GxapSelectSet::SSetData::Store;

const GxapSelectSet::SSetData& dataToSearch(const GxapSelectSet& set) {
    if (!set.sharedData)
        kvdetail::raiseMessage(
            L"Wrong way to use GxapSelectSet::findInMap, please check the sset is not a null data set!");
    return *set.sharedData;
}

// The first entry of the id's run whose record has that main id and passes `matches`. The run ends at the
// first key that is greater.
template <class Matches>
DataMap::const_iterator findInRun(const GxapSelectSet::SSetData& data, const GxDbObjectId& mainId,
                                  Matches matches) {
    const auto end = data.dataMap.end();
    if (data.entityCount == 0 || !data.entities)
        return end;
    const auto first = data.dataMap.lower_bound(mainId);
    for (auto entry = first; entry != end && !(mainId < entry->first); ++entry) {
        const selected_entity* const record = recordAt(entry->second);
        if (record && record->mainEntId == mainId && matches(*record))
            return entry;
    }
    return end;
}

const GxGeMatrix3d* matrixOf(const GxapSelectedEntInfo* info) {
    return info ? info->getBTRMatPtr() : nullptr;
}

bool isMatrixEqual(const GxGeMatrix3d* wanted, const GxGeMatrix3d* held) {
    if (!wanted || !held)
        return wanted == held;
    return wanted->isEqualTo(*held, GxGeContext::gTol);
}

// The position of the entry's slot, for a set that has data and items.
int positionOf(const GxapSelectSet& set, DataMap::const_iterator entry) {
    const auto& data = *set.sharedData;
    if (entry == data.dataMap.end() || !data.entities)
        return -1;
    const std::uint32_t position = data.entities->positionOf(kvdetail::slotAt(entry->second));
    return position == Store::kNoPosition ? -1 : static_cast<int>(position);
}

template <class... Keys>
int findPosition(const GxapSelectSet& set, const Keys&... keys) {
    return hasItems(set) ? positionOf(set, set.findInMap(keys...)) : -1;
}

template <class... Keys>
GxapSelectSet::ConstIterator findIterator(const GxapSelectSet& set, const Keys&... keys) {
    const int position = set.find(keys...);
    return position >= 0 ? GxapSelectSet::ConstIterator(&set, position) : set.end();
}

} // namespace

auto GxapSelectSet::findInMap(const GxDbObjectId& mainId) const -> SSetData::DataMap::const_iterator {
    const SSetData& data = dataToSearch(*this);
    const auto end = data.dataMap.end();
    if (data.entityCount == 0)
        return end;
    const auto first = data.dataMap.lower_bound(mainId);
    return first != end && first->first == mainId ? first : end;
}

auto GxapSelectSet::findInMap(const GxDbObjectId& mainId, const GxDbObjectId& subId) const
    -> SSetData::DataMap::const_iterator {
    return findInRun(dataToSearch(*this), mainId,
                     [&](const selected_entity& record) { return record.subEntId == subId; });
}

auto GxapSelectSet::findInMap(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker) const
    -> SSetData::DataMap::const_iterator {
    return findInRun(dataToSearch(*this), mainId, [&](const selected_entity& record) {
        return record.subEntId == subId && isGsMarkEqual(record.gsMarker, gsMarker);
    });
}

auto GxapSelectSet::findInMap(const GxDbObjectId& mainId, const GxDbObjectId& subId,
                              const KvVector<GxDbObjectId>* path) const -> SSetData::DataMap::const_iterator {
    if (!path)
        return findInMap(mainId, subId);
    return findInRun(dataToSearch(*this), mainId, [&](const selected_entity& record) {
        return record.subEntId == subId && record.nestedEntFullPath == *path;
    });
}

auto GxapSelectSet::findInMap(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker,
                              const KvVector<GxDbObjectId>* path) const -> SSetData::DataMap::const_iterator {
    if (!path)
        return findInMap(mainId, subId, gsMarker);
    return findInRun(dataToSearch(*this), mainId, [&](const selected_entity& record) {
        return record.subEntId == subId && isGsMarkEqual(record.gsMarker, gsMarker) &&
               record.nestedEntFullPath == *path;
    });
}

auto GxapSelectSet::findInMap(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker,
                              const KvVector<GxDbObjectId>* path, GxapSelectedEntInfo* info) const
    -> SSetData::DataMap::const_iterator {
    if (!path)
        return findInMap(mainId, subId, gsMarker);
    const SSetData& data = dataToSearch(*this);
    const GxGeMatrix3d* const wanted = matrixOf(info);
    return findInRun(data, mainId, [&](const selected_entity& record) {
        return record.subEntId == subId && isGsMarkEqual(record.gsMarker, gsMarker) &&
               record.nestedEntFullPath == *path &&
               isMatrixEqual(wanted, matrixOf(record.selectedEntityInfo));
    });
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

// The record of the slot, or null; the slot may be null.
selected_entity* recordIn(const GxapSelectSet::SSetData::Store::Slot* slot) {
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

// The store of a set that has items, or null.
const GxapSelectSet::SSetData::Store* filledStore(const GxapSelectSet& set) {
    return hasItems(set) ? set.sharedData->entities : nullptr;
}

std::int64_t liveTotal(const GxapSelectSet::SSetData::Store& store) {
    std::int64_t total = 0;
    for (const auto* page = store.head; page; page = page->next)
        total += page->liveCount;
    return total;
}

bool idsAt(const GxapSelectSet& set, int index, GxDbObjectId& mainId, GxDbObjectId* subId) {
    const auto* const store = filledStore(set);
    if (!store || index < 0 || index >= liveTotal(*store))
        return false;
    return copyIds(store->at(index), mainId, subId);
}

// The first and the last item trust the set's count: the store itself answers when the two disagree.
bool idsAtEdge(const GxapSelectSet& set, int index, GxDbObjectId& mainId, GxDbObjectId* subId) {
    const auto* const store = filledStore(set);
    return store && copyIds(store->at(index), mainId, subId);
}

int lastIndex(const GxapSelectSet& set) {
    return hasItems(set) ? static_cast<int>(set.sharedData->entityCount - 1) : 0;
}

bool holdsItem(const GxapSelectSet& set, const selected_entity& record) {
    return set.findInMap(record.mainEntId, record.subEntId, record.gsMarker, &record.nestedEntFullPath) !=
           set.sharedData->dataMap.end();
}

// Whether some record of `other` is held by `set` (wanted true) or is not (wanted false). Both sets have
// items.
bool anyRecord(const GxapSelectSet& other, const GxapSelectSet& set, bool wanted) {
    return kvdetail::anyOccupied(*other.sharedData->entities, [&](const auto* slot) {
        return slot->value && holdsItem(set, *slot->value) == wanted;
    });
}

} // namespace

selected_entity* GxapSelectSet::getAt(int index) const {
    const SSetData::Store* const store = filledStore(*this);
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
    return other && filledStore(*other) && hasItems(*this) && !anyRecord(*other, *this, false);
}

bool GxapSelectSet::intersectedWith(const GxapSelectSet* other) const {
    return other && filledStore(*other) && hasItems(*this) && anyRecord(*other, *this, true);
}
