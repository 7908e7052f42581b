#include "platform/inmemory/InMemoryDatabase.h"
#include "selectcontext/GxapSelectSet.h"
#include "tests/selectcontext/support/RecordTestSupport.h"
#include "tests/support/Thrown.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

namespace {

using kvtest::addRecord;
using kvtest::addRecords;
using kvtest::fence;
using kvtest::id;
using kvtest::idVector;
using kvtest::makeInfo;
using kvtest::matrixWith;
using kvtest::owners;
using kvtest::registrations;
using kvtest::SSetData;
using Position = SSetData::DataMap::const_iterator;
using ConstIterator = GxapSelectSet::ConstIterator;
using Path = KvVector<GxDbObjectId>;

constexpr const wchar_t* kMisuse =
    L"Wrong way to use GxapSelectSet::findInMap, please check the sset is not a null data set!";

class Lookup : public kvtest::SetTest {
protected:
    // The first trace of a thread allocates memory and keeps it. The constructor makes a trace, so that this
    // happens before a test counts allocations.
    Lookup() { SCOPED_TRACE("making the storage of traces"); }
};
class MarkerEquality : public ::testing::Test {};

std::unique_ptr<GxapSelectedEntInfo> infoWith(const GxGeMatrix3d& matrix) {
    auto info = std::make_unique<GxapSelectedEntInfo>();
    info->setCompoundTransformWithBTROffset(matrix);
    return info;
}

// Returns an info that has a fence result, but no matrix.
std::unique_ptr<GxapSelectedEntInfo> infoWithoutMatrix() {
    auto info = std::make_unique<GxapSelectedEntInfo>();
    info->setSelFenceResultInfo(fence(1, 0.5));
    return info;
}

bool isEnd(const GxapSelectSet& set, Position position) {
    return position == set.sharedData->dataMap.end();
}

// Returns the record of an index entry. Returns null for the end.
const selected_entity* recordOf(const GxapSelectSet& set, Position position) {
    return isEnd(set, position) ? nullptr : kvtest::slotOf(position)->value;
}

struct Keys {
    GxDbObjectId mainId = id(1);
    GxDbObjectId subId = id(11);
    long marker = 7;
    Path path = idVector({1, 2});
};

// Returns one function for each form of findInMap(). Every function looks up the item with these keys.
std::vector<std::function<Position()>> everyFindInMap(const GxapSelectSet& set, const Keys& keys) {
    return {[&] { return set.findInMap(keys.mainId); },
            [&] { return set.findInMap(keys.mainId, keys.subId); },
            [&] { return set.findInMap(keys.mainId, keys.subId, keys.marker); },
            [&] { return set.findInMap(keys.mainId, keys.subId, &keys.path); },
            [&] { return set.findInMap(keys.mainId, keys.subId, keys.marker, &keys.path); },
            [&] { return set.findInMap(keys.mainId, keys.subId, keys.marker, &keys.path, nullptr); }};
}

std::vector<std::function<int()>> everyFind(const GxapSelectSet& set, const Keys& keys) {
    return {[&] { return set.find(keys.mainId); }, [&] { return set.find(keys.mainId, keys.subId); },
            [&] { return set.find(keys.mainId, keys.subId, keys.marker); },
            [&] { return set.find(keys.mainId, keys.subId, &keys.path); },
            [&] { return set.find(keys.mainId, keys.subId, keys.marker, &keys.path); }};
}

std::vector<std::function<ConstIterator()>> everyFindItr(const GxapSelectSet& set, const Keys& keys) {
    return {[&] { return set.findItr(keys.mainId); },
            [&] { return set.findItr(keys.mainId, keys.subId); },
            [&] { return set.findItr(keys.mainId, keys.subId, keys.marker); },
            [&] { return set.findItr(keys.mainId, keys.subId, &keys.path); },
            [&] { return set.findItr(keys.mainId, keys.subId, keys.marker, &keys.path); },
            [&] { return set.findMain(keys.mainId); }};
}

selected_entity& addItem(GxapSelectSet& set, const Keys& keys) {
    selected_entity& record = addRecord(set, keys.mainId, keys.subId, keys.marker);
    record.nestedEntFullPath = keys.path;
    return record;
}

// Has a set of five items. The item at position 2 has the keys `wanted`. Each other item differs from that
// item in one key.
struct Neighbourhood {
    Neighbourhood() {
        Keys other = wanted;
        other.mainId = id(2);
        addItem(set, other);
        other = wanted;
        other.subId = id(12);
        addItem(set, other);
        item = &addItem(set, wanted);
        other = wanted;
        other.marker = 8;
        addItem(set, other);
        other = wanted;
        other.path = idVector({1, 3});
        addItem(set, other);
    }

    Keys wanted;
    GxapSelectSet set;
    const selected_entity* item;
};

} // namespace

// ---- markers

TEST_F(MarkerEquality, ZeroAndMinusOneBothMeanNoMarker) {
    EXPECT_TRUE(isGsMarkEqual(0, -1));
    EXPECT_TRUE(isGsMarkEqual(-1, 0));
    EXPECT_TRUE(isGsMarkEqual(0, 0));
    EXPECT_TRUE(isGsMarkEqual(-1, -1));
}

TEST_F(MarkerEquality, AnyOtherMarkerEqualsItselfAlone) {
    const long markers[] = {
        0, -1, 1, -2, 5, std::numeric_limits<long>::min(), std::numeric_limits<long>::max()};
    for (const long a : markers) {
        for (const long b : markers) {
            const bool bothNone = (a == 0 || a == -1) && (b == 0 || b == -1);
            EXPECT_EQ(isGsMarkEqual(a, b), bothNone || a == b) << a << " and " << b;
        }
    }
}

TEST_F(MarkerEquality, MarkersAreComparedInAll64Bits) {
    const long high = 1L << 32;
    EXPECT_FALSE(isGsMarkEqual(high, 0));
    EXPECT_FALSE(isGsMarkEqual(high + 5, 5));
    EXPECT_FALSE(isGsMarkEqual(0xFFFFFFFFL, -1));
}

// ---- sets without data, empty sets

TEST_F(Lookup, EveryIndexLookupOnASetWithoutDataRaises) {
    kvinmemory::installCrashRecorder();
    GxapSelectSet set;
    set.releaseData();
    const Keys keys;
    for (const auto& lookUp : everyFindInMap(set, keys))
        kvtest::expectMessage([&] { lookUp(); }, kMisuse);
    EXPECT_EQ(set.sharedData, nullptr);
    EXPECT_EQ(kvinmemory::recordedExceptions().size(), everyFindInMap(set, keys).size());
}

TEST_F(Lookup, SetWithoutDataRaisesWithoutACrashRecorderToo) {
    GxapSelectSet set;
    set.releaseData();
    kvtest::expectMessage([&] { set.findInMap(id(1)); }, kMisuse);
    EXPECT_TRUE(kvinmemory::recordedExceptions().empty());
}

TEST_F(Lookup, SetWithoutDataRaisesBeforeAnyArgumentIsLookedAt) {
    GxapSelectSet set;
    set.releaseData();
    const auto* nowhere = reinterpret_cast<const Path*>(std::uintptr_t{8});
    auto* noInfo = reinterpret_cast<GxapSelectedEntInfo*>(std::uintptr_t{8});
    const Path* const noPath = nullptr;
    kvtest::expectMessage([&] { set.findInMap(id(1), id(2), nowhere); }, kMisuse);
    kvtest::expectMessage([&] { set.findInMap(id(1), id(2), 7L, nowhere); }, kMisuse);
    kvtest::expectMessage([&] { set.findInMap(id(1), id(2), 7L, nowhere, noInfo); }, kMisuse);
    kvtest::expectMessage([&] { set.findInMap(id(1), id(2), noPath); }, kMisuse);
    kvtest::expectMessage([&] { set.findInMap(id(1), id(2), 7L, noPath); }, kMisuse);
    kvtest::expectMessage([&] { set.findInMap(id(1), id(2), 7L, noPath, noInfo); }, kMisuse);
    kvtest::expectMessage([&] { set.findInMap(GxDbObjectId::kNull); }, kMisuse);
}

TEST_F(Lookup, PositionOnASetWithoutDataIsMinusOneAndRaisesNothing) {
    kvinmemory::installCrashRecorder();
    GxapSelectSet set;
    set.releaseData();
    const Keys keys;
    for (const auto& lookUp : everyFind(set, keys))
        EXPECT_EQ(lookUp(), -1);
    EXPECT_EQ(set.sharedData, nullptr) << "looking for a position creates no data";
    EXPECT_TRUE(kvinmemory::recordedExceptions().empty());
}

TEST_F(Lookup, IteratorOnASetWithoutDataIsTheEndOfFreshData) {
    const Keys keys;
    GxapSelectSet set;
    for (const auto& lookUp : everyFindItr(set, keys)) {
        set.releaseData();
        const ConstIterator it = lookUp();
        ASSERT_NE(set.sharedData, nullptr);
        EXPECT_TRUE(it.isDone());
        EXPECT_TRUE(it == set.end());
    }
}

TEST_F(Lookup, EmptySetHoldsNothing) {
    const GxapSelectSet set;
    const Keys keys;
    for (const auto& lookUp : everyFindInMap(set, keys))
        EXPECT_TRUE(isEnd(set, lookUp()));
    for (const auto& lookUp : everyFind(set, keys))
        EXPECT_EQ(lookUp(), -1);
    for (const auto& lookUp : everyFindItr(set, keys))
        EXPECT_TRUE(lookUp() == set.end());
}

TEST_F(Lookup, SetThatWasEmptiedHoldsNothingAnyMore) {
    Neighbourhood near;
    near.set.sharedData->clear();
    for (const auto& lookUp : everyFindInMap(near.set, near.wanted))
        EXPECT_TRUE(isEnd(near.set, lookUp()));
    for (const auto& lookUp : everyFind(near.set, near.wanted))
        EXPECT_EQ(lookUp(), -1);
}

TEST_F(Lookup, WhileTheCountIsZeroTheIndexIsNotTouched) {
    Neighbourhood near;
    near.set.sharedData->entityCount = 0;
    for (const auto& lookUp : everyFindInMap(near.set, near.wanted))
        EXPECT_TRUE(isEnd(near.set, lookUp()));
    for (const auto& lookUp : everyFind(near.set, near.wanted))
        EXPECT_EQ(lookUp(), -1);
    near.set.sharedData->entityCount = 5;
}

// ---- which record is found

TEST_F(Lookup, EachFormFindsTheFirstItemThatAgreesInItsKeys) {
    Neighbourhood near;
    const GxapSelectSet& set = near.set;
    const Keys& wanted = near.wanted;
    const auto record = [&](Position position) { return recordOf(set, position); };
    const auto at = [&](std::size_t position) { return kvtest::recordAt(set, position); };
    EXPECT_EQ(record(set.findInMap(wanted.mainId)), at(1));
    EXPECT_EQ(record(set.findInMap(wanted.mainId, wanted.subId)), at(2));
    EXPECT_EQ(record(set.findInMap(wanted.mainId, wanted.subId, wanted.marker)), at(2));
    EXPECT_EQ(record(set.findInMap(wanted.mainId, wanted.subId, &wanted.path)), at(2));
    EXPECT_EQ(record(set.findInMap(wanted.mainId, wanted.subId, wanted.marker, &wanted.path)), at(2));
    EXPECT_EQ(record(set.findInMap(wanted.mainId, wanted.subId, wanted.marker, &wanted.path, nullptr)),
              at(2));
}

TEST_F(Lookup, EachKeyTellsItemsApart) {
    Neighbourhood near;
    const GxapSelectSet& set = near.set;
    const Keys& wanted = near.wanted;
    const Path otherPath = idVector({1, 3});
    EXPECT_EQ(set.find(id(2), wanted.subId, wanted.marker, &wanted.path), 0);
    EXPECT_EQ(set.find(wanted.mainId, id(12), wanted.marker, &wanted.path), 1);
    EXPECT_EQ(set.find(wanted.mainId, wanted.subId, wanted.marker, &wanted.path), 2);
    EXPECT_EQ(set.find(wanted.mainId, wanted.subId, 8, &wanted.path), 3);
    EXPECT_EQ(set.find(wanted.mainId, wanted.subId, wanted.marker, &otherPath), 4);
    EXPECT_EQ(set.find(wanted.mainId, wanted.subId, 8L), 3);
    EXPECT_EQ(set.find(wanted.mainId, wanted.subId, &otherPath), 4);
}

TEST_F(Lookup, KeysThatNoSingleItemHasTogetherFindNothing) {
    Neighbourhood near;
    const GxapSelectSet& set = near.set;
    const Keys& wanted = near.wanted;
    const Path otherPath = idVector({1, 3});
    EXPECT_EQ(set.find(id(2), id(12)), -1);
    EXPECT_EQ(set.find(wanted.mainId, id(12), 8L), -1);
    EXPECT_EQ(set.find(wanted.mainId, id(12), &otherPath), -1);
    EXPECT_EQ(set.find(wanted.mainId, wanted.subId, 8L, &otherPath), -1);
    EXPECT_TRUE(isEnd(set, set.findInMap(wanted.mainId, wanted.subId, 8L, &otherPath, nullptr)));
}

TEST_F(Lookup, AbsentMainIdIsNotFound) {
    GxapSelectSet set;
    addRecord(set, id(2), id(11), 7);
    addRecord(set, id(4), id(11), 7);
    for (const unsigned long absent : {1ul, 3ul, 5ul}) {
        Keys keys;
        keys.mainId = id(absent);
        keys.path = Path();
        for (const auto& lookUp : everyFindInMap(set, keys))
            EXPECT_TRUE(isEnd(set, lookUp())) << absent;
        for (const auto& lookUp : everyFind(set, keys))
            EXPECT_EQ(lookUp(), -1) << absent;
        for (const auto& lookUp : everyFindItr(set, keys))
            EXPECT_TRUE(lookUp() == set.end()) << absent;
    }
}

TEST_F(Lookup, NullMainIdIsNotFound) {
    Neighbourhood near;
    Keys keys = near.wanted;
    keys.mainId = GxDbObjectId::kNull;
    for (const auto& lookUp : everyFindInMap(near.set, keys))
        EXPECT_TRUE(isEnd(near.set, lookUp()));
    for (const auto& lookUp : everyFind(near.set, keys))
        EXPECT_EQ(lookUp(), -1);
}

TEST_F(Lookup, NullSubIdIsAKeyLikeAnyOther) {
    GxapSelectSet set;
    addRecord(set, id(1), id(11));
    addRecord(set, id(1));
    EXPECT_EQ(set.find(id(1), GxDbObjectId::kNull), 1);
    EXPECT_EQ(set.find(id(1), id(11)), 0);
}

TEST_F(Lookup, FirstInTheOrderOfTheIndexWins) {
    GxapSelectSet set;
    Keys keys;
    addItem(set, keys);
    addItem(set, keys);
    addItem(set, keys);
    for (const auto& lookUp : everyFind(set, keys))
        EXPECT_EQ(lookUp(), 0);
    kvtest::reverseIndex(*set.sharedData);
    for (const auto& lookUp : everyFind(set, keys))
        EXPECT_EQ(lookUp(), 2);
}

TEST_F(Lookup, RunOfOneMainIdIsSearchedToItsEnd) {
    GxapSelectSet set;
    addRecord(set, id(3), id(11));
    for (unsigned long n = 1; n <= 100; ++n)
        addRecord(set, id(2), id(n));
    addRecord(set, id(1), id(11));
    EXPECT_EQ(set.find(id(2), id(100)), 100);
    EXPECT_EQ(set.find(id(2), id(101)), -1);
    EXPECT_EQ(set.find(id(3), id(11)), 0);
    EXPECT_EQ(set.find(id(1), id(11)), 101);
}

TEST_F(Lookup, IdsAreEqualWhenTheApplicationSaysSo) {
    GxapSelectSet set;
    addRecord(set, id(3), id(5)).nestedEntFullPath = idVector({7});
    kvinmemory::makeEqual(id(3), id(4));
    kvinmemory::makeEqual(id(5), id(6));
    kvinmemory::makeEqual(id(7), id(8));
    const Path path = idVector({8});
    EXPECT_EQ(set.find(id(4)), 0);
    EXPECT_EQ(set.find(id(4), id(6)), 0);
    EXPECT_EQ(set.find(id(4), id(6), -1L), 0);
    EXPECT_EQ(set.find(id(4), id(6), &path), 0);
    EXPECT_EQ(set.find(id(4), id(6), -1L, &path), 0);
    EXPECT_FALSE(isEnd(set, set.findInMap(id(4), id(6), -1L, &path, nullptr)));
}

TEST_F(Lookup, LookingChangesNothing) {
    Neighbourhood near;
    const GxapSelectSet sharer(near.set);
    for (const auto& lookUp : everyFindInMap(near.set, near.wanted))
        lookUp();
    for (const auto& lookUp : everyFind(near.set, near.wanted))
        lookUp();
    EXPECT_EQ(near.set.sharedData, sharer.sharedData);
    EXPECT_EQ(owners(near.set), 2u);
    EXPECT_EQ(registrations(near.set), 0);
    EXPECT_TRUE(kvtest::invariants(near.set));
}

TEST_F(Lookup, LookingAllocatesNothing) {
    Neighbourhood near;
    const GxapSelectSet& set = near.set;
    const Keys& wanted = near.wanted;
    const kvtest::AllocationCount before;
    set.findInMap(wanted.mainId, wanted.subId, wanted.marker, &wanted.path, nullptr);
    set.find(wanted.mainId, wanted.subId, wanted.marker, &wanted.path);
    EXPECT_EQ(before.newCalls(), 0);
    EXPECT_EQ(before.mallocCalls(), 0);
}

// ---- markers as keys

TEST_F(Lookup, NoMarkerIsFoundUnderBothItsValues) {
    GxapSelectSet set;
    addRecord(set, id(1), id(11), 0);
    addRecord(set, id(2), id(11), -1);
    const Path noIds;
    for (const long none : {0L, -1L}) {
        EXPECT_EQ(set.find(id(1), id(11), none), 0);
        EXPECT_EQ(set.find(id(2), id(11), none), 1);
        EXPECT_EQ(set.find(id(1), id(11), none, &noIds), 0);
        EXPECT_EQ(set.find(id(2), id(11), none, &noIds), 1);
        EXPECT_FALSE(isEnd(set, set.findInMap(id(1), id(11), none, &noIds, nullptr)));
    }
}

TEST_F(Lookup, MarkerIsNotFoundAsNoMarker) {
    GxapSelectSet set;
    addRecord(set, id(1), id(11), 7);
    const Path noIds;
    for (const long none : {0L, -1L}) {
        EXPECT_EQ(set.find(id(1), id(11), none), -1);
        EXPECT_EQ(set.find(id(1), id(11), none, &noIds), -1);
        EXPECT_TRUE(isEnd(set, set.findInMap(id(1), id(11), none, &noIds, nullptr)));
    }
    EXPECT_EQ(set.find(id(1), id(11), 7L), 0);
}

TEST_F(Lookup, LiteralZeroIsAMarker) {
    GxapSelectSet set;
    addRecord(set, id(1), id(11), 7);
    addRecord(set, id(1), id(11), -1);
    EXPECT_EQ(recordOf(set, set.findInMap(id(1), id(11), 0)), kvtest::recordAt(set, 1));
    EXPECT_EQ(set.find(id(1), id(11), 0), 1);
    EXPECT_EQ(set.findItr(id(1), id(11), 0).index, 1);
}

TEST_F(Lookup, LiteralMarkersOfTypeIntKeepTheirValue) {
    GxapSelectSet set;
    addRecord(set, id(1), id(11), -2);
    EXPECT_EQ(set.find(id(1), id(11), -2), 0);
    EXPECT_EQ(set.findItr(id(1), id(11), -2).index, 0);
    EXPECT_FALSE(isEnd(set, set.findInMap(id(1), id(11), -2)));
}

// ---- paths as keys

TEST_F(Lookup, PathsAreEqualElementByElementInOrder) {
    GxapSelectSet set;
    addRecord(set, id(1), id(11)).nestedEntFullPath = idVector({1, 2, 3});
    const Path equal = idVector({1, 2, 3});
    EXPECT_EQ(set.find(id(1), id(11), &equal), 0);
    EXPECT_EQ(set.find(id(1), id(11), -1L, &equal), 0);
    for (const Path& different : {idVector({1, 2}), idVector({1, 2, 3, 4}), idVector({1, 3, 2}), Path()}) {
        EXPECT_EQ(set.find(id(1), id(11), &different), -1);
        EXPECT_EQ(set.find(id(1), id(11), -1L, &different), -1);
        EXPECT_TRUE(isEnd(set, set.findInMap(id(1), id(11), -1L, &different, nullptr)));
    }
}

TEST_F(Lookup, EmptyPathFindsOnlyItemsWithoutPath) {
    GxapSelectSet set;
    addRecord(set, id(1), id(11)).nestedEntFullPath = idVector({1});
    addRecord(set, id(1), id(11));
    const Path noIds;
    EXPECT_EQ(set.find(id(1), id(11), &noIds), 1);
    EXPECT_EQ(set.find(id(1), id(11), -1L, &noIds), 1);
}

TEST_F(Lookup, PathsWithoutBlockWithoutElementsAndOnTheEmptyBlockAreEqual) {
    GxapSelectSet set;
    Path withoutElements = idVector({1});
    withoutElements.setLogicalLength(0);
    addRecord(set, id(1));
    addRecord(set, id(2)).nestedEntFullPath = withoutElements;
    const kvtest::WithoutEmptyBlock withoutEmptyBlock;
    addRecord(set, id(3));
    Path withoutBlock;
    ASSERT_EQ(withoutBlock.data.block, nullptr);
    for (Path* empty : {&withoutElements, &withoutBlock}) {
        for (unsigned long n = 1; n <= 3; ++n)
            EXPECT_EQ(set.find(id(n), GxDbObjectId::kNull, empty), static_cast<int>(n) - 1);
    }
}

TEST_F(Lookup, NullPathIsTheFormWithoutPath) {
    GxapSelectSet set;
    addRecord(set, id(1), id(11), 7).nestedEntFullPath = idVector({1, 2});
    addRecord(set, id(1), id(11), 8);
    const GxapSelectSet& constSet = set;
    EXPECT_EQ(constSet.findInMap(id(1), id(11), nullptr), constSet.findInMap(id(1), id(11)));
    EXPECT_EQ(constSet.findInMap(id(1), id(11), 8L, nullptr), constSet.findInMap(id(1), id(11), 8L));
    EXPECT_EQ(constSet.find(id(1), id(11), nullptr), 0);
    EXPECT_EQ(constSet.find(id(1), id(11), 8L, nullptr), 1);
    EXPECT_EQ(constSet.find(id(1), id(11), 9L, nullptr), -1);
    EXPECT_EQ(constSet.findItr(id(1), id(11), nullptr).index, 0);
    EXPECT_EQ(constSet.findItr(id(1), id(11), 8L, nullptr).index, 1);
}

TEST_F(Lookup, NullPathSwitchesTheMatrixTestOff) {
    GxapSelectSet set;
    addRecord(set, id(1), id(11), 7);
    const auto wanted = infoWith(matrixWith(1));
    EXPECT_EQ(set.findInMap(id(1), id(11), 7L, nullptr, wanted.get()), set.findInMap(id(1), id(11), 7L));
    EXPECT_FALSE(isEnd(set, set.findInMap(id(1), id(11), 7L, nullptr, wanted.get())));
    EXPECT_TRUE(isEnd(set, set.findInMap(id(1), id(11), 8L, nullptr, wanted.get())));
}

TEST_F(Lookup, NullPathLeavesTheInfoUnread) {
    GxapSelectSet set;
    addRecord(set, id(1), id(11), 7);
    auto* nowhere = reinterpret_cast<GxapSelectedEntInfo*>(std::uintptr_t{8});
    EXPECT_FALSE(isEnd(set, set.findInMap(id(1), id(11), 7L, nullptr, nowhere)));
}

// ---- block transforms as keys

TEST_F(Lookup, ItemWithoutInfoPassesOnlyWhereNoMatrixIsWanted) {
    GxapSelectSet set;
    addRecord(set, id(1), id(11), 7);
    const Path noIds;
    EXPECT_FALSE(isEnd(set, set.findInMap(id(1), id(11), 7L, &noIds, nullptr)));
    EXPECT_FALSE(isEnd(set, set.findInMap(id(1), id(11), 7L, &noIds, infoWithoutMatrix().get())));
    EXPECT_TRUE(isEnd(set, set.findInMap(id(1), id(11), 7L, &noIds, infoWith(matrixWith(1)).get())));
    EXPECT_TRUE(isEnd(set, set.findInMap(id(1), id(11), 7L, &noIds, infoWith(GxGeMatrix3d()).get())))
        << "the identity is a matrix, too";
}

TEST_F(Lookup, ItemWhoseInfoHasNoMatrixPassesOnlyWhereNoMatrixIsWanted) {
    GxapSelectSet set;
    selected_entity& record = addRecord(set, id(1), id(11), 7);
    record.selectedEntityInfo = makeInfo();
    record.selectedEntityInfo->setSelFenceResultInfo(fence(1, 0.5));
    const Path noIds;
    EXPECT_FALSE(isEnd(set, set.findInMap(id(1), id(11), 7L, &noIds, nullptr)));
    EXPECT_FALSE(isEnd(set, set.findInMap(id(1), id(11), 7L, &noIds, infoWithoutMatrix().get())));
    EXPECT_TRUE(isEnd(set, set.findInMap(id(1), id(11), 7L, &noIds, infoWith(matrixWith(1)).get())));
}

TEST_F(Lookup, ItemWithAMatrixPassesOnlyWhereAnEqualMatrixIsWanted) {
    GxapSelectSet set;
    selected_entity& record = addRecord(set, id(1), id(11), 7);
    record.selectedEntityInfo = makeInfo();
    record.selectedEntityInfo->setCompoundTransformWithBTROffset(matrixWith(1));
    const Path noIds;
    EXPECT_FALSE(isEnd(set, set.findInMap(id(1), id(11), 7L, &noIds, infoWith(matrixWith(1)).get())));
    EXPECT_TRUE(isEnd(set, set.findInMap(id(1), id(11), 7L, &noIds, infoWith(matrixWith(2)).get())));
    EXPECT_TRUE(isEnd(set, set.findInMap(id(1), id(11), 7L, &noIds, infoWithoutMatrix().get())));
    EXPECT_TRUE(isEnd(set, set.findInMap(id(1), id(11), 7L, &noIds, nullptr)));
}

TEST_F(Lookup, WantedMatrixIsAskedWhetherItEqualsTheHeldOneUnderTheGlobalTolerance) {
    GxapSelectSet set;
    selected_entity& record = addRecord(set, id(1), id(11), 7);
    record.selectedEntityInfo = makeInfo();
    record.selectedEntityInfo->setCompoundTransformWithBTROffset(matrixWith(1));
    const Path noIds;
    const auto wanted = infoWith(matrixWith(1));
    set.findInMap(id(1), id(11), 7L, &noIds, wanted.get());
    const auto comparisons = kvinmemory::matrixComparisons();
    ASSERT_EQ(comparisons.size(), 1u);
    EXPECT_EQ(comparisons[0].left, wanted->getBTRMatPtr());
    EXPECT_EQ(comparisons[0].right, record.selectedEntityInfo->getBTRMatPtr());
    EXPECT_EQ(comparisons[0].tolerance, &GxGeContext::gTol);
}

TEST_F(Lookup, MatricesWithinTheGlobalToleranceAreEqual) {
    GxapSelectSet set;
    selected_entity& record = addRecord(set, id(1), id(11), 7);
    record.selectedEntityInfo = makeInfo();
    record.selectedEntityInfo->setCompoundTransformWithBTROffset(matrixWith(1));
    const Path noIds;
    const auto wanted = infoWith(matrixWith(1.25));
    EXPECT_TRUE(isEnd(set, set.findInMap(id(1), id(11), 7L, &noIds, wanted.get())));
    GxGeContext::gTol.equalPoint = 0.5;
    GxGeContext::gTol.equalVector = 0.5;
    EXPECT_FALSE(isEnd(set, set.findInMap(id(1), id(11), 7L, &noIds, wanted.get())));
}

TEST_F(Lookup, MatricesAreComparedOnlyWhereAllOtherKeysAgree) {
    Neighbourhood near;
    for (std::size_t position = 0; position < 5; ++position) {
        selected_entity* const record = kvtest::recordAt(near.set, position);
        record->selectedEntityInfo = makeInfo();
        record->selectedEntityInfo->setCompoundTransformWithBTROffset(matrixWith(1));
    }
    const Keys& keys = near.wanted;
    const auto wanted = infoWith(matrixWith(2));
    EXPECT_TRUE(
        isEnd(near.set, near.set.findInMap(keys.mainId, keys.subId, keys.marker, &keys.path, wanted.get())));
    const auto comparisons = kvinmemory::matrixComparisons();
    ASSERT_EQ(comparisons.size(), 1u);
    EXPECT_EQ(comparisons[0].right, near.item->selectedEntityInfo->getBTRMatPtr());
}

TEST_F(Lookup, MatrixTestPicksAmongItemsThatAgreeOtherwise) {
    GxapSelectSet set;
    const Keys keys;
    for (const double first : {1.0, 2.0, 3.0, 2.0}) {
        selected_entity& record = addItem(set, keys);
        record.selectedEntityInfo = makeInfo();
        record.selectedEntityInfo->setCompoundTransformWithBTROffset(matrixWith(first));
    }
    addItem(set, keys);
    const auto found = [&](GxapSelectedEntInfo* wanted) {
        return recordOf(set, set.findInMap(keys.mainId, keys.subId, keys.marker, &keys.path, wanted));
    };
    EXPECT_EQ(found(infoWith(matrixWith(2)).get()), kvtest::recordAt(set, 1));
    EXPECT_EQ(found(infoWith(matrixWith(3)).get()), kvtest::recordAt(set, 2));
    EXPECT_EQ(found(nullptr), kvtest::recordAt(set, 4));
    EXPECT_EQ(found(infoWith(matrixWith(4)).get()), nullptr);
}

TEST_F(Lookup, FormsWithoutInfoCompareNoMatrices) {
    GxapSelectSet set;
    selected_entity& record = addRecord(set, id(1), id(11), 7);
    record.selectedEntityInfo = makeInfo();
    record.selectedEntityInfo->setCompoundTransformWithBTROffset(matrixWith(1));
    const Path noIds;
    EXPECT_EQ(set.find(id(1), id(11), 7L, &noIds), 0);
    EXPECT_TRUE(kvinmemory::matrixComparisons().empty());
}

// ---- an index or a store that a caller has changed

TEST_F(Lookup, OneIdFormTrustsTheIndexAlone) {
    GxapSelectSet set;
    addRecord(set, id(1)).mainEntId = id(9);
    EXPECT_EQ(recordOf(set, set.findInMap(id(1))), kvtest::recordAt(set, 0));
    EXPECT_EQ(set.find(id(1)), 0);
    EXPECT_TRUE(isEnd(set, set.findInMap(id(9))));
}

TEST_F(Lookup, FormsWithMoreKeysReadTheRecordsMainIdToo) {
    GxapSelectSet set;
    addRecord(set, id(1), id(11), 7).mainEntId = id(9);
    const Path noIds;
    for (const unsigned long n : {1ul, 9ul}) {
        EXPECT_TRUE(isEnd(set, set.findInMap(id(n), id(11))));
        EXPECT_TRUE(isEnd(set, set.findInMap(id(n), id(11), 7L)));
        EXPECT_TRUE(isEnd(set, set.findInMap(id(n), id(11), &noIds)));
        EXPECT_TRUE(isEnd(set, set.findInMap(id(n), id(11), 7L, &noIds)));
        EXPECT_TRUE(isEnd(set, set.findInMap(id(n), id(11), 7L, &noIds, nullptr)));
    }
}

TEST_F(Lookup, OnlyTheEntriesOfTheMainIdAreSearched) {
    GxapSelectSet set;
    Keys keys;
    keys.mainId = id(9);
    addItem(set, keys).mainEntId = id(1);
    const Keys wanted;
    for (const auto& lookUp : everyFindInMap(set, wanted))
        EXPECT_TRUE(isEnd(set, lookUp())) << "without an entry of its own";
    keys.mainId = id(1);
    keys.subId = id(12);
    addItem(set, keys);
    EXPECT_EQ(set.find(wanted.mainId), 1);
    EXPECT_EQ(set.find(wanted.mainId, wanted.subId), -1) << "behind the entries of its own";
    EXPECT_EQ(set.find(wanted.mainId, wanted.subId, wanted.marker), -1);
    EXPECT_EQ(set.find(wanted.mainId, wanted.subId, &wanted.path), -1);
    EXPECT_EQ(set.find(wanted.mainId, wanted.subId, wanted.marker, &wanted.path), -1);
}

TEST_F(Lookup, EntryWithoutSlotIsFoundByTheOneIdFormOnly) {
    GxapSelectSet set;
    const Keys keys;
    set.sharedData->dataMap.emplace(keys.mainId, 0ul);
    addItem(set, keys);
    EXPECT_EQ(set.findInMap(keys.mainId)->second, 0ul);
    EXPECT_EQ(set.find(keys.mainId), -1) << "it has no position";
    EXPECT_EQ(set.find(keys.mainId, keys.subId), 0) << "it is skipped";
    EXPECT_EQ(set.find(keys.mainId, keys.subId, keys.marker), 0);
    EXPECT_EQ(set.find(keys.mainId, keys.subId, &keys.path), 0);
    EXPECT_EQ(set.find(keys.mainId, keys.subId, keys.marker, &keys.path), 0);
}

TEST_F(Lookup, SlotWithoutRecordIsSkipped) {
    GxapSelectSet set;
    const Keys keys;
    addItem(set, keys);
    addItem(set, keys);
    const auto takenOut = kvtest::takeRecordOut(set, 0);
    EXPECT_EQ(set.find(keys.mainId), 0) << "the one-id form reads no record";
    EXPECT_EQ(set.find(keys.mainId, keys.subId), 1);
    EXPECT_EQ(set.find(keys.mainId, keys.subId, keys.marker), 1);
    EXPECT_EQ(set.find(keys.mainId, keys.subId, &keys.path), 1);
    EXPECT_EQ(set.find(keys.mainId, keys.subId, keys.marker, &keys.path), 1);
    EXPECT_FALSE(isEnd(set, set.findInMap(keys.mainId, keys.subId, keys.marker, &keys.path, nullptr)));
}

TEST_F(Lookup, EntryOfAFreedSlotHasNoPosition) {
    GxapSelectSet set;
    addRecords(set, 2);
    const auto removed = kvtest::freeSlot(set, 0, true);
    EXPECT_EQ(set.find(id(1)), -1);
    EXPECT_TRUE(set.findItr(id(1)) == set.end());
    EXPECT_EQ(set.find(id(2)), 0);
}

TEST_F(Lookup, EntryOfAFreedPageHasNoPosition) {
    GxapSelectSet set;
    addRecords(set, 1);
    const auto removed = kvtest::freeSlot(set, 0, true);
    ASSERT_EQ(set.sharedData->entities->head, nullptr);
    EXPECT_FALSE(isEnd(set, set.findInMap(id(1))));
    EXPECT_EQ(set.find(id(1)), -1);
    EXPECT_TRUE(set.findItr(id(1)).isDone());
}

TEST_F(Lookup, EntryOfAnotherStoresSlotHasNoPosition) {
    GxapSelectSet set;
    addRecords(set, 1);
    GxapSelectSet other;
    addRecords(other, 1);
    set.sharedData->dataMap.begin()->second = other.sharedData->dataMap.begin()->second;
    EXPECT_EQ(set.find(id(1)), -1);
}

TEST_F(Lookup, WithoutStoreOnlyTheOneIdFormFindsEntries) {
    GxapSelectSet set;
    const Keys keys;
    addItem(set, keys);
    kvtest::Store* const store = std::exchange(set.sharedData->entities, nullptr);
    EXPECT_FALSE(isEnd(set, set.findInMap(keys.mainId)));
    EXPECT_TRUE(isEnd(set, set.findInMap(keys.mainId, keys.subId)));
    EXPECT_TRUE(isEnd(set, set.findInMap(keys.mainId, keys.subId, keys.marker)));
    EXPECT_TRUE(isEnd(set, set.findInMap(keys.mainId, keys.subId, &keys.path)));
    EXPECT_TRUE(isEnd(set, set.findInMap(keys.mainId, keys.subId, keys.marker, &keys.path)));
    EXPECT_TRUE(isEnd(set, set.findInMap(keys.mainId, keys.subId, keys.marker, &keys.path, nullptr)));
    EXPECT_EQ(set.find(keys.mainId, keys.subId), -1);
    EXPECT_EQ(set.find(keys.mainId), -1);
    set.sharedData->entities = store;
}

// ---- positions

TEST_F(Lookup, PositionCountsOccupiedSlotsInStoreOrder) {
    GxapSelectSet set;
    for (const unsigned long n : {3ul, 1ul, 2ul})
        addRecord(set, id(n));
    EXPECT_EQ(set.find(id(3)), 0);
    EXPECT_EQ(set.find(id(1)), 1);
    EXPECT_EQ(set.find(id(2)), 2);
}

TEST_F(Lookup, PositionSkipsHoles) {
    GxapSelectSet set;
    addRecords(set, 5);
    const auto third = kvtest::removeRecord(set, 2);
    const auto first = kvtest::removeRecord(set, 0);
    EXPECT_EQ(set.find(id(1)), -1);
    EXPECT_EQ(set.find(id(2)), 0);
    EXPECT_EQ(set.find(id(3)), -1);
    EXPECT_EQ(set.find(id(4)), 1);
    EXPECT_EQ(set.find(id(5)), 2);
}

TEST_F(Lookup, PositionCountsAcrossPages) {
    GxapSelectSet set;
    addRecords(set, 2 * kvtest::kPageSlots + 2);
    EXPECT_EQ(set.find(id(4096)), 4095);
    EXPECT_EQ(set.find(id(4097)), 4096);
    EXPECT_EQ(set.find(id(8194)), 8193);
    const auto removed = kvtest::removeRecord(set, 10);
    EXPECT_EQ(set.find(id(4096)), 4094);
    EXPECT_EQ(set.find(id(8194)), 8192);
}

TEST_F(Lookup, PositionCountsAcrossAPageWithoutRecords) {
    GxapSelectSet set;
    addRecords(set, kvtest::kPageSlots + 2);
    const auto takenOut = kvtest::emptyFirstPageInPlace(set);
    EXPECT_EQ(set.find(id(4097)), 0);
    EXPECT_EQ(set.find(id(4098)), 1);
}

TEST_F(Lookup, EveryPositionFormConvertsTheSameNode) {
    Neighbourhood near;
    const auto mapForms = everyFindInMap(near.set, near.wanted);
    const auto positionForms = everyFind(near.set, near.wanted);
    for (std::size_t form = 0; form < positionForms.size(); ++form) {
        const auto position = static_cast<std::size_t>(positionForms[form]());
        EXPECT_EQ(recordOf(near.set, mapForms[form]()), kvtest::recordAt(near.set, position)) << form;
    }
}

// ---- iterators

TEST_F(Lookup, EveryIteratorFormStandsOnTheFoundItem) {
    Neighbourhood near;
    const auto positionForms = everyFind(near.set, near.wanted);
    const auto iteratorForms = everyFindItr(near.set, near.wanted);
    for (std::size_t form = 0; form < positionForms.size(); ++form) {
        const ConstIterator it = iteratorForms[form]();
        const int position = positionForms[form]();
        EXPECT_EQ(it.set, &near.set);
        EXPECT_EQ(it.index, position) << form;
        EXPECT_EQ(it.get(), kvtest::recordAt(near.set, static_cast<std::size_t>(position))) << form;
    }
}

TEST_F(Lookup, FoundIteratorIsTheOnlyRegistration) {
    Neighbourhood near;
    for (const auto& lookUp : everyFindItr(near.set, near.wanted)) {
        const ConstIterator it = lookUp();
        EXPECT_EQ(registrations(near.set), 1);
        EXPECT_TRUE(kvtest::isRegistered(near.set, it));
    }
    EXPECT_EQ(registrations(near.set), 0);
}

TEST_F(Lookup, IteratorOfAnAbsentKeyIsTheEnd) {
    GxapSelectSet set;
    addRecords(set, 3);
    const ConstIterator it = set.findItr(id(9));
    EXPECT_TRUE(it == set.end());
    EXPECT_EQ(it.index, 3);
    EXPECT_EQ(it.get(), nullptr);
}

TEST_F(Lookup, MainLookupIsTheIteratorOnTheMainId) {
    Neighbourhood near;
    EXPECT_TRUE(near.set.findMain(id(1)) == near.set.findItr(id(1)));
    EXPECT_TRUE(near.set.findMain(id(2)) == near.set.findItr(id(2)));
    EXPECT_TRUE(near.set.findMain(id(3)) == near.set.findItr(id(3)));
}

TEST_F(Lookup, IteratorFormsDoNotCopySharedData) {
    Neighbourhood near;
    const GxapSelectSet sharer(near.set);
    for (const auto& lookUp : everyFindItr(near.set, near.wanted))
        lookUp();
    EXPECT_EQ(near.set.sharedData, sharer.sharedData);
    EXPECT_EQ(owners(near.set), 2u);
}
