#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/selectcontext/support/RecordTestSupport.h"
#include "tests/support/Infos.h"
#include "tests/support/NewTracking.h"

#include <gtest/gtest.h>

#include <memory>
#include <type_traits>

namespace {

using kvtest::appendIds;
using kvtest::at;
using kvtest::count;
using kvtest::edit;
using kvtest::Filled;
using kvtest::id;
using kvtest::idVector;
using kvtest::IndexState;
using kvtest::invariants;
using kvtest::isRegistered;
using kvtest::kNoId;
using kvtest::kPageSlots;
using kvtest::mainIds;
using kvtest::makeInfo;
using kvtest::makeInfoMovedBy;
using kvtest::owners;
using kvtest::registrations;
using kvtest::takeOutIds;

using ConstIterator = GxapSelectSet::ConstIterator;
using SSetData = GxapSelectSet::SSetData;
using Path = KvVector<GxDbObjectId>;

class Select : public kvtest::SetTest {};
class SelectNewRecord : public kvtest::SetTest {};
class SelectUnique : public kvtest::SetTest {};
class SelectRefused : public kvtest::SetTest {};
class SelectIntoSharedData : public kvtest::SetTest {};
class SelectAliased : public kvtest::SetTest {};
class SelectPages : public kvtest::SetTest {};
class AppendIds : public kvtest::SetTest {};
class AppendRecord : public kvtest::SetTest {};

void select(GxapSelectSet& set, unsigned long mainId, unsigned long subId = 0, long gsMarker = -1,
            GxapSelectedEntInfo* info = nullptr, const Path* path = nullptr) {
    edit(set).select(id(mainId), id(subId), gsMarker, info, path);
    EXPECT_TRUE(invariants(set));
}

void allowDuplicates(GxapSelectSet& set) {
    edit(set).setUnique(false);
}

long liveInfos() {
    return kvinmemory::liveBlocksOfSize(sizeof(GxapSelectedEntInfo));
}

// --- what select does

static_assert(std::is_void_v<decltype(std::declval<GxapSSetWriteAccessor&>().select(kNoId, kNoId, 0, nullptr,
                                                                                    nullptr))>,
              "a literal 0 is a marker, and nothing is reported");

TEST_F(Select, AddsARecordToStoreIndexAndCount) {
    GxapSelectSet set;
    select(set, 1, 2, 3);
    EXPECT_EQ(count(set), 1u);
    ASSERT_EQ(set.sharedData->dataMap.size(), 1u);
    const auto* slot = set.sharedData->entities->head->slots;
    EXPECT_EQ(slot->free, 0);
    EXPECT_EQ(slot->value, set.getAt(0));
    EXPECT_TRUE(set.sharedData->dataMap.begin()->first == id(1));
    EXPECT_EQ(set.sharedData->dataMap.begin()->second,
              static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(slot)));
}

TEST_F(Select, KeepsTheOrderOfSelection) {
    GxapSelectSet set;
    for (const unsigned long n : {5ul, 1ul, 9ul, 3ul})
        select(set, n);
    EXPECT_EQ(mainIds(set), (std::vector<unsigned long>{5, 1, 9, 3}));
}

TEST_F(Select, CreatesMissingData) {
    GxapSelectSet set;
    set.releaseData();
    select(set, 1);
    ASSERT_NE(set.sharedData, nullptr);
    EXPECT_EQ(count(set), 1u);
    EXPECT_TRUE(set.sharedData->unique);
}

TEST_F(Select, WithANullMainIdDoesNothing) {
    Filled filled(3);
    GxapSelectedEntInfo* info = makeInfo();
    const Path path = idVector({1});
    select(filled.set, 0, 1, 5, info, &path);
    EXPECT_EQ(count(filled.set), 3u);
    EXPECT_TRUE(kvinmemory::isLiveBlock(info));
    kvtest::freeInfo(info);
}

TEST_F(Select, WithANullMainIdCreatesNoDataAndCopiesNone) {
    Filled filled(3);
    const GxapSelectSet sharer(filled.set);
    select(filled.set, 0);
    EXPECT_EQ(filled.set.sharedData, sharer.sharedData);
    filled.set.releaseData();
    select(filled.set, 0);
    EXPECT_EQ(filled.set.sharedData, nullptr);
}

TEST_F(Select, TakesAnIdThatEqualsTheNullIdForNull) {
    GxapSelectSet set;
    kvinmemory::makeEqual(kNoId, id(5));
    select(set, 5);
    EXPECT_EQ(count(set), 0u);
}

TEST_F(Select, LeavesIteratorsOnPrivateDataInPlace) {
    Filled filled(3);
    const ConstIterator it = filled.set.iteratorAt(1);
    select(filled.set, 4);
    EXPECT_EQ(at(it), 2u);
    EXPECT_TRUE(isRegistered(filled.set, it));
    EXPECT_EQ(registrations(filled.set), 1);
}

TEST_F(Select, MovesNoRecord) {
    Filled filled(3);
    selected_entity** slot = edit(filled.set).getAt(1);
    const selected_entity* record = *slot;
    appendIds(filled.set, 4, 100);
    EXPECT_EQ(edit(filled.set).getAt(1), slot);
    EXPECT_EQ(*slot, record);
}

TEST_F(Select, NeverFillsAFreedSlot) {
    Filled filled(3);
    takeOutIds(filled.set, 2, 1);
    select(filled.set, 4);
    EXPECT_EQ(mainIds(filled.set), (std::vector<unsigned long>{1, 3, 4}));
    EXPECT_EQ(filled.slot(1)->free, 1);
    EXPECT_EQ(filled.slot(3)->value->mainEntId, id(4));
}

TEST_F(Select, OfAPlainItemCostsOneNewForTheRecord) {
    Filled filled(1);
    const long records = kvtest::newCallsOfSize(sizeof(selected_entity));
    const long mallocs = kvinmemory::mallocCallsOfSize(sizeof(GxapSelectedEntInfo));
    select(filled.set, 2);
    EXPECT_EQ(kvtest::newCallsOfSize(sizeof(selected_entity)), records + 1);
    EXPECT_EQ(kvinmemory::mallocCallsOfSize(sizeof(GxapSelectedEntInfo)), mallocs);
}

TEST_F(Select, LetsEverythingBeFoundAgain) {
    GxapSelectSet set;
    const Path path = idVector({7, 1});
    select(set, 1, 11, 5, makeInfo(), &path);
    select(set, 2);
    select(set, 1, 12, 6);
    EXPECT_EQ(set.find(id(1), id(11), 5, &path), 0);
    EXPECT_EQ(set.find(id(2)), 1);
    EXPECT_EQ(set.find(id(1), id(12), 6), 2);
    EXPECT_EQ(set.findItr(id(1), id(12)).get(), set.getAt(2));
}

// --- the record that select makes

TEST_F(SelectNewRecord, HasTheGivenKeysAndNothingElse) {
    GxapSelectSet set;
    select(set, 1, 2, 33);
    const selected_entity* record = set.getAt(0);
    EXPECT_TRUE(record->mainEntId == id(1));
    EXPECT_TRUE(record->subEntId == id(2));
    EXPECT_EQ(record->gsMarker, 33);
    EXPECT_EQ(record->highlightSegmentArray, nullptr);
    EXPECT_EQ(record->subselPathArray, nullptr);
    EXPECT_FALSE(record->hasSubselPaths);
    EXPECT_EQ(record->selectedEntityInfo, nullptr);
}

TEST_F(SelectNewRecord, KeepsItsMarkerAsGiven) {
    GxapSelectSet set;
    const long low = std::numeric_limits<long>::min(), high = std::numeric_limits<long>::max();
    select(set, 1, 0, 0);
    select(set, 2, 0, -1);
    select(set, 3, 0, low);
    select(set, 4, 0, high);
    EXPECT_EQ(set.getAt(0)->gsMarker, 0);
    EXPECT_EQ(set.getAt(1)->gsMarker, -1);
    EXPECT_EQ(set.getAt(2)->gsMarker, low);
    EXPECT_EQ(set.getAt(3)->gsMarker, high);
}

TEST_F(SelectNewRecord, SharesTheEmptyBlockForViewportsAndPath) {
    GxapSelectSet set;
    const std::uint32_t before = kvtest::emptyBlockCount();
    select(set, 1);
    EXPECT_EQ(kvtest::emptyBlockCount(), before + 2);
    EXPECT_EQ(set.getAt(0)->hlVpArray.data.block, gpEmptyVectorData);
    EXPECT_EQ(set.getAt(0)->nestedEntFullPath.data.block, gpEmptyVectorData);
}

TEST_F(SelectNewRecord, HasNullVectorsWhereThereIsNoEmptyBlock) {
    const kvtest::WithoutEmptyBlock without;
    GxapSelectSet set;
    select(set, 1);
    EXPECT_EQ(set.getAt(0)->hlVpArray.data.block, nullptr);
    EXPECT_EQ(set.getAt(0)->nestedEntFullPath.data.block, nullptr);
    select(set, 1);
    EXPECT_EQ(count(set), 1u);
}

TEST_F(SelectNewRecord, SharesTheGivenPath) {
    GxapSelectSet set;
    const Path path = idVector({1, 2, 3});
    const std::uint32_t before = path.data.block->refCount.load(), empties = kvtest::emptyBlockCount();
    select(set, 1, 0, -1, nullptr, &path);
    EXPECT_EQ(set.getAt(0)->nestedEntFullPath.data.block, path.data.block);
    EXPECT_EQ(path.data.block->refCount.load(), before + 1);
    EXPECT_EQ(kvtest::emptyBlockCount(), empties + 1);
}

TEST_F(SelectNewRecord, KeepsItsPathWhenTheCallersChanges) {
    GxapSelectSet set;
    Path path = idVector({1, 2, 3});
    select(set, 1, 0, -1, nullptr, &path);
    path.at(0) = id(9);
    EXPECT_TRUE(set.getAt(0)->nestedEntFullPath == idVector({1, 2, 3}));
}

TEST_F(SelectNewRecord, SharesTheEmptyBlockOfAnEmptyPath) {
    GxapSelectSet set;
    const Path path;
    select(set, 1, 0, -1, nullptr, &path);
    EXPECT_EQ(set.getAt(0)->nestedEntFullPath.data.block, gpEmptyVectorData);
}

TEST_F(SelectNewRecord, SharesThePrivateBlockOfAPathThatBecameEmpty) {
    GxapSelectSet set;
    Path path = idVector({1});
    path.setLogicalLength(0);
    select(set, 1, 0, -1, nullptr, &path);
    EXPECT_EQ(set.getAt(0)->nestedEntFullPath.data.block, path.data.block);
    EXPECT_EQ(path.data.block->refCount.load(), 2u);
}

TEST_F(SelectNewRecord, TakesTheInfoOver) {
    const long before = liveInfos();
    {
        GxapSelectSet set;
        GxapSelectedEntInfo* info = makeInfoMovedBy(1);
        select(set, 1, 0, -1, info);
        EXPECT_EQ(set.getAt(0)->selectedEntityInfo, info);
        EXPECT_EQ(liveInfos(), before + 1);
    }
    EXPECT_EQ(liveInfos(), before);
}

// --- what a unique set refuses

TEST_F(SelectUnique, RefusesAnEqualItem) {
    GxapSelectSet set;
    const Path path = idVector({7, 1}), equalPath = idVector({7, 1});
    select(set, 1, 2, 5, makeInfoMovedBy(3), &path);
    select(set, 1, 2, 5, makeInfoMovedBy(3), &equalPath);
    EXPECT_EQ(count(set), 1u);
}

TEST_F(SelectUnique, AddsAnItemThatDiffersInAnyKey) {
    GxapSelectSet set;
    const Path path = idVector({7, 1}), otherPath = idVector({8, 1}), shorter = idVector({7}), empty;
    select(set, 1, 2, 5, makeInfoMovedBy(3), &path);
    select(set, 9, 2, 5, makeInfoMovedBy(3), &path);
    EXPECT_EQ(count(set), 2u);
    select(set, 1, 9, 5, makeInfoMovedBy(3), &path);
    EXPECT_EQ(count(set), 3u);
    select(set, 1, 2, 9, makeInfoMovedBy(3), &path);
    EXPECT_EQ(count(set), 4u);
    select(set, 1, 2, 5, makeInfoMovedBy(3), &otherPath);
    EXPECT_EQ(count(set), 5u);
    select(set, 1, 2, 5, makeInfoMovedBy(3), &shorter);
    EXPECT_EQ(count(set), 6u);
    select(set, 1, 2, 5, makeInfoMovedBy(3), &empty);
    EXPECT_EQ(count(set), 7u);
    select(set, 1, 2, 5, makeInfoMovedBy(4), &path);
    EXPECT_EQ(count(set), 8u);
    select(set, 1, 2, 5, nullptr, &path);
    EXPECT_EQ(count(set), 9u);
}

TEST_F(SelectUnique, TakesZeroAndMinusOneForOneMarker) {
    GxapSelectSet set;
    select(set, 1, 2, -1);
    select(set, 1, 2, 5);
    EXPECT_EQ(count(set), 2u);
    select(set, 1, 2, 0);
    select(set, 1, 2, -1);
    EXPECT_EQ(count(set), 2u);
    EXPECT_EQ(set.getAt(0)->gsMarker, -1);
}

TEST_F(SelectUnique, TakesMinusOneForAStoredZero) {
    GxapSelectSet set;
    select(set, 1, 2, 0);
    select(set, 1, 2, -1);
    EXPECT_EQ(count(set), 1u);
    EXPECT_EQ(set.getAt(0)->gsMarker, 0);
}

TEST_F(SelectUnique, WithoutAPathComparesNeitherPathNorTransform) {
    GxapSelectSet set;
    const Path path = idVector({7, 1});
    select(set, 1, 2, 5, makeInfoMovedBy(3), &path);
    select(set, 1, 2, 5, makeInfoMovedBy(4), nullptr);
    EXPECT_EQ(count(set), 1u);
}

TEST_F(SelectUnique, TakesAnInfoWithoutTransformForNone) {
    GxapSelectSet set;
    const Path path;
    select(set, 1, 2, 5, nullptr, &path);
    select(set, 1, 2, 5, makeInfo(), &path);
    EXPECT_EQ(count(set), 1u);
    select(set, 2, 2, 5, makeInfo(), &path);
    select(set, 2, 2, 5, nullptr, &path);
    EXPECT_EQ(count(set), 2u);
}

TEST_F(SelectUnique, ComparesTransformsWithinTheGlobalTolerance) {
    GxapSelectSet set;
    const Path path;
    select(set, 1, 2, 5, makeInfoMovedBy(1), &path);
    select(set, 1, 2, 5, makeInfoMovedBy(1 + GxGeContext::gTol.equalPoint / 4), &path);
    EXPECT_EQ(count(set), 1u);
}

TEST_F(SelectUnique, ComparesIdsAsThePlatformDoes) {
    GxapSelectSet set;
    kvinmemory::makeEqual(id(1), id(2));
    select(set, 1);
    select(set, 2);
    EXPECT_EQ(count(set), 1u);
}

TEST_F(SelectUnique, LooksAtEveryRecordOfTheMainId) {
    GxapSelectSet set;
    for (unsigned long sub = 1; sub <= 5; ++sub)
        select(set, 1, sub);
    select(set, 1, 5);
    select(set, 1, 1);
    EXPECT_EQ(count(set), 5u);
}

TEST_F(SelectUnique, SwitchedOffAddsEqualItems) {
    GxapSelectSet set;
    allowDuplicates(set);
    const Path path = idVector({7, 1});
    for (int i = 0; i < 3; ++i)
        select(set, 1, 2, 5, makeInfoMovedBy(3), &path);
    EXPECT_EQ(count(set), 3u);
    EXPECT_EQ(set.sharedData->dataMap.count(id(1)), 3u);
    EXPECT_EQ(set.find(id(1), id(2)), 0);
}

TEST_F(SelectUnique, KeepsEqualKeysOfTheIndexInTheOrderOfSelection) {
    GxapSelectSet set;
    for (const unsigned long sub : {4ul, 1ul, 3ul}) {
        select(set, 2, sub);
        select(set, 1, sub);
        select(set, 3, sub);
    }
    auto entry = set.sharedData->dataMap.lower_bound(id(2));
    for (const int position : {0, 3, 6}) {
        ASSERT_NE(entry, set.sharedData->dataMap.end());
        EXPECT_EQ(*reinterpret_cast<selected_entity* const*>(entry->second), set.getAt(position));
        ++entry;
    }
}

// select() searches only the index. So it does not find a record without an index entry.
TEST_F(SelectUnique, DoesNotSeeARecordThatTheIndexHasLost) {
    GxapSelectSet set;
    select(set, 1, 11);
    select(set, 1, 12);
    const std::unique_ptr<selected_entity> removed(set.getAt(0));
    ASSERT_TRUE(edit(set).remove(id(1), id(11)));
    edit(set).select(id(1), id(12), -1, nullptr, nullptr);
    EXPECT_EQ(count(set), 2u);
    EXPECT_TRUE(invariants(set, IndexState::kMayLackEntries));
}

TEST_F(SelectUnique, PassesOverASlotWithANullRecord) {
    Filled filled(3);
    const std::unique_ptr<selected_entity> record(filled.set.getAt(1));
    *edit(filled.set).getAt(1) = nullptr;
    edit(filled.set).select(id(2), kNoId, -1, nullptr, nullptr);
    EXPECT_EQ(count(filled.set), 4u);
    edit(filled.set).select(id(2), kNoId, -1, nullptr, nullptr);
    EXPECT_EQ(count(filled.set), 4u);
}

TEST_F(SelectUnique, PassesOverAnIndexEntryWithoutASlot) {
    GxapSelectSet set;
    select(set, 1);
    set.sharedData->dataMap.begin()->second = 0;
    edit(set).select(id(1), kNoId, -1, nullptr, nullptr);
    EXPECT_EQ(count(set), 2u);
}

// --- refused items

TEST_F(SelectRefused, FreesTheInfo) {
    GxapSelectSet set;
    select(set, 1);
    const long before = liveInfos(), matrices = kvtest::liveNewMatrices();
    GxapSelectedEntInfo* info = makeInfoMovedBy(2);
    select(set, 1, 0, -1, info);
    EXPECT_FALSE(kvinmemory::isLiveBlock(info));
    EXPECT_EQ(liveInfos(), before);
    EXPECT_EQ(kvtest::liveNewMatrices(), matrices);
}

TEST_F(SelectRefused, AcceptsANullInfo) {
    GxapSelectSet set;
    select(set, 1);
    select(set, 1);
    EXPECT_EQ(count(set), 1u);
}

TEST_F(SelectRefused, DoesNotCopySharedData) {
    Filled filled(3);
    const GxapSelectSet sharer(filled.set);
    const ConstIterator it = filled.set.iteratorAt(1);
    select(filled.set, 2, 0, -1, makeInfo());
    EXPECT_EQ(filled.set.sharedData, sharer.sharedData);
    EXPECT_EQ(owners(sharer), 2u);
    EXPECT_EQ(at(it), 2u);
    EXPECT_TRUE(isRegistered(filled.set, it));
}

TEST_F(SelectRefused, AllocatesNothing) {
    Filled filled(3);
    const long news = kvtest::newCalls(), mallocs = kvinmemory::mallocCalls();
    edit(filled.set).append(id(2), kNoId);
    EXPECT_EQ(kvtest::newCalls(), news);
    EXPECT_EQ(kvinmemory::mallocCalls(), mallocs);
}

// --- shared data

TEST_F(SelectIntoSharedData, LeavesTheOtherSetAsItWas) {
    Filled filled(3);
    const GxapSelectSet sharer(filled.set);
    const SSetData* before = sharer.sharedData;
    const ConstIterator mine = filled.set.begin(), theirs = sharer.begin();
    select(filled.set, 4);
    EXPECT_EQ(mainIds(filled.set), (std::vector<unsigned long>{1, 2, 3, 4}));
    EXPECT_EQ(mainIds(sharer), (std::vector<unsigned long>{1, 2, 3}));
    EXPECT_EQ(sharer.sharedData, before);
    EXPECT_EQ(owners(sharer), 1u);
    EXPECT_EQ(owners(filled.set), 1u);
    EXPECT_EQ(mine.truckerIterator, nullptr);
    EXPECT_EQ(registrations(filled.set), 0);
    EXPECT_EQ(at(theirs), 1u);
    EXPECT_TRUE(invariants(sharer));
}

TEST_F(SelectIntoSharedData, IndexesTheSlotOfTheCopy) {
    Filled filled(3);
    const GxapSelectSet sharer(filled.set);
    select(filled.set, 4);
    EXPECT_EQ(filled.set.findInMap(id(4))->second,
              static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(filled.slot(3))));
    EXPECT_EQ(sharer.find(id(4)), -1);
}

TEST_F(SelectIntoSharedData, CopiesEvenWhenTheOtherHandleIsEmpty) {
    GxapSelectSet set;
    const GxapSelectSet sharer(set);
    select(set, 1);
    EXPECT_EQ(count(set), 1u);
    EXPECT_EQ(count(sharer), 0u);
}

TEST_F(SelectIntoSharedData, GoesBothWays) {
    Filled filled(1);
    GxapSelectSet other(filled.set);
    select(filled.set, 2);
    select(other, 3);
    select(filled.set, 4);
    EXPECT_EQ(mainIds(filled.set), (std::vector<unsigned long>{1, 2, 4}));
    EXPECT_EQ(mainIds(other), (std::vector<unsigned long>{1, 3}));
}

TEST_F(SelectIntoSharedData, AllowsDuplicatesWhereTheDataDoes) {
    Filled filled(2);
    allowDuplicates(filled.set);
    const GxapSelectSet sharer(filled.set);
    select(filled.set, 1);
    EXPECT_EQ(count(filled.set), 3u);
    EXPECT_EQ(count(sharer), 2u);
    EXPECT_FALSE(filled.set.sharedData->unique);
}

// --- arguments from inside the set

TEST_F(SelectAliased, TakesItsOwnRecordsFields) {
    GxapSelectSet set;
    allowDuplicates(set);
    const Path path = idVector({7, 1});
    select(set, 1, 2, 5, nullptr, &path);
    const selected_entity* record = set.getAt(0);
    edit(set).select(record->mainEntId, record->subEntId, record->gsMarker, nullptr,
                     &record->nestedEntFullPath);
    EXPECT_EQ(count(set), 2u);
    EXPECT_EQ(set.getAt(1)->nestedEntFullPath.data.block, path.data.block);
    EXPECT_TRUE(invariants(set));
}

TEST_F(SelectAliased, TakesAKeyOfItsOwnIndex) {
    Filled filled(3);
    allowDuplicates(filled.set);
    const GxDbObjectId& key = filled.set.sharedData->dataMap.begin()->first;
    edit(filled.set).append(key, key);
    EXPECT_EQ(mainIds(filled.set), (std::vector<unsigned long>{1, 2, 3, 1}));
    EXPECT_TRUE(filled.set.getAt(3)->subEntId == id(1));
    EXPECT_TRUE(invariants(filled.set));
}

TEST_F(SelectAliased, IsRefusedWithoutHarm) {
    GxapSelectSet set;
    const Path path = idVector({7, 1});
    select(set, 1, 2, 5, nullptr, &path);
    const selected_entity* record = set.getAt(0);
    edit(set).select(record->mainEntId, record->subEntId, record->gsMarker, nullptr,
                     &record->nestedEntFullPath);
    EXPECT_EQ(count(set), 1u);
    EXPECT_EQ(set.getAt(0), record);
}

// --- pages

TEST_F(SelectPages, TheLastSlotOfAPageOpensNoOther) {
    const Filled filled(kPageSlots);
    EXPECT_EQ(filled.store().head, filled.store().tail);
    EXPECT_EQ(filled.store().head->liveCount, kPageSlots);
    EXPECT_TRUE(invariants(filled.set));
}

TEST_F(SelectPages, TheNextOneOpensTheSecondPage) {
    Filled filled(kPageSlots);
    const auto* first = filled.store().head;
    select(filled.set, kPageSlots + 1);
    EXPECT_EQ(filled.store().head, first);
    EXPECT_EQ(first->next, filled.store().tail);
    EXPECT_EQ(filled.store().tail->liveCount, 1u);
    EXPECT_EQ(filled.set.find(id(kPageSlots + 1)), static_cast<int>(kPageSlots));
    EXPECT_EQ(filled.set.find(id(kPageSlots)), static_cast<int>(kPageSlots - 1));
    EXPECT_EQ(mainIds(filled.set), kvtest::idRange(1, kPageSlots + 1));
}

TEST_F(SelectPages, IntoSharedDataOfAFullPageOpensThePageInTheCopyAlone) {
    Filled filled(kPageSlots);
    const GxapSelectSet sharer(filled.set);
    select(filled.set, kPageSlots + 1);
    EXPECT_NE(filled.store().head, filled.store().tail);
    EXPECT_EQ(sharer.sharedData->entities->head, sharer.sharedData->entities->tail);
    EXPECT_EQ(count(sharer), kPageSlots);
    EXPECT_EQ(filled.set.find(id(kPageSlots + 1)), static_cast<int>(kPageSlots));
    EXPECT_TRUE(invariants(sharer));
}

TEST_F(SelectPages, RefuseAnItemOfAnyPage) {
    Filled filled(kPageSlots + 1);
    select(filled.set, 1);
    select(filled.set, kPageSlots);
    select(filled.set, kPageSlots + 1);
    EXPECT_EQ(count(filled.set), kPageSlots + 1);
}

// --- append(mainId, subId)

TEST_F(AppendIds, SelectsWithoutMarkerInfoAndPath) {
    GxapSelectSet set;
    edit(set).append(id(1), id(2));
    const selected_entity* record = set.getAt(0);
    EXPECT_TRUE(record->mainEntId == id(1) && record->subEntId == id(2));
    EXPECT_EQ(record->gsMarker, -1);
    EXPECT_EQ(record->selectedEntityInfo, nullptr);
    EXPECT_EQ(record->nestedEntFullPath.logicalLength(), 0);
    EXPECT_TRUE(invariants(set));
}

TEST_F(AppendIds, FollowsTheRuleOfUniqueness) {
    GxapSelectSet set;
    edit(set).append(id(1), id(2));
    edit(set).append(id(1), id(2));
    EXPECT_EQ(count(set), 1u);
    allowDuplicates(set);
    edit(set).append(id(1), id(2));
    edit(set).append(id(1), id(2));
    EXPECT_EQ(count(set), 3u);
    EXPECT_TRUE(invariants(set));
}

// append(mainId, subId) calls select() without a path. select() then compares only ids and marker.
TEST_F(AppendIds, IsRefusedForAnItemWithPathAndTransform) {
    GxapSelectSet set;
    const Path path = idVector({7, 1});
    select(set, 1, 2, 0, makeInfoMovedBy(3), &path);
    edit(set).append(id(1), id(2));
    EXPECT_EQ(count(set), 1u);
}

TEST_F(AppendIds, OfANullMainIdDoesNothing) {
    GxapSelectSet set;
    edit(set).append(kNoId, id(2));
    EXPECT_EQ(count(set), 0u);
}

// --- append(record)

TEST_F(AppendRecord, OfNullAnswersFalse) {
    Filled filled(2);
    const GxapSelectSet sharer(filled.set);
    EXPECT_FALSE(edit(filled.set).append(nullptr));
    EXPECT_EQ(count(filled.set), 2u);
    EXPECT_EQ(filled.set.sharedData, sharer.sharedData);
    filled.set.releaseData();
    EXPECT_FALSE(edit(filled.set).append(nullptr));
    EXPECT_EQ(filled.set.sharedData, nullptr);
}

TEST_F(AppendRecord, CopiesKeysAndPath) {
    GxapSelectSet source, target;
    const Path path = idVector({7, 1});
    select(source, 1, 2, 33, nullptr, &path);
    EXPECT_TRUE(edit(target).append(source.getAt(0)));
    const selected_entity *original = source.getAt(0), *copy = target.getAt(0);
    ASSERT_NE(copy, original);
    EXPECT_TRUE(copy->mainEntId == id(1) && copy->subEntId == id(2));
    EXPECT_EQ(copy->gsMarker, 33);
    EXPECT_EQ(copy->nestedEntFullPath.data.block, original->nestedEntFullPath.data.block);
    EXPECT_EQ(copy->selectedEntityInfo, nullptr);
    EXPECT_TRUE(invariants(target));
}

TEST_F(AppendRecord, CopiesTheInfoDeeply) {
    GxapSelectSet source, target;
    GxapSelectedEntInfo* info = makeInfoMovedBy(3);
    info->word0 = 6;
    info->setSelFenceResultInfo({2, 0, 0.5});
    select(source, 1, 0, -1, info);
    ASSERT_TRUE(edit(target).append(source.getAt(0)));
    const GxapSelectedEntInfo* copy = target.getAt(0)->selectedEntityInfo;
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, info);
    EXPECT_EQ(source.getAt(0)->selectedEntityInfo, info);
    EXPECT_EQ(copy->word0, 6u);
    ASSERT_NE(copy->getFenceInfoPtr(), nullptr);
    EXPECT_NE(copy->getFenceInfoPtr(), info->getFenceInfoPtr());
    EXPECT_EQ(copy->getFenceInfoPtr()->index, 2);
    ASSERT_NE(copy->getBTRMatPtr(), nullptr);
    EXPECT_NE(copy->getBTRMatPtr(), info->getBTRMatPtr());
    EXPECT_EQ(copy->getBTRMatPtr()->entry[0][3], 3);
    EXPECT_TRUE(kvinmemory::isLiveBlock(copy));
}

TEST_F(AppendRecord, LeavesHighlightsAndSubSelectionBehind) {
    selected_entity record;
    record.mainEntId = id(1);
    record.hlVpArray.setLogicalLength(2);
    record.highlightSegmentArray = new KvVector<GxDbFullSubentPath*>;
    record.highlightSegmentArray->setLogicalLength(1);
    record.highlightSegmentArray->at(0) = new GxDbFullSubentPath;
    record.subselPathArray = new KvVector<GxDbFullSubentPath*>;
    record.hasSubselPaths = true;
    GxapSelectSet set;
    EXPECT_TRUE(edit(set).append(&record));
    const selected_entity* copy = set.getAt(0);
    EXPECT_EQ(copy->hlVpArray.data.block, gpEmptyVectorData);
    EXPECT_EQ(copy->highlightSegmentArray, nullptr);
    EXPECT_EQ(copy->subselPathArray, nullptr);
    EXPECT_FALSE(copy->hasSubselPaths);
}

TEST_F(AppendRecord, OfADuplicateAnswersTrueAddsNothingAndFreesItsCopy) {
    GxapSelectSet set;
    select(set, 1, 0, -1, makeInfoMovedBy(3));
    const long infos = liveInfos(), matrices = kvtest::liveNewMatrices();
    EXPECT_TRUE(edit(set).append(set.getAt(0)));
    EXPECT_EQ(count(set), 1u);
    EXPECT_EQ(liveInfos(), infos);
    EXPECT_EQ(kvtest::liveNewMatrices(), matrices);
}

TEST_F(AppendRecord, OfANullMainIdAnswersTrueAddsNothingAndFreesItsCopy) {
    selected_entity record;
    record.selectedEntityInfo = makeInfoMovedBy(3);
    GxapSelectSet set;
    const long infos = liveInfos(), matrices = kvtest::liveNewMatrices();
    EXPECT_TRUE(edit(set).append(&record));
    EXPECT_EQ(count(set), 0u);
    EXPECT_EQ(liveInfos(), infos);
    EXPECT_EQ(kvtest::liveNewMatrices(), matrices);
    EXPECT_TRUE(kvinmemory::isLiveBlock(record.selectedEntityInfo));
}

// append(record) always calls select() with the record's path. select() then also compares path and
// transform.
TEST_F(AppendRecord, IsComparedByPathAndTransform) {
    GxapSelectSet source, target;
    const Path path = idVector({7, 1});
    select(target, 1, 2);
    select(source, 1, 2, -1, nullptr, &path);
    EXPECT_TRUE(edit(target).append(source.getAt(0)));
    EXPECT_EQ(count(target), 2u);
    select(source, 1, 2, -1, makeInfoMovedBy(3), &path);
    EXPECT_TRUE(edit(target).append(source.getAt(1)));
    EXPECT_EQ(count(target), 3u);
    EXPECT_TRUE(edit(target).append(source.getAt(1)));
    EXPECT_EQ(count(target), 3u);
    EXPECT_TRUE(invariants(target));
}

TEST_F(AppendRecord, OfItsOwnDoublesItWithUniqueOff) {
    GxapSelectSet set;
    allowDuplicates(set);
    select(set, 1, 2, 5, makeInfoMovedBy(3));
    EXPECT_TRUE(edit(set).append(set.getAt(0)));
    EXPECT_EQ(count(set), 2u);
    EXPECT_NE(set.getAt(0)->selectedEntityInfo, set.getAt(1)->selectedEntityInfo);
    EXPECT_TRUE(invariants(set));
}

TEST_F(AppendRecord, OfItsOwnSharedDataCopiesTheData) {
    Filled filled(3);
    allowDuplicates(filled.set);
    const GxapSelectSet sharer(filled.set);
    EXPECT_TRUE(edit(filled.set).append(filled.set.getAt(1)));
    EXPECT_EQ(mainIds(filled.set), (std::vector<unsigned long>{1, 2, 3, 2}));
    EXPECT_EQ(mainIds(sharer), (std::vector<unsigned long>{1, 2, 3}));
    EXPECT_TRUE(invariants(filled.set));
}

TEST_F(AppendRecord, LeavesTheGivenRecordAsItWas) {
    GxapSelectSet source, target;
    const Path path = idVector({7, 1});
    select(source, 1, 2, 5, makeInfoMovedBy(3), &path);
    edit(target).append(source.getAt(0));
    EXPECT_EQ(count(source), 1u);
    EXPECT_EQ(source.getAt(0)->gsMarker, 5);
    EXPECT_EQ(source.getAt(0)->selectedEntityInfo->getBTRMatPtr()->entry[0][3], 3);
    EXPECT_TRUE(invariants(source));
}

TEST_F(AppendRecord, CreatesMissingData) {
    Filled source(1);
    GxapSelectSet set;
    set.releaseData();
    EXPECT_TRUE(edit(set).append(source.set.getAt(0)));
    EXPECT_EQ(mainIds(set), (std::vector<unsigned long>{1}));
    EXPECT_TRUE(invariants(set));
}

} // namespace
