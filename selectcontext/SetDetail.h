// What the sources of the library share about a set's data.
#pragma once

#include "selectcontext/GxapSelectSet.h"
#include "selectcontext/IndexCursor.h"
#include "selectcontext/OwnedInfo.h"

#include <memory>

namespace kvdetail {

using SSetData = GxapSelectSet::SSetData;
using DataMap = SSetData::DataMap;
using Store = SSetData::Store;

// An index entry's value is the address of the record's slot.
inline unsigned long slotAddress(const Store::Slot* slot) noexcept {
    return reinterpret_cast<unsigned long>(slot);
}

inline Store::Slot* slotAt(unsigned long address) noexcept {
    return reinterpret_cast<Store::Slot*>(address);
}

// Null for an entry without a slot of the store, and for a slot into which a caller has put null. O(1).
inline selected_entity* recordAt(const Store& store, unsigned long address) noexcept {
    const Store::Slot* const slot = slotAt(address);
    return store.pageOf(slot) ? slot->value : nullptr;
}

// The set has data, and items in it. Almost every operation asks this first.
inline bool hasItems(const GxapSelectSet& set) noexcept {
    return set.sharedData && set.sharedData->entityCount != 0;
}

// Data as a fresh set has it: unique, empty, with a store of its own, held by nobody yet.
std::unique_ptr<SSetData> makeData();

// The set's data, made first where there is none; for const operations that may have to create it.
SSetData& dataOf(const GxapSelectSet& set);

// A record from the memory of data that nobody shares.
std::unique_ptr<selected_entity> newRecord(const SSetData& data);

// Appends the record to store and index, with the count left to the caller, and returns its entry. All or
// nothing. `runEnd` is the place behind the entries of the record's id.
DataMap::const_iterator appendRecord(SSetData& data, std::unique_ptr<selected_entity> record,
                                     DataMap::const_iterator runEnd);

// The entries of an id in the index.
struct Run {
    DataMap::const_iterator first; // or where it would be
    bool isHeld;
};

Run runOf(const SSetData& data, const GxDbObjectId& id, IndexCursor* cursor = nullptr);

// The same, looking at both ends of the index first: items are often removed from the front on, or from the
// back.
Run runForRemoval(const SSetData& data, const GxDbObjectId& id, IndexCursor* cursor);

// The place behind the entries of the id.
DataMap::const_iterator runEnd(const SSetData& data, const GxDbObjectId& id);

// The entry is one of the id's, given that it is not before them.
inline bool isOfId(const DataMap& map, DataMap::const_iterator entry, const GxDbObjectId& id) {
    return entry != map.end() && !(id < entry->first);
}

// Erases an entry of the index. O(1).
void eraseEntry(SSetData& data, DataMap::const_iterator entry);

// Enters every record of the store into an empty index, in store order.
void indexRecords(SSetData& data);

// Forgets every entry of the index. O(n), O(n / 1000) where all its nodes come from the data's pool.
void clearIndex(SSetData& data) noexcept;

// What a lookup of an item has found.
struct Found {
    DataMap::const_iterator entry; // the end where there is none
    DataMap::const_iterator place; // then the place behind the entries of the id
};

// The first entry of the id's run whose record has that main id and passes `matches`, for data with a store.
template <class Matches>
Found findInRun(const SSetData& data, const GxDbObjectId& mainId, Matches matches, const Run& run) {
    auto [entry, isHeld] = run;
    for (; isHeld; isHeld = isOfId(data.dataMap, ++entry, mainId)) {
        const selected_entity* const record = recordAt(*data.entities, entry->second);
        if (record && record->mainEntId == mainId && matches(*record))
            return {entry, {}};
    }
    return {data.dataMap.end(), entry};
}

// The keys of an item. A null path asks neither for the path nor for the transform of the info.
struct ItemKeys {
    const GxDbObjectId& mainId;
    const GxDbObjectId& subId;
    long gsMarker;
    const KvVector<GxDbObjectId>* path;
};

inline const GxGeMatrix3d* matrixOf(const GxapSelectedEntInfo* info) {
    return info ? info->getBTRMatPtr() : nullptr;
}

// The first entry of an item with these keys in the run of its id, for data with a store; the second form
// asks for the block transform `matrix`, too.
Found findItem(const SSetData& data, const ItemKeys& keys, const Run& run);
Found findItem(const SSetData& data, const ItemKeys& keys, const Run& run, const GxGeMatrix3d* matrix);

// The record, which is one of their main id, is the item of these keys and this transform.
bool isItem(const selected_entity& record, const ItemKeys& keys, const GxGeMatrix3d* matrix);

// Gives a fresh record its keys, and the info. A null path leaves it without one.
void setKeys(selected_entity& record, const ItemKeys& keys, OwnedInfo info);

} // namespace kvdetail
