// Checks the invariants of a selection set. The invariants hold between two operations.
#pragma once

#include "selectcontext/GxapSelectSet.h"
#include "tests/base/Invariants.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <vector>

namespace kvtest {

// Whether an index may lack entries. A removal by main and sub id erases every index entry of the main id,
// also the entries of records that stay.
enum class IndexState { kComplete, kMayLackEntries };

namespace setinvariants {

using Store = GxapSelectSet::SSetData::Store;

struct StoredRecord {
    const selected_entity* record;
    std::size_t ordinal; // position in store order
};
using StoredRecords = std::map<unsigned long, StoredRecord>; // by slot address

inline unsigned long slotAddress(const Store::Slot* slot) {
    return static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(slot));
}

inline StoredRecords storedRecords(const Store& store) {
    StoredRecords records;
    std::size_t ordinal = 0;
    for (const Store::Page* page = store.head; page; page = page->next) {
        for (const Store::Slot* slot = page->slots; slot < page->fillEnd; ++slot) {
            if (!slot->free)
                records.emplace(slotAddress(slot), StoredRecord{slot->value, ordinal++});
        }
    }
    return records;
}

// Returns whether the index has one entry for each record, under the record's main id. Entries of one id must
// be in store order. Store order is also the order of insertion, because records are only appended.
inline ::testing::AssertionResult indexMatches(const GxapSelectSet::SSetData& data, StoredRecords records,
                                               IndexState state) {
    using ::testing::AssertionFailure;
    const GxDbObjectId* previousKey = nullptr;
    std::size_t previousOrdinal = 0;
    for (const auto& entry : data.dataMap) {
        const auto found = records.find(entry.second);
        if (found == records.end())
            return AssertionFailure()
                   << "an index entry names no occupied slot, or one that another entry names";
        const StoredRecord stored = found->second;
        records.erase(found);
        if (!stored.record)
            return AssertionFailure() << "an index entry names a slot without a record";
        if (stored.record->mainEntId != entry.first)
            return AssertionFailure() << "record " << stored.ordinal << " is indexed under another main id";
        if (previousKey && *previousKey == entry.first && stored.ordinal < previousOrdinal)
            return AssertionFailure() << "records " << previousOrdinal << " and " << stored.ordinal
                                      << " of one main id are indexed in the wrong order";
        previousKey = &entry.first;
        previousOrdinal = stored.ordinal;
    }
    if (state == IndexState::kComplete && !records.empty())
        return AssertionFailure() << records.size() << " records are not indexed";
    return ::testing::AssertionSuccess();
}

inline ::testing::AssertionResult registryIsSound(const GxapSelectSet& set) {
    using ::testing::AssertionFailure;
    const auto& registry = set.iterators;
    const ::testing::AssertionResult sound = invariants(registry);
    if (!sound)
        return sound;
    for (int i = 0; i < registry.logicalLength(); ++i) {
        const GxapSelectSet::ConstIterator* it = registry.at(i);
        if (!it)
            return AssertionFailure() << "entry " << i << " of the registry is null";
        if (it->set != &set)
            return AssertionFailure() << "the registered iterator " << i << " walks another set";
        for (int j = 0; j < i; ++j) {
            if (registry.at(j) == it)
                return AssertionFailure() << "one iterator is registered as " << j << " and as " << i;
        }
    }
    return ::testing::AssertionSuccess();
}

} // namespace setinvariants

inline ::testing::AssertionResult invariants(const GxapSelectSet& set,
                                             IndexState state = IndexState::kComplete) {
    using ::testing::AssertionFailure;
    const ::testing::AssertionResult registry = setinvariants::registryIsSound(set);
    if (!registry)
        return registry;
    const GxapSelectSet::SSetData* data = set.sharedData;
    if (!data)
        return ::testing::AssertionSuccess();
    if (data->refCount.load() == 0)
        return AssertionFailure() << "the data of a set has no owner";
    if (!data->entities)
        return AssertionFailure() << "the data has no store";
    const ::testing::AssertionResult store = invariants(*data->entities);
    if (!store)
        return store;
    setinvariants::StoredRecords records = setinvariants::storedRecords(*data->entities);
    if (records.size() != data->entityCount)
        return AssertionFailure() << "entityCount is " << data->entityCount << " but " << records.size()
                                  << " slots are occupied";
    return setinvariants::indexMatches(*data, std::move(records), state);
}

} // namespace kvtest
