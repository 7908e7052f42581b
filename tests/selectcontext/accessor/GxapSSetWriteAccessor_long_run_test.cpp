// Tests that selecting and removing give the right results also if one main id has many items.
#include "base/detail/Shortcuts.h"
#include "tests/selectcontext/support/EditFailureTest.h"
#include "tests/selectcontext/support/LongRunTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using kvtest::areFoundAsByAWalk;
using kvtest::between;
using kvtest::edit;
using kvtest::FailurePoint;
using kvtest::id;
using kvtest::indexRun;
using kvtest::invariants;
using kvtest::Item;
using kvtest::Items;
using kvtest::items;
using kvtest::kRunMain;
using kvtest::kTwin;
using kvtest::plainRun;
using kvtest::removeExact;
using kvtest::RunItems;
using kvtest::RunKind;
using kvtest::select;
using kvtest::selected;
using kvtest::SetOf;
using kvtest::Unique;

class LongRunEdit : public kvtest::EditFailure {
protected:
    LongRunEdit() { kvtest::runKinds(); } // the first call allocates memory and keeps it

    static bool remove(GxapSelectSet& set, const Item& item) {
        return edit(set).remove(id(item.main), id(item.sub), item.marker);
    }
};

class LongRunEditByKind : public LongRunEdit, public ::testing::WithParamInterface<RunKind> {
protected:
    void SetUp() override {
        LongRunEdit::SetUp();
        if (GetParam().hasTwins)
            kvtest::makeTwins();
    }
};

INSTANTIATE_TEST_SUITE_P(, LongRunEditByKind, ::testing::ValuesIn(kvtest::runKinds()), kvtest::nameOfKind);

// ---- selecting

TEST_P(LongRunEditByKind, SelectingRefusesWhatTheSetHolds) {
    SetOf s;
    const Items drawn = RunItems(GetParam(), 1).next(600);
    for (const Item& item : drawn)
        select(s.set, item);
    const Items expected = selected({}, drawn);
    ASSERT_GT(expected.size(), 64u);
    EXPECT_EQ(items(s.set), expected);
    for (const Item& item : expected)
        select(s.set, item);
    EXPECT_EQ(items(s.set), expected);
    EXPECT_TRUE(invariants(s.set));
}

TEST_P(LongRunEditByKind, SelectingIntoASetThatIsNotUniqueRefusesNothing) {
    const Items drawn = RunItems(GetParam(), 2).next(300);
    SetOf s(drawn, Unique::kOff);
    indexRun(s.set);
    for (const Item& item : drawn)
        select(s.set, item);
    EXPECT_EQ(kvtest::count(s.set), 600u);
    EXPECT_TRUE(areFoundAsByAWalk(s.set, drawn));
}

TEST_F(LongRunEdit, ItemIsRefusedWhereAnyPathWillDo) {
    Items run = plainRun(200);
    run[100] = {kRunMain, 500, -1, {7}, 1.5};
    SetOf s(run);
    edit(s.set).select(id(kRunMain), id(500), 0, nullptr, nullptr);
    EXPECT_EQ(items(s.set), run);
    select(s.set, {kRunMain, 500, 0, {8}});
    EXPECT_EQ(kvtest::count(s.set), 201u);
}

TEST_F(LongRunEdit, TransformThatThePlatformHoldsForEqualIsRefused) {
    Items run = plainRun(200);
    run[100] = {kRunMain, 500, -1, {7}, 1.5};
    SetOf s(run);
    GxGeContext::gTol.equalPoint = 0.3;
    select(s.set, {kRunMain, 500, -1, {7}, 1.7});
    EXPECT_EQ(items(s.set), run);
    select(s.set, {kRunMain, 500, -1, {7}, 1.9});
    EXPECT_EQ(kvtest::count(s.set), 201u);
    select(s.set, {kRunMain, 500, -1, {7}});
    EXPECT_EQ(kvtest::count(s.set), 202u) << "no transform is no transform of zero";
}

TEST_F(LongRunEdit, RefusedItemLeavesSharedDataShared) {
    SetOf s(plainRun(200));
    const GxapSelectSet sharer(s.set);
    select(s.set, {kRunMain, 200, 0});
    EXPECT_TRUE(kvtest::shareData(s.set, sharer));
    select(s.set, {kRunMain, 201, 0});
    EXPECT_FALSE(kvtest::shareData(s.set, sharer));
    EXPECT_EQ(items(sharer), plainRun(200));
    EXPECT_EQ(kvtest::count(s.set), 201u);
    select(s.set, {kRunMain, 201, -1});
    EXPECT_EQ(kvtest::count(s.set), 201u);
}

TEST_F(LongRunEdit, ItemThatWasRemovedIsSelectedAgain) {
    SetOf s(between(plainRun(200)));
    for (int round = 0; round < 3; ++round) {
        for (const unsigned long n : {1ul, 100ul, 200ul}) {
            ASSERT_TRUE(remove(s.set, {kRunMain, n, -1}));
            select(s.set, {kRunMain, n, 0});
            select(s.set, {kRunMain, n, -1});
            ASSERT_TRUE(remove(s.set, {kRunMain, n, 0}));
            select(s.set, {kRunMain, n, -1});
        }
        EXPECT_EQ(kvtest::count(s.set), 204u);
    }
}

// ---- removing by three keys

TEST_P(LongRunEditByKind, RemovesTheFirstItemThatHasTheThreeKeys) {
    Items held = between(RunItems(GetParam(), 3).next(300));
    SetOf s(held, Unique::kOff);
    RunItems drawn(GetParam(), 4);
    int removed = 0;
    for (int i = 0; i < 700; ++i) {
        const Item gone = drawn.draw(2) == 0 ? held[drawn.draw(held.size())] : drawn.next();
        const bool isExpected = removeExact(held, gone);
        removed += isExpected ? 1 : 0;
        ASSERT_EQ(remove(s.set, gone), isExpected) << gone;
        ASSERT_EQ(kvtest::count(s.set), held.size());
        if (i % 50 == 0) {
            ASSERT_EQ(items(s.set), held);
            ASSERT_TRUE(areFoundAsByAWalk(s.set, drawn.next(10)));
        }
        if (held.empty())
            break;
    }
    EXPECT_EQ(items(s.set), held);
    EXPECT_GT(removed, 200);
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(LongRunEdit, MarkersOfNoneDifferInRemovals) {
    Items run = plainRun(100, 1000);
    run[20] = {kRunMain, 1, 0};
    run[40] = {kRunMain, 1, -1};
    SetOf s(run, Unique::kOff);
    indexRun(s.set);
    EXPECT_TRUE(remove(s.set, run[40]));
    EXPECT_FALSE(remove(s.set, run[40]));
    EXPECT_TRUE(remove(s.set, run[20]));
    EXPECT_FALSE(remove(s.set, run[20]));
    EXPECT_EQ(kvtest::count(s.set), 98u);
}

TEST_F(LongRunEdit, SharedDataIsCopiedForARemovalThatFindsTheMarkerOfNoneOnly) {
    SetOf s(plainRun(200));
    indexRun(s.set);
    const GxapSelectSet sharer(s.set);
    EXPECT_FALSE(remove(s.set, {kRunMain, 100, 5}));
    EXPECT_TRUE(kvtest::shareData(s.set, sharer));
    EXPECT_FALSE(remove(s.set, {kRunMain, 100, 0}));
    EXPECT_FALSE(kvtest::shareData(s.set, sharer));
    EXPECT_EQ(items(s.set), plainRun(200));
}

TEST_F(LongRunEdit, RemovesItemsByTheOtherStubOfTheMainId) {
    kvinmemory::makeEqual(id(kRunMain), id(kRunMain + kTwin));
    Items held = plainRun(200);
    SetOf s(held);
    indexRun(s.set);
    for (const unsigned long n : {100ul, 1ul, 200ul}) {
        EXPECT_TRUE(remove(s.set, {kRunMain + kTwin, n, -1}));
        EXPECT_FALSE(remove(s.set, {kRunMain + kTwin, n, -1}));
    }
    EXPECT_EQ(kvtest::count(s.set), 197u);
    EXPECT_TRUE(areFoundAsByAWalk(s.set, held));
}

TEST_F(LongRunEdit, EveryItemIsRemovedFromTheFrontAndFromTheBack) {
    for (const bool isBackwards : {false, true}) {
        SetOf s(between(plainRun(300)));
        indexRun(s.set);
        for (unsigned long n = 1; n <= 300; ++n) {
            ASSERT_TRUE(remove(s.set, {kRunMain, isBackwards ? 301 - n : n, -1}));
            ASSERT_EQ(s.set.find(id(kRunMain), id(isBackwards ? 301 - n : n), -1), -1);
        }
        EXPECT_EQ(items(s.set), between({}));
        EXPECT_TRUE(invariants(s.set));
    }
}

// ---- removing by one key and by two

TEST_P(LongRunEditByKind, RemovingTheMainIdRemovesTheWholeRun) {
    SetOf s(between(RunItems(GetParam(), 5).next(300)), Unique::kOff);
    indexRun(s.set);
    EXPECT_TRUE(edit(s.set).remove(id(kRunMain)));
    EXPECT_EQ(items(s.set), between({}));
    EXPECT_TRUE(invariants(s.set));
    EXPECT_FALSE(edit(s.set).remove(id(kRunMain)));
    RunItems drawn(GetParam(), 6);
    for (const Item& item : drawn.next(200))
        select(s.set, item);
    EXPECT_TRUE(areFoundAsByAWalk(s.set, drawn.next(100)));
}

TEST_P(LongRunEditByKind, RemovingTwoIdsDropsTheOtherEntriesUntilTheIndexIsUpdated) {
    const Items held = between(RunItems(GetParam(), 7).next(300));
    SetOf s(held, Unique::kOff);
    indexRun(s.set);
    const unsigned long sub = held[100].sub;
    EXPECT_TRUE(edit(s.set).remove(id(kRunMain), id(sub)));
    Items left;
    std::copy_if(held.begin(), held.end(), std::back_inserter(left), [&](const Item& item) {
        return item.main != kRunMain || kvtest::objectOf(item.sub) != kvtest::objectOf(sub);
    });
    EXPECT_EQ(items(s.set), left);
    EXPECT_EQ(s.set.find(id(kRunMain)), -1);
    EXPECT_TRUE(areFoundAsByAWalk(s.set, held));
    edit(s.set).updateDataMap();
    EXPECT_TRUE(invariants(s.set));
    EXPECT_TRUE(areFoundAsByAWalk(s.set, held));
}

TEST_F(LongRunEdit, OtherLongRunIsAsItWasAfterARemovalOfAMainId) {
    Items held = plainRun(200);
    for (const Item& item : plainRun(200))
        held.push_back({kRunMain + 1, item.sub});
    SetOf s(held);
    indexRun(s.set);
    indexRun(s.set, kRunMain + 1);
    EXPECT_TRUE(edit(s.set).remove(id(kRunMain)));
    for (unsigned long n = 1; n <= 200; ++n)
        ASSERT_EQ(s.set.find(id(kRunMain + 1), id(n), 0), static_cast<int>(n) - 1);
    EXPECT_TRUE(remove(s.set, {kRunMain + 1, 7, -1}));
    EXPECT_EQ(s.set.find(id(kRunMain + 1), id(7), 0), -1);
}

// ---- removing by position

TEST_P(LongRunEditByKind, RemovingAtAPositionRemovesTheFirstItemOfItsKeys) {
    Items held = between(RunItems(GetParam(), 8).next(300));
    SetOf s(held, Unique::kOff);
    RunItems drawn(GetParam(), 9);
    while (held.size() > 10) {
        const std::size_t position = drawn.draw(held.size());
        ASSERT_TRUE(edit(s.set).removeAt(static_cast<int>(position)));
        ASSERT_TRUE(removeExact(held, Item(held[position])));
        ASSERT_EQ(kvtest::count(s.set), held.size());
    }
    EXPECT_EQ(items(s.set), held);
    EXPECT_TRUE(invariants(s.set));
}

TEST_P(LongRunEditByKind, RemovingAtAnIteratorRemovesTheFirstItemOfItsKeys) {
    Items held = between(RunItems(GetParam(), 10).next(200));
    SetOf s(held, Unique::kOff);
    RunItems drawn(GetParam(), 11);
    while (held.size() > 10) {
        const std::size_t position = drawn.draw(held.size());
        GxapSelectSet::Iterator it = edit(s.set).iteratorAt(static_cast<int>(position));
        ASSERT_TRUE(edit(s.set).removeAt(it));
        ASSERT_TRUE(removeExact(held, Item(held[position])));
    }
    EXPECT_EQ(items(s.set), held);
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(LongRunEdit, IteratorThatWalksBackwardsRemovesEveryItem) {
    SetOf s(plainRun(300));
    indexRun(s.set);
    GxapSelectSet::Iterator it = edit(s.set).iteratorAt(299);
    for (unsigned long n = 300; n > 0; --n) {
        ASSERT_EQ(it.subEntId(), id(n));
        ASSERT_TRUE(edit(s.set).removeAt(it));
    }
    EXPECT_TRUE(items(s.set).empty());
}

// ---- shared data

TEST_P(LongRunEditByKind, HandlesThatPartInTheMiddleGoTheirOwnWays) {
    const Items held = between(RunItems(GetParam(), 12).next(300));
    SetOf one(held, Unique::kOff);
    indexRun(one.set);
    GxapSelectSet other(one.set);
    Items ofOne = held, ofOther = held;
    RunItems drawn(GetParam(), 13);
    for (int i = 0; i < 60; ++i) {
        const Item gone = held[drawn.draw(held.size())], alsoGone = held[drawn.draw(held.size())];
        ASSERT_EQ(remove(one.set, gone), removeExact(ofOne, gone));
        ASSERT_EQ(remove(other, alsoGone), removeExact(ofOther, alsoGone));
        const Item added = drawn.next();
        select(one.set, added);
        ofOne.push_back(added);
    }
    EXPECT_EQ(items(one.set), ofOne);
    EXPECT_EQ(items(other), ofOther);
    EXPECT_TRUE(areFoundAsByAWalk(one.set, drawn.next(100)));
    EXPECT_TRUE(areFoundAsByAWalk(other, drawn.next(100)));
}

// The keys are references into the record of the item.
TEST_F(LongRunEdit, KeysMayBePartOfTheItem) {
    SetOf s(plainRun(200));
    indexRun(s.set);
    const selected_entity& record = *kvtest::record(s.set, 100);
    EXPECT_TRUE(edit(s.set).remove(record.mainEntId, record.subEntId, record.gsMarker));
    const GxapSelectSet sharer(s.set);
    const selected_entity& other = *kvtest::record(s.set, 50);
    EXPECT_TRUE(edit(s.set).remove(other.mainEntId, other.subEntId, other.gsMarker));
    EXPECT_EQ(kvtest::count(s.set), 198u);
    EXPECT_EQ(kvtest::count(sharer), 199u);
}

// ---- without memory

TEST_F(LongRunEdit, SelectingIsDoneOrHasChangedNothing) {
    const Items held = plainRun(90);
    Items expected = held;
    const kvtest::IdPath path = kvtest::idVector({7});
    expected.push_back({kRunMain, 500, 3, {7}});
    const auto add = [&path](GxapSelectSet& set) {
        edit(set).select(id(kRunMain), id(500), 3, nullptr, &path);
    };
    tryAll({held, Unique::kOn, add, expected, 0}, kvtest::Expect::Failures);
}

TEST_F(LongRunEdit, RemovingIsDoneOrHasChangedNothing) {
    if (!kvdetail::kHasRunIndex)
        GTEST_SKIP() << "this build has no run indexes";
    const Items held = plainRun(90);
    Items expected = held;
    const Item gone = held[80];
    removeExact(expected, gone);
    tryAll({held, Unique::kOn, [&](GxapSelectSet& set) { remove(set, gone); }, expected, 1},
           kvtest::Expect::Failures);
}

TEST_F(LongRunEdit, GoesOnRightAfterAnIndexCouldNotBeUpdated) {
    kvtest::forEachAllocationFailure([&](FailurePoint& point) {
        freeLeftRecords();
        SetOf s(plainRun(100));
        indexRun(s.set);
        unsigned long added = 0;
        point.run([&] {
            for (; added < 30; ++added)
                edit(s.set).select(id(kRunMain), id(200 + added), 0, nullptr, nullptr);
        });
        EXPECT_TRUE(invariants(s.set));
        EXPECT_EQ(kvtest::count(s.set), 100 + added);
        EXPECT_TRUE(areFoundAsByAWalk(s.set, plainRun(10, 195)));
        select(s.set, {kRunMain, 200 + added, 0});
        EXPECT_TRUE(remove(s.set, {kRunMain, 200 + added, 0}));
        EXPECT_TRUE(areFoundAsByAWalk(s.set, plainRun(10, 195)));
    });
}

// ---- what edits cost

class LongRunEditCost : public LongRunEdit {
protected:
    static constexpr unsigned long kMany = 5000;
    static constexpr long kMost = 60; // limit on the id comparisons of one edit

    static std::vector<unsigned long> order(const std::string& name) {
        std::vector<unsigned long> numbers;
        for (const Item& item : plainRun(kMany))
            numbers.push_back(item.sub);
        if (name == "shuffled")
            std::shuffle(numbers.begin(), numbers.end(), std::mt19937(5));
        if (name == "descending")
            std::reverse(numbers.begin(), numbers.end());
        return numbers;
    }
};

TEST_F(LongRunEditCost, OfSelectingDoesNotGrowWithTheRun) {
    if (!kvdetail::kHasRunIndex)
        GTEST_SKIP() << "this build has no run indexes";
    for (const char* const name : {"ascending", "descending", "shuffled"}) {
        SetOf s;
        const kvtest::IdPath path = kvtest::idVector({7});
        kvinmemory::countIdComparisons(true);
        for (const unsigned long n : order(name))
            edit(s.set).select(id(kRunMain), id(n), -1, nullptr, &path);
        EXPECT_LE(kvtest::idComparisons(), kMost * static_cast<long>(kMany)) << name;
        EXPECT_EQ(kvtest::count(s.set), kMany);
    }
}

TEST_F(LongRunEditCost, OfRefusingDoesNotGrowWithTheRun) {
    if (!kvdetail::kHasRunIndex)
        GTEST_SKIP() << "this build has no run indexes";
    SetOf s(plainRun(kMany));
    indexRun(s.set);
    kvinmemory::countIdComparisons(true);
    for (unsigned long n = 1; n <= kMany; ++n)
        edit(s.set).append(id(kRunMain), id(n));
    EXPECT_LE(kvtest::idComparisons(), kMost * static_cast<long>(kMany));
    EXPECT_EQ(kvtest::count(s.set), kMany);
}

TEST_F(LongRunEditCost, OfRemovingDoesNotGrowWithTheRun) {
    if (!kvdetail::kHasRunIndex)
        GTEST_SKIP() << "this build has no run indexes";
    for (const char* const name : {"ascending", "descending", "shuffled"}) {
        SetOf s(between(plainRun(kMany)));
        kvinmemory::countIdComparisons(true);
        for (const unsigned long n : order(name))
            edit(s.set).remove(id(kRunMain), id(n), -1);
        EXPECT_LE(kvtest::idComparisons(), kMost * static_cast<long>(kMany)) << name;
        EXPECT_EQ(kvtest::count(s.set), 4u);
    }
}

} // namespace
