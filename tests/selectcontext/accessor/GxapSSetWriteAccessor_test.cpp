#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/selectcontext/support/SetTestSupport.h"
#include "tests/support/Infos.h"
#include "tests/support/NewTracking.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace {

using kvtest::appendIds;
using kvtest::at;
using kvtest::edit;
using kvtest::Filled;
using kvtest::id;
using kvtest::idRange;
using kvtest::IndexState;
using kvtest::invariants;
using kvtest::isRegistered;
using kvtest::kNoId;
using kvtest::kPageSlots;
using kvtest::mainIds;
using kvtest::owners;
using kvtest::registrations;
using kvtest::takeOutIds;

using ConstIterator = GxapSelectSet::ConstIterator;
using Iterator = GxapSelectSet::Iterator;
using SSetData = GxapSelectSet::SSetData;

class WriteAccessor : public kvtest::SetTest {};
class WriteData : public kvtest::SetTest {};
class UpdateDataMap : public kvtest::SetTest {};
class AccessorClear : public kvtest::SetTest {};
class CopyFrom : public kvtest::SetTest {};
class AccessorGetAt : public kvtest::SetTest {};
class AccessorFindItr : public kvtest::SetTest {};
class AccessorIterators : public kvtest::SetTest {};
class SelectByNestedMode : public kvtest::SetTest {};
class AccessorHighlightSegment : public kvtest::SetTest {};

// A set of id(1) ... id(count), and a second set, `sharer`, that shares its data.
class Shared : public Filled {
public:
    explicit Shared(unsigned long count) : Filled(count), sharer(set) {}

    bool isShared() const { return set.sharedData == sharer.sharedData; }

    GxapSelectSet sharer;
};

void takeDataAway(GxapSelectSet& set) {
    set.releaseData();
}

// Expects the state after an edit of shared data: the edited set has its own data, the other set has kept the
// data `before`, and `earlier`, an iterator of the edited set, is disabled.
void expectMadePrivate(Shared& sets, const SSetData* before, const ConstIterator& earlier) {
    EXPECT_FALSE(sets.isShared());
    EXPECT_EQ(sets.sharer.sharedData, before);
    EXPECT_EQ(owners(sets.set), 1u);
    EXPECT_EQ(owners(sets.sharer), 1u);
    EXPECT_EQ(mainIds(sets.sharer), idRange(1, 3));
    EXPECT_EQ(earlier.truckerIterator, nullptr);
    EXPECT_TRUE(invariants(sets.set));
    EXPECT_TRUE(invariants(sets.sharer));
}

template <class Operation>
void expectCopies(Operation operation) {
    Shared sets(3);
    const SSetData* before = sets.set.sharedData;
    const ConstIterator mine = sets.set.iteratorAt(1), theirs = sets.sharer.iteratorAt(1);
    operation(edit(sets.set));
    expectMadePrivate(sets, before, mine);
    EXPECT_EQ(at(theirs), 2u);
}

template <class Operation>
void expectDoesNotCopy(Operation operation) {
    Shared sets(3);
    const ConstIterator mine = sets.set.iteratorAt(1);
    operation(edit(sets.set));
    EXPECT_TRUE(sets.isShared());
    EXPECT_EQ(owners(sets.set), 2u);
    EXPECT_EQ(at(mine), 2u);
    EXPECT_EQ(mainIds(sets.sharer), idRange(1, 3));
    EXPECT_TRUE(invariants(sets.set));
}

// --- the accessor itself

static_assert(std::is_base_of_v<GxapSelectSet, GxapSSetWriteAccessor>);
static_assert(sizeof(GxapSSetWriteAccessor) == sizeof(GxapSelectSet));
static_assert(!std::is_polymorphic_v<GxapSSetWriteAccessor>);

TEST_F(WriteAccessor, IsTheSetItself) {
    GxapSelectSet set;
    GxapSSetWriteAccessor& accessor = static_cast<GxapSSetWriteAccessor&>(set);
    accessor.append(id(1), kNoId);
    EXPECT_EQ(static_cast<void*>(&accessor), static_cast<void*>(&set));
    EXPECT_EQ(set.sharedData->entityCount, 1u);
    EXPECT_EQ(accessor.sharedData, set.sharedData);
    const ConstIterator it = accessor.begin();
    EXPECT_TRUE(isRegistered(set, it));
}

TEST_F(WriteAccessor, CanBeConstructedLikeASet) {
    const GxapSSetWriteAccessor plain, flagged(false);
    EXPECT_NE(plain.sharedData, nullptr);
    EXPECT_NE(flagged.sharedData, nullptr);
    EXPECT_TRUE(flagged.sharedData->unique);
}

TEST_F(WriteAccessor, SharesDataWhenCopied) {
    GxapSSetWriteAccessor a;
    a.append(id(1), kNoId);
    const GxapSSetWriteAccessor b(a);
    GxapSSetWriteAccessor c;
    c = a;
    EXPECT_EQ(a.sharedData, b.sharedData);
    EXPECT_EQ(a.sharedData, c.sharedData);
    EXPECT_EQ(owners(a), 3u);
}

TEST_F(WriteAccessor, KeepsTheLispCountOfTheSet) {
    Shared sets(3);
    sets.set.addLispRefCnt();
    edit(sets.set).writeData();
    edit(sets.set).clear();
    EXPECT_EQ(sets.set.getLispRefCnt(), 1);
}

// --- writeData

TEST_F(WriteData, CreatesMissingData) {
    GxapSelectSet set;
    takeDataAway(set);
    SSetData* data = edit(set).writeData();
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(data, set.sharedData);
    EXPECT_EQ(owners(set), 1u);
    EXPECT_TRUE(data->unique);
    EXPECT_FALSE(data->selectByNestedMode);
    EXPECT_EQ(data->entityCount, 0u);
    ASSERT_NE(data->entities, nullptr);
    EXPECT_EQ(data->entities->head, nullptr);
    EXPECT_TRUE(data->dataMap.empty());
}

TEST_F(WriteData, ReturnsPrivateDataUnchanged) {
    Filled filled(3);
    const SSetData* before = filled.set.sharedData;
    const ConstIterator it = filled.set.iteratorAt(1);
    EXPECT_EQ(edit(filled.set).writeData(), before);
    EXPECT_EQ(filled.set.sharedData, before);
    EXPECT_EQ(owners(filled.set), 1u);
    EXPECT_EQ(at(it), 2u);
    EXPECT_TRUE(isRegistered(filled.set, it));
}

TEST_F(WriteData, AllocatesNothingForPrivateData) {
    Filled filled(3);
    const long news = kvtest::newCalls(), mallocs = kvinmemory::mallocCalls();
    edit(filled.set).writeData();
    EXPECT_EQ(kvtest::newCalls(), news);
    EXPECT_EQ(kvinmemory::mallocCalls(), mallocs);
}

TEST_F(WriteData, CopiesSharedData) {
    expectCopies([](GxapSSetWriteAccessor& accessor) {
        SSetData* data = accessor.writeData();
        EXPECT_EQ(data, accessor.sharedData);
        EXPECT_EQ(mainIds(accessor), idRange(1, 3));
    });
}

TEST_F(WriteData, TakesOneReferenceOfThree) {
    Shared sets(3);
    const GxapSelectSet third(sets.set);
    ASSERT_EQ(owners(third), 3u);
    edit(sets.set).writeData();
    EXPECT_EQ(owners(third), 2u);
    EXPECT_EQ(owners(sets.set), 1u);
    EXPECT_EQ(sets.sharer.sharedData, third.sharedData);
}

TEST_F(WriteData, EmptiesTheRegistry) {
    Shared sets(3);
    const ConstIterator a = sets.set.begin(), b = sets.set.end();
    edit(sets.set).writeData();
    EXPECT_EQ(registrations(sets.set), 0);
    EXPECT_TRUE(a.isDone() && b.isDone());
}

TEST_F(WriteData, CopiesFlagsAndCount) {
    Filled filled(3);
    edit(filled.set).setUnique(false);
    edit(filled.set).setSelectByNestedMode(true);
    const GxapSelectSet sharer(filled.set);
    const SSetData* data = edit(filled.set).writeData();
    EXPECT_NE(data, sharer.sharedData);
    EXPECT_FALSE(data->unique);
    EXPECT_TRUE(data->selectByNestedMode);
    EXPECT_EQ(data->entityCount, 3u);
}

TEST_F(WriteData, CopiesTheRecords) {
    GxapSelectSet set;
    GxapSelectedEntInfo* info = kvtest::makeInfo();
    info->word0 = 6;
    const KvVector<GxDbObjectId> path = kvtest::idVector({4, 5});
    edit(set).select(id(1), id(2), 7, info, &path);
    const GxapSelectSet sharer(set);
    edit(set).writeData();
    const selected_entity *mine = set.getAt(0), *theirs = sharer.getAt(0);
    ASSERT_NE(mine, theirs);
    EXPECT_TRUE(mine->mainEntId == id(1) && mine->subEntId == id(2));
    EXPECT_EQ(mine->gsMarker, 7);
    EXPECT_EQ(mine->nestedEntFullPath.data.block, theirs->nestedEntFullPath.data.block);
    EXPECT_EQ(theirs->selectedEntityInfo, info);
    ASSERT_NE(mine->selectedEntityInfo, info);
    EXPECT_EQ(mine->selectedEntityInfo->word0, 6u);
}

TEST_F(WriteData, ClosesTheGapsOfTheStore) {
    Filled filled(6);
    takeOutIds(filled.set, 2, 3);
    const GxapSelectSet sharer(filled.set);
    edit(filled.set).writeData();
    EXPECT_EQ(mainIds(filled.set), (std::vector<unsigned long>{1, 5, 6}));
    EXPECT_EQ(filled.store().head->fillEnd, filled.slot(3));
    EXPECT_TRUE(invariants(filled.set));
}

TEST_F(WriteData, CopiesAcrossPages) {
    Shared sets(kPageSlots + 1);
    edit(sets.set).writeData();
    EXPECT_EQ(mainIds(sets.set), kvtest::idRange(1, kPageSlots + 1));
    EXPECT_EQ(sets.set.find(id(kPageSlots + 1)), static_cast<int>(kPageSlots));
    EXPECT_TRUE(invariants(sets.set));
    EXPECT_TRUE(invariants(sets.sharer));
}

TEST_F(WriteData, MakesDataPrivateThatTheOthersHaveLetGo) {
    Shared sets(3);
    const SSetData* before = sets.set.sharedData;
    sets.sharer.releaseData();
    EXPECT_EQ(edit(sets.set).writeData(), before);
}

// --- updateDataMap

TEST_F(UpdateDataMap, CreatesMissingData) {
    GxapSelectSet set;
    takeDataAway(set);
    edit(set).updateDataMap();
    ASSERT_NE(set.sharedData, nullptr);
    EXPECT_TRUE(set.sharedData->dataMap.empty());
    EXPECT_TRUE(invariants(set));
}

TEST_F(UpdateDataMap, OfAnEmptySetLeavesAnEmptyIndex) {
    GxapSelectSet set;
    set.sharedData->dataMap.emplace(id(1), 16ul);
    edit(set).updateDataMap();
    EXPECT_TRUE(set.sharedData->dataMap.empty());
}

TEST_F(UpdateDataMap, MakesARecordFoundByItsNewMainId) {
    Filled filled(3);
    (*edit(filled.set).getAt(1))->mainEntId = id(20);
    EXPECT_EQ(filled.set.find(id(20)), -1);
    edit(filled.set).updateDataMap();
    EXPECT_EQ(filled.set.find(id(20)), 1);
    EXPECT_EQ(filled.set.find(id(2)), -1);
    EXPECT_TRUE(invariants(filled.set));
}

TEST_F(UpdateDataMap, IndexesAReplacedRecord) {
    Filled filled(3);
    selected_entity** slot = edit(filled.set).getAt(2);
    delete *slot;
    *slot = new selected_entity;
    (*slot)->mainEntId = id(9);
    edit(filled.set).updateDataMap();
    EXPECT_EQ(filled.set.find(id(9)), 2);
    EXPECT_EQ(filled.set.find(id(3)), -1);
    EXPECT_TRUE(invariants(filled.set));
}

TEST_F(UpdateDataMap, ReplacesWhateverTheIndexHeld) {
    Filled filled(3);
    filled.set.sharedData->dataMap.clear();
    filled.set.sharedData->dataMap.emplace(id(50), 16ul);
    edit(filled.set).updateDataMap();
    EXPECT_TRUE(invariants(filled.set));
    EXPECT_EQ(filled.set.find(id(50)), -1);
}

TEST_F(UpdateDataMap, PutsEqualKeysIntoStoreOrder) {
    GxapSelectSet set;
    edit(set).setUnique(false);
    for (unsigned long sub = 1; sub <= 4; ++sub)
        edit(set).append(id(sub == 2 ? 6 : 5), id(sub));
    set.sharedData->dataMap.clear();
    for (int i = 3; i >= 0; --i)
        set.sharedData->dataMap.emplace(set.getAt(i)->mainEntId, 16ul);
    edit(set).updateDataMap();
    EXPECT_TRUE(invariants(set));
    const auto found = set.findInMap(id(5));
    const auto slot = reinterpret_cast<selected_entity* const*>(found->second);
    EXPECT_EQ(*slot, set.getAt(0));
}

TEST_F(UpdateDataMap, BringsBackWhatTheRemovalByTwoKeysDropped) {
    GxapSelectSet set;
    edit(set).append(id(1), id(11));
    edit(set).append(id(1), id(12));
    const std::unique_ptr<selected_entity> removed(set.getAt(0));
    ASSERT_TRUE(edit(set).remove(id(1), id(11)));
    EXPECT_EQ(set.find(id(1)), -1);
    EXPECT_TRUE(invariants(set, IndexState::kMayLackEntries));
    edit(set).updateDataMap();
    EXPECT_EQ(set.find(id(1)), 0);
    EXPECT_TRUE(invariants(set));
}

TEST_F(UpdateDataMap, RebuildsTheIndexOfSharedDataInPlace) {
    Shared sets(3);
    sets.set.getAt(0)->mainEntId = id(30);
    const ConstIterator it = sets.set.begin();
    edit(sets.set).updateDataMap();
    EXPECT_TRUE(sets.isShared());
    EXPECT_EQ(owners(sets.set), 2u);
    EXPECT_EQ(sets.sharer.find(id(30)), 0);
    EXPECT_EQ(at(it), 30u);
    EXPECT_TRUE(invariants(sets.sharer));
}

TEST_F(UpdateDataMap, TrustsTheCount) {
    Filled filled(3);
    filled.set.sharedData->entityCount = 2;
    edit(filled.set).updateDataMap();
    EXPECT_EQ(filled.set.sharedData->entityCount, 2u);
    EXPECT_EQ(filled.set.sharedData->dataMap.size(), 3u);
}

TEST_F(UpdateDataMap, PassesOverFreedSlotsAndPages) {
    Filled filled(2 * kPageSlots + 1);
    takeOutIds(filled.set, 2, 1);
    takeOutIds(filled.set, kPageSlots + 1, kPageSlots);
    edit(filled.set).updateDataMap();
    EXPECT_EQ(filled.set.sharedData->dataMap.size(), kPageSlots);
    EXPECT_TRUE(invariants(filled.set));
}

TEST_F(UpdateDataMap, StartsBehindAFreedFirstSlot) {
    Filled filled(3);
    takeOutIds(filled.set, 1, 1);
    edit(filled.set).updateDataMap();
    EXPECT_EQ(filled.set.find(id(2)), 0);
    EXPECT_TRUE(invariants(filled.set));
}

TEST_F(UpdateDataMap, SkipsASlotWithANullRecord) {
    Filled filled(3);
    const std::unique_ptr<selected_entity> record(filled.set.getAt(1));
    *edit(filled.set).getAt(1) = nullptr;
    edit(filled.set).updateDataMap();
    EXPECT_EQ(filled.set.sharedData->dataMap.size(), 2u);
    EXPECT_EQ(filled.set.find(id(3)), 2);
}

TEST_F(UpdateDataMap, LeavesRecordsFlagsAndIteratorsAlone) {
    Filled filled(3);
    edit(filled.set).setUnique(false);
    edit(filled.set).setSelectByNestedMode(true);
    const ConstIterator it = filled.set.iteratorAt(2);
    const selected_entity* record = filled.set.getAt(2);
    edit(filled.set).updateDataMap();
    EXPECT_EQ(it.get(), record);
    EXPECT_TRUE(isRegistered(filled.set, it));
    EXPECT_FALSE(filled.set.sharedData->unique);
    EXPECT_TRUE(filled.set.sharedData->selectByNestedMode);
}

// --- clear

TEST_F(AccessorClear, EmptiesPrivateDataInPlace) {
    Filled filled(3);
    const SSetData* data = filled.set.sharedData;
    const auto* store = data->entities;
    edit(filled.set).clear();
    EXPECT_EQ(filled.set.sharedData, data);
    EXPECT_EQ(data->entities, store);
    EXPECT_EQ(store->head, nullptr);
    EXPECT_EQ(store->tail, nullptr);
    EXPECT_EQ(data->entityCount, 0u);
    EXPECT_TRUE(data->dataMap.empty());
    EXPECT_EQ(owners(filled.set), 1u);
    EXPECT_TRUE(invariants(filled.set));
}

TEST_F(AccessorClear, DestroysTheRecordsWithTheirInfos) {
    GxapSelectSet set;
    const long news = kvtest::liveNewBlocksOfSize(sizeof(selected_entity));
    const long mallocs = kvinmemory::liveBlocksOfSize(sizeof(GxapSelectedEntInfo));
    edit(set).select(id(1), kNoId, -1, kvtest::makeInfo(), nullptr);
    edit(set).append(id(2), kNoId);
    edit(set).clear();
    EXPECT_EQ(kvtest::liveNewBlocksOfSize(sizeof(selected_entity)), news);
    EXPECT_EQ(kvinmemory::liveBlocksOfSize(sizeof(GxapSelectedEntInfo)), mallocs);
}

TEST_F(AccessorClear, KeepsTheFlagsOfPrivateData) {
    Filled filled(3);
    edit(filled.set).setUnique(false);
    edit(filled.set).setSelectByNestedMode(true);
    edit(filled.set).clear();
    EXPECT_FALSE(filled.set.sharedData->unique);
    EXPECT_TRUE(filled.set.sharedData->selectByNestedMode);
}

TEST_F(AccessorClear, LeavesSharedDataToTheOthers) {
    Shared sets(3);
    const SSetData* before = sets.set.sharedData;
    const ConstIterator mine = sets.set.begin(), theirs = sets.sharer.begin();
    edit(sets.set).clear();
    EXPECT_EQ(sets.sharer.sharedData, before);
    EXPECT_EQ(owners(sets.sharer), 1u);
    EXPECT_EQ(mainIds(sets.sharer), idRange(1, 3));
    EXPECT_EQ(at(theirs), 1u);
    EXPECT_EQ(mine.truckerIterator, nullptr);
    EXPECT_EQ(registrations(sets.set), 0);
    EXPECT_NE(sets.set.sharedData, before);
    EXPECT_EQ(sets.set.sharedData->entityCount, 0u);
    EXPECT_EQ(owners(sets.set), 1u);
    EXPECT_TRUE(invariants(sets.set));
    EXPECT_TRUE(invariants(sets.sharer));
}

TEST_F(AccessorClear, OfSharedDataLosesTheFlags) {
    Filled filled(3);
    edit(filled.set).setUnique(false);
    edit(filled.set).setSelectByNestedMode(true);
    const GxapSelectSet sharer(filled.set);
    edit(filled.set).clear();
    EXPECT_TRUE(filled.set.sharedData->unique);
    EXPECT_FALSE(filled.set.sharedData->selectByNestedMode);
    EXPECT_FALSE(sharer.sharedData->unique);
    EXPECT_TRUE(sharer.sharedData->selectByNestedMode);
}

TEST_F(AccessorClear, CopiesNoRecordOfSharedData) {
    GxapSelectSet set;
    edit(set).select(id(1), kNoId, -1, kvtest::makeInfo(), nullptr);
    const GxapSelectSet sharer(set);
    const long mallocs = kvinmemory::mallocCalls();
    edit(set).clear();
    EXPECT_EQ(kvinmemory::mallocCalls(), mallocs);
}

TEST_F(AccessorClear, CreatesMissingData) {
    GxapSelectSet set;
    takeDataAway(set);
    edit(set).clear();
    ASSERT_NE(set.sharedData, nullptr);
    EXPECT_TRUE(set.sharedData->unique);
    EXPECT_TRUE(invariants(set));
}

TEST_F(AccessorClear, OfAnEmptySetKeepsItsData) {
    GxapSelectSet set;
    const SSetData* data = set.sharedData;
    edit(set).clear();
    EXPECT_EQ(set.sharedData, data);
    EXPECT_TRUE(invariants(set));
}

TEST_F(AccessorClear, LetsTheStoreBeFilledAgain) {
    Filled filled(kPageSlots + 1);
    edit(filled.set).clear();
    appendIds(filled.set, 1, kPageSlots + 1);
    EXPECT_EQ(mainIds(filled.set), kvtest::idRange(1, kPageSlots + 1));
    EXPECT_TRUE(invariants(filled.set));
}

TEST_F(AccessorClear, SkipsASlotWithANullRecord) {
    Filled filled(3);
    const std::unique_ptr<selected_entity> record(filled.set.getAt(1));
    *edit(filled.set).getAt(1) = nullptr;
    edit(filled.set).clear();
    EXPECT_EQ(filled.set.sharedData->entityCount, 0u);
    EXPECT_TRUE(invariants(filled.set));
}

// --- copyFrom

TEST_F(CopyFrom, SharesTheOthersData) {
    Filled source(3), target(1);
    const ConstIterator it = target.set.begin();
    target.set.addLispRefCnt();
    GxapSSetWriteAccessor& result = edit(target.set).copyFrom(source.set);
    EXPECT_EQ(&result, &target.set);
    EXPECT_EQ(target.set.sharedData, source.set.sharedData);
    EXPECT_EQ(owners(source.set), 2u);
    EXPECT_EQ(it.truckerIterator, nullptr);
    EXPECT_EQ(registrations(target.set), 0);
    EXPECT_EQ(target.set.getLispRefCnt(), 1);
    EXPECT_TRUE(invariants(target.set));
}

TEST_F(CopyFrom, ItselfOrASharerDoesNothing) {
    Shared sets(3);
    const ConstIterator it = sets.set.iteratorAt(1);
    edit(sets.set).copyFrom(sets.set);
    edit(sets.set).copyFrom(sets.sharer);
    EXPECT_TRUE(sets.isShared());
    EXPECT_EQ(owners(sets.set), 2u);
    EXPECT_EQ(at(it), 2u);
    EXPECT_TRUE(isRegistered(sets.set, it));
}

TEST_F(CopyFrom, ASetWithoutDataLeavesNone) {
    Filled target(3);
    GxapSelectSet nothing;
    takeDataAway(nothing);
    edit(target.set).copyFrom(nothing);
    EXPECT_EQ(target.set.sharedData, nullptr);
    EXPECT_EQ(nothing.sharedData, nullptr);
}

TEST_F(CopyFrom, AllocatesNothing) {
    Filled source(3), target(1);
    const long news = kvtest::newCalls(), mallocs = kvinmemory::mallocCalls();
    edit(target.set).copyFrom(source.set);
    EXPECT_EQ(kvtest::newCalls(), news);
    EXPECT_EQ(kvinmemory::mallocCalls(), mallocs);
}

// --- getAt

TEST_F(AccessorGetAt, GivesTheSlotOfTheRecord) {
    Filled filled(3);
    selected_entity** slot = edit(filled.set).getAt(1);
    ASSERT_NE(slot, nullptr);
    EXPECT_EQ(slot, &filled.slot(1)->value);
    EXPECT_EQ(*slot, filled.set.getAt(1));
    EXPECT_EQ(filled.set.findInMap(id(2))->second,
              static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(slot)));
}

TEST_F(AccessorGetAt, CountsOccupiedSlotsAcrossPages) {
    Filled filled(kPageSlots + 2);
    takeOutIds(filled.set, 2, 1);
    EXPECT_EQ((*edit(filled.set).getAt(1))->mainEntId, id(3));
    EXPECT_EQ((*edit(filled.set).getAt(kPageSlots - 1))->mainEntId, id(kPageSlots + 1));
    EXPECT_EQ(edit(filled.set).getAt(kPageSlots), &filled.store().tail->slots[1].value);
    EXPECT_EQ(edit(filled.set).getAt(kPageSlots + 1), nullptr);
}

TEST_F(AccessorGetAt, LetsTheRecordBeReplaced) {
    Filled filled(3);
    selected_entity** slot = edit(filled.set).getAt(0);
    const std::unique_ptr<selected_entity> old(*slot);
    *slot = new selected_entity;
    (*slot)->mainEntId = id(1);
    (*slot)->gsMarker = 5;
    EXPECT_EQ(filled.set.iteratorAt(0).gsMarker(), 5);
    EXPECT_TRUE(invariants(filled.set));
}

TEST_F(AccessorGetAt, OnASetWithoutDataCreatesNone) {
    GxapSelectSet set;
    takeDataAway(set);
    EXPECT_EQ(edit(set).getAt(0), nullptr);
    EXPECT_EQ(set.sharedData, nullptr);
}

TEST_F(AccessorGetAt, OnAnEmptySharedSetDoesNotCopy) {
    Shared sets(0);
    EXPECT_EQ(edit(sets.set).getAt(0), nullptr);
    EXPECT_EQ(edit(sets.set).getAt(-1), nullptr);
    EXPECT_EQ(edit(sets.set).getAt(3), nullptr);
    EXPECT_TRUE(sets.isShared());
}

TEST_F(AccessorGetAt, OfANegativeIndexDoesNotCopy) {
    expectDoesNotCopy([](GxapSSetWriteAccessor& accessor) {
        EXPECT_EQ(accessor.getAt(-1), nullptr);
        EXPECT_EQ(accessor.getAt(-2147483647 - 1), nullptr);
    });
}

TEST_F(AccessorGetAt, AtTheCountOrAboveIsNullButCopies) {
    expectCopies([](GxapSSetWriteAccessor& accessor) { EXPECT_EQ(accessor.getAt(3), nullptr); });
    expectCopies([](GxapSSetWriteAccessor& accessor) { EXPECT_EQ(accessor.getAt(2147483647), nullptr); });
}

TEST_F(AccessorGetAt, CopiesSharedData) {
    expectCopies([](GxapSSetWriteAccessor& accessor) {
        selected_entity** slot = accessor.getAt(0);
        ASSERT_NE(slot, nullptr);
        EXPECT_EQ(slot, &accessor.sharedData->entities->head->slots[0].value);
    });
}

TEST_F(AccessorGetAt, OfDataWithoutAStoreIsNull) {
    Filled filled(3);
    auto* store = filled.set.sharedData->entities;
    filled.set.sharedData->entities = nullptr;
    EXPECT_EQ(edit(filled.set).getAt(0), nullptr);
    filled.set.sharedData->entities = store;
}

TEST_F(AccessorGetAt, OfPrivateDataTouchesNoIterator) {
    Filled filled(3);
    const ConstIterator it = filled.set.iteratorAt(2);
    edit(filled.set).getAt(0);
    EXPECT_EQ(at(it), 3u);
    EXPECT_EQ(registrations(filled.set), 1);
}

// --- findItr, findMain

template <class... Keys>
constexpr bool
canFindItr(decltype(std::declval<GxapSSetWriteAccessor&>().findItr(std::declval<Keys>()...))*) {
    return true;
}
template <class... Keys>
constexpr bool canFindItr(...) {
    return false;
}
using Id = const GxDbObjectId&;
using Path = const KvVector<GxDbObjectId>*;
static_assert(canFindItr<Id, Id, long>(nullptr));
static_assert(!canFindItr<Id, Id, Path>(nullptr) && !canFindItr<Id, Id, long, Path>(nullptr),
              "the accessor looks nothing up by nested path");

TEST_F(AccessorFindItr, FindsByOneTwoAndThreeKeys) {
    GxapSelectSet set;
    edit(set).append(id(1), id(11));
    edit(set).append(id(1), id(12));
    edit(set).select(id(1), id(12), 7, nullptr, nullptr);
    GxapSSetWriteAccessor& accessor = edit(set);
    EXPECT_EQ(accessor.findItr(id(1)).index, 0);
    EXPECT_EQ(accessor.findItr(id(1), id(12)).index, 1);
    EXPECT_EQ(accessor.findItr(id(1), id(12), 7).index, 2);
    EXPECT_EQ(accessor.findItr(id(1), id(12), 0).index, 1);
    EXPECT_EQ(accessor.findMain(id(1)).index, 0);
    EXPECT_EQ(accessor.findItr(id(1), id(12), 7).get(), set.getAt(2));
}

TEST_F(AccessorFindItr, GivesTheEndForAnythingElse) {
    Filled filled(3);
    GxapSSetWriteAccessor& accessor = edit(filled.set);
    EXPECT_TRUE(accessor.findItr(id(9)) == accessor.end());
    EXPECT_TRUE(accessor.findItr(id(1), id(9)) == accessor.end());
    EXPECT_TRUE(accessor.findItr(id(1), kNoId, 9) == accessor.end());
    EXPECT_TRUE(accessor.findMain(id(9)) == accessor.end());
    EXPECT_TRUE(accessor.findItr(kNoId) == accessor.end());
}

TEST_F(AccessorFindItr, CopiesSharedDataFoundOrNot) {
    for (const unsigned long n : {2ul, 9ul}) {
        expectCopies([n](GxapSSetWriteAccessor& accessor) {
            const Iterator it = accessor.findItr(id(n));
            EXPECT_TRUE(isRegistered(accessor, it));
        });
        expectCopies([n](GxapSSetWriteAccessor& accessor) { accessor.findItr(id(n), kNoId); });
        expectCopies([n](GxapSSetWriteAccessor& accessor) { accessor.findItr(id(n), kNoId, -1); });
        expectCopies([n](GxapSSetWriteAccessor& accessor) { accessor.findMain(id(n)); });
    }
}

TEST_F(AccessorFindItr, StandsInThePrivateData) {
    Shared sets(3);
    Iterator it = edit(sets.set).findItr(id(2));
    EXPECT_EQ(it.truckerIterator->trucker, sets.set.sharedData->entities);
    it.get()->gsMarker = 4;
    EXPECT_EQ(sets.set.getAt(1)->gsMarker, 4);
    EXPECT_EQ(sets.sharer.getAt(1)->gsMarker, -1);
}

TEST_F(AccessorFindItr, CreatesMissingData) {
    GxapSelectSet set;
    takeDataAway(set);
    const Iterator it = edit(set).findItr(id(1));
    EXPECT_NE(set.sharedData, nullptr);
    EXPECT_TRUE(it.isDone());
    EXPECT_TRUE(isRegistered(set, it));
}

// --- iterator factories

static_assert(std::is_same_v<decltype(std::declval<GxapSSetWriteAccessor&>().begin()), Iterator>);
static_assert(std::is_same_v<decltype(std::declval<GxapSSetWriteAccessor&>().end()), Iterator>);
static_assert(std::is_same_v<decltype(std::declval<GxapSSetWriteAccessor&>().iteratorAt(0)), Iterator>);
static_assert(std::is_same_v<decltype(std::declval<GxapSSetWriteAccessor&>().findMain(kNoId)), Iterator>);

TEST_F(AccessorIterators, GiveTheirPositions) {
    Filled filled(3);
    GxapSSetWriteAccessor& accessor = edit(filled.set);
    EXPECT_EQ(at(accessor.begin()), 1u);
    EXPECT_EQ(at(accessor.iteratorAt(2)), 3u);
    EXPECT_TRUE(accessor.end() == filled.set.end());
    EXPECT_TRUE(accessor.begin() == filled.set.begin());
}

TEST_F(AccessorIterators, ClampAnIndexAboveTheCountAndPassANegativeOneThrough) {
    Filled filled(3);
    GxapSSetWriteAccessor& accessor = edit(filled.set);
    EXPECT_TRUE(accessor.iteratorAt(3) == accessor.end());
    EXPECT_TRUE(accessor.iteratorAt(4) == accessor.end());
    EXPECT_TRUE(accessor.iteratorAt(2147483647) == accessor.end());
    const Iterator negative = accessor.iteratorAt(-1);
    EXPECT_EQ(negative.index, -1);
    EXPECT_TRUE(negative.isDone());
    EXPECT_TRUE(isRegistered(filled.set, negative));
}

TEST_F(AccessorIterators, CopySharedDataAndStandInTheCopy) {
    expectCopies([](GxapSSetWriteAccessor& accessor) {
        const Iterator it = accessor.begin();
        EXPECT_EQ(it.truckerIterator->trucker, accessor.sharedData->entities);
        EXPECT_EQ(at(it), 1u);
        EXPECT_TRUE(isRegistered(accessor, it));
    });
    expectCopies([](GxapSSetWriteAccessor& accessor) {
        const Iterator it = accessor.iteratorAt(1);
        EXPECT_EQ(it.truckerIterator->trucker, accessor.sharedData->entities);
        EXPECT_EQ(at(it), 2u);
    });
    expectCopies([](GxapSSetWriteAccessor& accessor) { accessor.iteratorAt(-1); });
}

TEST_F(AccessorIterators, OfTheEndLeaveSharedDataShared) {
    expectDoesNotCopy([](GxapSSetWriteAccessor& accessor) {
        const Iterator it = accessor.end();
        EXPECT_EQ(it.index, 3);
        EXPECT_TRUE(it.isDone());
        EXPECT_TRUE(isRegistered(accessor, it));
    });
}

TEST_F(AccessorIterators, CreateMissingData) {
    const auto expectCreates = [](auto factory) {
        GxapSelectSet set;
        takeDataAway(set);
        const Iterator it = factory(edit(set));
        ASSERT_NE(set.sharedData, nullptr);
        EXPECT_TRUE(it.isDone());
        EXPECT_EQ(it.index, 0);
        EXPECT_EQ(registrations(set), 1);
        EXPECT_TRUE(invariants(set));
    };
    expectCreates([](GxapSSetWriteAccessor& accessor) { return accessor.begin(); });
    expectCreates([](GxapSSetWriteAccessor& accessor) { return accessor.end(); });
    expectCreates([](GxapSSetWriteAccessor& accessor) { return accessor.iteratorAt(4); });
}

TEST_F(AccessorIterators, LeaveExactlyOneRegistration) {
    Filled filled(3);
    const auto expectOne = [&filled](auto factory) {
        {
            const Iterator it = factory(edit(filled.set));
            ASSERT_EQ(registrations(filled.set), 1);
            EXPECT_EQ(filled.set.iterators.at(0), &it);
        }
        EXPECT_EQ(registrations(filled.set), 0);
    };
    expectOne([](GxapSSetWriteAccessor& accessor) { return accessor.begin(); });
    expectOne([](GxapSSetWriteAccessor& accessor) { return accessor.end(); });
    expectOne([](GxapSSetWriteAccessor& accessor) { return accessor.iteratorAt(1); });
    expectOne([](GxapSSetWriteAccessor& accessor) { return accessor.findItr(id(2)); });
    expectOne([](GxapSSetWriteAccessor& accessor) { return accessor.findItr(id(9)); });
    expectOne([](GxapSSetWriteAccessor& accessor) { return accessor.findItr(id(2), kNoId); });
    expectOne([](GxapSSetWriteAccessor& accessor) { return accessor.findItr(id(2), kNoId, -1); });
    expectOne([](GxapSSetWriteAccessor& accessor) { return accessor.findMain(id(2)); });
    expectOne([](GxapSSetWriteAccessor& accessor) { return accessor.findMainSubsel(id(2)); });
}

TEST_F(AccessorIterators, WalkAndWrite) {
    Shared sets(3);
    for (Iterator it = edit(sets.set).begin(); !it.isDone(); it.step(true))
        it.get()->gsMarker = 8;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(sets.set.getAt(i)->gsMarker, 8);
        EXPECT_EQ(sets.sharer.getAt(i)->gsMarker, -1);
    }
}

// --- the nested mode

TEST_F(SelectByNestedMode, IsSwitchedOnAndOff) {
    Filled filled(3);
    edit(filled.set).setSelectByNestedMode(true);
    EXPECT_TRUE(filled.set.isSelectByNestedMode());
    edit(filled.set).setSelectByNestedMode(false);
    EXPECT_FALSE(filled.set.isSelectByNestedMode());
    EXPECT_EQ(mainIds(filled.set), idRange(1, 3));
}

TEST_F(SelectByNestedMode, CopiesSharedDataWhenItChanges) {
    expectCopies([](GxapSSetWriteAccessor& accessor) {
        accessor.setSelectByNestedMode(true);
        EXPECT_TRUE(accessor.isSelectByNestedMode());
    });
}

TEST_F(SelectByNestedMode, StaysTheOthersOwn) {
    Shared sets(3);
    edit(sets.set).setSelectByNestedMode(true);
    EXPECT_FALSE(sets.sharer.isSelectByNestedMode());
}

TEST_F(SelectByNestedMode, LeavesSharedDataSharedWhenItStays) {
    expectDoesNotCopy([](GxapSSetWriteAccessor& accessor) { accessor.setSelectByNestedMode(false); });
    Filled filled(3);
    edit(filled.set).setSelectByNestedMode(true);
    const GxapSelectSet sharer(filled.set);
    edit(filled.set).setSelectByNestedMode(true);
    EXPECT_EQ(filled.set.sharedData, sharer.sharedData);
}

TEST_F(SelectByNestedMode, CreatesMissingData) {
    for (const bool on : {true, false}) {
        GxapSelectSet set;
        takeDataAway(set);
        edit(set).setSelectByNestedMode(on);
        ASSERT_NE(set.sharedData, nullptr);
        EXPECT_EQ(set.isSelectByNestedMode(), on);
        EXPECT_TRUE(invariants(set));
    }
}

// --- highlight segments by way of the accessor

TEST_F(AccessorHighlightSegment, AddsToTheIteratorsRecordAndClears) {
    Filled filled(3);
    const GxDbFullSubentPath path = kvtest::subentPath({2}, 1, 5);
    Iterator it = edit(filled.set).iteratorAt(1);
    edit(filled.set).setHighlightSegment(it, &path);
    ASSERT_NE(it.highlightSegmentArray(), nullptr);
    ASSERT_EQ(it.highlightSegmentArray()->logicalLength(), 1);
    EXPECT_TRUE(*it.highlightSegmentArray()->at(0) == path);
    EXPECT_EQ(filled.set.getAt(0)->highlightSegmentArray, nullptr);
    edit(filled.set).setHighlightSegment(it, nullptr);
    EXPECT_EQ(it.highlightSegmentArray(), nullptr);
}

TEST_F(AccessorHighlightSegment, DoesNotCopySharedData) {
    Shared sets(3);
    const GxDbFullSubentPath path = kvtest::subentPath({2});
    Iterator it(&sets.set, 1);
    edit(sets.set).setHighlightSegment(it, &path);
    EXPECT_TRUE(sets.isShared());
    EXPECT_NE(sets.sharer.getAt(1)->highlightSegmentArray, nullptr);
}

TEST_F(AccessorHighlightSegment, WorksOnTheIteratorOfAnotherSet) {
    Filled filled(3), other(3);
    const GxDbFullSubentPath path = kvtest::subentPath({2});
    Iterator it(&other.set, 1);
    edit(filled.set).setHighlightSegment(it, &path);
    EXPECT_NE(other.set.getAt(1)->highlightSegmentArray, nullptr);
    EXPECT_EQ(filled.set.getAt(1)->highlightSegmentArray, nullptr);
}

} // namespace
