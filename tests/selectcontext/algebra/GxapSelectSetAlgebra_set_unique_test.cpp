#include "tests/selectcontext/support/EditTestSupport.h"

#include <gtest/gtest.h>

#include <utility>

namespace {

using kvtest::count;
using kvtest::edit;
using kvtest::id;
using kvtest::invariants;
using kvtest::isLiveRecord;
using kvtest::isRegistered;
using kvtest::items;
using kvtest::Items;
using kvtest::kPageSlots;
using kvtest::owners;
using kvtest::pages;
using kvtest::plainItems;
using kvtest::record;
using kvtest::SetOf;
using kvtest::shareData;
using kvtest::Unique;

using ConstIterator = GxapSelectSet::ConstIterator;

class SetUnique : public kvtest::EditTest {};
class SetUniqueOn : public kvtest::EditTest {};

void setUnique(GxapSelectSet& set, bool on) {
    edit(set).setUnique(on);
    EXPECT_TRUE(invariants(set));
}

// --- the flag `unique`

TEST_F(SetUnique, SetsTheFlag) {
    GxapSelectSet set;
    setUnique(set, false);
    EXPECT_FALSE(set.sharedData->unique);
    setUnique(set, true);
    EXPECT_TRUE(set.sharedData->unique);
}

TEST_F(SetUnique, CreatesMissingData) {
    GxapSelectSet set;
    set.releaseData();
    setUnique(set, true);
    ASSERT_NE(set.sharedData, nullptr);
    EXPECT_TRUE(set.sharedData->unique);
    set.releaseData();
    setUnique(set, false);
    ASSERT_NE(set.sharedData, nullptr);
    EXPECT_FALSE(set.sharedData->unique);
}

TEST_F(SetUnique, ToItsOwnValueLeavesSharedDataShared) {
    for (const Unique unique : {Unique::kOn, Unique::kOff}) {
        SetOf s({{1}, {1, 5}}, unique);
        const GxapSelectSet sharer(s.set);
        const ConstIterator it = s.set.begin();
        setUnique(s.set, unique == Unique::kOn);
        EXPECT_TRUE(shareData(s.set, sharer));
        EXPECT_EQ(items(s.set), (Items{{1}, {1, 5}}));
        EXPECT_EQ(kvtest::at(it), 1u);
    }
}

TEST_F(SetUnique, ToTrueWhereItIsOnKeepsItemsOfOneEntity) {
    SetOf s{{1, 1}, {1, 2}, {1, 1, 5}};
    setUnique(s.set, true);
    EXPECT_EQ(count(s.set), 3u);
}

TEST_F(SetUnique, ChangesSharedDataInACopy) {
    for (const Unique unique : {Unique::kOn, Unique::kOff}) {
        SetOf s({{1}, {2}}, unique);
        const GxapSelectSet sharer(s.set);
        const ConstIterator mine = s.set.begin(), theirs = sharer.begin();
        setUnique(s.set, unique != Unique::kOn);
        EXPECT_EQ(s.data().unique, unique != Unique::kOn);
        EXPECT_EQ(sharer.sharedData->unique, unique == Unique::kOn);
        EXPECT_EQ(owners(sharer), 1u);
        EXPECT_EQ(items(s.set), items(sharer));
        EXPECT_EQ(mine.truckerIterator, nullptr);
        EXPECT_EQ(kvtest::at(theirs), 1u);
    }
}

TEST_F(SetUnique, ChangesTheSharedDataOfAnEmptySetInACopy) {
    SetOf s({}, Unique::kOff);
    const GxapSelectSet sharer(s.set);
    setUnique(s.set, true);
    EXPECT_FALSE(shareData(s.set, sharer));
    EXPECT_TRUE(s.data().unique);
    EXPECT_FALSE(sharer.sharedData->unique);
}

TEST_F(SetUnique, OffLeavesTheItems) {
    SetOf s{{1, 1}, {1, 2}, {2}};
    const auto* data = s.set.sharedData;
    const ConstIterator it = s.set.iteratorAt(1);
    setUnique(s.set, false);
    EXPECT_EQ(s.set.sharedData, data);
    EXPECT_EQ(items(s.set), (Items{{1, 1}, {1, 2}, {2}}));
    EXPECT_TRUE(isRegistered(s.set, it));
    EXPECT_TRUE(it.subEntId() == id(2));
}

TEST_F(SetUnique, OffDoesNotRepairTheIndex) {
    SetOf s{{1, 1}, {1, 2}, {2}};
    edit(s.set).remove(id(1), id(1));
    edit(s.set).setUnique(false);
    EXPECT_EQ(s.set.find(id(1)), -1);
    EXPECT_EQ(count(s.set), 2u);
}

TEST_F(SetUnique, KeepsTheNestedMode) {
    SetOf s({{1}, {1}}, Unique::kOff);
    edit(s.set).setSelectByNestedMode(true);
    setUnique(s.set, true);
    EXPECT_TRUE(s.set.isSelectByNestedMode());
}

TEST_F(SetUnique, GovernsWhatIsSelectedNext) {
    SetOf s{{1}};
    setUnique(s.set, false);
    kvtest::select(s.set, {1});
    EXPECT_EQ(count(s.set), 2u);
    setUnique(s.set, true);
    kvtest::select(s.set, {1});
    EXPECT_EQ(count(s.set), 1u);
    kvtest::select(s.set, {1, 5});
    EXPECT_EQ(count(s.set), 2u);
}

// --- switching `unique` on

TEST_F(SetUniqueOn, KeepsTheFirstItemOfEachEntity) {
    SetOf s({{5, 1}, {5, 2}, {6, 1}}, Unique::kOff);
    setUnique(s.set, true);
    EXPECT_EQ(items(s.set), (Items{{5, 1}, {6, 1}}));
    EXPECT_EQ(count(s.set), 2u);
    setUnique(s.set, false);
    EXPECT_EQ(items(s.set), (Items{{5, 1}, {6, 1}}));
}

TEST_F(SetUniqueOn, LooksAtTheMainIdAlone) {
    SetOf s({{1, 2, 3, {7}, 1.5},
             {1, 9, 3, {7}, 1.5},
             {1, 2, 9, {7}, 1.5},
             {1, 2, 3, {8}, 1.5},
             {1, 2, 3, {7}, 2.5}},
            Unique::kOff);
    setUnique(s.set, true);
    EXPECT_EQ(items(s.set), (Items{{1, 2, 3, {7}, 1.5}}));
}

TEST_F(SetUniqueOn, KeepsTheOrder) {
    SetOf s({{9}, {2}, {9, 1}, {5}, {2, 1}, {1}, {5, 5}}, Unique::kOff);
    setUnique(s.set, true);
    EXPECT_EQ(items(s.set), (Items{{9}, {2}, {5}, {1}}));
}

TEST_F(SetUniqueOn, GoesByStoreOrderNotByTheIndex) {
    SetOf s({{1, 1}, {1, 2}}, Unique::kOff);
    kvtest::reverseIndex(s.data());
    setUnique(s.set, true);
    EXPECT_EQ(items(s.set), (Items{{1, 1}}));
}

TEST_F(SetUniqueOn, LeavesTheSurvivorsWhereTheyAre) {
    SetOf s({{1}, {1, 1}, {2}}, Unique::kOff);
    const selected_entity *first = record(s.set, 0), *last = record(s.set, 2);
    setUnique(s.set, true);
    EXPECT_EQ(s.store().head->slots[0].value, first);
    EXPECT_EQ(s.store().head->slots[1].free, 1);
    EXPECT_EQ(s.store().head->slots[2].value, last);
    EXPECT_EQ(s.set.find(id(2)), 1);
}

TEST_F(SetUniqueOn, LeavesTheRemovedRecordsUnreleased) {
    SetOf s({{1}, {1, 5, 6, {7}, 1.5}, {2}}, Unique::kOff);
    const selected_entity* removed = record(s.set, 1);
    setUnique(s.set, true);
    ASSERT_TRUE(isLiveRecord(removed));
    EXPECT_EQ(kvtest::itemOf(*removed), (kvtest::Item{1, 5, 6, {7}, 1.5}));
    EXPECT_EQ(leftRecords({&s.set}), 1u);
}

TEST_F(SetUniqueOn, LeavesTheRemovedRecordsOfACopyUnreleased) {
    SetOf s({{1}, {1, 5}, {2}}, Unique::kOff);
    const GxapSelectSet sharer(s.set);
    setUnique(s.set, true);
    EXPECT_EQ(items(s.set), plainItems(1, 2));
    EXPECT_EQ(items(sharer), (Items{{1}, {1, 5}, {2}}));
    EXPECT_TRUE(invariants(sharer));
    EXPECT_EQ(leftRecords({&s.set, &sharer}), 1u);
}

TEST_F(SetUniqueOn, ComparesIdsAsThePlatformDoes) {
    kvinmemory::makeEqual(id(1), id(2));
    SetOf s({{2}, {3}, {1}}, Unique::kOff);
    setUnique(s.set, true);
    EXPECT_EQ(items(s.set), plainItems(2, 2));
}

TEST_F(SetUniqueOn, KnowsAnObjectByEachOfItsIdsAgainAndAgain) {
    SetOf s({{5}, {2, 1}, {5, 1}, {2, 2}, {5, 2}, {2, 3}, {3}}, Unique::kOff);
    kvinmemory::makeEqual(id(2), id(5));
    edit(s.set).updateDataMap();
    setUnique(s.set, true);
    EXPECT_EQ(items(s.set), (Items{{5}, {3}}));
}

TEST_F(SetUniqueOn, IndexesAgainWhatWasLost) {
    SetOf s({{1, 1}, {1, 2}, {2}, {1, 3}}, Unique::kOff);
    edit(s.set).remove(id(1), id(1));
    ASSERT_EQ(s.set.find(id(1)), -1);
    setUnique(s.set, true);
    EXPECT_EQ(items(s.set), (Items{{1, 2}, {2}}));
    EXPECT_EQ(s.set.find(id(1)), 0);
}

TEST_F(SetUniqueOn, CountsAnew) {
    SetOf s({{1}, {2}, {1, 1}}, Unique::kOff);
    s.data().entityCount = 9;
    setUnique(s.set, true);
    EXPECT_EQ(count(s.set), 2u);
}

TEST_F(SetUniqueOn, DropsEntriesWithoutASlot) {
    SetOf s({{1}, {2}}, Unique::kOff);
    s.data().dataMap.emplace(id(7), 0);
    setUnique(s.set, true);
    EXPECT_EQ(s.data().dataMap.size(), 2u);
}

TEST_F(SetUniqueOn, PassesOverNullRecords) {
    SetOf s({{1}, {1, 2}, {2}, {1, 3}}, Unique::kOff);
    const auto taken = kvtest::takeRecordOut(s.set, 0);
    edit(s.set).setUnique(true);
    EXPECT_EQ(items(s.set), (Items{{1, 2}, {2}}));
    EXPECT_EQ(s.data().dataMap.size(), 2u);
    EXPECT_EQ(s.data().entityCount, 3u) << "the slot without a record is still occupied";
}

TEST_F(SetUniqueOn, StopsWhereTheSetCountsAsEmpty) {
    SetOf s({{1}, {1, 2}}, Unique::kOff);
    s.data().entityCount = 0;
    edit(s.set).setUnique(true);
    EXPECT_TRUE(s.data().unique);
    EXPECT_EQ(items(s.set).size(), 2u);
    EXPECT_EQ(s.data().dataMap.size(), 2u);
}

TEST_F(SetUniqueOn, LeavesIteratorsOnPrivateDataInPlace) {
    SetOf s({{1}, {1, 1}, {2}}, Unique::kOff);
    const ConstIterator last = s.set.iteratorAt(2), doomed = s.set.iteratorAt(1);
    setUnique(s.set, true);
    EXPECT_EQ(kvtest::at(last), 2u);
    EXPECT_TRUE(isRegistered(s.set, last) && isRegistered(s.set, doomed));
    kvtest::expectMessage([&] { doomed.get(); }, kvtest::kAccessError);
}

TEST_F(SetUniqueOn, GoesAcrossPages) {
    Items held = plainItems(1, kPageSlots);
    held.push_back({1, 5});
    held.push_back({9000});
    held.push_back({kPageSlots, 5});
    SetOf s(held, Unique::kOff);
    setUnique(s.set, true);
    EXPECT_EQ(count(s.set), kPageSlots + 1);
    EXPECT_EQ(s.set.find(id(9000)), static_cast<int>(kPageSlots));
    EXPECT_EQ(s.store().tail->liveCount, 1u);
}

TEST_F(SetUniqueOn, ReleasesThePagesThatItEmpties) {
    Items held = plainItems(1, kPageSlots);
    const Items again = plainItems(1, kPageSlots);
    held.insert(held.end(), again.begin(), again.end());
    held.push_back({9000});
    SetOf s(held, Unique::kOff);
    ASSERT_EQ(pages(s.set), 3u);
    setUnique(s.set, true);
    EXPECT_EQ(pages(s.set), 2u);
    EXPECT_EQ(count(s.set), kPageSlots + 1);
    EXPECT_EQ(s.set.find(id(9000)), static_cast<int>(kPageSlots));
}

TEST_F(SetUniqueOn, ReleasesAnEmptiedTailAndAppendsOn) {
    Items held = plainItems(1, kPageSlots);
    held.push_back({1});
    SetOf s(held, Unique::kOff);
    setUnique(s.set, true);
    EXPECT_EQ(pages(s.set), 1u);
    kvtest::select(s.set, {9000});
    EXPECT_EQ(pages(s.set), 2u);
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(SetUniqueOn, WalksOverAPageWithoutOccupiedSlots) {
    Items held = plainItems(1, kPageSlots + 1);
    held.push_back({kPageSlots + 1, 5});
    SetOf s(held, Unique::kOff);
    const auto taken = kvtest::emptyFirstPageInPlace(s.set);
    setUnique(s.set, true);
    EXPECT_EQ(items(s.set), plainItems(kPageSlots + 1, 1));
}

} // namespace
