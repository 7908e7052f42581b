// The set handle and its shared data: lifecycle, lookup by id, positional access, comparison.

#include "selectcontext/GxapSelectSet.h"
#include "selectcontext/IndexCopy.h"
#include "selectcontext/Lookups.h"
#include "selectcontext/OrderedIndex.h"
#include "selectcontext/OwnedInfo.h"
#include "selectcontext/SetDetail.h"
#include "selectcontext/SetShortcuts.h"
#include "selectcontext/SharedPaths.h"

#include <cstdint>
#include <iterator>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

using kvdetail::hasItems;

namespace kvdetail {
namespace {

// An entry of the index that is taken back unless keep() gives it its slot.
class PendingEntry {
public:
    PendingEntry(DataMap& map, const GxDbObjectId& id, DataMap::const_iterator runEnd)
        : mMap(map), mEntry(map.emplace_hint(runEnd, id, 0)) {}
    PendingEntry(const PendingEntry&) = delete;
    PendingEntry& operator=(const PendingEntry&) = delete;
    ~PendingEntry() {
        if (mEntry->second == 0)
            mMap.erase(mEntry);
    }

    DataMap::const_iterator keep(const Store::Slot* slot) {
        mEntry->second = slotAddress(slot);
        return mEntry;
    }

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

// References to the process-wide empty block, taken many at a time: nearly every record has two, and taking
// one is an atomic operation.
class EmptyBlockShares {
public:
    EmptyBlockShares() = default;
    EmptyBlockShares(const EmptyBlockShares&) = delete;
    EmptyBlockShares& operator=(const EmptyBlockShares&) = delete;
    ~EmptyBlockShares() {
        if (mLeft > 0)
            mBlock->refCount.fetch_sub(mLeft); // never the last: the platform holds one, too
    }

    // `fresh` has no block yet.
    template <class T>
    void share(KvVector<T>& fresh, const KvVector<T>& source) {
        if (!mBlock || source.data.block != mBlock) {
            fresh = source;
            return;
        }
        if (mLeft == 0) {
            mBlock->refCount.fetch_add(kTakenAtOnce);
            mLeft = kTakenAtOnce;
        }
        --mLeft;
        fresh.data.block = mBlock;
    }

private:
    static constexpr std::uint32_t kTakenAtOnce = 256;

    KvVectorBlock* const mBlock = gpEmptyVectorData;
    std::uint32_t mLeft = 0;
};

void copyFields(const selected_entity& source, selected_entity& copy, EmptyBlockShares& empty) {
    copy.mainEntId = source.mainEntId;
    copy.subEntId = source.subEntId;
    copy.gsMarker = source.gsMarker;
    empty.share(copy.hlVpArray, source.hlVpArray);
    empty.share(copy.nestedEntFullPath, source.nestedEntFullPath);
    copy.hasSubselPaths = source.hasSubselPaths;
    copy.selectedEntityInfo = copyInfo(source.selectedEntityInfo).release();
    copy.subselPathArray = shareList(source.subselPathArray).release();
    if (auto segments = shareList(source.highlightSegmentArray)) {
        addPathOwners(*segments);
        copy.highlightSegmentArray = segments.release();
    }
}

// Clones the records of one store into another, empty one, and enters them into its index. The records ahead
// are drawn into the caches meanwhile.
void cloneRecords(const SSetData& source, SSetData& copy) {
    constexpr std::ptrdiff_t kAhead = 8;
    RecordPool& records = SetShortcuts::of(copy).records;
    records.expectMany(source.entityCount);
    EmptyBlockShares empty;
    const bool copiesIndex = isWorthCopyingIndex(source);
    OrderedIndex index(copy);
    for (const Store::Page* page = source.entities->head; page; page = page->next) {
        for (const Store::Slot* slot = page->slots; slot < page->fillEnd; ++slot) {
            if (page->fillEnd - slot > kAhead)
                __builtin_prefetch(slot[kAhead].value);
            if (slot->free || !slot->value)
                continue;
            std::unique_ptr<selected_entity> record(::new (records.allocate()) selected_entity(NoBlock()));
            copyFields(*slot->value, *record, empty);
            const Store::Slot* const copied = copy.entities->append(record.get());
            record.release();
            if (!copiesIndex)
                index.add(copied);
        }
    }
    index.finish();
    if (copiesIndex && !copyIndex(source, copy))
        indexRecords(copy);
}

} // namespace

std::unique_ptr<SSetData> makeData() {
    auto data = std::make_unique<SSetData>();
    data->entities = new Store;
    return data;
}

std::unique_ptr<selected_entity> newRecord(const SSetData& data) {
    std::unique_ptr<selected_entity> record(::new (SetShortcuts::of(data).records.allocate())
                                                selected_entity(NoBlock()));
    if (KvVectorBlock* const empty = gpEmptyVectorData) {
        empty->refCount.fetch_add(2); // for both vectors: an atomic operation is most of what a record costs
        record->hlVpArray.data.block = empty;
        record->nestedEntFullPath.data.block = empty;
    }
    return record;
}

void setKeys(selected_entity& record, const ItemKeys& keys, OwnedInfo info) {
    record.mainEntId = keys.mainId;
    record.subEntId = keys.subId;
    record.gsMarker = keys.gsMarker;
    if (keys.path)
        record.nestedEntFullPath = *keys.path;
    record.selectedEntityInfo = info.release();
}

SSetData& dataOf(const GxapSelectSet& set) {
    if (!set.sharedData) {
        set.sharedData = makeData().release();
        set.sharedData->addRef();
    }
    return *set.sharedData;
}

// The entry comes first, without its slot: it is the one part that can be taken back without a trace.
DataMap::const_iterator appendRecord(SSetData& data, std::unique_ptr<selected_entity> record,
                                     DataMap::const_iterator runEnd) {
    if (!data.entities)
        data.entities = new Store; // data that a caller has made by hand
    SetShortcuts& shortcuts = SetShortcuts::of(data);
    IdHash* const hash = shortcuts.hashToEdit(data);
    PendingEntry entry(data.dataMap, record->mainEntId, runEnd);
    const Store::Slot* const slot = data.entities->append(record.get());
    record.release();
    const DataMap::const_iterator added = entry.keep(slot);
    if (hash && !hash->noteAdded(data.dataMap, added))
        shortcuts.dropHash();
    else if (hash)
        hash->follow(data.dataMap);
    return added;
}

// The hash comes first, then the end of the index, where ids that are selected in ascending order belong.
Run runOf(const SSetData& data, const GxDbObjectId& id, IndexCursor* cursor) {
    const DataMap& map = data.dataMap;
    DataMap::const_iterator entry = cursor ? cursor->guess(map, id) : map.end();
    if (entry != map.end())
        return {entry, true};
    const SetShortcuts& shortcuts = SetShortcuts::of(data);
    if (const IdHash* const hash = shortcuts.hashFor(data)) {
        entry = hash->find(map, id);
        if (entry != map.end())
            return {entry, true};
    }
    if (map.empty() || map.rbegin()->first < id)
        return {map.end(), false};
    entry = map.lower_bound(id);
    if (entry == map.end() || !(entry->first == id))
        return {entry, false};
    shortcuts.noteDescent(data);
    return {entry, true};
}

DataMap::const_iterator runEnd(const SSetData& data, const GxDbObjectId& id) {
    const DataMap& map = data.dataMap;
    return map.empty() || !(id < map.rbegin()->first) ? map.end() : map.upper_bound(id);
}

Run runForRemoval(const SSetData& data, const GxDbObjectId& id, IndexCursor* cursor) {
    const DataMap& map = data.dataMap;
    if (cursor || map.empty())
        return runOf(data, id, cursor);
    if (map.begin()->first == id)
        return {map.begin(), true};
    const auto last = std::prev(map.end());
    if (last->first == id && !(std::prev(last)->first == id))
        return {last, true};
    return runOf(data, id);
}

// Extracting leaves out what erasing does: looking for the next entry.
void eraseEntry(SSetData& data, DataMap::const_iterator entry) {
    IdHash* const hash = SetShortcuts::of(data).hashToEdit(data);
    if (hash)
        hash->noteErasing(data.dataMap, entry);
    data.dataMap.extract(entry);
    if (hash)
        hash->follow(data.dataMap);
}

void indexRecords(SSetData& data) {
    OrderedIndex index(data);
    forEachOccupied(*data.entities, [&index](const Store::Slot* slot) {
        if (slot->value)
            index.add(slot);
    });
    index.finish();
}

// The pool takes its nodes back at once where it knows them all: the index is then made anew in place,
// without a walk over nodes that need no destructor.
void clearIndex(SSetData& data) noexcept {
    static_assert(std::is_trivially_destructible_v<DataMap::value_type>, "nodes are given up undestroyed");
    SetShortcuts& shortcuts = SetShortcuts::of(data);
    shortcuts.dropHash();
    const DataMap::allocator_type allocator = data.dataMap.get_allocator();
    KvNodePool* const pool = allocator.pool();
    if (!pool || pool != shortcuts.nodes.get() || pool->live() != data.dataMap.size()) {
        data.dataMap.clear();
        return;
    }
    new (&data.dataMap) DataMap(allocator);
    pool->reclaimAll();
    pool->release(); // on behalf of the map that was not destroyed
}

} // namespace kvdetail

GxapSelectSet::SSetData::SSetData() : SSetData(std::make_unique<kvdetail::SetShortcuts>()) {}

GxapSelectSet::SSetData::SSetData(std::unique_ptr<kvdetail::SetShortcuts> shortcuts)
    : refCount(0), dataMap(DataMap::allocator_type(shortcuts->nodes.get())), unique(true),
      selectByNestedMode(false), entityCount(0), entities(nullptr), mShortcuts(shortcuts.release()) {}

GxapSelectSet::SSetData::~SSetData() {
    clear();
    delete entities;
    delete mShortcuts;
}

void GxapSelectSet::SSetData::destroy() const {
    delete this;
}

void GxapSelectSet::SSetData::clear() {
    if (refCount.load() > 1)
        return;
    kvdetail::clearIndex(*this);
    entityCount = 0;
    if (!entities)
        return;
    kvdetail::RecordPool::Destroyer destroyer;
    kvdetail::forEachOccupied(*entities,
                              [&destroyer](const Store::Slot* slot) { destroyer.destroy(slot->value); });
    entities->freeAllPages();
    mShortcuts->records.close();
}

GxapSelectSet::SSetData* GxapSelectSet::SSetData::clone() const {
    auto copy = kvdetail::makeData();
    copy->unique = unique;
    copy->selectByNestedMode = selectByNestedMode;
    copy->entityCount = entityCount;
    if (!entities)
        return copy.release();
    kvdetail::cloneRecords(*this, *copy);
    return copy.release();
}

GxapSelectSet::GxapSelectSet(bool /*ignored*/) : sharedData(nullptr), lispRefCnt(0) {
    createData();
}

GxapSelectSet& GxapSelectSet::operator=(const GxapSelectSet& other) {
    assignData(other.sharedData);
    return *this;
}

// Iterators that outlive their set must not unregister from it, and have no position any more.
void GxapSelectSet::orphanIterators() const {
    for (int i = 0; i < iterators.logicalLength(); ++i)
        iterators[i]->set = nullptr;
    disableAllIterator();
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

using kvdetail::DataMap;
using kvdetail::SSetData;
using kvdetail::Store;

const SSetData& dataToSearch(const GxapSelectSet& set) {
    if (!set.sharedData)
        kvdetail::raiseMessage(
            L"Wrong way to use GxapSelectSet::findInMap, please check the sset is not a null data set!");
    return *set.sharedData;
}

// The entry of a set that has items; the end of an empty one's index.
template <class Matches>
DataMap::const_iterator findInSet(const GxapSelectSet& set, const GxDbObjectId& mainId, Matches matches) {
    const SSetData& data = dataToSearch(set);
    if (data.entityCount == 0 || !data.entities)
        return data.dataMap.end();
    return kvdetail::findInRun(data, mainId, matches, kvdetail::runOf(data, mainId)).entry;
}

bool hasKeys(const selected_entity& record, const kvdetail::ItemKeys& keys) {
    return record.subEntId == keys.subId && isGsMarkEqual(record.gsMarker, keys.gsMarker) &&
           (!keys.path || record.nestedEntFullPath == *keys.path);
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

namespace kvdetail {

Found findItem(const SSetData& data, const ItemKeys& keys, const Run& run) {
    return findInRun(
        data, keys.mainId, [&](const selected_entity& record) { return hasKeys(record, keys); }, run);
}

Found findItem(const SSetData& data, const ItemKeys& keys, const Run& run, const GxGeMatrix3d* matrix) {
    return findInRun(
        data, keys.mainId, [&](const selected_entity& record) { return isItem(record, keys, matrix); }, run);
}

bool isItem(const selected_entity& record, const ItemKeys& keys, const GxGeMatrix3d* matrix) {
    return hasKeys(record, keys) && isMatrixEqual(matrix, matrixOf(record.selectedEntityInfo));
}

} // namespace kvdetail

auto GxapSelectSet::findInMap(const GxDbObjectId& mainId) const -> SSetData::DataMap::const_iterator {
    const SSetData& data = dataToSearch(*this);
    const auto end = data.dataMap.end();
    if (data.entityCount == 0)
        return end;
    const kvdetail::Run run = kvdetail::runOf(data, mainId);
    return run.isHeld ? run.first : end;
}

auto GxapSelectSet::findInMap(const GxDbObjectId& mainId, const GxDbObjectId& subId) const
    -> SSetData::DataMap::const_iterator {
    return findInSet(*this, mainId, [&](const selected_entity& record) { return record.subEntId == subId; });
}

auto GxapSelectSet::findInMap(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker) const
    -> SSetData::DataMap::const_iterator {
    return findInMap(mainId, subId, gsMarker, nullptr);
}

auto GxapSelectSet::findInMap(const GxDbObjectId& mainId, const GxDbObjectId& subId,
                              const KvVector<GxDbObjectId>* path) const -> SSetData::DataMap::const_iterator {
    if (!path)
        return findInMap(mainId, subId);
    return findInSet(*this, mainId, [&](const selected_entity& record) {
        return record.subEntId == subId && record.nestedEntFullPath == *path;
    });
}

auto GxapSelectSet::findInMap(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker,
                              const KvVector<GxDbObjectId>* path) const -> SSetData::DataMap::const_iterator {
    const kvdetail::ItemKeys keys{mainId, subId, gsMarker, path};
    return findInSet(*this, mainId, [&](const selected_entity& record) { return hasKeys(record, keys); });
}

auto GxapSelectSet::findInMap(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker,
                              const KvVector<GxDbObjectId>* path, GxapSelectedEntInfo* info) const
    -> SSetData::DataMap::const_iterator {
    if (!path)
        return findInMap(mainId, subId, gsMarker);
    const SSetData& data = dataToSearch(*this);
    if (data.entityCount == 0 || !data.entities)
        return data.dataMap.end();
    const kvdetail::Run run = kvdetail::runOf(data, mainId);
    return kvdetail::findItem(data, {mainId, subId, gsMarker, path}, run, kvdetail::matrixOf(info)).entry;
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

// The store of a set that has items, or null.
const Store* filledStore(const GxapSelectSet& set) {
    return hasItems(set) ? set.sharedData->entities : nullptr;
}

std::int64_t liveTotal(const Store& store) {
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

// Whether some record of `other` is held by `set` (wanted true) or is not (wanted false). Both sets have
// items.
bool anyRecord(const GxapSelectSet& other, const GxapSelectSet& set, bool wanted) {
    kvdetail::Lookups lookups(set);
    return kvdetail::anyRecordOf(*other.sharedData->entities, lookups, [&](const selected_entity& record) {
        return lookups.holds(record) == wanted;
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
