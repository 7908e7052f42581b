#include "selectcontext/GxapSelectSet.h"

#include "tests/selectcontext/support/RecordTestSupport.h"

#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

namespace {

using kvinmemory::livePaths;
using kvtest::addRecord;
using kvtest::addRecords;
using kvtest::AllocationCount;
using kvtest::cloneOf;
using kvtest::giveSegments;
using kvtest::id;
using kvtest::invariants;
using kvtest::isRegistered;
using kvtest::occupiedSlots;
using kvtest::owners;
using kvtest::recordAt;
using kvtest::SegmentArray;
using kvtest::SSetData;
using kvtest::Store;
using ConstIterator = GxapSelectSet::ConstIterator;

constexpr std::int64_t kLispMin = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kLispMax = std::numeric_limits<std::int64_t>::max();

class SelectSet : public kvtest::SetTest {};
class SharedData : public kvtest::SetTest {};

bool isEnabled(const ConstIterator& it) {
    return it.truckerIterator != nullptr;
}

} // namespace

// ---- construction

TEST_F(SelectSet, NewSetHasEmptyDataOfItsOwn) {
    GxapSelectSet set;
    ASSERT_NE(set.sharedData, nullptr);
    EXPECT_EQ(owners(set), 1u);
    EXPECT_TRUE(set.sharedData->unique);
    EXPECT_FALSE(set.sharedData->selectByNestedMode);
    EXPECT_EQ(set.sharedData->entityCount, 0u);
    EXPECT_TRUE(set.sharedData->dataMap.empty());
}

TEST_F(SelectSet, NewSetHasAStoreWithoutPages) {
    GxapSelectSet set;
    ASSERT_NE(set.sharedData->entities, nullptr);
    EXPECT_EQ(set.sharedData->entities->head, nullptr);
    EXPECT_EQ(set.sharedData->entities->tail, nullptr);
}

TEST_F(SelectSet, NewSetHasAnEmptyRegistryAndNoLispCount) {
    GxapSelectSet set;
    EXPECT_EQ(set.iterators.mArray, nullptr);
    EXPECT_EQ(set.iterators.mPhysicalLength, 0);
    EXPECT_EQ(set.iterators.mLogicalLength, 0);
    EXPECT_EQ(set.iterators.mGrowLength, 8);
    EXPECT_EQ(set.lispRefCnt, 0);
}

TEST_F(SelectSet, ConstructorArgumentIsIgnored) {
    for (const bool ignored : {false, true}) {
        const GxapSelectSet other(ignored);
        ASSERT_NE(other.sharedData, nullptr);
        EXPECT_TRUE(other.sharedData->unique);
        EXPECT_FALSE(other.sharedData->selectByNestedMode);
        EXPECT_NE(other.sharedData->entities, nullptr);
    }
}

TEST_F(SelectSet, LibraryItselfHoldsTwoEmptyVectors) {
    // The platform has one reference. The library has two: an empty id path, and an empty list of numbers.
    EXPECT_EQ(gpEmptyVectorData->refCount.load(), 3u);
}

// ---- copying

TEST_F(SelectSet, CopySharesTheData) {
    GxapSelectSet set;
    addRecord(set, id(1));
    const GxapSelectSet copy(set);
    EXPECT_EQ(copy.sharedData, set.sharedData);
    EXPECT_EQ(owners(set), 2u);
}

TEST_F(SelectSet, DestroyingACopyLeavesTheDataIntact) {
    GxapSelectSet set;
    addRecord(set, id(1));
    const SSetData* const data = set.sharedData;
    { const GxapSelectSet copy(set); }
    EXPECT_EQ(set.sharedData, data);
    EXPECT_EQ(owners(set), 1u);
    EXPECT_EQ(data->entityCount, 1u);
    EXPECT_TRUE(recordAt(set, 0)->mainEntId == id(1));
    EXPECT_TRUE(invariants(set));
}

TEST_F(SelectSet, CopyOutlivesItsSource) {
    auto source = std::make_unique<GxapSelectSet>();
    addRecord(*source, id(1));
    const GxapSelectSet copy(*source);
    source.reset();
    EXPECT_EQ(owners(copy), 1u);
    EXPECT_TRUE(recordAt(copy, 0)->mainEntId == id(1));
    EXPECT_TRUE(invariants(copy));
}

TEST_F(SelectSet, CopyHasARegistryAndALispCountOfItsOwn) {
    GxapSelectSet set;
    const ConstIterator it = set.begin();
    set.lispRefCnt = 7;
    const GxapSelectSet copy(set);
    EXPECT_EQ(copy.iterators.mArray, nullptr);
    EXPECT_EQ(copy.iterators.mLogicalLength, 0);
    EXPECT_EQ(copy.iterators.mPhysicalLength, 0);
    EXPECT_EQ(copy.iterators.mGrowLength, 8);
    EXPECT_EQ(copy.lispRefCnt, 0);
    EXPECT_EQ(set.lispRefCnt, 7);
    EXPECT_TRUE(isRegistered(set, it));
    EXPECT_TRUE(isEnabled(it));
}

TEST_F(SelectSet, CopyingAllocatesNothing) {
    GxapSelectSet set;
    addRecord(set, id(1));
    const AllocationCount before;
    const GxapSelectSet copy(set);
    EXPECT_EQ(before.newCalls(), 0);
    EXPECT_EQ(before.mallocCalls(), 0);
}

TEST_F(SelectSet, CopyOfASetWithoutDataHasNoDataEither) {
    GxapSelectSet set;
    set.releaseData();
    const GxapSelectSet copy(set);
    EXPECT_EQ(copy.sharedData, nullptr);
}

TEST_F(SelectSet, MovingFromASetOnlyCopiesIt) {
    GxapSelectSet set;
    const ConstIterator it = set.begin();
    const GxapSelectSet taken(std::move(set));
    EXPECT_NE(set.sharedData, nullptr);
    EXPECT_EQ(taken.sharedData, set.sharedData);
    EXPECT_TRUE(isRegistered(set, it));
    EXPECT_EQ(taken.iterators.logicalLength(), 0);
}

TEST_F(SelectSet, DataCountsItsHandles) {
    GxapSelectSet set;
    std::vector<std::unique_ptr<GxapSelectSet>> handles;
    for (std::uint32_t n = 2; n <= 20; ++n) {
        handles.push_back(std::make_unique<GxapSelectSet>(set));
        EXPECT_EQ(owners(set), n);
    }
    handles.clear();
    EXPECT_EQ(owners(set), 1u);
}

// ---- assignment

TEST_F(SelectSet, AssignmentSharesTheDataAndReturnsItsTarget) {
    GxapSelectSet set;
    addRecord(set, id(1));
    GxapSelectSet target;
    EXPECT_EQ(&(target = set), &target);
    EXPECT_EQ(target.sharedData, set.sharedData);
    EXPECT_EQ(owners(set), 2u);
}

TEST_F(SelectSet, AssignmentDestroysDataThatNobodyElseHolds) {
    GxapSelectSet set;
    GxapSelectSet target;
    const AllocationCount before;
    addRecord(target, id(1));
    giveSegments(*recordAt(target, 0), 2);
    EXPECT_EQ(livePaths(), 2);
    target = set;
    EXPECT_EQ(livePaths(), 0);
    EXPECT_LT(before.liveNew(), 0) << "the old data and its store are gone too";
    EXPECT_EQ(before.liveMalloc(), 0);
}

TEST_F(SelectSet, AssignmentLeavesDataThatOthersHold) {
    GxapSelectSet set;
    GxapSelectSet target;
    addRecord(target, id(1));
    const GxapSelectSet other(target);
    target = set;
    EXPECT_EQ(owners(other), 1u);
    EXPECT_TRUE(recordAt(other, 0)->mainEntId == id(1));
}

TEST_F(SelectSet, AssignmentDisablesTheTargetsIteratorsOnly) {
    GxapSelectSet set;
    GxapSelectSet target;
    const ConstIterator targetIterator = target.begin();
    const ConstIterator sourceIterator = set.begin();
    target = set;
    EXPECT_FALSE(isEnabled(targetIterator));
    EXPECT_EQ(target.iterators.logicalLength(), 0);
    EXPECT_TRUE(isEnabled(sourceIterator));
    EXPECT_TRUE(isRegistered(set, sourceIterator));
}

TEST_F(SelectSet, AssignmentOfEqualRecordsInOtherDataDisablesTheIteratorsToo) {
    GxapSelectSet set;
    GxapSelectSet target;
    addRecord(target, id(1));
    addRecord(set, id(1));
    const ConstIterator it = target.begin();
    target = set;
    EXPECT_FALSE(isEnabled(it));
}

TEST_F(SelectSet, AssignmentLeavesTheTargetsLispCountAndRegistryStorage) {
    GxapSelectSet set;
    GxapSelectSet target;
    target.lispRefCnt = 3;
    set.lispRefCnt = 9;
    const ConstIterator it = target.begin();
    ConstIterator** const storage = target.iterators.mArray;
    target = set;
    EXPECT_EQ(target.lispRefCnt, 3);
    EXPECT_EQ(target.iterators.mArray, storage);
    EXPECT_EQ(target.iterators.mPhysicalLength, 8);
}

TEST_F(SelectSet, SelfAssignmentDoesNothing) {
    GxapSelectSet set;
    addRecord(set, id(1));
    const ConstIterator it = set.begin();
    const SSetData* const data = set.sharedData;
    const GxapSelectSet& alias = set;
    set = alias;
    EXPECT_EQ(set.sharedData, data);
    EXPECT_EQ(owners(set), 1u);
    EXPECT_TRUE(isEnabled(it));
    EXPECT_TRUE(isRegistered(set, it));
}

TEST_F(SelectSet, AssignmentBetweenSharersDoesNothing) {
    GxapSelectSet set;
    GxapSelectSet target(set);
    const ConstIterator it = target.begin();
    target = set;
    EXPECT_EQ(owners(set), 2u);
    EXPECT_TRUE(isEnabled(it));
    EXPECT_TRUE(isRegistered(target, it));
}

TEST_F(SelectSet, AssignmentFromASetWithoutDataTakesTheTargetsAway) {
    GxapSelectSet set;
    const GxapSelectSet sharer(set);
    GxapSelectSet empty;
    empty.releaseData();
    set = empty;
    EXPECT_EQ(set.sharedData, nullptr);
    EXPECT_EQ(owners(sharer), 1u);
}

TEST_F(SelectSet, AssignmentGivesDataToASetWithoutAny) {
    GxapSelectSet set;
    GxapSelectSet target;
    target.releaseData();
    target = set;
    EXPECT_EQ(target.sharedData, set.sharedData);
    EXPECT_EQ(owners(set), 2u);
}

// ---- destruction

TEST_F(SelectSet, DestroyingTheLastHolderFreesEverything) {
    const AllocationCount before;
    {
        GxapSelectSet doomed;
        addRecord(doomed, id(1));
        giveSegments(*recordAt(doomed, 0), 2);
        recordAt(doomed, 0)->selectedEntityInfo = kvtest::makeInfo();
        const ConstIterator it = doomed.begin();
    }
    EXPECT_EQ(before.liveNew(), 0);
    EXPECT_EQ(before.liveMalloc(), 0);
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(SelectSet, SetWithoutDataDiesQuietly) {
    const AllocationCount before;
    {
        GxapSelectSet doomed;
        const ConstIterator it = doomed.begin();
        doomed.releaseData();
    }
    EXPECT_EQ(before.liveNew(), 0);
}

TEST_F(SelectSet, DyingSetDisablesItsIteratorsAndMakesThemForgetIt) {
    GxapSelectSet set;
    auto doomed = std::make_unique<GxapSelectSet>();
    addRecord(*doomed, id(1));
    const ConstIterator it = doomed->begin();
    doomed.reset();
    EXPECT_FALSE(isEnabled(it));
    EXPECT_EQ(it.set, nullptr);
    EXPECT_TRUE(it.isDone());
}

TEST_F(SelectSet, DyingSharerDisablesOnlyItsOwnIterators) {
    GxapSelectSet set;
    const ConstIterator own = set.begin();
    auto sharer = std::make_unique<GxapSelectSet>(set);
    const ConstIterator sharers = sharer->begin();
    sharer.reset();
    EXPECT_FALSE(isEnabled(sharers));
    EXPECT_TRUE(isEnabled(own));
}

// ---- createData

TEST_F(SelectSet, CreatedDataIsEmptyAndHeldByTheSetAlone) {
    GxapSelectSet set;
    set.releaseData();
    const SSetData* const created = set.createData();
    EXPECT_EQ(created, set.sharedData);
    EXPECT_EQ(created->refCount.load(), 1u);
    EXPECT_TRUE(created->unique);
    EXPECT_FALSE(created->selectByNestedMode);
    EXPECT_EQ(created->entityCount, 0u);
    EXPECT_TRUE(created->dataMap.empty());
    ASSERT_NE(created->entities, nullptr);
    EXPECT_EQ(created->entities->head, nullptr);
}

TEST_F(SelectSet, CreatingDataReleasesTheDataHeldBefore) {
    GxapSelectSet set;
    const ConstIterator it = set.begin();
    set.sharedData->unique = false;
    const GxapSelectSet sharer(set);
    set.createData();
    EXPECT_NE(set.sharedData, sharer.sharedData);
    EXPECT_EQ(owners(sharer), 1u);
    EXPECT_FALSE(sharer.sharedData->unique);
    EXPECT_TRUE(set.sharedData->unique);
    EXPECT_FALSE(isEnabled(it));
}

TEST_F(SelectSet, CreatingDataDestroysDataThatNobodyElseHolds) {
    GxapSelectSet set;
    const AllocationCount before;
    addRecord(set, id(1));
    giveSegments(*recordAt(set, 0), 2);
    set.createData();
    EXPECT_EQ(livePaths(), 0);
    EXPECT_EQ(before.liveNew(), 0) << "new data and a new store in place of the old";
    EXPECT_EQ(before.liveMalloc(), 0);
}

// ---- assignData

TEST_F(SelectSet, AssigningTheHeldDataDoesNothing) {
    GxapSelectSet set;
    const ConstIterator it = set.begin();
    set.assignData(set.sharedData);
    EXPECT_EQ(owners(set), 1u);
    EXPECT_TRUE(isEnabled(it));
    EXPECT_TRUE(isRegistered(set, it));
}

TEST_F(SelectSet, AssigningFreshDataMakesItsCountOne) {
    GxapSelectSet set;
    const ConstIterator it = set.begin();
    auto* fresh = new SSetData;
    set.assignData(fresh);
    EXPECT_EQ(set.sharedData, fresh);
    EXPECT_EQ(owners(set), 1u);
    EXPECT_FALSE(isEnabled(it));
}

TEST_F(SelectSet, AssigningAnothersDataSharesIt) {
    GxapSelectSet set;
    GxapSelectSet other;
    set.assignData(other.sharedData);
    EXPECT_EQ(set.sharedData, other.sharedData);
    EXPECT_EQ(owners(other), 2u);
}

TEST_F(SelectSet, AssigningNullLeavesTheSetWithoutData) {
    GxapSelectSet set;
    const GxapSelectSet sharer(set);
    const ConstIterator it = set.begin();
    set.assignData(nullptr);
    EXPECT_EQ(set.sharedData, nullptr);
    EXPECT_EQ(owners(sharer), 1u);
    EXPECT_FALSE(isEnabled(it));
}

TEST_F(SelectSet, AssigningNullToASetWithoutDataDoesNothing) {
    GxapSelectSet set;
    set.releaseData();
    set.assignData(nullptr);
    EXPECT_EQ(set.sharedData, nullptr);
}

// ---- releaseData

TEST_F(SelectSet, ReleasingDisablesEveryIteratorAndEmptiesTheRegistry) {
    GxapSelectSet set;
    addRecord(set, id(1));
    const ConstIterator first = set.begin();
    const ConstIterator last = set.end();
    set.releaseData();
    EXPECT_EQ(set.sharedData, nullptr);
    EXPECT_EQ(set.iterators.logicalLength(), 0);
    EXPECT_FALSE(isEnabled(first));
    EXPECT_FALSE(isEnabled(last));
}

TEST_F(SelectSet, ReleasingSharedDataDisablesTheIteratorsToo) {
    GxapSelectSet set;
    addRecord(set, id(1));
    const GxapSelectSet sharer(set);
    const ConstIterator it = set.begin();
    set.releaseData();
    EXPECT_FALSE(isEnabled(it));
    EXPECT_EQ(owners(sharer), 1u);
    EXPECT_TRUE(recordAt(sharer, 0)->mainEntId == id(1));
}

TEST_F(SelectSet, ReleasingTheLastHoldDestroysTheData) {
    GxapSelectSet doomed;
    addRecord(doomed, id(1));
    giveSegments(*recordAt(doomed, 0), 2);
    doomed.releaseData();
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(SelectSet, ReleasingWithoutDataTouchesNothing) {
    GxapSelectSet set;
    set.releaseData();
    ConstIterator it(nullptr, 0);
    set.addIterator(&it);
    set.releaseData();
    EXPECT_EQ(set.sharedData, nullptr);
    EXPECT_EQ(set.iterators.logicalLength(), 1);
    set.removeIterator(&it);
}

// ---- the nested mode

TEST_F(SelectSet, NestedModeIsThatOfTheData) {
    GxapSelectSet set;
    EXPECT_FALSE(set.isSelectByNestedMode());
    set.sharedData->selectByNestedMode = true;
    EXPECT_TRUE(set.isSelectByNestedMode());
    const GxapSelectSet copy(set);
    EXPECT_TRUE(copy.isSelectByNestedMode());
}

TEST_F(SelectSet, NestedModeIsOffWithoutData) {
    GxapSelectSet set;
    set.sharedData->selectByNestedMode = true;
    set.releaseData();
    EXPECT_FALSE(set.isSelectByNestedMode());
    EXPECT_EQ(set.sharedData, nullptr) << "asking creates no data";
}

// ---- the LISP count

TEST_F(SelectSet, LispCountIsRead) {
    GxapSelectSet set;
    EXPECT_EQ(set.getLispRefCnt(), 0);
    set.lispRefCnt = 4;
    EXPECT_EQ(set.getLispRefCnt(), 4);
    EXPECT_EQ(set.lispRefCnt, 4);
}

TEST_F(SelectSet, ReadingANegativeLispCountPutsItRight) {
    GxapSelectSet set;
    for (const std::int64_t wrong : {std::int64_t{-5}, std::int64_t{-1}, kLispMin}) {
        set.lispRefCnt = wrong;
        EXPECT_EQ(set.getLispRefCnt(), 0);
        EXPECT_EQ(set.lispRefCnt, 0);
    }
}

TEST_F(SelectSet, LispCountIsRaised) {
    GxapSelectSet set;
    EXPECT_EQ(set.addLispRefCnt(), 1);
    EXPECT_EQ(set.addLispRefCnt(), 2);
    EXPECT_EQ(set.lispRefCnt, 2);
}

TEST_F(SelectSet, RaisingANegativeLispCountStartsAtOne) {
    GxapSelectSet set;
    for (const std::int64_t wrong : {std::int64_t{-5}, std::int64_t{-1}, kLispMin}) {
        set.lispRefCnt = wrong;
        EXPECT_EQ(set.addLispRefCnt(), 1);
        EXPECT_EQ(set.lispRefCnt, 1);
    }
}

TEST_F(SelectSet, RaisingTheLargestLispCountStoresWhatItAnswers) {
    GxapSelectSet set;
    set.lispRefCnt = kLispMax;
    const long answer = set.addLispRefCnt();
    EXPECT_EQ(set.lispRefCnt, answer);
}

TEST_F(SelectSet, LispCountIsLowered) {
    GxapSelectSet set;
    set.lispRefCnt = 2;
    EXPECT_EQ(set.subtractLispRefCnt(), 1);
    EXPECT_EQ(set.subtractLispRefCnt(), 0);
    EXPECT_EQ(set.lispRefCnt, 0);
}

TEST_F(SelectSet, LispCountIsNotLoweredBelowZero) {
    GxapSelectSet set;
    for (const std::int64_t low : {std::int64_t{0}, std::int64_t{-1}, std::int64_t{-5}, kLispMin + 1}) {
        set.lispRefCnt = low;
        EXPECT_EQ(set.subtractLispRefCnt(), 0);
        EXPECT_EQ(set.lispRefCnt, 0);
    }
}

TEST_F(SelectSet, LoweringTheSmallestLispCountWrapsAround) {
    GxapSelectSet set;
    set.lispRefCnt = kLispMin;
    EXPECT_EQ(set.subtractLispRefCnt(), kLispMax);
    EXPECT_EQ(set.lispRefCnt, kLispMax);
}

TEST_F(SelectSet, LispCountIsIndependentOfTheData) {
    GxapSelectSet set;
    set.lispRefCnt = 3;
    GxapSelectSet sharer(set);
    sharer.addLispRefCnt();
    set.releaseData();
    EXPECT_EQ(set.getLispRefCnt(), 3);
    EXPECT_EQ(sharer.getLispRefCnt(), 1);
}

// ---- the reference count of the data

TEST_F(SharedData, CloneMadeWithoutAnEmptyBlockHasNullVectors) {
    const kvtest::WithoutEmptyBlock withoutEmptyBlock;
    GxapSelectSet set;
    kvtest::appendIds(set, 1, 3);
    GxapSelectSet copy(set);
    static_cast<GxapSSetWriteAccessor&>(copy).writeData();
    ASSERT_NE(copy.sharedData, set.sharedData);
    EXPECT_EQ(recordAt(copy, 1)->hlVpArray.data.block, nullptr);
    EXPECT_EQ(recordAt(copy, 1)->nestedEntFullPath.data.block, nullptr);
}

TEST_F(SharedData, FreshDataHasItsInitialValues) {
    const SSetData fresh;
    EXPECT_EQ(fresh.refCount.load(), 0u);
    EXPECT_TRUE(fresh.dataMap.empty());
    EXPECT_TRUE(fresh.unique);
    EXPECT_FALSE(fresh.selectByNestedMode);
    EXPECT_EQ(fresh.entityCount, 0u);
    EXPECT_EQ(fresh.entities, nullptr);
}

TEST_F(SharedData, DataIsDestroyedByTheLastRelease) {
    const AllocationCount before;
    const auto* const counted = new SSetData;
    counted->addRef();
    counted->addRef();
    EXPECT_EQ(counted->refCount.load(), 2u);
    counted->delRef();
    EXPECT_EQ(counted->refCount.load(), 1u);
    EXPECT_GT(before.liveNew(), 0);
    counted->delRef();
    EXPECT_EQ(before.liveNew(), 0);
}

// ---- clear

TEST_F(SharedData, ClearRefusesSharedData) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    addRecord(set, id(1));
    addRecord(set, id(2));
    const GxapSelectSet sharer(set);
    data.clear();
    EXPECT_EQ(data.entityCount, 2u);
    EXPECT_EQ(data.dataMap.size(), 2u);
    EXPECT_TRUE(recordAt(set, 1)->mainEntId == id(2));
    EXPECT_TRUE(invariants(set));
}

TEST_F(SharedData, ClearEmptiesPrivateData) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    addRecord(set, id(1));
    addRecord(set, id(2));
    data.clear();
    EXPECT_EQ(data.entityCount, 0u);
    EXPECT_TRUE(data.dataMap.empty());
    EXPECT_EQ(data.entities->head, nullptr);
    EXPECT_EQ(data.entities->tail, nullptr);
    EXPECT_TRUE(invariants(set));
}

TEST_F(SharedData, ClearEmptiesDataThatNobodyHolds) {
    SSetData unheld;
    addRecord(unheld, id(1));
    ASSERT_EQ(unheld.refCount.load(), 0u);
    unheld.clear();
    EXPECT_EQ(unheld.entityCount, 0u);
    EXPECT_TRUE(unheld.dataMap.empty());
    EXPECT_EQ(unheld.entities->head, nullptr);
}

TEST_F(SharedData, ClearKeepsTheFlags) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    data.unique = false;
    data.selectByNestedMode = true;
    data.clear();
    EXPECT_FALSE(data.unique);
    EXPECT_TRUE(data.selectByNestedMode);
    data.unique = true;
    data.selectByNestedMode = false;
    data.clear();
    EXPECT_TRUE(data.unique);
    EXPECT_FALSE(data.selectByNestedMode);
}

TEST_F(SharedData, ClearKeepsTheStoreForFurtherUse) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    addRecord(set, id(1));
    const Store* const store = data.entities;
    data.clear();
    EXPECT_EQ(data.entities, store);
    addRecord(set, id(2));
    EXPECT_EQ(data.entityCount, 1u);
    EXPECT_TRUE(recordAt(set, 0)->mainEntId == id(2));
    EXPECT_TRUE(invariants(set));
}

TEST_F(SharedData, ClearDestroysEveryRecordWhole) {
    GxapSelectSet set;
    const AllocationCount before;
    for (unsigned long n = 1; n <= 3; ++n) {
        selected_entity& record = addRecord(set, id(n));
        record.selectedEntityInfo = kvtest::makeFullInfo();
        record.subselPathArray = new SegmentArray;
        record.hasSubselPaths = true;
        record.nestedEntFullPath = kvtest::idVector({1, 2});
        record.hlVpArray.setLogicalLength(2);
        giveSegments(record, 2);
    }
    set.sharedData->clear();
    EXPECT_EQ(before.liveNew(), 0);
    EXPECT_EQ(before.liveMalloc(), 0);
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(SharedData, ClearFreesEveryPage) {
    GxapSelectSet set;
    const SSetData& data = *set.sharedData;
    const AllocationCount before;
    addRecords(set, 2 * kvtest::kPageSlots + 1);
    ASSERT_NE(data.entities->head->next, data.entities->tail) << "three pages";
    set.sharedData->clear();
    EXPECT_EQ(before.liveNew(), 0);
    EXPECT_TRUE(invariants(set));
}

TEST_F(SharedData, ClearOfEmptyDataDoesNothing) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    data.clear();
    EXPECT_EQ(data.entityCount, 0u);
    EXPECT_EQ(data.entities->head, nullptr);
}

TEST_F(SharedData, ClearToleratesDataWithoutStore) {
    SSetData bare;
    bare.dataMap.emplace(id(1), 0ul);
    bare.entityCount = 1;
    bare.clear();
    EXPECT_EQ(bare.entityCount, 0u);
    EXPECT_TRUE(bare.dataMap.empty());
    EXPECT_EQ(bare.entities, nullptr);
}

TEST_F(SharedData, ClearSkipsASlotWithoutRecord) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    addRecord(set, id(1));
    addRecord(set, id(2));
    addRecord(set, id(3));
    const auto takenOut = kvtest::takeRecordOut(set, 1);
    const AllocationCount before;
    data.clear();
    EXPECT_EQ(data.entities->head, nullptr);
    EXPECT_LT(before.liveNew(), -1) << "the records around it are destroyed";
    EXPECT_TRUE(takenOut->mainEntId == id(2));
}

TEST_F(SharedData, ClearToleratesAPageWithoutRecords) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    addRecords(set, kvtest::kPageSlots + 1);
    const auto takenOut = kvtest::emptyFirstPageInPlace(set);
    ASSERT_NE(data.entities->head, data.entities->tail);
    data.clear();
    EXPECT_EQ(data.entities->head, nullptr);
    EXPECT_EQ(data.entities->tail, nullptr);
}

TEST_F(SharedData, ClearLeavesRemovedRecordsAlone) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    addRecord(set, id(1));
    addRecord(set, id(2));
    const auto removed = kvtest::removeRecord(set, 0);
    data.clear();
    EXPECT_TRUE(removed->mainEntId == id(1));
}

TEST_F(SharedData, DestructionOfDataWithoutStoreIsHarmless) {
    const AllocationCount before;
    delete new SSetData;
    EXPECT_EQ(before.liveNew(), 0);
}

TEST_F(SharedData, DestructionUnderOtherOwnersFreesThePagesButNoRecord) {
    std::unique_ptr<selected_entity> left;
    const AllocationCount before;
    {
        SSetData data;
        left.reset(&addRecord(data, id(1)));
        data.refCount = 2;
    }
    EXPECT_EQ(before.liveNew(), 1);
    EXPECT_TRUE(left->mainEntId == id(1));
}

// ---- clone: the data

TEST_F(SharedData, CloneIsHeldByNobody) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    const GxapSelectSet sharer(set);
    const std::unique_ptr<SSetData> clone(data.clone());
    EXPECT_EQ(clone->refCount.load(), 0u);
    EXPECT_EQ(owners(set), 2u);
    EXPECT_NE(clone.get(), set.sharedData);
}

TEST_F(SharedData, CloneOfEmptyDataHasAnEmptyStoreOfItsOwn) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    const std::unique_ptr<SSetData> clone(data.clone());
    ASSERT_NE(clone->entities, nullptr);
    EXPECT_NE(clone->entities, data.entities);
    EXPECT_EQ(clone->entities->head, nullptr);
    EXPECT_EQ(clone->entityCount, 0u);
    EXPECT_TRUE(clone->dataMap.empty());
}

TEST_F(SharedData, CloneTakesFlagsAndCount) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    addRecord(set, id(1));
    addRecord(set, id(2));
    data.unique = false;
    data.selectByNestedMode = true;
    const std::unique_ptr<SSetData> clone(data.clone());
    EXPECT_FALSE(clone->unique);
    EXPECT_TRUE(clone->selectByNestedMode);
    EXPECT_EQ(clone->entityCount, 2u);
    data.unique = true;
    data.selectByNestedMode = false;
    const std::unique_ptr<SSetData> other(data.clone());
    EXPECT_TRUE(other->unique);
    EXPECT_FALSE(other->selectByNestedMode);
}

TEST_F(SharedData, CloneOfDataWithoutStoreHasAnEmptyStoreAndTheCount) {
    SSetData bare;
    bare.entityCount = 5;
    bare.unique = false;
    bare.dataMap.emplace(id(1), 0ul);
    const std::unique_ptr<SSetData> clone(bare.clone());
    EXPECT_EQ(clone->entityCount, 5u);
    EXPECT_FALSE(clone->unique);
    EXPECT_TRUE(clone->dataMap.empty());
    ASSERT_NE(clone->entities, nullptr);
    EXPECT_EQ(clone->entities->head, nullptr);
}

TEST_F(SharedData, CloneHasRecordsOfItsOwnInTheSameOrder) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    for (const unsigned long n : {3ul, 1ul, 2ul}) {
        addRecord(set, id(n));
    }
    const std::unique_ptr<SSetData> clone(data.clone());
    const auto slots = occupiedSlots(*clone);
    ASSERT_EQ(slots.size(), 3u);
    EXPECT_TRUE(slots[0]->value->mainEntId == id(3));
    EXPECT_TRUE(slots[1]->value->mainEntId == id(1));
    EXPECT_TRUE(slots[2]->value->mainEntId == id(2));
    EXPECT_NE(slots[0]->value, recordAt(set, 0));
}

TEST_F(SharedData, CloneLeavesItsSourceAsItWas) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    addRecord(set, id(1));
    const selected_entity* const record = recordAt(set, 0);
    const ConstIterator it = set.begin();
    const std::unique_ptr<SSetData> clone(data.clone());
    EXPECT_EQ(recordAt(set, 0), record);
    EXPECT_EQ(data.dataMap.size(), 1u);
    EXPECT_TRUE(isEnabled(it));
    EXPECT_TRUE(invariants(set));
}

TEST_F(SharedData, ClonesIndexNamesTheClonesSlots) {
    GxapSelectSet set;
    for (unsigned long n = 1; n <= 5; ++n) {
        addRecord(set, id(n % 2 + 1));
    }
    const auto clone = cloneOf(set);
    EXPECT_TRUE(invariants(*clone));
    EXPECT_EQ(clone->sharedData->dataMap.size(), 5u);
}

TEST_F(SharedData, CloneDoesNotReproduceHoles) {
    GxapSelectSet set;
    for (unsigned long n = 1; n <= 6; ++n) {
        addRecord(set, id(n));
    }
    std::vector<std::unique_ptr<selected_entity>> removed;
    for (const std::size_t position : {4u, 2u, 0u}) {
        removed.emplace_back(kvtest::removeRecord(set, position));
    }
    const auto clone = cloneOf(set);
    EXPECT_EQ(clone->sharedData->entityCount, 3u);
    const Store::Page* const page = clone->sharedData->entities->head;
    EXPECT_EQ(page->fillEnd, page->slots + 3);
    EXPECT_TRUE(page->slots[0].value->mainEntId == id(2));
    EXPECT_TRUE(page->slots[1].value->mainEntId == id(4));
    EXPECT_TRUE(page->slots[2].value->mainEntId == id(6));
    EXPECT_TRUE(invariants(*clone));
}

TEST_F(SharedData, CloneSpansPages) {
    GxapSelectSet set;
    for (unsigned long n = 0; n <= 4096; ++n) {
        addRecord(set, id(5000 - n));
    }
    const auto clone = cloneOf(set);
    EXPECT_TRUE(invariants(*clone));
    EXPECT_EQ(occupiedSlots(*clone->sharedData).size(), 4097u);
    EXPECT_NE(clone->sharedData->entities->head, clone->sharedData->entities->tail);
    EXPECT_TRUE(recordAt(*clone, 4096)->mainEntId == id(904));
}

TEST_F(SharedData, CloneToleratesAPageWithoutRecords) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    addRecords(set, kvtest::kPageSlots + 1);
    const auto takenOut = kvtest::emptyFirstPageInPlace(set);
    ASSERT_NE(data.entities->head, data.entities->tail);
    const auto clone = cloneOf(set);
    EXPECT_EQ(occupiedSlots(*clone->sharedData).size(), 1u);
    EXPECT_TRUE(recordAt(*clone, 0)->mainEntId == id(4097));
    EXPECT_TRUE(invariants(*clone));
}

TEST_F(SharedData, CloneSkipsASlotWithoutRecordButTakesTheCount) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    addRecord(set, id(1));
    addRecord(set, id(2));
    addRecord(set, id(3));
    const auto takenOut = kvtest::takeRecordOut(set, 1);
    const std::unique_ptr<SSetData> clone(data.clone());
    const auto slots = occupiedSlots(*clone);
    ASSERT_EQ(slots.size(), 2u);
    EXPECT_TRUE(slots[0]->value->mainEntId == id(1));
    EXPECT_TRUE(slots[1]->value->mainEntId == id(3));
    EXPECT_EQ(clone->dataMap.size(), 2u);
    EXPECT_EQ(kvtest::slotOf(clone->dataMap.find(id(3))), slots[1]);
    EXPECT_EQ(clone->entityCount, 3u);
}

TEST_F(SharedData, CloneIndexesEqualKeysInStoreOrder) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    addRecord(set, id(1), id(11));
    addRecord(set, id(1), id(12));
    kvtest::reverseIndex(data);
    const auto clone = cloneOf(set);
    EXPECT_TRUE(invariants(*clone));
    const auto first = clone->findInMap(id(1));
    EXPECT_TRUE(kvtest::slotOf(first)->value->subEntId == id(11));
}

TEST_F(SharedData, CloneIndexesEveryRecordAlsoOneThatTheSourceLost) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    addRecord(set, id(1));
    addRecord(set, id(2));
    data.dataMap.erase(id(1));
    const auto clone = cloneOf(set);
    EXPECT_TRUE(invariants(*clone));
    EXPECT_EQ(data.dataMap.size(), 1u);
}

TEST_F(SharedData, CloneIndexesARecordUnderTheMainIdItHasNow) {
    GxapSelectSet set;
    addRecord(set, id(1)).mainEntId = id(9);
    const auto clone = cloneOf(set);
    EXPECT_EQ(clone->find(id(9)), 0);
    EXPECT_EQ(clone->find(id(1)), -1);
}

// ---- clone: the records

TEST_F(SharedData, ClonedRecordTakesIdsAndMarker) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    addRecord(set, id(1), id(2), 77);
    const std::unique_ptr<SSetData> clone(data.clone());
    const selected_entity& record = *recordAt(*clone, 0);
    EXPECT_TRUE(record.mainEntId == id(1));
    EXPECT_TRUE(record.subEntId == id(2));
    EXPECT_EQ(record.gsMarker, 77);
}

TEST_F(SharedData, ClonedRecordSharesItsVectorsBlocks) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    selected_entity& source = addRecord(set, id(1));
    source.nestedEntFullPath = kvtest::idVector({1, 2});
    source.hlVpArray.setLogicalLength(3);
    const AllocationCount before;
    const std::unique_ptr<SSetData> clone(data.clone());
    EXPECT_EQ(before.mallocCalls(), 0);
    const selected_entity& record = *recordAt(*clone, 0);
    EXPECT_EQ(record.nestedEntFullPath.data.block, source.nestedEntFullPath.data.block);
    EXPECT_EQ(source.nestedEntFullPath.data.block->refCount.load(), 2u);
    EXPECT_EQ(record.hlVpArray.data.block, source.hlVpArray.data.block);
    EXPECT_EQ(source.hlVpArray.data.block->refCount.load(), 2u);
}

TEST_F(SharedData, ClonedRecordGivesUpItsSharesWithTheClone) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    selected_entity& source = addRecord(set, id(1));
    source.nestedEntFullPath = kvtest::idVector({1, 2});
    source.hlVpArray.setLogicalLength(3);
    giveSegments(source, 2);
    {
        const std::unique_ptr<SSetData> clone(data.clone());
        EXPECT_EQ(source.highlightSegmentArray->data.block->refCount.load(), 2u);
    }
    EXPECT_EQ(source.nestedEntFullPath.data.block->refCount.load(), 1u);
    EXPECT_EQ(source.hlVpArray.data.block->refCount.load(), 1u);
    EXPECT_EQ(source.highlightSegmentArray->data.block->refCount.load(), 1u);
}

TEST_F(SharedData, WritingTheClonesPathLeavesTheSources) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    selected_entity& source = addRecord(set, id(1));
    source.nestedEntFullPath = kvtest::idVector({1, 2});
    const std::unique_ptr<SSetData> clone(data.clone());
    recordAt(*clone, 0)->nestedEntFullPath.at(0) = id(9);
    EXPECT_TRUE(kvtest::elementAt(source.nestedEntFullPath, 0) == id(1));
}

TEST_F(SharedData, ClonedRecordHasADeepCopyOfTheInfo) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    selected_entity& source = addRecord(set, id(1));
    source.selectedEntityInfo = kvtest::makeInfo();
    source.selectedEntityInfo->word0 = 6;
    source.selectedEntityInfo->setSelFenceResultInfo(kvtest::fence(3, 0.5));
    source.selectedEntityInfo->setCompoundTransformWithBTROffset(kvtest::matrixWith(10));
    const std::unique_ptr<SSetData> clone(data.clone());
    const GxapSelectedEntInfo* const info = recordAt(*clone, 0)->selectedEntityInfo;
    ASSERT_NE(info, nullptr);
    EXPECT_NE(info, source.selectedEntityInfo);
    EXPECT_EQ(info->word0, 6u);
    EXPECT_NE(info->getFenceInfoPtr(), source.selectedEntityInfo->getFenceInfoPtr());
    EXPECT_EQ(info->getFenceInfoPtr()->index, 3);
    EXPECT_TRUE(kvtest::sameEntries(*info->getBTRMatPtr(), kvtest::matrixWith(10)));
}

TEST_F(SharedData, ClonedInfoLivesInTheApplicationsMemory) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    addRecord(set, id(1)).selectedEntityInfo = kvtest::makeInfo();
    const AllocationCount before;
    const std::unique_ptr<SSetData> clone(data.clone());
    EXPECT_EQ(before.mallocCalls(), 1);
}

TEST_F(SharedData, ClonedRecordWithoutExtrasHasNoneEither) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    addRecord(set, id(1));
    const AllocationCount before;
    const std::unique_ptr<SSetData> clone(data.clone());
    const selected_entity& record = *recordAt(*clone, 0);
    EXPECT_EQ(record.selectedEntityInfo, nullptr);
    EXPECT_EQ(record.highlightSegmentArray, nullptr);
    EXPECT_EQ(record.subselPathArray, nullptr);
    EXPECT_FALSE(record.hasSubselPaths);
    EXPECT_EQ(before.mallocCalls(), 0);
}

TEST_F(SharedData, ClonedRecordHasArrayObjectsOfItsOwnOnTheSameBlocks) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    const std::unique_ptr<GxDbFullSubentPath> subsel(new GxDbFullSubentPath);
    selected_entity& source = addRecord(set, id(1));
    giveSegments(source, 2);
    source.subselPathArray = new SegmentArray;
    kvtest::append(*source.subselPathArray, subsel.get());
    source.hasSubselPaths = true;
    const std::unique_ptr<SSetData> clone(data.clone());
    const selected_entity& record = *recordAt(*clone, 0);
    ASSERT_NE(record.highlightSegmentArray, nullptr);
    EXPECT_NE(record.highlightSegmentArray, source.highlightSegmentArray);
    EXPECT_EQ(record.highlightSegmentArray->data.block, source.highlightSegmentArray->data.block);
    EXPECT_EQ(source.highlightSegmentArray->data.block->refCount.load(), 2u);
    ASSERT_NE(record.subselPathArray, nullptr);
    EXPECT_NE(record.subselPathArray, source.subselPathArray);
    EXPECT_EQ(record.subselPathArray->data.block, source.subselPathArray->data.block);
    EXPECT_EQ(source.subselPathArray->data.block->refCount.load(), 2u);
    EXPECT_TRUE(record.hasSubselPaths);
}

TEST_F(SharedData, ClonedRecordSeesTheSamePathObjects) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    selected_entity& source = addRecord(set, id(1));
    giveSegments(source, 2);
    const std::unique_ptr<SSetData> clone(data.clone());
    const selected_entity& record = *recordAt(*clone, 0);
    EXPECT_EQ(livePaths(), 2);
    for (const int i : {0, 1}) {
        EXPECT_EQ(kvtest::elementAt(*record.highlightSegmentArray, i),
                  kvtest::elementAt(*source.highlightSegmentArray, i));
    }
}

TEST_F(SharedData, EmptyPathArraysAreNotCloned) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    selected_entity& source = addRecord(set, id(1));
    source.highlightSegmentArray = new SegmentArray;
    source.subselPathArray = new SegmentArray;
    source.hasSubselPaths = true;
    const std::unique_ptr<SSetData> clone(data.clone());
    const selected_entity& record = *recordAt(*clone, 0);
    EXPECT_EQ(record.highlightSegmentArray, nullptr);
    EXPECT_EQ(record.subselPathArray, nullptr);
    EXPECT_TRUE(record.hasSubselPaths) << "the flag is copied all the same";
}

TEST_F(SharedData, PathArraysWithoutBlockAreNotCloned) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    selected_entity& source = addRecord(set, id(1));
    {
        const kvtest::WithoutEmptyBlock withoutEmptyBlock;
        source.highlightSegmentArray = new SegmentArray;
        source.subselPathArray = new SegmentArray;
    }
    source.hasSubselPaths = true;
    const std::unique_ptr<SSetData> clone(data.clone());
    const selected_entity& record = *recordAt(*clone, 0);
    EXPECT_EQ(record.highlightSegmentArray, nullptr);
    EXPECT_EQ(record.subselPathArray, nullptr);
}

TEST_F(SharedData, UnflaggedSubSelectionIsClonedAndStaysAllocated) {
    GxapSelectSet set;
    SSetData& data = *set.sharedData;
    const std::unique_ptr<GxDbFullSubentPath> path(new GxDbFullSubentPath);
    selected_entity& source = addRecord(set, id(1));
    const std::unique_ptr<SegmentArray> array(new SegmentArray);
    source.subselPathArray = array.get();
    kvtest::append(*array, path.get());
    std::unique_ptr<SegmentArray> clonedArray;
    {
        const std::unique_ptr<SSetData> clone(data.clone());
        const selected_entity& record = *recordAt(*clone, 0);
        EXPECT_FALSE(record.hasSubselPaths);
        clonedArray.reset(record.subselPathArray);
        ASSERT_NE(clonedArray, nullptr);
        EXPECT_EQ(array->data.block->refCount.load(), 2u);
    }
    EXPECT_EQ(array->data.block->refCount.load(), 2u);
    EXPECT_EQ(kvtest::elementAt(*clonedArray, 0), path.get());
}
