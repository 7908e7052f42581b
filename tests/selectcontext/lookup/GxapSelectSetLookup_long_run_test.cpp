// Tests that a look-up among many items of one main id finds what a walk through the items finds.
#include "base/detail/Shortcuts.h"
#include "tests/selectcontext/support/LongRunTestSupport.h"
#include "tests/support/AllocationFailure.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

namespace {

using kvtest::areFoundAsByAWalk;
using kvtest::between;
using kvtest::edit;
using kvtest::heldRecord;
using kvtest::id;
using kvtest::IdPath;
using kvtest::indexRun;
using kvtest::Item;
using kvtest::Items;
using kvtest::kRunMain;
using kvtest::kTwin;
using kvtest::pathOf;
using kvtest::plainRun;
using kvtest::RunItems;
using kvtest::RunKind;
using kvtest::SetOf;
using kvtest::SSetData;
using kvtest::Unique;
using DataMap = SSetData::DataMap;

class LongRunLookup : public kvtest::EditTest {
protected:
    LongRunLookup() { kvtest::runKinds(); } // the first call allocates memory and keeps it

    static DataMap& mapOf(GxapSelectSet& set) { return set.sharedData->dataMap; }

    static DataMap::const_iterator entryAt(const GxapSelectSet& set, std::size_t i) {
        return std::next(std::as_const(set.sharedData->dataMap).lower_bound(id(kRunMain)),
                         static_cast<std::ptrdiff_t>(i));
    }

    static selected_entity* recordAt(const GxapSelectSet& set, std::size_t i) {
        return kvtest::slotOf(entryAt(set, i))->value;
    }
};

class LongRunLookupByKind : public LongRunLookup, public ::testing::WithParamInterface<RunKind> {
protected:
    void SetUp() override {
        LongRunLookup::SetUp();
        if (GetParam().hasTwins)
            kvtest::makeTwins();
    }

    // Returns random items to look up. Some of them have keys that no item of the set has.
    static Items wanted(std::size_t count, unsigned seed) {
        RunItems drawn(GetParam(), seed);
        Items items = drawn.next(count);
        for (Item& item : items) {
            if (drawn.draw(10) == 0)
                item.sub += 3000;
            if (drawn.draw(10) == 0)
                item.marker = item.marker == 0 ? -1 : 0;
            if (drawn.draw(10) == 0)
                item.marker = 77;
            if (drawn.draw(20) == 0)
                item.path[0] = 333;
            if (drawn.draw(40) == 0)
                item.main += 1;
        }
        return items;
    }
};

INSTANTIATE_TEST_SUITE_P(, LongRunLookupByKind, ::testing::ValuesIn(kvtest::runKinds()), kvtest::nameOfKind);

// ---- every form of look-up

TEST_P(LongRunLookupByKind, EveryFormFindsWhatAWalkFinds) {
    const SetOf s(between(RunItems(GetParam(), 1).next(400)), Unique::kOff);
    EXPECT_TRUE(areFoundAsByAWalk(s.set, kvtest::items(s.set)));
    EXPECT_TRUE(areFoundAsByAWalk(s.set, wanted(300, 2)));
}

TEST_P(LongRunLookupByKind, FindsWhatAWalkFindsWhileItemsComeAndGo) {
    SetOf s(between(RunItems(GetParam(), 3).next(300)), Unique::kOff);
    RunItems drawn(GetParam(), 4);
    for (int round = 0; round < 30; ++round) {
        for (int i = 0; i < 8; ++i)
            kvtest::select(s.set, drawn.next());
        for (int i = 0; i < 12; ++i)
            edit(s.set).removeAt(static_cast<int>(drawn.draw(kvtest::count(s.set))));
        ASSERT_TRUE(areFoundAsByAWalk(s.set, wanted(15, static_cast<unsigned>(100 + round)))) << round;
    }
    EXPECT_TRUE(kvtest::invariants(s.set));
    EXPECT_TRUE(areFoundAsByAWalk(s.set, kvtest::items(s.set)));
}

TEST_P(LongRunLookupByKind, BothHandlesFindWhatAWalkFindsAfterOneHasWritten) {
    SetOf s(between(RunItems(GetParam(), 5).next(300)), Unique::kOff);
    indexRun(s.set);
    const GxapSelectSet sharer(s.set);
    RunItems drawn(GetParam(), 6);
    for (int i = 0; i < 40; ++i) {
        kvtest::select(s.set, drawn.next());
        edit(s.set).removeAt(static_cast<int>(drawn.draw(kvtest::count(s.set))));
    }
    ASSERT_FALSE(kvtest::shareData(s.set, sharer));
    EXPECT_TRUE(areFoundAsByAWalk(s.set, wanted(100, 7)));
    EXPECT_TRUE(areFoundAsByAWalk(sharer, wanted(100, 7)));
    EXPECT_TRUE(areFoundAsByAWalk(sharer, kvtest::items(sharer)));
}

TEST_F(LongRunLookup, PositionsAndIteratorsAreThoseOfTheItems) {
    SetOf s(between(plainRun(200)));
    indexRun(s.set);
    const IdPath path;
    for (unsigned long n = 1; n <= 200; ++n) {
        const int position = static_cast<int>(n) + 1;
        ASSERT_EQ(s.set.find(id(kRunMain), id(n)), position);
        ASSERT_EQ(s.set.find(id(kRunMain), id(n), 0), position);
        ASSERT_EQ(s.set.find(id(kRunMain), id(n), &path), position);
        ASSERT_EQ(s.set.find(id(kRunMain), id(n), -1l, &path), position);
        ASSERT_EQ(s.set.findItr(id(kRunMain), id(n)).subEntId(), id(n));
        ASSERT_EQ(s.set.findItr(id(kRunMain), id(n), 0).subEntId(), id(n));
        ASSERT_EQ(s.set.findItr(id(kRunMain), id(n), -1l, &path).subEntId(), id(n));
        ASSERT_EQ(edit(s.set).findItr(id(kRunMain), id(n), 0l).subEntId(), id(n));
    }
    EXPECT_EQ(s.set.find(id(kRunMain), id(201)), -1);
    EXPECT_TRUE(s.set.findItr(id(kRunMain), id(201), 0).isDone());
}

// ---- which items match the keys

TEST_F(LongRunLookup, FirstOfEqualItemsIsFoundUntilItIsRemoved) {
    Items run = plainRun(200);
    run[50].sub = run[120].sub = run[180].sub = 7;
    SetOf s(run, Unique::kOff);
    indexRun(s.set);
    for (const int position : {6, 49, 118, 177}) {
        EXPECT_EQ(s.set.find(id(kRunMain), id(7), 0), position);
        edit(s.set).remove(id(kRunMain), id(7), -1);
    }
    EXPECT_EQ(s.set.find(id(kRunMain), id(7), 0), -1);
}

TEST_F(LongRunLookup, MarkersOfNoneAreEqualAndTheFirstOfEitherIsFound) {
    Items run = plainRun(100, 1000);
    run[10] = {kRunMain, 1, 0};
    run[20] = {kRunMain, 1, -1};
    run[30] = {kRunMain, 2, -1};
    run[40] = {kRunMain, 2, 0};
    const SetOf s(run, Unique::kOff);
    indexRun(s.set);
    for (const long marker : {0l, -1l}) {
        EXPECT_EQ(s.set.find(id(kRunMain), id(1), marker), 10);
        EXPECT_EQ(s.set.find(id(kRunMain), id(2), marker), 30);
    }
    EXPECT_EQ(s.set.find(id(kRunMain), id(1), 1), -1);
}

TEST_F(LongRunLookup, NullPathStandsForAnyPath) {
    Items run = plainRun(100, 1000);
    run[10] = {kRunMain, 1, 5, {7}};
    run[20] = {kRunMain, 1, 5};
    const SetOf s(run, Unique::kOff);
    indexRun(s.set);
    const IdPath none, seven = kvtest::idVector({7});
    const IdPath* const any = nullptr;
    EXPECT_EQ(s.set.find(id(kRunMain), id(1), 5l, any), 10);
    EXPECT_EQ(s.set.find(id(kRunMain), id(1), any), 10);
    EXPECT_EQ(s.set.find(id(kRunMain), id(1), 5l, &none), 20);
    EXPECT_EQ(s.set.find(id(kRunMain), id(1), 5l, &seven), 10);
}

TEST_F(LongRunLookup, TransformsAreComparedByThePlatform) {
    Items run = plainRun(100, 1000);
    run[10] = {kRunMain, 1, -1, {7}, 1.5};
    run[20] = {kRunMain, 1, -1, {7}, 2};
    const SetOf s(run, Unique::kOff);
    indexRun(s.set);
    const IdPath path = kvtest::idVector({7});
    GxapSelectedEntInfo info;
    info.setCompoundTransformWithBTROffset(kvtest::matrixMovedBy(1.9));
    EXPECT_EQ(s.set.findInMap(id(kRunMain), id(1), 0l, &path, &info),
              mapOf(const_cast<GxapSelectSet&>(s.set)).end());
    GxGeContext::gTol.equalPoint = 0.2;
    EXPECT_EQ(s.set.findInMap(id(kRunMain), id(1), 0l, &path, &info), entryAt(s.set, 20));
    GxGeContext::gTol.equalPoint = 0.5;
    EXPECT_EQ(s.set.findInMap(id(kRunMain), id(1), 0l, &path, &info), entryAt(s.set, 10));
}

// ---- several stubs of the main id

TEST_F(LongRunLookup, RunIsFoundByTheOtherStubOfItsMainId) {
    kvinmemory::makeEqual(id(kRunMain), id(kRunMain + kTwin));
    const SetOf s(between(plainRun(200)));
    indexRun(s.set);
    indexRun(s.set, kRunMain + kTwin);
    for (const Item& item : plainRun(210)) {
        Item twin = item;
        twin.main += kTwin;
        ASSERT_TRUE(kvtest::isFoundAsByAWalk(s.set, twin));
        ASSERT_TRUE(kvtest::isFoundAsByAWalk(s.set, item));
    }
}

TEST_F(LongRunLookup, RunOfSeveralStubsIsFoundByEach) {
    kvinmemory::makeEqual(id(kRunMain), id(kRunMain + kTwin));
    Items run = plainRun(200);
    for (std::size_t i = 0; i < run.size(); i += 3)
        run[i].main += kTwin;
    const SetOf s(between(run));
    indexRun(s.set);
    Items wanted = plainRun(210);
    for (std::size_t i = 0; i < wanted.size(); i += 2)
        wanted[i].main += kTwin;
    EXPECT_TRUE(areFoundAsByAWalk(s.set, wanted));
}

TEST_F(LongRunLookup, ItemOfAnotherStubOfTheMainIdIsFoundOnceItIsAdded) {
    kvinmemory::makeEqual(id(kRunMain), id(kRunMain + kTwin));
    SetOf s(between(plainRun(200)));
    indexRun(s.set);
    kvtest::select(s.set, {kRunMain + kTwin, 300});
    EXPECT_NE(s.set.find(id(kRunMain), id(300), 0), -1);
    kvtest::select(s.set, {kRunMain, 301});
    EXPECT_NE(s.set.find(id(kRunMain + kTwin), id(301), 0), -1);
    EXPECT_TRUE(edit(s.set).remove(id(kRunMain), id(300), -1));
    EXPECT_TRUE(areFoundAsByAWalk(s.set, plainRun(310)));
}

// ---- records that a caller changes

TEST_P(LongRunLookupByKind, RecordsChangedByHandAreFoundOnceTheIndexIsUpdated) {
    SetOf s(between(RunItems(GetParam(), 8).next(300)), Unique::kOff);
    indexRun(s.set);
    RunItems drawn(GetParam(), 9);
    for (int i = 0; i < 100; ++i) {
        selected_entity& record = *recordAt(s.set, drawn.draw(300));
        const Item other = drawn.next();
        record.subEntId = id(other.sub);
        record.gsMarker = other.marker;
        record.nestedEntFullPath = pathOf(other);
        // The results of these look-ups do not matter. The sanitizers report a look-up that reads memory
        // outside the library's objects.
        for (const Item& item : drawn.next(5))
            s.set.find(id(item.main), id(item.sub), item.marker);
    }
    edit(s.set).updateDataMap();
    EXPECT_TRUE(areFoundAsByAWalk(s.set, kvtest::items(s.set)));
    EXPECT_TRUE(areFoundAsByAWalk(s.set, wanted(100, 10)));
}

TEST_P(LongRunLookupByKind, SetWhoseRecordsWereChangedByHandIsEditedSafely) {
    SetOf s(between(RunItems(GetParam(), 11).next(300)), Unique::kOff);
    indexRun(s.set);
    RunItems drawn(GetParam(), 12);
    for (int i = 0; i < 150; ++i) {
        selected_entity& record = *recordAt(s.set, drawn.draw(100));
        record.subEntId = id(drawn.next().sub);
        record.nestedEntFullPath = pathOf(drawn.next());
        kvtest::select(s.set, drawn.next());
        edit(s.set).removeAt(static_cast<int>(drawn.draw(kvtest::count(s.set))));
        indexRun(s.set);
    }
    EXPECT_TRUE(kvtest::invariants(s.set));
    edit(s.set).updateDataMap();
    EXPECT_TRUE(areFoundAsByAWalk(s.set, kvtest::items(s.set)));
}

TEST_F(LongRunLookup, RecordPutInPlaceOfAnotherIsFoundOnceTheIndexIsUpdated) {
    SetOf s(between(plainRun(200)));
    indexRun(s.set);
    auto fresh = std::make_unique<selected_entity>();
    fresh->mainEntId = id(kRunMain);
    fresh->subEntId = id(900);
    selected_entity** const place = edit(s.set).getAt(52);
    delete std::exchange(*place, fresh.release());
    EXPECT_EQ(s.set.find(id(kRunMain), id(51), 0), -1);
    edit(s.set).updateDataMap();
    EXPECT_EQ(s.set.find(id(kRunMain), id(900), 0), 52);
    EXPECT_TRUE(areFoundAsByAWalk(s.set, plainRun(210)));
}

TEST_F(LongRunLookup, RecordThatIsTakenOutByHandIsNotFound) {
    SetOf s(between(plainRun(200)));
    indexRun(s.set);
    const auto taken = kvtest::takeRecordOut(s.set, 52);
    EXPECT_TRUE(areFoundAsByAWalk(s.set, plainRun(210)));
    EXPECT_FALSE(edit(s.set).remove(id(kRunMain), id(51), -1));
    EXPECT_TRUE(edit(s.set).remove(id(kRunMain), id(52), -1));
    EXPECT_TRUE(areFoundAsByAWalk(s.set, plainRun(210)));
}

TEST_F(LongRunLookup, SlotThatIsFreedByHandIsNotRead) {
    SetOf s(between(plainRun(200)));
    indexRun(s.set);
    kvtest::freeSlot(s.set, 52, true).reset();
    EXPECT_TRUE(areFoundAsByAWalk(s.set, plainRun(210)));
    EXPECT_FALSE(edit(s.set).remove(id(kRunMain), id(51), -1));
    kvtest::select(s.set, {kRunMain, 51});
    EXPECT_TRUE(areFoundAsByAWalk(s.set, plainRun(210)));
}

TEST_F(LongRunLookup, RunWithoutAnyRecordIsWalked) {
    SetOf s(plainRun(100));
    std::vector<std::unique_ptr<selected_entity>> taken;
    for (std::size_t i = 0; i < 100; ++i)
        taken.push_back(kvtest::takeRecordOut(s.set, i));
    indexRun(s.set);
    EXPECT_EQ(s.set.find(id(kRunMain), id(5), 0), -1);
    kvtest::select(s.set, {kRunMain, 5});
    EXPECT_EQ(s.set.find(id(kRunMain), id(5), 0), 100);
}

// ---- an id index that a caller changes

TEST_F(LongRunLookup, EntryErasedByHandIsNotFound) {
    SetOf s(between(plainRun(200)));
    indexRun(s.set);
    mapOf(s.set).erase(entryAt(s.set, 50));
    EXPECT_EQ(s.set.find(id(kRunMain), id(51), 0), -1);
    EXPECT_TRUE(areFoundAsByAWalk(s.set, plainRun(210)));
    kvtest::select(s.set, {kRunMain, 300});
    EXPECT_TRUE(areFoundAsByAWalk(s.set, plainRun(310)));
}

TEST_F(LongRunLookup, EntryAddedByHandIsFound) {
    Items run = plainRun(200);
    SetOf s(between(run));
    indexRun(s.set);
    selected_entity& record = kvtest::addRecord(s.set, id(kRunMain), id(300));
    EXPECT_EQ(heldRecord(s.data(), s.set.findInMap(id(kRunMain), id(300), 0)), &record);
    EXPECT_TRUE(edit(s.set).remove(id(kRunMain), id(7), -1));
    EXPECT_EQ(heldRecord(s.data(), s.set.findInMap(id(kRunMain), id(300), 0)), &record);
    EXPECT_TRUE(areFoundAsByAWalk(s.set, plainRun(310)));
}

TEST_F(LongRunLookup, EntryMovedByHandBehindAnEqualOneIsFoundSecond) {
    Items run = plainRun(200);
    run[150].sub = 51;
    SetOf s(run, Unique::kOff);
    indexRun(s.set);
    auto node = mapOf(s.set).extract(entryAt(s.set, 50));
    EXPECT_EQ(s.set.find(id(kRunMain), id(51), 0), 150);
    mapOf(s.set).insert(std::move(node));
    EXPECT_EQ(s.set.find(id(kRunMain), id(51), 0), 150);
    EXPECT_TRUE(areFoundAsByAWalk(s.set, plainRun(210)));
}

TEST_F(LongRunLookup, IndexAssignedByHandIsSearched) {
    SetOf s(between(plainRun(200)));
    indexRun(s.set);
    DataMap reversed;
    for (auto entry = mapOf(s.set).rbegin(); entry != mapOf(s.set).rend(); ++entry)
        reversed.emplace(*entry);
    mapOf(s.set) = reversed;
    EXPECT_TRUE(areFoundAsByAWalk(s.set, plainRun(210)));
    EXPECT_TRUE(edit(s.set).remove(id(kRunMain), id(7), -1));
    EXPECT_TRUE(areFoundAsByAWalk(s.set, plainRun(210)));
}

TEST_F(LongRunLookup, IndexesSwappedByHandAreSearched) {
    SetOf one(plainRun(200)), other(plainRun(200, 101));
    indexRun(one.set);
    indexRun(other.set);
    mapOf(one.set).swap(mapOf(other.set));
    std::swap(one.data().entities, other.data().entities);
    for (const SetOf* s : {&one, &other}) {
        EXPECT_TRUE(areFoundAsByAWalk(s->set, plainRun(310)));
    }
    EXPECT_NE(one.set.find(id(kRunMain), id(250), 0), -1);
}

// ---- without memory

TEST_P(LongRunLookupByKind, FindsTheSameWhereThereIsNoMemoryForAnIndex) {
    if (!kvdetail::kHasRunIndex)
        GTEST_SKIP() << "this build has no run indexes";
    const Items held = between(RunItems(GetParam(), 13).next(120));
    const Items asked = wanted(10, 14);
    kvtest::forEachAllocationFailure([&](kvtest::FailurePoint& point) {
        const SetOf s(held, Unique::kOff);
        std::vector<DataMap::const_iterator> found;
        found.reserve(asked.size());
        std::vector<IdPath> paths;
        for (const Item& item : asked)
            paths.push_back(pathOf(item));
        point.run([&] {
            for (std::size_t i = 0; i < asked.size(); ++i) {
                s.set.findInMap(id(asked[i].main), id(asked[i].sub));
                s.set.findInMap(id(asked[i].main), id(asked[i].sub), asked[i].marker);
                found.push_back(
                    s.set.findInMap(id(asked[i].main), id(asked[i].sub), asked[i].marker, &paths[i]));
            }
        });
        EXPECT_FALSE(point.outcome().failed);
        for (std::size_t i = 0; i < found.size(); ++i)
            EXPECT_EQ(found[i], kvtest::walkTo(s.set, id(asked[i].main),
                                               {id(asked[i].sub), asked[i].marker, &paths[i]}));
        EXPECT_TRUE(areFoundAsByAWalk(s.set, asked));
    });
}

// ---- what a look-up costs

class LongRunLookupCost : public LongRunLookup {
protected:
    static constexpr unsigned long kMany = 10000;

    void SetUp() override {
        LongRunLookup::SetUp();
        mSet = std::make_unique<SetOf>(Items{{kRunMain - 1, 1}, {kRunMain + 1, 1}});
        const IdPath path = kvtest::idVector({7, 8});
        mSet->data().unique = false;
        for (unsigned long n = 1; n <= kMany; ++n)
            edit(mSet->set).select(id(kRunMain), id(n), -1, nullptr, &path);
        indexRun(mSet->set);
    }

    void TearDown() override {
        mSet.reset();
        LongRunLookup::TearDown();
    }

    const GxapSelectSet& set() const { return mSet->set; }

    // Returns the number of id comparisons that one call makes.
    template <class Call>
    static long comparisonsOf(Call call) {
        kvinmemory::countIdComparisons(true);
        call();
        return kvtest::idComparisons();
    }

    // Limit on the id comparisons that find the first entry of a main id, if there is no hash of ids.
    static constexpr long kSearchOfMain = 40;

private:
    std::unique_ptr<SetOf> mSet;
};

TEST_F(LongRunLookupCost, ByFiveKeysIsThatOfASearchForTheMainId) {
    if (!kvdetail::kHasRunIndex)
        GTEST_SKIP() << "this build has no run indexes";
    const IdPath path = kvtest::idVector({7, 8});
    for (const unsigned long n : {1ul, kMany / 2, kMany}) {
        EXPECT_LE(comparisonsOf([&] {
                      EXPECT_NE(set().findInMap(id(kRunMain), id(n), 0l, &path, nullptr),
                                set().sharedData->dataMap.end());
                  }),
                  kSearchOfMain);
    }
}

TEST_F(LongRunLookupCost, ByEachOtherFormIsThatOfASearchForTheMainId) {
    if (!kvdetail::kHasRunIndex)
        GTEST_SKIP() << "this build has no run indexes";
    const IdPath path = kvtest::idVector({7, 8});
    const GxDbObjectId main = id(kRunMain), last = id(kMany);
    EXPECT_LE(comparisonsOf([&] { EXPECT_GT(set().find(main, last), 0); }), kSearchOfMain);
    EXPECT_LE(comparisonsOf([&] { EXPECT_GT(set().find(main, last, 0), 0); }), kSearchOfMain);
    EXPECT_LE(comparisonsOf([&] { EXPECT_GT(set().find(main, last, &path), 0); }), kSearchOfMain);
    EXPECT_LE(comparisonsOf([&] { EXPECT_GT(set().find(main, last, 0l, &path), 0); }), kSearchOfMain);
}

TEST_F(LongRunLookupCost, OfAnItemThatIsNotThereIsThatOfTwoSearches) {
    if (!kvdetail::kHasRunIndex)
        GTEST_SKIP() << "this build has no run indexes";
    const IdPath path = kvtest::idVector({7, 9});
    EXPECT_LE(comparisonsOf([&] { EXPECT_EQ(set().find(id(kRunMain), id(kMany + 5), 0), -1); }),
              2 * kSearchOfMain);
    EXPECT_LE(comparisonsOf([&] { EXPECT_EQ(set().find(id(kRunMain), id(5), 0l, &path), -1); }),
              2 * kSearchOfMain);
}

TEST_F(LongRunLookupCost, IsOfNoComparisonOnceTheMainIdIsHashed) {
    if (!kvdetail::kHasRunIndex)
        GTEST_SKIP() << "this build has no run indexes";
    for (int i = 0; i < 2000; ++i)
        set().findInMap(id(kRunMain));
    const IdPath path = kvtest::idVector({7, 8});
    EXPECT_LE(comparisonsOf([&] {
                  for (unsigned long n = 1; n <= 1000; ++n)
                      EXPECT_NE(set().findInMap(id(kRunMain), id(n), 0l, &path, nullptr),
                                set().sharedData->dataMap.end());
              }),
              2000)
        << "the entry before the run, and the end of the index";
}

TEST_F(LongRunLookupCost, IsOfNoMemoryOnceTheRunIsIndexed) {
    const IdPath path = kvtest::idVector({7, 8});
    const kvtest::AllocationCount allocations;
    for (unsigned long n = 1; n <= 100; ++n) {
        set().findInMap(id(kRunMain), id(n));
        set().findInMap(id(kRunMain), id(n), 0l, &path, nullptr);
    }
    EXPECT_EQ(allocations.newCalls(), 0);
    EXPECT_EQ(allocations.mallocCalls(), 0);
}

// ---- changes that the run index has to notice

TEST_F(LongRunLookup, PathGivenThroughAnIteratorIsFound) {
    SetOf s(between(plainRun(200)));
    indexRun(s.set);
    const IdPath path = kvtest::idVector({7, 8});
    edit(s.set).iteratorAt(52).setNestedEntFullPath(path);
    EXPECT_EQ(s.set.find(id(kRunMain), id(51), 0l, &path), 52);
    EXPECT_TRUE(kvtest::isFoundAsByAWalk(s.set, {kRunMain, 51, -1, {7, 8}}));
    EXPECT_TRUE(areFoundAsByAWalk(s.set, plainRun(210)));
}

TEST_F(LongRunLookup, ItemIsRefusedThatHasThePathGivenThroughAnIterator) {
    SetOf s(between(plainRun(200)));
    indexRun(s.set);
    edit(s.set).iteratorAt(52).setNestedEntFullPath(kvtest::idVector({7, 8}));
    kvtest::select(s.set, {kRunMain, 51, -1, {7, 8}});
    EXPECT_EQ(kvtest::count(s.set), 204u);
}

// The test swaps the addresses of two entries. Each entry is still hashed by the keys of its old record, but
// now leads to a record with other keys. A look-up compares the keys and finds neither item. updateDataMap()
// makes a new hash.
TEST_F(LongRunLookup, EntriesThatChangedPlacesByHandLeadToNoItemWithOtherKeys) {
    if (!kvdetail::kHasRunIndex)
        GTEST_SKIP() << "this build has no run indexes";
    SetOf s(between(plainRun(200)));
    indexRun(s.set);
    const auto addressAt = [&](std::ptrdiff_t i) -> unsigned long& {
        return std::next(mapOf(s.set).lower_bound(id(kRunMain)), i)->second;
    };
    std::swap(addressAt(20), addressAt(30));
    EXPECT_EQ(s.set.find(id(kRunMain), id(21), 0l), -1);
    EXPECT_EQ(s.set.find(id(kRunMain), id(31), 0l), -1);
    edit(s.set).updateDataMap();
    EXPECT_TRUE(areFoundAsByAWalk(s.set, plainRun(210)));
}

TEST_F(LongRunLookupCost, IsOfNoMemoryWhereTheIndexWasChangedByHand) {
    kvtest::addRecord(*set().sharedData, id(kRunMain + 7));
    const kvtest::AllocationCount allocations;
    EXPECT_NE(set().find(id(kRunMain), id(kMany), 0), -1);
    EXPECT_EQ(allocations.newCalls(), 0) << "no index is made that cannot be kept";
}

} // namespace
