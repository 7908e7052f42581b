#include "tests/selectcontext/support/EditTestSupport.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>

namespace {

using kvtest::addressOf;
using kvtest::count;
using kvtest::edit;
using kvtest::FleetingSharer;
using kvtest::id;
using kvtest::IndexState;
using kvtest::invariants;
using kvtest::isLiveRecord;
using kvtest::isRegistered;
using kvtest::items;
using kvtest::Items;
using kvtest::kAccessError;
using kvtest::kNoId;
using kvtest::kPageSlots;
using kvtest::owners;
using kvtest::pages;
using kvtest::plainItems;
using kvtest::record;
using kvtest::registrations;
using kvtest::SetOf;
using kvtest::shareData;
using kvtest::Unique;

using ConstIterator = GxapSelectSet::ConstIterator;
using Iterator = GxapSelectSet::Iterator;

class RemoveMain : public kvtest::EditTest {};
class RemoveMainSub : public kvtest::EditTest {};
class RemoveExact : public kvtest::EditTest {};
class RemoveAtIterator : public kvtest::EditTest {};
class RemoveAtPosition : public kvtest::EditTest {};
class RemovePages : public kvtest::EditTest {};
class RemoveIterators : public kvtest::EditTest {};

// Expects the state after a removal from shared data: `set` has its own data, and `other` still has the items
// of `original`.
void expectCopied(const GxapSelectSet& set, const GxapSelectSet& other, const SetOf& original) {
    EXPECT_FALSE(shareData(set, other));
    EXPECT_EQ(owners(set), 1u);
    EXPECT_EQ(owners(other), 1u);
    EXPECT_EQ(items(other), items(original.set));
    EXPECT_TRUE(invariants(other));
}

// --- remove(mainId)

TEST_F(RemoveMain, TakesOutEveryItemOfTheEntity) {
    SetOf s({{1}, {1}, {2}, {1}}, Unique::kOff);
    EXPECT_TRUE(edit(s.set).remove(id(1)));
    EXPECT_EQ(items(s.set), (Items{{2}}));
    EXPECT_EQ(count(s.set), 1u);
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(RemoveMain, LooksAtTheMainIdAlone) {
    SetOf s{{1, 11}, {1, 12, 5}, {1, 11, 6, {7, 1}}, {2, 1}, {1, 11, 6, {}, 3.5}};
    EXPECT_TRUE(edit(s.set).remove(id(1)));
    EXPECT_EQ(items(s.set), (Items{{2, 1}}));
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(RemoveMain, KeepsTheOrderOfTheOthers) {
    SetOf s{{5}, {2}, {9}, {2, 1}, {1}};
    EXPECT_TRUE(edit(s.set).remove(id(2)));
    EXPECT_EQ(items(s.set), (Items{{5}, {9}, {1}}));
    EXPECT_EQ(s.set.find(id(5)), 0);
    EXPECT_EQ(s.set.find(id(9)), 1);
    EXPECT_EQ(s.set.find(id(1)), 2);
}

TEST_F(RemoveMain, MovesNoOtherRecordAndNoOtherEntry) {
    SetOf s{{1}, {2}, {3}};
    const auto first = s.set.findInMap(id(1)), last = s.set.findInMap(id(3));
    const unsigned long firstSlot = first->second, lastSlot = last->second;
    EXPECT_TRUE(edit(s.set).remove(id(2)));
    EXPECT_EQ(s.set.findInMap(id(1)), first);
    EXPECT_EQ(s.set.findInMap(id(3)), last);
    EXPECT_EQ(first->second, firstSlot);
    EXPECT_EQ(last->second, lastSlot);
}

TEST_F(RemoveMain, LeavesAFreeSlotThatNobodyFillsAgain) {
    SetOf s{{1}, {2}, {3}};
    EXPECT_TRUE(edit(s.set).remove(id(2)));
    EXPECT_EQ(s.store().head->slots[1].free, 1);
    EXPECT_EQ(s.store().head->liveCount, 2u);
    kvtest::select(s.set, {4});
    EXPECT_EQ(items(s.set), (Items{{1}, {3}, {4}}));
    EXPECT_EQ(s.store().head->slots[1].free, 1);
}

TEST_F(RemoveMain, LeavesTheRecordsUnreleased) {
    SetOf s{{1}, {2, 1, 3, {7}, 1.5}, {2}};
    const selected_entity *first = record(s.set, 1), *second = record(s.set, 2);
    EXPECT_TRUE(edit(s.set).remove(id(2)));
    ASSERT_TRUE(isLiveRecord(first) && isLiveRecord(second));
    EXPECT_EQ(kvtest::itemOf(*first), (kvtest::Item{2, 1, 3, {7}, 1.5}));
    EXPECT_EQ(leftRecords({&s.set}), 2u);
}

TEST_F(RemoveMain, LeavesTheRecordsUnreleasedWhenTheSetGoes) {
    const selected_entity* removed = nullptr;
    {
        SetOf s{{1}, {2}};
        removed = record(s.set, 0);
        EXPECT_TRUE(edit(s.set).remove(id(1)));
    }
    EXPECT_TRUE(isLiveRecord(removed));
    EXPECT_EQ(leftRecords({}), 1u);
}

TEST_F(RemoveMain, OfANullIdAnswersFalse) {
    SetOf s{{1}, {2}};
    const GxapSelectSet sharer(s.set);
    EXPECT_FALSE(edit(s.set).remove(kNoId));
    EXPECT_TRUE(shareData(s.set, sharer));
    EXPECT_EQ(items(s.set), plainItems(1, 2));
}

TEST_F(RemoveMain, OfAnAbsentIdAnswersFalse) {
    SetOf s{{1}, {3}};
    const GxapSelectSet sharer(s.set);
    EXPECT_FALSE(edit(s.set).remove(id(2)));
    EXPECT_FALSE(edit(s.set).remove(id(4)));
    EXPECT_TRUE(shareData(s.set, sharer));
    EXPECT_EQ(count(s.set), 2u);
}

TEST_F(RemoveMain, FromAnEmptySetAnswersFalse) {
    GxapSelectSet set;
    const GxapSelectSet sharer(set);
    EXPECT_FALSE(edit(set).remove(id(1)));
    EXPECT_TRUE(shareData(set, sharer));
}

TEST_F(RemoveMain, FromASetWithoutDataAnswersFalse) {
    GxapSelectSet set;
    set.releaseData();
    EXPECT_FALSE(edit(set).remove(id(1)));
    EXPECT_EQ(set.sharedData, nullptr);
}

TEST_F(RemoveMain, AnswersFalseWhereTheCountIsZero) {
    SetOf s{{1}};
    s.data().entityCount = 0;
    EXPECT_FALSE(edit(s.set).remove(id(1)));
    EXPECT_EQ(items(s.set), plainItems(1, 1));
}

TEST_F(RemoveMain, AnswersFalseWhereThereIsNoStore) {
    SetOf s{{1}};
    auto* const store = std::exchange(s.data().entities, nullptr);
    EXPECT_FALSE(edit(s.set).remove(id(1)));
    EXPECT_EQ(count(s.set), 1u);
    s.data().entities = store;
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(RemoveMain, CopiesSharedData) {
    const SetOf original{{1}, {2}, {1, 3}};
    SetOf s{{1}, {2}, {1, 3}};
    const GxapSelectSet sharer(s.set);
    EXPECT_TRUE(edit(s.set).remove(id(1)));
    EXPECT_EQ(items(s.set), (Items{{2}}));
    EXPECT_TRUE(invariants(s.set));
    expectCopied(s.set, sharer, original);
    EXPECT_EQ(leftRecords({&s.set, &sharer, &original.set}), 2u);
}

// One slot has no record, and its index entry is still there. The copy of the data lacks the slot and the
// entry. So the copy has no item of the main id.
TEST_F(RemoveMain, CopiesSharedDataAlsoWhereTheCopyHoldsNothingOfTheEntity) {
    SetOf s{{1}, {2}};
    const auto taken = kvtest::takeRecordOut(s.set, 0);
    const GxapSelectSet sharer(s.set);
    EXPECT_FALSE(edit(s.set).remove(id(1)));
    EXPECT_FALSE(shareData(s.set, sharer));
    EXPECT_EQ(items(s.set), plainItems(2, 1));
    EXPECT_EQ(sharer.sharedData->dataMap.count(id(1)), 1u);
}

TEST_F(RemoveMain, OfAnEntryWithoutASlotCopiesSharedData) {
    SetOf s{{2}};
    s.data().dataMap.emplace(id(1), 0);
    const GxapSelectSet sharer(s.set);
    EXPECT_FALSE(edit(s.set).remove(id(1)));
    EXPECT_FALSE(shareData(s.set, sharer));
    EXPECT_EQ(count(s.set), 1u);
}

TEST_F(RemoveMain, WhereTheCountIsZeroCopiesNothing) {
    SetOf s{{1}};
    s.data().entityCount = 0;
    const GxapSelectSet sharer(s.set);
    EXPECT_FALSE(edit(s.set).remove(id(1)));
    EXPECT_FALSE(edit(s.set).remove(id(1), kNoId));
    EXPECT_FALSE(edit(s.set).remove(id(1), kNoId, -1));
    EXPECT_TRUE(shareData(s.set, sharer));
}

TEST_F(RemoveMain, ComparesIdsAsThePlatformDoes) {
    kvinmemory::makeEqual(id(1), id(2));
    SetOf s{{1}, {3}, {2, 1}};
    EXPECT_TRUE(edit(s.set).remove(id(2)));
    EXPECT_EQ(items(s.set), (Items{{3}}));
}

TEST_F(RemoveMain, TakesAnIdThatEqualsTheNullIdForNull) {
    SetOf s{{1}, {2}};
    kvinmemory::makeEqual(kNoId, id(1));
    EXPECT_FALSE(edit(s.set).remove(id(1)));
    EXPECT_EQ(count(s.set), 2u);
}

TEST_F(RemoveMain, TakesAnIdOfItsOwnRecord) {
    SetOf s{{1}, {2}};
    const GxapSelectSet sharer(s.set);
    EXPECT_TRUE(edit(s.set).remove(record(s.set, 0)->mainEntId));
    EXPECT_EQ(items(s.set), (Items{{2}}));
}

TEST_F(RemoveMain, TakesTheKeyOfItsOwnIndex) {
    SetOf s{{1}, {2}, {1, 1}};
    EXPECT_TRUE(edit(s.set).remove(s.data().dataMap.begin()->first));
    EXPECT_EQ(items(s.set), (Items{{2}}));
    EXPECT_TRUE(invariants(s.set));
}

// The argument is a reference into the old data. remove() copies the data, and the old data is destroyed
// meanwhile.
TEST_F(RemoveMain, OutlivesTheDataItsArgumentIsIn) {
    SetOf s{{1}, {2}};
    const GxDbObjectId& inside = record(s.set, 0)->mainEntId;
    const FleetingSharer sharer(s.set);
    EXPECT_TRUE(edit(s.set).remove(inside));
    EXPECT_TRUE(sharer.isGone());
    EXPECT_EQ(items(s.set), (Items{{2}}));
}

TEST_F(RemoveMain, CountsEntriesWithoutASlot) {
    SetOf s{{1}, {2}, {3}};
    const auto freed = kvtest::freeSlot(s.set, 1, true);
    EXPECT_TRUE(edit(s.set).remove(id(2)));
    EXPECT_EQ(count(s.set), 2u);
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(RemoveMain, AnswersTrueForAnEntryWithoutAnAddress) {
    SetOf s{{1}, {2}};
    s.data().dataMap.emplace(id(9), 0);
    EXPECT_TRUE(edit(s.set).remove(id(9)));
    EXPECT_EQ(count(s.set), 1u);
    EXPECT_EQ(s.data().dataMap.count(id(9)), 0u);
    EXPECT_EQ(items(s.set), plainItems(1, 2));
}

TEST_F(RemoveMain, PassesOverAnEntryThatNamesNoSlotOfTheStore) {
    SetOf s{{1}, {2}}, other{{9}};
    s.data().dataMap.emplace(id(9), addressOf(other.store().head->slots));
    EXPECT_TRUE(edit(s.set).remove(id(9)));
    EXPECT_EQ(items(s.set), plainItems(1, 2));
    EXPECT_EQ(items(other.set), plainItems(9, 1));
    EXPECT_TRUE(invariants(other.set));
}

TEST_F(RemoveMain, NeverCountsBelowZero) {
    SetOf s{{1}};
    for (int i = 0; i < 3; ++i)
        s.data().dataMap.emplace(id(9), 0);
    EXPECT_TRUE(edit(s.set).remove(id(9)));
    EXPECT_EQ(count(s.set), 0u);
    EXPECT_EQ(items(s.set), plainItems(1, 1));
}

TEST_F(RemoveMain, FreesASlotThatHoldsANullRecord) {
    SetOf s{{1}, {2}};
    const auto taken = kvtest::takeRecordOut(s.set, 0);
    EXPECT_TRUE(edit(s.set).remove(id(1)));
    EXPECT_EQ(count(s.set), 1u);
    EXPECT_EQ(s.store().head->liveCount, 1u);
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(RemoveMain, KeepsTheFlags) {
    SetOf s({{1}, {2}}, Unique::kOff);
    edit(s.set).setSelectByNestedMode(true);
    EXPECT_TRUE(edit(s.set).remove(id(1)));
    EXPECT_FALSE(s.data().unique);
    EXPECT_TRUE(s.set.isSelectByNestedMode());
}

TEST_F(RemoveMain, AllocatesNothingOnPrivateData) {
    SetOf s{{1}, {2}, {1, 5}};
    const kvtest::AllocationCount since;
    EXPECT_TRUE(edit(s.set).remove(id(1)));
    EXPECT_EQ(since.newCalls(), 0);
    EXPECT_EQ(since.mallocCalls(), 0);
}

TEST_F(RemoveMain, OfTheLastItemLeavesAnEmptySetToBeFilledAgain) {
    SetOf s{{1}};
    EXPECT_TRUE(edit(s.set).remove(id(1)));
    EXPECT_EQ(count(s.set), 0u);
    EXPECT_TRUE(s.data().dataMap.empty());
    EXPECT_EQ(s.store().head, nullptr);
    EXPECT_FALSE(edit(s.set).remove(id(1)));
    kvtest::select(s.set, {1});
    EXPECT_EQ(items(s.set), plainItems(1, 1));
    EXPECT_TRUE(invariants(s.set));
}

// --- remove(mainId, subId)

TEST_F(RemoveMainSub, TakesOutEveryItemOfBothIds) {
    SetOf s{{1, 2}, {3, 2}, {1, 2, 5}, {1, 2, -1, {7}}, {2, 1}};
    EXPECT_TRUE(edit(s.set).remove(id(1), id(2)));
    EXPECT_EQ(items(s.set), (Items{{3, 2}, {2, 1}}));
    EXPECT_EQ(count(s.set), 2u);
    EXPECT_TRUE(invariants(s.set));
    EXPECT_EQ(leftRecords({&s.set}), 3u);
}

TEST_F(RemoveMainSub, TakesTheNullSubIdForAKeyLikeAnyOther) {
    SetOf s{{1}, {1, 2}, {1, 0, 5}};
    EXPECT_TRUE(edit(s.set).remove(id(1), kNoId));
    EXPECT_EQ(items(s.set), (Items{{1, 2}}));
}

TEST_F(RemoveMainSub, DropsTheIndexEntriesOfTheItemsThatStay) {
    SetOf s{{1, 2}, {1, 3}, {2, 2}};
    EXPECT_TRUE(edit(s.set).remove(id(1), id(2)));
    EXPECT_EQ(count(s.set), 2u);
    EXPECT_EQ(items(s.set), (Items{{1, 3}, {2, 2}}));
    EXPECT_EQ(s.data().dataMap.count(id(1)), 0u);
    EXPECT_EQ(s.data().dataMap.count(id(2)), 1u);
    EXPECT_TRUE(invariants(s.set, IndexState::kMayLackEntries));
}

TEST_F(RemoveMainSub, HidesTheItemsThatStayFromEveryLookup) {
    SetOf s{{1, 2}, {1, 3}, {2, 2}};
    EXPECT_TRUE(edit(s.set).remove(id(1), id(2)));
    EXPECT_EQ(s.set.find(id(1)), -1);
    EXPECT_EQ(s.set.find(id(1), id(3)), -1);
    EXPECT_EQ(s.set.find(id(1), id(3), -1), -1);
    EXPECT_TRUE(s.set.findItr(id(1)).isDone());
    EXPECT_FALSE(edit(s.set).remove(id(1)));
    EXPECT_FALSE(edit(s.set).remove(id(1), id(3)));
    EXPECT_FALSE(edit(s.set).remove(id(1), id(3), -1));
    EXPECT_EQ(count(s.set), 2u);
}

TEST_F(RemoveMainSub, LeavesTheItemsThatStayToWalksAndPositions) {
    SetOf s{{1, 2}, {1, 3}, {2, 2}};
    const selected_entity* stays = record(s.set, 1);
    EXPECT_TRUE(edit(s.set).remove(id(1), id(2)));
    EXPECT_EQ(s.set.begin().get(), stays);
    EXPECT_EQ(s.set.getAt(0), stays);
}

TEST_F(RemoveMainSub, LetsTheRebuiltIndexFindThemAgain) {
    SetOf s{{1, 2}, {1, 3}, {2, 2}};
    EXPECT_TRUE(edit(s.set).remove(id(1), id(2)));
    edit(s.set).updateDataMap();
    EXPECT_EQ(s.set.find(id(1)), 0);
    EXPECT_TRUE(invariants(s.set));
    EXPECT_TRUE(edit(s.set).remove(id(1)));
}

TEST_F(RemoveMainSub, OfAnAbsentSubIdKeepsTheIndex) {
    SetOf s{{1, 2}, {1, 3}};
    const GxapSelectSet sharer(s.set);
    EXPECT_FALSE(edit(s.set).remove(id(1), id(4)));
    EXPECT_FALSE(edit(s.set).remove(id(1), kNoId));
    EXPECT_TRUE(shareData(s.set, sharer));
    EXPECT_EQ(count(s.set), 2u);
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(RemoveMainSub, OfBadIdsAnswersFalse) {
    SetOf s{{1, 2}};
    const GxapSelectSet sharer(s.set);
    EXPECT_FALSE(edit(s.set).remove(kNoId, id(2)));
    EXPECT_FALSE(edit(s.set).remove(kNoId, kNoId));
    EXPECT_FALSE(edit(s.set).remove(id(2), id(1)));
    EXPECT_TRUE(shareData(s.set, sharer));
    EXPECT_EQ(items(s.set), (Items{{1, 2}}));
}

TEST_F(RemoveMainSub, FromASetWithNothingAnswersFalse) {
    GxapSelectSet set;
    const GxapSelectSet sharer(set);
    EXPECT_FALSE(edit(set).remove(id(1), id(2)));
    EXPECT_TRUE(shareData(set, sharer));
    set.releaseData();
    EXPECT_FALSE(edit(set).remove(id(1), id(2)));
    EXPECT_EQ(set.sharedData, nullptr);
}

TEST_F(RemoveMainSub, CopiesSharedData) {
    const SetOf original{{1, 2}, {1, 3}, {2}};
    SetOf s{{1, 2}, {1, 3}, {2}};
    const GxapSelectSet sharer(s.set);
    EXPECT_TRUE(edit(s.set).remove(id(1), id(2)));
    EXPECT_EQ(items(s.set), (Items{{1, 3}, {2}}));
    EXPECT_EQ(s.set.find(id(1)), -1);
    EXPECT_EQ(sharer.find(id(1)), 0);
    expectCopied(s.set, sharer, original);
}

TEST_F(RemoveMainSub, ComparesSubIdsAsThePlatformDoes) {
    kvinmemory::makeEqual(id(2), id(3));
    SetOf s{{1, 2}, {1, 3}, {1, 4}};
    EXPECT_TRUE(edit(s.set).remove(id(1), id(3)));
    EXPECT_EQ(items(s.set), (Items{{1, 4}}));
}

TEST_F(RemoveMainSub, DropsAnEntryWithoutASlotUncounted) {
    SetOf s{{1, 2}, {2}};
    s.data().dataMap.emplace(id(1), 0);
    EXPECT_TRUE(edit(s.set).remove(id(1), id(2)));
    EXPECT_EQ(count(s.set), 1u);
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(RemoveMainSub, OfAnEntryWithoutARecordCopiesNothing) {
    SetOf s{{1}, {2}};
    s.data().dataMap.emplace(id(3), 0);
    const auto taken = kvtest::takeRecordOut(s.set, 0);
    const GxapSelectSet sharer(s.set);
    for (const unsigned long n : {1ul, 3ul}) {
        EXPECT_FALSE(edit(s.set).remove(id(n), kNoId));
        EXPECT_FALSE(edit(s.set).remove(id(n), kNoId, -1));
    }
    EXPECT_TRUE(shareData(s.set, sharer));
    EXPECT_EQ(s.data().dataMap.size(), 3u);
}

TEST_F(RemoveMainSub, PassesOverASlotThatHoldsANullRecord) {
    SetOf s{{1, 2}, {1, 2, 5}, {2}};
    const auto taken = kvtest::takeRecordOut(s.set, 0);
    EXPECT_TRUE(edit(s.set).remove(id(1), id(2)));
    EXPECT_EQ(count(s.set), 2u);
    EXPECT_EQ(items(s.set), (Items{{2}}));
    EXPECT_EQ(s.data().dataMap.count(id(1)), 0u);
}

TEST_F(RemoveMainSub, OutlivesTheDataItsArgumentsAreIn) {
    SetOf s{{1, 2}, {3}};
    const selected_entity* inside = record(s.set, 0);
    const FleetingSharer sharer(s.set);
    EXPECT_TRUE(edit(s.set).remove(inside->mainEntId, inside->subEntId));
    EXPECT_TRUE(sharer.isGone());
    EXPECT_EQ(items(s.set), (Items{{3}}));
}

TEST_F(RemoveMainSub, TakesTheKeyOfItsOwnIndex) {
    SetOf s{{1, 1}, {1, 1, 7}, {2}};
    const GxDbObjectId& key = s.data().dataMap.begin()->first;
    EXPECT_TRUE(edit(s.set).remove(key, key));
    EXPECT_EQ(items(s.set), (Items{{2}}));
}

// --- remove(mainId, subId, gsMarker)

TEST_F(RemoveExact, TakesOutTheItemOfAllThreeKeys) {
    SetOf s{{1, 2, 3}, {1, 2, 4}, {1, 3, 4}, {2, 2, 4}};
    EXPECT_TRUE(edit(s.set).remove(id(1), id(2), 4));
    EXPECT_EQ(items(s.set), (Items{{1, 2, 3}, {1, 3, 4}, {2, 2, 4}}));
    EXPECT_EQ(count(s.set), 3u);
    EXPECT_TRUE(invariants(s.set));
    EXPECT_EQ(leftRecords({&s.set}), 1u);
}

TEST_F(RemoveExact, KeepsTheIndexEntriesOfTheOthers) {
    SetOf s{{1, 2, 3}, {1, 2, 4}, {1, 3}};
    EXPECT_TRUE(edit(s.set).remove(id(1), id(2), 3));
    EXPECT_EQ(s.set.find(id(1), id(2), 4), 0);
    EXPECT_EQ(s.set.find(id(1), id(3)), 1);
    EXPECT_EQ(s.data().dataMap.size(), 2u);
}

TEST_F(RemoveExact, TakesOutOneOfEqualItemsAtATime) {
    SetOf s({{1, 2}, {1, 2}, {1, 2}}, Unique::kOff);
    const selected_entity *second = record(s.set, 1), *third = record(s.set, 2);
    EXPECT_TRUE(edit(s.set).remove(id(1), id(2), -1));
    EXPECT_EQ(record(s.set, 0), second);
    EXPECT_TRUE(edit(s.set).remove(id(1), id(2), -1));
    EXPECT_EQ(record(s.set, 0), third);
    EXPECT_TRUE(edit(s.set).remove(id(1), id(2), -1));
    EXPECT_EQ(count(s.set), 0u);
    EXPECT_FALSE(edit(s.set).remove(id(1), id(2), -1));
}

TEST_F(RemoveExact, TakesOutTheFirstOfItemsThatDifferInPathOrTransformOnly) {
    SetOf s{{1, 2, 3, {7}}, {1, 2, 3, {8}}, {1, 2, 3, {8}, 1.5}};
    EXPECT_TRUE(edit(s.set).remove(id(1), id(2), 3));
    EXPECT_EQ(items(s.set), (Items{{1, 2, 3, {8}}, {1, 2, 3, {8}, 1.5}}));
    EXPECT_TRUE(edit(s.set).remove(id(1), id(2), 3));
    EXPECT_EQ(items(s.set), (Items{{1, 2, 3, {8}, 1.5}}));
}

TEST_F(RemoveExact, TakesTheFirstInTheOrderOfTheIndex) {
    SetOf s{{1, 2, 3, {7}}, {1, 2, 3, {8}}};
    kvtest::reverseIndex(s.data());
    EXPECT_TRUE(edit(s.set).remove(id(1), id(2), 3));
    EXPECT_EQ(items(s.set), (Items{{1, 2, 3, {7}}}));
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(RemoveExact, TellsZeroFromMinusOne) {
    SetOf s{{1, 2, 0}, {2, 2, -1}};
    EXPECT_FALSE(edit(s.set).remove(id(1), id(2), -1));
    EXPECT_FALSE(edit(s.set).remove(id(2), id(2), 0));
    EXPECT_EQ(count(s.set), 2u);
    EXPECT_TRUE(invariants(s.set));
    EXPECT_TRUE(edit(s.set).remove(id(1), id(2), 0));
    EXPECT_TRUE(edit(s.set).remove(id(2), id(2), -1));
    EXPECT_EQ(count(s.set), 0u);
}

TEST_F(RemoveExact, CopiesSharedDataForAMarkerThatIsOnlyEquivalent) {
    const SetOf original{{1, 2, 0}};
    SetOf s{{1, 2, 0}};
    const GxapSelectSet sharer(s.set);
    const ConstIterator it = s.set.begin();
    EXPECT_FALSE(edit(s.set).remove(id(1), id(2), -1));
    expectCopied(s.set, sharer, original);
    EXPECT_EQ(items(s.set), (Items{{1, 2, 0}}));
    EXPECT_EQ(it.truckerIterator, nullptr);
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(RemoveExact, PassesOverAnEquivalentMarkerToTheExactOne) {
    SetOf s({{1, 2, 0}, {1, 2, -1}}, Unique::kOff);
    EXPECT_TRUE(edit(s.set).remove(id(1), id(2), -1));
    EXPECT_EQ(items(s.set), (Items{{1, 2, 0}}));
}

TEST_F(RemoveExact, OfAnAbsentMarkerCopiesNothing) {
    SetOf s{{1, 2, 3}};
    const GxapSelectSet sharer(s.set);
    EXPECT_FALSE(edit(s.set).remove(id(1), id(2), 4));
    EXPECT_FALSE(edit(s.set).remove(id(1), id(2), 0));
    EXPECT_FALSE(edit(s.set).remove(id(1), id(3), 3));
    EXPECT_FALSE(edit(s.set).remove(id(2), id(2), 3));
    EXPECT_FALSE(edit(s.set).remove(kNoId, id(2), 3));
    EXPECT_TRUE(shareData(s.set, sharer));
}

TEST_F(RemoveExact, FromASetWithNothingAnswersFalse) {
    GxapSelectSet set;
    const GxapSelectSet sharer(set);
    EXPECT_FALSE(edit(set).remove(id(1), id(2), 0));
    EXPECT_TRUE(shareData(set, sharer));
    set.releaseData();
    EXPECT_FALSE(edit(set).remove(id(1), id(2), 0));
    EXPECT_EQ(set.sharedData, nullptr);
}

TEST_F(RemoveExact, ComparesTheWholeMarker) {
    const long low = std::numeric_limits<long>::min(), high = std::numeric_limits<long>::max();
    SetOf s{{1, 0, low}, {1, 0, high}, {1, 0, 5}, {1, 0, 5 + (1l << 32)}};
    EXPECT_TRUE(edit(s.set).remove(id(1), kNoId, high));
    EXPECT_TRUE(edit(s.set).remove(id(1), kNoId, 5 + (1l << 32)));
    EXPECT_EQ(items(s.set), (Items{{1, 0, low}, {1, 0, 5}}));
}

TEST_F(RemoveExact, CopiesSharedData) {
    const SetOf original{{1, 2, 3}, {1, 2, 4}};
    SetOf s{{1, 2, 3}, {1, 2, 4}};
    const GxapSelectSet sharer(s.set);
    EXPECT_TRUE(edit(s.set).remove(id(1), id(2), 3));
    EXPECT_EQ(items(s.set), (Items{{1, 2, 4}}));
    EXPECT_TRUE(invariants(s.set));
    expectCopied(s.set, sharer, original);
    EXPECT_EQ(leftRecords({&s.set, &sharer, &original.set}), 1u);
}

TEST_F(RemoveExact, PassesOverEntriesWithoutASlotAndNullRecords) {
    SetOf s{{1, 2}, {1, 2, 5}, {2}};
    const auto taken = kvtest::takeRecordOut(s.set, 0);
    s.data().dataMap.emplace_hint(s.data().dataMap.begin(), id(1), 0);
    EXPECT_TRUE(edit(s.set).remove(id(1), id(2), 5));
    EXPECT_EQ(items(s.set), (Items{{2}}));
    EXPECT_EQ(count(s.set), 2u);
    EXPECT_EQ(s.data().dataMap.count(id(1)), 2u);
    EXPECT_FALSE(edit(s.set).remove(id(1), id(2), -1));
}

TEST_F(RemoveExact, OutlivesTheDataItsArgumentsAreIn) {
    SetOf s{{1, 2, 3}, {3}};
    const selected_entity* inside = record(s.set, 0);
    const FleetingSharer sharer(s.set);
    EXPECT_TRUE(edit(s.set).remove(inside->mainEntId, inside->subEntId, inside->gsMarker));
    EXPECT_TRUE(sharer.isGone());
    EXPECT_EQ(items(s.set), (Items{{3}}));
}

// The arguments are references into an entry of the index.
TEST_F(RemoveExact, TakesTheKeyOfItsOwnIndex) {
    SetOf s{{1, 1, 3}, {1, 1, 4}};
    const GxDbObjectId& key = s.data().dataMap.begin()->first;
    EXPECT_TRUE(edit(s.set).remove(key, key, 3));
    EXPECT_EQ(items(s.set), (Items{{1, 1, 4}}));
    EXPECT_TRUE(invariants(s.set));
}

// --- removeAt(iterator)

TEST_F(RemoveAtIterator, LeavesTheIteratorOnTheItemBefore) {
    SetOf s{{1}, {2}, {3}};
    Iterator it = edit(s.set).iteratorAt(1);
    EXPECT_TRUE(edit(s.set).removeAt(it));
    EXPECT_EQ(items(s.set), (Items{{1}, {3}}));
    EXPECT_EQ(it.index, 0);
    EXPECT_EQ(it.get(), record(s.set, 0));
    EXPECT_TRUE(it == s.set.begin());
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(RemoveAtIterator, LetsTheNextStepReachTheItemAfter) {
    SetOf s{{1}, {2}, {3}};
    Iterator it = edit(s.set).iteratorAt(1);
    EXPECT_TRUE(edit(s.set).removeAt(it));
    EXPECT_TRUE(it.step(true));
    EXPECT_EQ(it.get(), record(s.set, 1));
    EXPECT_EQ(it.index, 1);
    EXPECT_FALSE(it.step(true));
    EXPECT_TRUE(it == s.set.end());
}

TEST_F(RemoveAtIterator, OfTheLastItemStandsOnTheOneBefore) {
    SetOf s{{1}, {2}, {3}};
    Iterator it = edit(s.set).iteratorAt(2);
    EXPECT_TRUE(edit(s.set).removeAt(it));
    EXPECT_EQ(kvtest::at(it), 2u);
    EXPECT_FALSE(it.step(true));
    EXPECT_TRUE(it == s.set.end());
}

TEST_F(RemoveAtIterator, StepsBackOverFreedSlots) {
    SetOf s{{1}, {2}, {3}, {4}};
    EXPECT_TRUE(edit(s.set).remove(id(2)));
    EXPECT_TRUE(edit(s.set).remove(id(3)));
    Iterator it = edit(s.set).iteratorAt(1);
    EXPECT_TRUE(edit(s.set).removeAt(it));
    EXPECT_EQ(kvtest::at(it), 1u);
    EXPECT_EQ(it.index, 0);
}

TEST_F(RemoveAtIterator, OfTheFirstItemLeavesTheIteratorWhereItWas) {
    SetOf s{{1}, {2}, {3}};
    Iterator it = edit(s.set).begin();
    const auto before = *it.truckerIterator;
    EXPECT_TRUE(edit(s.set).removeAt(it));
    EXPECT_EQ(it.index, 0);
    EXPECT_EQ(it.truckerIterator->slot, before.slot);
    EXPECT_EQ(it.truckerIterator->page, before.page);
    EXPECT_EQ(it.truckerIterator->position, before.position);
    EXPECT_FALSE(it.isDone());
}

TEST_F(RemoveAtIterator, OfTheFirstItemStandsOnAFreedSlot) {
    SetOf s{{1}, {2}};
    Iterator it = edit(s.set).begin();
    EXPECT_TRUE(edit(s.set).removeAt(it));
    kvinmemory::installCrashRecorder();
    kvtest::expectMessage([&] { it.get(); }, kAccessError);
}

// After the removal, the iterator is on the freed slot, and its `position` is too high by one. So the walk
// ends before the last item.
TEST_F(RemoveAtIterator, OfTheFirstItemEndsTheWalkOfThePageEarly) {
    SetOf s{{1}, {2}, {3}};
    Iterator it = edit(s.set).begin();
    EXPECT_TRUE(edit(s.set).removeAt(it));
    EXPECT_TRUE(it.step(true));
    EXPECT_EQ(kvtest::at(it), 2u);
    EXPECT_FALSE(it.step(true));
    EXPECT_TRUE(it.isDone());
}

TEST_F(RemoveAtIterator, OfTheOnlyItemLeavesAnIteratorThatReadsNoFreedPage) {
    SetOf s{{1}};
    Iterator it = edit(s.set).begin();
    EXPECT_TRUE(edit(s.set).removeAt(it));
    EXPECT_EQ(count(s.set), 0u);
    EXPECT_EQ(pages(s.set), 0u);
    EXPECT_EQ(it.index, 0);
    kvtest::expectMessage([&] { it.get(); }, kAccessError);
    EXPECT_FALSE(it.step(true));
    EXPECT_TRUE(it.isDone());
    EXPECT_FALSE(edit(s.set).removeAt(it));
}

TEST_F(RemoveAtIterator, OfTheOnlyItemOfALaterPageStandsOnThePageBefore) {
    SetOf s(plainItems(1, kPageSlots + 1));
    Iterator it = edit(s.set).iteratorAt(kPageSlots);
    EXPECT_TRUE(edit(s.set).removeAt(it));
    EXPECT_EQ(pages(s.set), 1u);
    EXPECT_EQ(it.index, static_cast<int>(kPageSlots) - 1);
    EXPECT_EQ(kvtest::at(it), kPageSlots);
    EXPECT_FALSE(it.step(true));
    EXPECT_TRUE(it == s.set.end());
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(RemoveAtIterator, OfTheFirstItemOfALaterPageStandsOnThePageBefore) {
    SetOf s(plainItems(1, kPageSlots + 2));
    Iterator it = edit(s.set).iteratorAt(kPageSlots);
    EXPECT_TRUE(edit(s.set).removeAt(it));
    EXPECT_EQ(kvtest::at(it), kPageSlots);
    EXPECT_TRUE(it.step(true));
    EXPECT_EQ(kvtest::at(it), kPageSlots + 2);
}

TEST_F(RemoveAtIterator, EmptiesTheSetFromTheBack) {
    SetOf s(plainItems(1, 5));
    Iterator it = edit(s.set).iteratorAt(4);
    for (std::uint32_t left = 4; left > 0; --left) {
        EXPECT_TRUE(edit(s.set).removeAt(it));
        EXPECT_EQ(count(s.set), left);
        EXPECT_EQ(kvtest::at(it), left);
        EXPECT_TRUE(invariants(s.set));
    }
    EXPECT_TRUE(edit(s.set).removeAt(it));
    EXPECT_EQ(count(s.set), 0u);
}

TEST_F(RemoveAtIterator, OfADoneIteratorAnswersFalse) {
    SetOf s{{1}, {2}};
    const GxapSelectSet sharer(s.set);
    Iterator end = edit(s.set).end();
    EXPECT_FALSE(edit(s.set).removeAt(end));
    Iterator negative(&s.set, -1);
    EXPECT_FALSE(edit(s.set).removeAt(negative));
    Iterator disabled(&s.set, 0);
    disabled.disable();
    EXPECT_FALSE(edit(s.set).removeAt(disabled));
    EXPECT_TRUE(shareData(s.set, sharer));
    EXPECT_EQ(count(s.set), 2u);
    EXPECT_EQ(registrations(s.set), 3);
    EXPECT_EQ(end.index, 2);
    EXPECT_EQ(negative.index, -1);
    EXPECT_EQ(disabled.index, 0);
}

TEST_F(RemoveAtIterator, FromASetWithNothingAnswersFalse) {
    SetOf other{{1}};
    Iterator it = edit(other.set).begin();
    GxapSelectSet set;
    EXPECT_FALSE(edit(set).removeAt(it));
    set.releaseData();
    EXPECT_FALSE(edit(set).removeAt(it));
    EXPECT_EQ(set.sharedData, nullptr);
    EXPECT_EQ(kvtest::at(it), 1u);
}

TEST_F(RemoveAtIterator, RemovesTheFirstOfEqualKeysAndStepsBackFromItsOwn) {
    SetOf s{{1, 2, 3, {7}}, {2}, {1, 2, 3, {8}}};
    const selected_entity *first = record(s.set, 0), *own = record(s.set, 2);
    Iterator it = edit(s.set).iteratorAt(2);
    EXPECT_TRUE(edit(s.set).removeAt(it));
    EXPECT_EQ(items(s.set), (Items{{2}, {1, 2, 3, {8}}}));
    EXPECT_EQ(record(s.set, 1), own);
    EXPECT_TRUE(isLiveRecord(first));
    EXPECT_EQ(it.index, 1);
    EXPECT_EQ(it.get(), record(s.set, 0));
}

TEST_F(RemoveAtIterator, MayEndUpOnTheVerySlotThatWasFreed) {
    SetOf s({{1}, {1}}, Unique::kOff);
    const auto* slot = s.store().head->slots;
    Iterator it = edit(s.set).iteratorAt(1);
    EXPECT_TRUE(edit(s.set).removeAt(it));
    EXPECT_EQ(it.index, 0);
    EXPECT_EQ(it.truckerIterator->slot, slot);
    EXPECT_EQ(slot->free, 1);
    kvtest::expectMessage([&] { it.get(); }, kAccessError);
}

TEST_F(RemoveAtIterator, OfAnItemThatTheIndexHasLostAnswersFalse) {
    SetOf s{{2}, {1, 2}, {1, 3}};
    EXPECT_TRUE(edit(s.set).remove(id(1), id(2)));
    const GxapSelectSet sharer(s.set);
    Iterator it(&s.set, 1);
    EXPECT_FALSE(edit(s.set).removeAt(it));
    EXPECT_TRUE(shareData(s.set, sharer));
    EXPECT_EQ(it.index, 1);
    EXPECT_TRUE(it.subEntId() == id(3));
    EXPECT_EQ(count(s.set), 2u);
}

TEST_F(RemoveAtIterator, OnANullRecordAnswersFalse) {
    SetOf s{{1}, {2}};
    Iterator it = edit(s.set).iteratorAt(1);
    const auto taken = kvtest::takeRecordOut(s.set, 1);
    EXPECT_FALSE(edit(s.set).removeAt(it));
    EXPECT_EQ(count(s.set), 2u);
    EXPECT_EQ(it.index, 1);
}

TEST_F(RemoveAtIterator, RegistersNothingButWhatWasRegistered) {
    SetOf s{{1}, {2}, {3}};
    Iterator it = edit(s.set).iteratorAt(2);
    const ConstIterator other = s.set.begin();
    EXPECT_TRUE(edit(s.set).removeAt(it));
    EXPECT_EQ(registrations(s.set), 2);
    EXPECT_TRUE(isRegistered(s.set, it));
    EXPECT_TRUE(isRegistered(s.set, other));
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(RemoveAtIterator, IsDisabledWhereDataWasShared) {
    const SetOf original{{1}, {2}, {3}};
    SetOf s{{1}, {2}, {3}};
    const GxapSelectSet sharer(s.set);
    Iterator it(&s.set, 2);
    EXPECT_TRUE(edit(s.set).removeAt(it));
    EXPECT_EQ(items(s.set), plainItems(1, 2));
    EXPECT_EQ(it.truckerIterator, nullptr);
    EXPECT_TRUE(it.isDone());
    EXPECT_EQ(it.set, &s.set);
    EXPECT_EQ(it.index, 1);
    EXPECT_EQ(registrations(s.set), 0);
    expectCopied(s.set, sharer, original);
}

TEST_F(RemoveAtIterator, OnTheFirstItemOfSharedDataIsDisabledWithItsIndex) {
    SetOf s{{1}, {2}, {3}};
    const GxapSelectSet sharer(s.set);
    Iterator it(&s.set, 0);
    EXPECT_TRUE(edit(s.set).removeAt(it));
    EXPECT_EQ(items(s.set), plainItems(2, 2));
    EXPECT_EQ(it.truckerIterator, nullptr);
    EXPECT_EQ(it.index, 0);
    EXPECT_EQ(registrations(s.set), 0);
}

// An iterator that is disabled and then assigned within its set has a position, but is not registered.
TEST_F(RemoveAtIterator, IsDisabledOnSharedDataAlsoWhereTheSetDoesNotKnowIt) {
    SetOf s{{1}, {2}, {3}};
    Iterator it(&s.set, 0);
    s.set.disableAllIterator();
    it = Iterator(&s.set, 1);
    ASSERT_FALSE(isRegistered(s.set, it));
    const GxapSelectSet sharer(s.set);
    EXPECT_TRUE(edit(s.set).removeAt(it));
    EXPECT_EQ(it.truckerIterator, nullptr);
    EXPECT_EQ(it.index, 0);
}

TEST_F(RemoveAtIterator, StaysWhereNothingIsRemovedFromTheCopyOfSharedData) {
    SetOf s{{1}, {2, 2, 0}}, other{{1}, {2, 2, -1}};
    const GxapSelectSet sharer(s.set);
    Iterator it = edit(other.set).iteratorAt(1);
    EXPECT_FALSE(edit(s.set).removeAt(it));
    EXPECT_FALSE(shareData(s.set, sharer));
    EXPECT_EQ(count(s.set), 2u);
    EXPECT_EQ(it.index, 1);
    EXPECT_EQ(it.get(), record(other.set, 1));
}

TEST_F(RemoveAtIterator, OfAnotherSetRemovesByItsKeys) {
    SetOf s{{3}, {2}, {1}}, other{{1}, {2}, {4}};
    Iterator it = edit(other.set).iteratorAt(1);
    EXPECT_TRUE(edit(s.set).removeAt(it));
    EXPECT_EQ(items(s.set), (Items{{3}, {1}}));
    EXPECT_EQ(items(other.set), (Items{{1}, {2}, {4}}));
    EXPECT_EQ(it.set, &other.set);
    EXPECT_EQ(it.index, 0);
    EXPECT_EQ(kvtest::at(it), 1u);
    EXPECT_EQ(registrations(s.set), 0);
    EXPECT_EQ(registrations(other.set), 1);
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(RemoveAtIterator, OfAnotherSetOnItsFirstItemStays) {
    SetOf s{{3}, {1}}, other{{1}, {2}};
    Iterator it = edit(other.set).begin();
    EXPECT_TRUE(edit(s.set).removeAt(it));
    EXPECT_EQ(items(s.set), plainItems(3, 1));
    EXPECT_EQ(kvtest::at(it), 1u);
    EXPECT_EQ(it.index, 0);
}

TEST_F(RemoveAtIterator, OfAnotherSetWithAnItemThatIsNotHeldAnswersFalse) {
    SetOf s{{3}}, other{{1}, {2}};
    Iterator it = edit(other.set).iteratorAt(1);
    EXPECT_FALSE(edit(s.set).removeAt(it));
    EXPECT_EQ(kvtest::at(it), 2u);
    EXPECT_EQ(count(s.set), 1u);
    EXPECT_EQ(registrations(s.set), 0);
    EXPECT_EQ(registrations(other.set), 1);
}

TEST_F(RemoveAtIterator, OfASetThatSharesTheDataStaysOnThatData) {
    SetOf s{{1}, {2}};
    GxapSelectSet sharer(s.set);
    Iterator it(&sharer, 1);
    EXPECT_TRUE(edit(s.set).removeAt(it));
    EXPECT_EQ(items(s.set), plainItems(1, 1));
    EXPECT_EQ(items(sharer), plainItems(1, 2));
    EXPECT_EQ(it.index, 0);
    EXPECT_EQ(it.get(), record(sharer, 0));
    EXPECT_TRUE(isRegistered(sharer, it));
}

TEST_F(RemoveAtIterator, OutlivesTheDataThatTheIteratorIsIn) {
    SetOf s{{1}, {2}, {3}};
    Iterator it(&s.set, 2);
    const FleetingSharer sharer(s.set);
    EXPECT_TRUE(edit(s.set).removeAt(it));
    EXPECT_TRUE(sharer.isGone());
    EXPECT_EQ(items(s.set), plainItems(1, 2));
    EXPECT_EQ(it.truckerIterator, nullptr);
}

// --- removeAt(index)

TEST_F(RemoveAtPosition, TakesOutTheItemThere) {
    SetOf s{{1}, {2}, {3}, {4}};
    EXPECT_TRUE(edit(s.set).removeAt(1));
    EXPECT_EQ(items(s.set), (Items{{1}, {3}, {4}}));
    EXPECT_TRUE(edit(s.set).removeAt(2));
    EXPECT_EQ(items(s.set), (Items{{1}, {3}}));
    EXPECT_TRUE(edit(s.set).removeAt(0));
    EXPECT_EQ(items(s.set), (Items{{3}}));
    EXPECT_TRUE(invariants(s.set));
    EXPECT_EQ(leftRecords({&s.set}), 3u);
}

TEST_F(RemoveAtPosition, OutsideTheSetAnswersFalseAndCopiesNothing) {
    SetOf s{{1}, {2}};
    const GxapSelectSet sharer(s.set);
    for (const int bad : {2, 3, -1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        EXPECT_FALSE(edit(s.set).removeAt(bad));
        EXPECT_TRUE(shareData(s.set, sharer));
    }
    EXPECT_EQ(count(s.set), 2u);
}

TEST_F(RemoveAtPosition, OfASetWithNothingAnswersFalse) {
    GxapSelectSet set;
    const GxapSelectSet sharer(set);
    EXPECT_FALSE(edit(set).removeAt(0));
    EXPECT_TRUE(shareData(set, sharer));
    set.releaseData();
    EXPECT_FALSE(edit(set).removeAt(0));
    EXPECT_EQ(set.sharedData, nullptr);
}

TEST_F(RemoveAtPosition, CopiesSharedData) {
    const SetOf original{{1}, {2}, {3}};
    SetOf s{{1}, {2}, {3}};
    const GxapSelectSet sharer(s.set);
    const ConstIterator it = s.set.begin();
    EXPECT_TRUE(edit(s.set).removeAt(1));
    EXPECT_EQ(items(s.set), (Items{{1}, {3}}));
    EXPECT_EQ(it.truckerIterator, nullptr);
    expectCopied(s.set, sharer, original);
}

TEST_F(RemoveAtPosition, TakesOutTheFirstOfEqualKeys) {
    SetOf s{{1, 2, 3, {7}}, {2}, {1, 2, 3, {8}}};
    EXPECT_TRUE(edit(s.set).removeAt(2));
    EXPECT_EQ(items(s.set), (Items{{2}, {1, 2, 3, {8}}}));
}

TEST_F(RemoveAtPosition, OfAnItemThatTheIndexHasLostAnswersFalseButCopies) {
    SetOf s{{1, 2}, {1, 3}};
    EXPECT_TRUE(edit(s.set).remove(id(1), id(2)));
    const GxapSelectSet sharer(s.set);
    // The index of the shared data lacks this item. removeAt() copies the data, and the copy has a complete
    // index.
    EXPECT_TRUE(edit(s.set).removeAt(0));
    EXPECT_EQ(count(s.set), 0u);
    EXPECT_FALSE(shareData(s.set, sharer));
    EXPECT_EQ(items(sharer), (Items{{1, 3}}));
}

TEST_F(RemoveAtPosition, OfAnItemThatAPrivateIndexHasLostAnswersFalse) {
    SetOf s{{1, 2}, {1, 3}};
    EXPECT_TRUE(edit(s.set).remove(id(1), id(2)));
    EXPECT_FALSE(edit(s.set).removeAt(0));
    EXPECT_EQ(items(s.set), (Items{{1, 3}}));
    EXPECT_EQ(count(s.set), 1u);
}

TEST_F(RemoveAtPosition, OfANullRecordAnswersFalse) {
    SetOf s{{1}, {2}};
    const auto taken = kvtest::takeRecordOut(s.set, 0);
    EXPECT_FALSE(edit(s.set).removeAt(0));
    EXPECT_EQ(count(s.set), 2u);
}

TEST_F(RemoveAtPosition, BeyondTheStoreAnswersFalse) {
    SetOf s{{1}, {2}};
    s.data().entityCount = 5;
    EXPECT_FALSE(edit(s.set).removeAt(3));
    EXPECT_FALSE(edit(s.set).removeAt(4));
    EXPECT_EQ(items(s.set), plainItems(1, 2));
    s.data().entityCount = 2;
}

TEST_F(RemoveAtPosition, CountsOccupiedSlotsOfAllPages) {
    SetOf s(plainItems(1, kPageSlots + 3));
    EXPECT_TRUE(edit(s.set).remove(id(1)));
    EXPECT_TRUE(edit(s.set).removeAt(kPageSlots));
    EXPECT_EQ(s.set.find(id(kPageSlots + 2)), -1);
    EXPECT_TRUE(edit(s.set).removeAt(kPageSlots - 1));
    EXPECT_EQ(s.set.find(id(kPageSlots + 1)), -1);
    EXPECT_EQ(count(s.set), kPageSlots);
    EXPECT_TRUE(invariants(s.set));
}

// --- pages

TEST_F(RemovePages, TheLastItemOfTheFirstPageReleasesIt) {
    SetOf s(plainItems(1, kPageSlots + 1));
    auto* const second = s.store().tail;
    const long blocks = kvtest::liveNewBlocksOfSize(kvtest::kPageBytes);
    for (unsigned long n = 1; n < kPageSlots; ++n)
        ASSERT_TRUE(edit(s.set).remove(id(n)));
    EXPECT_EQ(pages(s.set), 2u);
    ASSERT_TRUE(edit(s.set).remove(id(kPageSlots)));
    EXPECT_EQ(s.store().head, second);
    EXPECT_EQ(s.store().tail, second);
    EXPECT_EQ(kvtest::liveNewBlocksOfSize(kvtest::kPageBytes), blocks - 1);
    EXPECT_EQ(items(s.set), plainItems(kPageSlots + 1, 1));
    EXPECT_EQ(s.set.find(id(kPageSlots + 1)), 0);
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(RemovePages, TheLastItemOfTheTailReleasesIt) {
    SetOf s(plainItems(1, kPageSlots + 1));
    auto* const first = s.store().head;
    ASSERT_TRUE(edit(s.set).remove(id(kPageSlots + 1), kNoId));
    EXPECT_EQ(s.store().tail, first);
    EXPECT_EQ(first->next, nullptr);
    kvtest::select(s.set, {kPageSlots + 2});
    EXPECT_EQ(pages(s.set), 2u);
    EXPECT_EQ(s.set.find(id(kPageSlots + 2)), static_cast<int>(kPageSlots));
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(RemovePages, AllItemsOfAMiddlePageReleaseIt) {
    Items held = plainItems(1, kPageSlots);
    for (unsigned n = 0; n < kPageSlots; ++n)
        held.push_back({9000});
    held.push_back({9001});
    SetOf s(held, Unique::kOff);
    ASSERT_EQ(pages(s.set), 3u);
    auto *const first = s.store().head, *const last = s.store().tail;
    EXPECT_TRUE(edit(s.set).remove(id(9000)));
    EXPECT_EQ(first->next, last);
    EXPECT_EQ(count(s.set), kPageSlots + 1);
    EXPECT_EQ(s.set.find(id(9001)), static_cast<int>(kPageSlots));
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(RemovePages, ItemsOfOneEntityGoFromAllPages) {
    Items held;
    for (unsigned n = 0; n < 2 * kPageSlots + 1; ++n)
        held.push_back({1, 1 + n % 2});
    held.push_back({2});
    SetOf s(held, Unique::kOff);
    EXPECT_TRUE(edit(s.set).remove(id(1), id(1)));
    EXPECT_EQ(count(s.set), kPageSlots + 1);
    EXPECT_EQ(pages(s.set), 3u);
    edit(s.set).updateDataMap();
    EXPECT_TRUE(edit(s.set).remove(id(1)));
    EXPECT_EQ(items(s.set), plainItems(2, 1));
    EXPECT_EQ(pages(s.set), 1u);
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(RemovePages, TheOnlyItemOfThreeKeysReleasesThePage) {
    SetOf s{{1, 2, 3}};
    EXPECT_TRUE(edit(s.set).remove(id(1), id(2), 3));
    EXPECT_EQ(pages(s.set), 0u);
    EXPECT_EQ(s.store().tail, nullptr);
}

// --- iterators

TEST_F(RemoveIterators, AreNotAdjusted) {
    SetOf s{{1}, {2}, {3}, {4}};
    const ConstIterator it = s.set.iteratorAt(2);
    const auto before = *it.truckerIterator;
    EXPECT_TRUE(edit(s.set).remove(id(1)));
    EXPECT_TRUE(edit(s.set).remove(id(2), kNoId));
    EXPECT_TRUE(edit(s.set).remove(id(4), kNoId, -1));
    EXPECT_EQ(it.index, 2);
    EXPECT_EQ(it.truckerIterator->slot, before.slot);
    EXPECT_EQ(it.truckerIterator->position, before.position);
    EXPECT_EQ(kvtest::at(it), 3u);
    EXPECT_TRUE(isRegistered(s.set, it));
}

TEST_F(RemoveIterators, OnAFreedSlotCannotBeReadButSteppedOn) {
    SetOf s{{1}, {2}, {3}};
    const ConstIterator it = s.set.iteratorAt(0);
    EXPECT_TRUE(edit(s.set).remove(id(1)));
    kvtest::expectMessage([&] { it.get(); }, kAccessError);
    EXPECT_TRUE(it.step());
    EXPECT_EQ(kvtest::at(it), 2u);
}

TEST_F(RemoveIterators, OfTheSetAloneAreDisabledWhereDataWasShared) {
    SetOf s{{1}, {2}};
    const GxapSelectSet sharer(s.set);
    const ConstIterator mine = s.set.begin(), theirs = sharer.begin();
    EXPECT_TRUE(edit(s.set).remove(id(2)));
    EXPECT_EQ(mine.truckerIterator, nullptr);
    EXPECT_EQ(registrations(s.set), 0);
    EXPECT_EQ(kvtest::at(theirs), 1u);
    EXPECT_TRUE(isRegistered(sharer, theirs));
}

} // namespace
