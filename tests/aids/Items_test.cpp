#include "aids/Items.h"

#include "tests/aids/AidsTest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <numeric>
#include <utility>

namespace {

using kvtest::appendIds;
using kvtest::count;
using kvtest::edit;
using kvtest::Filled;
using kvtest::id;
using kvtest::idRange;
using kvtest::kNoId;
using kvtest::kPageSlots;
using kvtest::numberOf;
using kvtest::owners;
using kvtest::registrations;
using kvtest::takeOutIds;

using Numbers = std::vector<unsigned long>;

class Items : public kvtest::SetTest {
protected:
    static Numbers walked(const GxapSelectSet& set) {
        Numbers numbers;
        for (const selected_entity& item : kv::items(set))
            numbers.push_back(numberOf(item.mainEntId));
        return numbers;
    }
};

TEST_F(Items, AreThoseOfTheSetInItsOrder) {
    Filled filled(3);
    EXPECT_EQ(walked(filled.set), idRange(1, 3));
}

TEST_F(Items, OfAnEmptySetAreNone) {
    const GxapSelectSet set;
    EXPECT_TRUE(kv::items(set).empty());
    EXPECT_EQ(walked(set), Numbers());
}

TEST_F(Items, OfASetWithoutDataAreNone) {
    GxapSelectSet set;
    set.releaseData();
    EXPECT_TRUE(kv::items(set).empty());
    EXPECT_EQ(set.sharedData, nullptr) << "reading makes no data";
}

TEST_F(Items, OfACopyAreThoseOfTheSet) {
    const Filled filled(3);
    const GxapSelectSet copy(filled.set);
    EXPECT_EQ(walked(copy), idRange(1, 3));
}

TEST_F(Items, LieOnSeveralPages) {
    const Filled filled(2 * kPageSlots + 1);
    EXPECT_EQ(walked(filled.set), idRange(1, 2 * kPageSlots + 1));
}

TEST_F(Items, AreNotThoseThatWereRemoved) {
    Filled filled(5);
    takeOutIds(filled.set, 1, 1);
    takeOutIds(filled.set, 3, 1);
    takeOutIds(filled.set, 5, 1);
    EXPECT_EQ(walked(filled.set), (Numbers{2, 4}));
}

TEST_F(Items, AreNotOnAPageThatWasEmptiedInPlace) {
    Filled filled(kPageSlots + 2);
    const auto records = kvtest::emptyFirstPageInPlace(filled.set);
    EXPECT_EQ(walked(filled.set), idRange(kPageSlots + 1, 2));
}

TEST_F(Items, AreNotInSlotsWithoutARecord) {
    Filled filled(3);
    const auto first = kvtest::takeRecordOut(filled.set, 0);
    const auto last = kvtest::takeRecordOut(filled.set, 2);
    EXPECT_EQ(walked(filled.set), Numbers{2});
}

TEST_F(Items, AreWalkedByStandardAlgorithms) {
    const Filled filled(9);
    const kv::ItemRange range = kv::items(filled.set);
    const auto isFour = [](const selected_entity& item) { return item.mainEntId == id(4); };
    EXPECT_EQ(std::distance(range.begin(), std::find_if(range.begin(), range.end(), isFour)), 3);
    const auto sum = [](unsigned long total, const selected_entity& item) {
        return total + numberOf(item.mainEntId);
    };
    EXPECT_EQ(std::accumulate(range.begin(), range.end(), 0UL, sum), 45U);
    EXPECT_TRUE(
        std::is_sorted(range.begin(), range.end(), [](const selected_entity& a, const selected_entity& b) {
            return a.mainEntId < b.mainEntId;
        }));
}

TEST_F(Items, MayBeWalkedTwice) {
    const Filled filled(2);
    const kv::ItemRange range = kv::items(filled.set);
    auto it = range.begin();
    const auto before = it++;
    EXPECT_EQ(before->mainEntId, id(1));
    EXPECT_EQ(it->mainEntId, id(2));
    EXPECT_EQ(before, range.begin());
    EXPECT_EQ(++it, range.end());
}

TEST_F(Items, RegisterNothing) {
    const Filled filled(3);
    for (const selected_entity& item : kv::items(filled.set)) {
        (void)item;
        EXPECT_EQ(registrations(filled.set), 0);
    }
}

TEST_F(Items, AllocateNothing) {
    const Filled filled(3);
    const kvtest::AllocationCount allocations;
    walked(filled.set).clear();
    const long ofTheVector = 3; // the numbers grow three times
    EXPECT_EQ(allocations.newCalls(), ofTheVector);
    EXPECT_EQ(allocations.mallocCalls(), 0);
}

TEST_F(Items, StayTheSameIfTheSetIsEditedDuringTheWalk) {
    Filled filled(3);
    Numbers numbers;
    for (const selected_entity& item : kv::items(filled.set)) {
        numbers.push_back(numberOf(item.mainEntId));
        appendIds(filled.set, 10 + numbers.size(), 1);
    }
    EXPECT_EQ(numbers, idRange(1, 3));
    EXPECT_EQ(walked(filled.set), (Numbers{1, 2, 3, 11, 12, 13}));
}

TEST_F(Items, StayReadableIfTheSetIsClearedDuringTheWalk) {
    Filled filled(kPageSlots + 1);
    Numbers numbers;
    for (const selected_entity& item : kv::items(filled.set)) {
        edit(filled.set).clear();
        numbers.push_back(numberOf(item.mainEntId));
    }
    EXPECT_EQ(numbers, idRange(1, kPageSlots + 1));
    EXPECT_EQ(count(filled.set), 0U);
}

TEST_F(Items, StayReadableIfTheSetIsDestroyedDuringTheWalk) {
    auto filled = std::make_unique<Filled>(3);
    Numbers numbers;
    for (const selected_entity& item : kv::items(filled->set)) {
        filled.reset();
        numbers.push_back(numberOf(item.mainEntId));
    }
    EXPECT_EQ(numbers, idRange(1, 3));
}

TEST_F(Items, AreOwnedByEachCopyOfTheRange) {
    const Filled filled(2);
    kv::ItemRange range = kv::items(filled.set);
    EXPECT_EQ(owners(filled.set), 2U);
    kv::ItemRange copy(range);
    EXPECT_EQ(owners(filled.set), 3U);
    kv::ItemRange moved(std::move(range));
    EXPECT_EQ(owners(filled.set), 3U);
    copy = kv::ItemRange();
    EXPECT_EQ(owners(filled.set), 2U);
    EXPECT_TRUE(copy.empty());
    EXPECT_EQ(std::distance(moved.begin(), moved.end()), 2);
}

TEST_F(Items, LeaveTheDataPrivateAfterTheWalk) {
    Filled filled(2);
    const auto* const data = filled.set.sharedData;
    walked(filled.set);
    appendIds(filled.set, 3, 1);
    EXPECT_EQ(filled.set.sharedData, data) << "the edit copied nothing";
}

} // namespace
