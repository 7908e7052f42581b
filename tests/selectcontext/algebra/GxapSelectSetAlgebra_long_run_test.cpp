// Tests that whole-set operations and edits of single items have the same results when one main id has many
// items.
#include "base/detail/Shortcuts.h"
#include "tests/selectcontext/support/LongRunTestSupport.h"
#include "tests/support/AllocationFailure.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <random>
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
using kvtest::plainRun;
using kvtest::removeExact;
using kvtest::RunItems;
using kvtest::RunKind;
using kvtest::selected;
using kvtest::SetOf;
using kvtest::Unique;

class ExcludeNone : public IGxapSSetEntityExcluder {
public:
    bool isExcluded(GxDbObjectId) override { return false; }
};

Items shuffledRun(std::size_t count, unsigned seed) {
    Items run = plainRun(count);
    std::shuffle(run.begin(), run.end(), std::mt19937(seed));
    return run;
}

Items without(Items held, const Items& taken) {
    for (const Item& item : taken)
        removeExact(held, item);
    return held;
}

Items reversed(const Items& run) {
    return Items(run.rbegin(), run.rend());
}

// Returns whether one of the items has the main id, sub id, marker and path of `wanted`.
bool holdsEqual(const Items& held, const Item& wanted) {
    return std::any_of(held.begin(), held.end(),
                       [&](const Item& item) { return kvtest::hasEqualKeys(item, wanted); });
}

class LongRunAlgebra : public kvtest::EditTest {
protected:
    LongRunAlgebra() { kvtest::runKinds(); } // the first call allocates memory and keeps it
};

class LongRunAlgebraByKind : public LongRunAlgebra, public ::testing::WithParamInterface<RunKind> {
protected:
    void SetUp() override {
        LongRunAlgebra::SetUp();
        if (GetParam().hasTwins)
            kvtest::makeTwins();
    }

    // Draws `count` items, and returns them without those that equal an earlier one.
    static Items distinct(std::size_t count, unsigned seed) {
        return selected({}, RunItems(GetParam(), seed).next(count));
    }
};

INSTANTIATE_TEST_SUITE_P(, LongRunAlgebraByKind, ::testing::ValuesIn(kvtest::runKinds()), kvtest::nameOfKind);

// ---- merge

TEST_P(LongRunAlgebraByKind, MergeAddsWhatIsMissing) {
    const Items held = between(distinct(400, 1)), added = distinct(400, 2);
    const SetOf a(held), b(added);
    SetOf result;
    edit(result.set).merge(&a.set, &b.set);
    EXPECT_EQ(items(result.set), selected(held, added));
    EXPECT_TRUE(invariants(result.set));
    EXPECT_TRUE(areFoundAsByAWalk(result.set, added));
}

TEST_P(LongRunAlgebraByKind, MergeIntoASetWhoseRunIsIndexed) {
    const Items held = between(distinct(400, 3)), added = distinct(400, 4);
    SetOf a(held);
    const SetOf b(added);
    indexRun(a.set);
    edit(a.set).merge(&a.set, &b.set);
    EXPECT_EQ(items(a.set), selected(held, added));
    EXPECT_TRUE(invariants(a.set));
    EXPECT_TRUE(areFoundAsByAWalk(a.set, added));
}

TEST_P(LongRunAlgebraByKind, MergeOfFewItemsIntoALongRun) {
    const Items held = between(distinct(400, 5)), added = distinct(40, 6);
    SetOf a(held);
    const SetOf b(added);
    indexRun(a.set);
    edit(a.set).merge(&a.set, &b.set);
    EXPECT_EQ(items(a.set), selected(held, added));
}

TEST_P(LongRunAlgebraByKind, MergeOfALongRunIntoFewItems) {
    const Items held = distinct(20, 7), added = between(distinct(400, 8));
    SetOf a(held);
    const SetOf b(added);
    edit(a.set).merge(&a.set, &b.set);
    EXPECT_EQ(items(a.set), selected(held, added));
    EXPECT_TRUE(invariants(a.set));
}

// Some of the added items equal each other.
TEST_P(LongRunAlgebraByKind, MergeRefusesWhatItHasAddedItself) {
    const Items held = distinct(100, 9), added = RunItems(GetParam(), 10).next(500);
    const SetOf a(held), b(added, Unique::kOff);
    SetOf result;
    edit(result.set).merge(&a.set, &b.set);
    EXPECT_EQ(items(result.set), selected(held, added));
}

// A merge compares the added records of one id with each other, if they are at most 64. Otherwise it appends
// all records one by one.
TEST_P(LongRunAlgebraByKind, MergeRefusesWhatItHasAddedItselfToASetWithoutTheRun) {
    for (const std::size_t count : {63u, 64u, 65u, 66u}) {
        Items added = RunItems(GetParam(), 30).next(count - 1);
        added.push_back(added[count / 2]);
        const SetOf a(between({})), b(added, Unique::kOff);
        SetOf result;
        edit(result.set).merge(&a.set, &b.set);
        EXPECT_EQ(items(result.set), selected(between({}), added));
        EXPECT_TRUE(invariants(result.set));
    }
}

TEST_P(LongRunAlgebraByKind, MergeOfSetsThatAreNotUniqueAddsAll) {
    const Items held = RunItems(GetParam(), 11).next(200), added = RunItems(GetParam(), 12).next(200);
    const SetOf a(held, Unique::kOff), b(added, Unique::kOff);
    SetOf result;
    edit(result.set).merge(&a.set, &b.set);
    Items expected = held;
    expected.insert(expected.end(), added.begin(), added.end());
    EXPECT_EQ(items(result.set), expected);
    EXPECT_TRUE(areFoundAsByAWalk(result.set, added));
}

TEST_F(LongRunAlgebra, MergeTakesTheSecondStubOfTheMainIdForTheFirst) {
    kvinmemory::makeEqual(id(kRunMain), id(kRunMain + kvtest::kTwin));
    Items added = plainRun(200, 101);
    for (Item& item : added)
        item.main += kvtest::kTwin;
    SetOf a(between(plainRun(200)));
    const SetOf b(added);
    indexRun(a.set);
    edit(a.set).merge(&a.set, &b.set);
    EXPECT_EQ(items(a.set), selected(between(plainRun(200)), added));
    EXPECT_TRUE(areFoundAsByAWalk(a.set, added));
}

// ---- minus

TEST_P(LongRunAlgebraByKind, MinusTakesTheFirstItemOfEachThreeKeys) {
    const Items held = between(RunItems(GetParam(), 13).next(400)),
                taken = RunItems(GetParam(), 14).next(300);
    const SetOf a(held, Unique::kOff), b(taken, Unique::kOff);
    SetOf result;
    edit(result.set).minus(&a.set, &b.set);
    EXPECT_EQ(items(result.set), without(held, taken));
    EXPECT_TRUE(invariants(result.set));
    EXPECT_TRUE(areFoundAsByAWalk(result.set, held));
}

TEST_P(LongRunAlgebraByKind, MinusOfASetWhoseRunIsIndexed) {
    const Items held = between(RunItems(GetParam(), 15).next(400)),
                taken = RunItems(GetParam(), 16).next(300);
    SetOf a(held, Unique::kOff);
    const SetOf b(taken, Unique::kOff);
    indexRun(a.set);
    edit(a.set).minus(&a.set, &b.set);
    EXPECT_EQ(items(a.set), without(held, taken));
    EXPECT_TRUE(areFoundAsByAWalk(a.set, held));
}

TEST_P(LongRunAlgebraByKind, MinusOfItselfLeavesNothing) {
    SetOf a(RunItems(GetParam(), 17).next(300), Unique::kOff);
    edit(a.set).minus(&a.set, &a.set);
    EXPECT_TRUE(items(a.set).empty());
    EXPECT_TRUE(invariants(a.set));
}

// ---- comparing

TEST_P(LongRunAlgebraByKind, ContainsTellsWhetherEveryItemIsThere) {
    const Items held = between(distinct(400, 18)), other = RunItems(GetParam(), 19).next(20);
    ASSERT_GT(held.size(), 150u);
    const SetOf all(held), part(reversed(Items(held.begin() + 50, held.begin() + 150)));
    EXPECT_TRUE(all.set.contains(&part.set));
    for (const Item& item : other) {
        SetOf more(Items(held.begin() + 50, held.begin() + 150));
        kvtest::select(more.set, item);
        EXPECT_EQ(all.set.contains(&more.set), holdsEqual(held, item)) << item;
    }
}

TEST_P(LongRunAlgebraByKind, IntersectsWithASetOfOneCommonItem) {
    const Items held = between(distinct(400, 20));
    Items others = plainRun(200, 2000);
    const SetOf all(held), none(others);
    EXPECT_FALSE(all.set.intersectedWith(&none.set));
    EXPECT_FALSE(none.set.intersectedWith(&all.set));
    others.push_back(held.at(150));
    const SetOf one(others);
    EXPECT_TRUE(all.set.intersectedWith(&one.set));
    EXPECT_TRUE(one.set.intersectedWith(&all.set));
}

TEST_F(LongRunAlgebra, ComparingIgnoresTransformsAndTheMarkersOfNone) {
    Items run = plainRun(200), moved = plainRun(200);
    for (Item& item : moved) {
        item.moved = 1.5;
        item.marker = 0;
    }
    const SetOf one(run), other(reversed(moved));
    EXPECT_TRUE(one.set.contains(&other.set));
    EXPECT_TRUE(other.set.contains(&one.set));
}

// ---- transfer and unique

TEST_P(LongRunAlgebraByKind, TransferAppendsWhatIsMissing) {
    const Items held = between(distinct(200, 21)), added = RunItems(GetParam(), 22).next(300);
    SetOf target(held);
    const SetOf source(added, Unique::kOff);
    ExcludeNone excluder;
    source.set.transfer(target.set, &excluder, nullptr);
    EXPECT_EQ(items(target.set), selected(held, added));
    EXPECT_TRUE(invariants(target.set));
    EXPECT_TRUE(areFoundAsByAWalk(target.set, added));
}

TEST_P(LongRunAlgebraByKind, SetThatBecomesUniqueKeepsTheFirstItemOfTheRun) {
    const Items held = between(RunItems(GetParam(), 23).next(300));
    SetOf s(held, Unique::kOff);
    indexRun(s.set);
    edit(s.set).setUnique(true);
    EXPECT_EQ(items(s.set), (Items{held[0], held[1], held[2]}));
    EXPECT_TRUE(invariants(s.set));
    EXPECT_TRUE(areFoundAsByAWalk(s.set, held));
    const Items added = RunItems(GetParam(), 24).next(300);
    for (const Item& item : added)
        kvtest::select(s.set, item);
    EXPECT_EQ(items(s.set), selected({held[0], held[1], held[2]}, added));
}

TEST_F(LongRunAlgebra, ClearedSetStartsAnewWithARunOfTheSameId) {
    SetOf s(between(plainRun(200)));
    indexRun(s.set);
    edit(s.set).clear();
    for (const Item& item : plainRun(100, 101))
        kvtest::select(s.set, item);
    indexRun(s.set);
    EXPECT_TRUE(areFoundAsByAWalk(s.set, plainRun(210)));
    EXPECT_EQ(items(s.set), plainRun(100, 101));
}

// ---- without memory

TEST_F(LongRunAlgebra, OperationsGiveTheSameWhereThereIsNoMemoryForAnIndex) {
    if (!kvdetail::kHasRunIndex)
        GTEST_SKIP() << "this build has no run indexes";
    const Items held = plainRun(90), other = reversed(plainRun(80, 20));
    kvtest::forEachAllocationFailure([&](FailurePoint& point) {
        const SetOf a(held), b(other);
        bool isContained = true, isIntersected = false;
        point.run([&] {
            isContained = a.set.contains(&b.set);
            isIntersected = a.set.intersectedWith(&b.set);
        });
        EXPECT_FALSE(point.outcome().failed);
        EXPECT_FALSE(isContained);
        EXPECT_TRUE(isIntersected);
    });
}

TEST_F(LongRunAlgebra, MergeHasWholeItemsOnlyWhereItRunsOutOfMemory) {
    const Items held = plainRun(90), other = reversed(plainRun(80, 20));
    const Items complete = selected(held, other);
    kvtest::forEachAllocationFailure([&](FailurePoint& point) {
        SetOf a(held);
        const SetOf b(other);
        point.run([&] { edit(a.set).merge(&a.set, &b.set); });
        const Items result = items(a.set);
        ASSERT_LE(result.size(), complete.size());
        EXPECT_TRUE(std::equal(result.begin(), result.end(), complete.begin()));
        EXPECT_EQ(result.size() == complete.size(), point.outcome().completed);
        EXPECT_TRUE(invariants(a.set));
        edit(a.set).merge(&a.set, &b.set);
        EXPECT_EQ(items(a.set), complete);
    });
}

TEST_F(LongRunAlgebra, MinusHasTakenWholeItemsOnlyWhereItRunsOutOfMemory) {
    if (!kvdetail::kHasRunIndex)
        GTEST_SKIP() << "this build has no run indexes";
    const Items held = plainRun(90), taken = reversed(plainRun(60, 20));
    kvtest::forEachAllocationFailure([&](FailurePoint& point) {
        freeLeftRecords();
        SetOf a(held);
        const SetOf b(taken);
        point.run([&] { edit(a.set).minus(&a.set, &b.set); });
        EXPECT_TRUE(invariants(a.set));
        EXPECT_TRUE(areFoundAsByAWalk(a.set, held));
        edit(a.set).minus(&a.set, &b.set);
        EXPECT_EQ(items(a.set), without(held, taken));
    });
}

// ---- what it costs

class LongRunAlgebraCost : public LongRunAlgebra {
protected:
    static constexpr std::size_t kMany = 5000;
    static constexpr long kMost = 60 * static_cast<long>(kMany); // limit on the id comparisons

    template <class Operation>
    static long comparisonsOf(Operation operation) {
        kvinmemory::countIdComparisons(true);
        operation();
        return kvtest::idComparisons();
    }
};

TEST_F(LongRunAlgebraCost, OfComparingIsThatOfALookUpPerItem) {
    if (!kvdetail::kHasRunIndex)
        GTEST_SKIP() << "this build has no run indexes";
    const SetOf a(plainRun(kMany)), b(shuffledRun(kMany, 1)), none(plainRun(kMany, 2 * kMany));
    EXPECT_LE(comparisonsOf([&] { EXPECT_TRUE(a.set.contains(&b.set)); }), kMost);
    EXPECT_LE(comparisonsOf([&] { EXPECT_FALSE(a.set.intersectedWith(&none.set)); }), kMost);
}

TEST_F(LongRunAlgebraCost, OfMergingIsThatOfALookUpPerItem) {
    if (!kvdetail::kHasRunIndex)
        GTEST_SKIP() << "this build has no run indexes";
    SetOf a(plainRun(kMany)), few(plainRun(1));
    const SetOf b(shuffledRun(kMany, 2)), more(plainRun(kMany, kMany / 2));
    EXPECT_LE(comparisonsOf([&] { edit(a.set).merge(&a.set, &b.set); }), kMost);
    EXPECT_LE(comparisonsOf([&] { edit(a.set).merge(&a.set, &more.set); }), kMost);
    EXPECT_LE(comparisonsOf([&] { edit(few.set).merge(&few.set, &b.set); }), kMost);
    EXPECT_EQ(kvtest::count(a.set), kMany + kMany / 2 - 1);
    EXPECT_EQ(kvtest::count(few.set), kMany);
}

TEST_F(LongRunAlgebraCost, OfMinusIsThatOfALookUpPerItem) {
    if (!kvdetail::kHasRunIndex)
        GTEST_SKIP() << "this build has no run indexes";
    SetOf a(plainRun(kMany)), other(plainRun(kMany));
    const SetOf b(shuffledRun(kMany, 3)), backwards(reversed(plainRun(kMany)));
    EXPECT_LE(comparisonsOf([&] { edit(a.set).minus(&a.set, &b.set); }), kMost);
    EXPECT_LE(comparisonsOf([&] { edit(other.set).minus(&other.set, &backwards.set); }), kMost);
    EXPECT_TRUE(items(a.set).empty());
    EXPECT_TRUE(items(other.set).empty());
}

TEST_F(LongRunAlgebraCost, OfTransferringIsThatOfALookUpPerItem) {
    if (!kvdetail::kHasRunIndex)
        GTEST_SKIP() << "this build has no run indexes";
    SetOf target(plainRun(kMany));
    const SetOf source(shuffledRun(kMany, 4));
    ExcludeNone excluder;
    EXPECT_LE(comparisonsOf([&] { source.set.transfer(target.set, &excluder, nullptr); }), kMost);
    EXPECT_EQ(kvtest::count(target.set), kMany);
}

} // namespace
