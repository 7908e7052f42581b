// Helpers for tests of building an index: stores of records with ids, and the expected index.
#pragma once

#include "selectcontext/detail/SetData.h"
#include "tests/support/Ids.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

namespace kvtest {

using Numbers = std::vector<unsigned long>;

inline Numbers ascending(std::size_t count) {
    Numbers numbers(count);
    std::iota(numbers.begin(), numbers.end(), 1);
    return numbers;
}

inline Numbers shuffled(std::size_t count, unsigned seed) {
    Numbers numbers = ascending(count);
    std::shuffle(numbers.begin(), numbers.end(), std::mt19937(seed));
    return numbers;
}

// Appends records with these ids to the store, without index entries.
inline void fillStore(kvdetail::SSetData& data, const Numbers& numbers) {
    for (const unsigned long n : numbers) {
        auto record = std::make_unique<selected_entity>();
        record->mainEntId = id(n);
        data.entities->append(record.get());
        record.release();
    }
}

// Returns whether the index equals an index into which the records were entered one by one, in store order.
inline ::testing::AssertionResult isIndexed(const kvdetail::SSetData& data) {
    std::multimap<GxDbObjectId, unsigned long> expected;
    kvdetail::forEachOccupied(*data.entities, [&](const kvdetail::Store::Slot* slot) {
        expected.emplace(slot->value->mainEntId, kvdetail::slotAddress(slot));
    });
    const bool isSame =
        std::equal(data.dataMap.begin(), data.dataMap.end(), expected.begin(), expected.end(),
                   [](const auto& entry, const auto& wanted) {
                       return entry.first.stub() == wanted.first.stub() && entry.second == wanted.second;
                   });
    return isSame ? ::testing::AssertionSuccess()
                  : ::testing::AssertionFailure() << "the index does not lead to the records in store order";
}

} // namespace kvtest
