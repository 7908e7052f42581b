// Fills and reads sets in tests.
#pragma once

#include "selectcontext/KvSelectContext.h"
#include "tests/base/StoreSlots.h"
#include "tests/support/Ids.h"
#include "tests/support/KvTest.h"
#include "tests/support/SetInvariants.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace kvtest {

// Expects that no memory and no path is left after the test, and that no vector still shares the empty block.
class SetTest : public KvTest {
protected:
    void SetUp() override {
        KvTest::SetUp();
        expectNothingLeft();
    }
};

constexpr unsigned kPageSlots = 4096;
constexpr std::size_t kPageBytes = 65536;
inline const GxDbObjectId kNoId;

// Returns the set as its editing interface.
inline GxapSSetWriteAccessor& edit(GxapSelectSet& set) {
    return static_cast<GxapSSetWriteAccessor&>(set);
}

// Appends id(first), id(first + 1), ... without sub ids.
inline void appendIds(GxapSelectSet& set, unsigned long first, unsigned long count) {
    for (unsigned long n = first; n < first + count; ++n)
        edit(set).append(id(n), GxDbObjectId());
}

// Returns n for id(n).
inline unsigned long numberOf(const GxDbObjectId& fabricated) {
    return static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(fabricated.stub())) / 16;
}

// Returns n if the iterator is on a record with the main id id(n). Returns 0 if the iterator is on no record.
inline unsigned long at(const GxapSelectSet::ConstIterator& it) {
    return numberOf(it.mainEntId());
}

// A set of id(1) ... id(count).
class Filled {
public:
    using Store = GxapSelectSet::SSetData::Store;

    explicit Filled(unsigned long count) { appendIds(set, 1, count); }
    Store& store() const { return *set.sharedData->entities; }
    Store::Slot* slot(unsigned i) const { return store().head->slots + i; }

    GxapSelectSet set;
};

// Returns the main ids of the records in store order, without using the library's iterators.
inline std::vector<unsigned long> mainIds(const GxapSelectSet& set) {
    std::vector<unsigned long> ids;
    if (!set.sharedData || !set.sharedData->entities)
        return ids;
    for (const auto* slot : occupiedSlots(*set.sharedData->entities)) {
        if (slot->value)
            ids.push_back(numberOf(slot->value->mainEntId));
    }
    return ids;
}

inline std::vector<unsigned long> idRange(unsigned long first, unsigned long count) {
    std::vector<unsigned long> ids;
    for (unsigned long n = first; n < first + count; ++n)
        ids.push_back(n);
    return ids;
}

inline std::uint32_t count(const GxapSelectSet& set) {
    return set.sharedData->entityCount;
}

inline int registrations(const GxapSelectSet& set) {
    return set.iterators.logicalLength();
}

inline bool isRegistered(const GxapSelectSet& set, const GxapSelectSet::ConstIterator& it) {
    for (int i = 0; i < set.iterators.logicalLength(); ++i) {
        if (set.iterators.at(i) == &it)
            return true;
    }
    return false;
}

inline std::uint32_t owners(const GxapSelectSet& set) {
    return set.sharedData->refCount.load();
}

// Keeps the present data of a set alive while the object lives, even if the set gets other data.
class DataHold {
public:
    explicit DataHold(const GxapSelectSet& set) : mData(set.sharedData) { mData->addRef(); }
    DataHold(const DataHold&) = delete;
    DataHold& operator=(const DataHold&) = delete;
    ~DataHold() { mData->delRef(); }

private:
    const GxapSelectSet::SSetData* mData;
};

// Removes id(first), id(first + 1), ... from private data. Also deletes the records, which the library leaves
// to the caller.
inline void takeOutIds(GxapSelectSet& set, unsigned long first, unsigned long count) {
    std::vector<std::unique_ptr<selected_entity>> records;
    for (const auto* slot : occupiedSlots(*set.sharedData->entities)) {
        if (slot->value && numberOf(slot->value->mainEntId) - first < count)
            records.emplace_back(slot->value);
    }
    for (unsigned long n = first; n < first + count; ++n)
        edit(set).remove(id(n));
}

} // namespace kvtest
