// Values, records and allocation counts for tests of infos, records and shared data. Adds records to a set
// without calling the library.
#pragma once

#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/selectcontext/support/SetTestSupport.h"
#include "tests/support/Ids.h"
#include "tests/support/Infos.h"
#include "tests/support/NewTracking.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

namespace kvtest {

using SSetData = GxapSelectSet::SSetData;
using Store = SSetData::Store;
using SegmentArray = KvVector<GxDbFullSubentPath*>;

// ---- values

inline SelFenceIntersectInfo fence(std::int32_t index, double param) {
    return SelFenceIntersectInfo{index, 0, param};
}

// Returns a matrix with the values `first`, `first` + 1, ..., `first` + 15.
inline GxGeMatrix3d matrixWith(double first) {
    GxGeMatrix3d matrix;
    for (int row = 0; row < 4; ++row) {
        for (int column = 0; column < 4; ++column)
            matrix.entry[row][column] = first + 4 * row + column;
    }
    return matrix;
}

// Returns the identity, moved by x along the first axis.
inline GxGeMatrix3d matrixMovedBy(double x) {
    GxGeMatrix3d matrix;
    matrix.entry[0][3] = x;
    return matrix;
}

inline bool sameEntries(const GxGeMatrix3d& a, const GxGeMatrix3d& b) {
    return std::memcmp(a.entry, b.entry, sizeof(a.entry)) == 0;
}

inline bool isIdentity(const GxGeMatrix3d& matrix) {
    for (int row = 0; row < 4; ++row) {
        for (int column = 0; column < 4; ++column) {
            if (matrix.entry[row][column] != (row == column ? 1.0 : 0.0))
                return false;
        }
    }
    return true;
}

// ---- allocations since an AllocationCount was made

class AllocationCount {
public:
    long newCalls() const { return kvtest::newCalls() - mNewCalls; }
    long liveNew() const { return liveNewBlocks() - mLiveNew; }
    long mallocCalls() const { return kvinmemory::mallocCalls() - mMallocCalls; }
    long freeCalls() const { return kvinmemory::freeCalls() - mFreeCalls; }
    long liveMalloc() const { return kvinmemory::liveBlocks() - mLiveMalloc; }

private:
    long mNewCalls = kvtest::newCalls();
    long mLiveNew = liveNewBlocks();
    long mMallocCalls = kvinmemory::mallocCalls();
    long mFreeCalls = kvinmemory::freeCalls();
    long mLiveMalloc = kvinmemory::liveBlocks();
};

// ---- vectors

// Returns an element, without making the vector's block private.
template <class T>
const T& elementAt(const KvVector<T>& vector, int i) {
    return vector.at(i);
}

template <class T>
void append(KvVector<T>& vector, const T& value) {
    const int length = vector.logicalLength();
    vector.setLogicalLength(length + 1);
    vector.at(length) = value;
}

// Appends new paths of one id each: id(1), id(2), ...
inline void addPaths(SegmentArray& segments, int count) {
    for (int n = 1; n <= count; ++n)
        append(segments, new GxDbFullSubentPath(subentPath({static_cast<unsigned long>(n)})));
}

// Makes an array that has no block.
inline SegmentArray* newSegmentsWithoutBlock() {
    const WithoutEmptyBlock withoutEmptyBlock;
    return new SegmentArray;
}

inline void giveSegments(selected_entity& record, int count) {
    record.highlightSegmentArray = new SegmentArray;
    addPaths(*record.highlightSegmentArray, count);
}

// Makes an info with a value in every field.
inline GxapSelectedEntInfo* makeFullInfo() {
    GxapSelectedEntInfo* info = makeInfo();
    info->pointArray.setLogicalLength(2);
    info->setSelFenceResultInfo(fence(1, 0.5));
    info->setCompoundTransformWithBTROffset(matrixWith(2));
    return info;
}

// Makes an info that has only a block transform, which moves the item by x.
inline GxapSelectedEntInfo* makeInfoMovedBy(double x) {
    GxapSelectedEntInfo* info = makeInfo();
    info->setCompoundTransformWithBTROffset(matrixMovedBy(x));
    return info;
}

// Returns the part index of each path. A null path counts as -1.
inline std::vector<std::int64_t> indicesOf(const SegmentArray& paths) {
    std::vector<std::int64_t> indices;
    for (int i = 0; i < paths.logicalLength(); ++i)
        indices.push_back(paths.at(i) ? paths.at(i)->subentId().index : -1);
    return indices;
}

// ---- records in sets

inline unsigned long addressOf(const Store::Slot* slot) {
    return setinvariants::slotAddress(slot);
}

// Returns the slot that an index entry names.
inline Store::Slot* slotOf(SSetData::DataMap::const_iterator entry) {
    return reinterpret_cast<Store::Slot*>(entry->second);
}

// Appends a new record to store and index. The data must not be shared.
inline selected_entity& addRecord(SSetData& data, GxDbObjectId mainId, GxDbObjectId subId = GxDbObjectId(),
                                  long marker = -1) {
    auto* record = new selected_entity;
    record->mainEntId = mainId;
    record->subEntId = subId;
    record->gsMarker = marker;
    if (!data.entities)
        data.entities = new Store;
    data.dataMap.emplace(mainId, addressOf(data.entities->append(record)));
    ++data.entityCount;
    return *record;
}

inline selected_entity& addRecord(GxapSelectSet& set, GxDbObjectId mainId,
                                  GxDbObjectId subId = GxDbObjectId(), long marker = -1) {
    return addRecord(*set.sharedData, mainId, subId, marker);
}

// Adds one record for each of the ids id(1) to id(count).
inline void addRecords(GxapSelectSet& set, unsigned long count) {
    for (unsigned long n = 1; n <= count; ++n)
        addRecord(set, id(n));
}

inline std::vector<Store::Slot*> occupiedSlots(const SSetData& data) {
    return occupiedSlots(*data.entities);
}

inline selected_entity* recordAt(const SSetData& data, std::size_t position) {
    return occupiedSlots(data).at(position)->value;
}

inline selected_entity* recordAt(const GxapSelectSet& set, std::size_t position) {
    return recordAt(*set.sharedData, position);
}

inline Store::Page* pageOf(const Store& store, const Store::Slot* slot) {
    for (Store::Page* page = store.head; page; page = page->next) {
        if (slot >= page->slots && slot < page->fillEnd)
            return page;
    }
    return nullptr;
}

// Puts null into the slot at this position, as a caller of the library may do. Returns the record of the
// slot. The index entry stays.
inline std::unique_ptr<selected_entity> takeRecordOut(GxapSelectSet& set, std::size_t position) {
    Store::Slot* slot = occupiedSlots(*set.sharedData).at(position);
    return std::unique_ptr<selected_entity>(std::exchange(slot->value, nullptr));
}

// Frees the slot at this position without changing the index. Returns the record of the slot.
inline std::unique_ptr<selected_entity> freeSlot(GxapSelectSet& set, std::size_t position,
                                                 bool freeEmptyPage) {
    Store& store = *set.sharedData->entities;
    Store::Slot* slot = occupiedSlots(*set.sharedData).at(position);
    std::unique_ptr<selected_entity> record(slot->value);
    store.removeSlot(slot, pageOf(store, slot), freeEmptyPage);
    return record;
}

// Removes a record from store, index and count, and returns it.
inline std::unique_ptr<selected_entity> removeRecord(GxapSelectSet& set, std::size_t position) {
    SSetData& data = *set.sharedData;
    const unsigned long address = addressOf(occupiedSlots(data).at(position));
    for (auto entry = data.dataMap.begin(); entry != data.dataMap.end(); ++entry) {
        if (entry->second == address) {
            data.dataMap.erase(entry);
            break;
        }
    }
    --data.entityCount;
    return freeSlot(set, position, true);
}

// Removes every record of the first page, and the index entries of these records. The page stays in the
// chain. The store must have several pages.
inline std::vector<std::unique_ptr<selected_entity>> emptyFirstPageInPlace(GxapSelectSet& set) {
    SSetData& data = *set.sharedData;
    Store::Page* const page = data.entities->head;
    std::vector<std::unique_ptr<selected_entity>> records;
    for (Store::Slot* slot = page->slots; slot < page->fillEnd; ++slot) {
        records.emplace_back(slot->value);
        data.entities->removeSlot(slot, page, false);
    }
    data.dataMap.clear();
    for (Store::Slot* slot : occupiedSlots(data))
        data.dataMap.emplace(slot->value->mainEntId, addressOf(slot));
    data.entityCount = static_cast<std::uint32_t>(data.dataMap.size());
    return records;
}

// Rebuilds the index in reverse: entries with equal ids are in the reverse of the store order.
inline void reverseIndex(SSetData& data) {
    data.dataMap.clear();
    const auto slots = occupiedSlots(data);
    for (auto slot = slots.rbegin(); slot != slots.rend(); ++slot)
        data.dataMap.emplace((*slot)->value->mainEntId, addressOf(*slot));
}

// Returns a new set with a clone of this set's data.
inline std::unique_ptr<GxapSelectSet> cloneOf(const GxapSelectSet& set) {
    auto holder = std::make_unique<GxapSelectSet>();
    holder->assignData(set.sharedData->clone());
    return holder;
}

} // namespace kvtest
