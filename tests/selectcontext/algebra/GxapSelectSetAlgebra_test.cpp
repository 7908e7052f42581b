#include "tests/selectcontext/support/EditTestSupport.h"

#include <gtest/gtest.h>

namespace {

using kvtest::count;
using kvtest::edit;
using kvtest::FleetingSharer;
using kvtest::id;
using kvtest::IndexState;
using kvtest::invariants;
using kvtest::isRegistered;
using kvtest::Item;
using kvtest::items;
using kvtest::Items;
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

class Merge : public kvtest::EditTest {};
class MergeFlags : public kvtest::EditTest {};
class MergeRecords : public kvtest::EditTest {};
class MergeIntoOperand : public kvtest::EditTest {};
class Minus : public kvtest::EditTest {};
class MinusFromItself : public kvtest::EditTest {};

void merge(GxapSelectSet& target, const GxapSelectSet* a, const GxapSelectSet* b) {
    edit(target).merge(a, b);
    EXPECT_TRUE(invariants(target));
}

void minus(GxapSelectSet& target, const GxapSelectSet* a, const GxapSelectSet* b) {
    edit(target).minus(a, b);
    EXPECT_TRUE(invariants(target));
}

// --- merge: which sets share data afterwards

TEST_F(Merge, MakesTheUnion) {
    const SetOf a{{1}, {2}}, b{{2}, {3}, {1, 5}};
    GxapSelectSet target;
    merge(target, &a.set, &b.set);
    EXPECT_EQ(items(target), (Items{{1}, {2}, {3}, {1, 5}}));
    EXPECT_EQ(owners(target), 1u);
    EXPECT_EQ(items(a.set), plainItems(1, 2));
    EXPECT_EQ(count(b.set), 3u);
    EXPECT_EQ(owners(a.set), 1u);
    EXPECT_EQ(owners(b.set), 1u);
}

TEST_F(Merge, ReplacesWhatTheTargetHeld) {
    const SetOf a{{1}}, b{{2}};
    SetOf target{{8}, {9}};
    merge(target.set, &a.set, &b.set);
    EXPECT_EQ(items(target.set), plainItems(1, 2));
    EXPECT_EQ(leftRecords({&target.set, &a.set, &b.set}), 0u);
}

TEST_F(Merge, OfTwoNullsClearsTheTarget) {
    SetOf target({{8}, {9}}, Unique::kOff);
    edit(target.set).setSelectByNestedMode(true);
    merge(target.set, nullptr, nullptr);
    EXPECT_EQ(count(target.set), 0u);
    EXPECT_FALSE(target.data().unique);
    EXPECT_TRUE(target.set.isSelectByNestedMode());
    EXPECT_EQ(leftRecords({&target.set}), 0u);
}

TEST_F(Merge, OfTwoNullsLeavesSharedDataToTheOthers) {
    SetOf target({{8}, {9}}, Unique::kOff);
    const GxapSelectSet sharer(target.set);
    merge(target.set, nullptr, nullptr);
    EXPECT_EQ(count(target.set), 0u);
    EXPECT_TRUE(target.data().unique);
    EXPECT_EQ(items(sharer), plainItems(8, 2));
}

TEST_F(Merge, OfTwoNullsCreatesMissingData) {
    GxapSelectSet target;
    target.releaseData();
    merge(target, nullptr, nullptr);
    ASSERT_NE(target.sharedData, nullptr);
    EXPECT_EQ(count(target), 0u);
}

TEST_F(Merge, OfOneSetSharesItsData) {
    const SetOf a({{1}, {2}}, Unique::kOff);
    SetOf target{{8}};
    merge(target.set, &a.set, nullptr);
    EXPECT_TRUE(shareData(target.set, a.set));
    merge(target.set, nullptr, nullptr);
    merge(target.set, nullptr, &a.set);
    EXPECT_TRUE(shareData(target.set, a.set));
    EXPECT_EQ(owners(a.set), 2u);
}

TEST_F(Merge, OfOneEmptySetSharesItsDataToo) {
    const SetOf a({}, Unique::kOff);
    SetOf target{{8}};
    merge(target.set, &a.set, nullptr);
    EXPECT_TRUE(shareData(target.set, a.set));
    GxapSelectSet other;
    merge(other, nullptr, &a.set);
    EXPECT_TRUE(shareData(other, a.set));
}

TEST_F(Merge, WithAnEmptyFirstSetSharesTheSecond) {
    const SetOf b{{1}, {2}}, empty({}, Unique::kOff);
    SetOf target{{8}};
    merge(target.set, &empty.set, &b.set);
    EXPECT_TRUE(shareData(target.set, b.set));
    EXPECT_TRUE(target.data().unique);
}

TEST_F(Merge, WithAFirstSetWithoutDataSharesTheSecond) {
    const SetOf b{{1}, {2}};
    GxapSelectSet none, target;
    none.releaseData();
    merge(target, &none, &b.set);
    EXPECT_TRUE(shareData(target, b.set));
    EXPECT_EQ(none.sharedData, nullptr);
}

TEST_F(Merge, WithAnEmptySecondSetSharesTheFirst) {
    const SetOf a({{1}, {2}}, Unique::kOff);
    SetOf empty;
    edit(empty.set).setSelectByNestedMode(true);
    GxapSelectSet target;
    merge(target, &a.set, &empty.set);
    EXPECT_TRUE(shareData(target, a.set));
    EXPECT_FALSE(target.isSelectByNestedMode());
    EXPECT_FALSE(target.sharedData->unique);
}

TEST_F(Merge, WithASecondSetWithoutDataSharesTheFirst) {
    const SetOf a{{1}, {2}};
    GxapSelectSet none, target;
    none.releaseData();
    merge(target, &a.set, &none);
    EXPECT_TRUE(shareData(target, a.set));
    EXPECT_EQ(none.sharedData, nullptr);
}

TEST_F(Merge, OfTwoSetsWithoutDataLeavesNone) {
    GxapSelectSet none, alsoNone;
    SetOf target{{1}};
    none.releaseData();
    alsoNone.releaseData();
    merge(target.set, &none, &alsoNone);
    EXPECT_EQ(target.set.sharedData, nullptr);
}

TEST_F(Merge, IsPrivateEvenWhereNothingIsAdded) {
    const SetOf a{{1}, {2}}, b{{2}};
    GxapSelectSet target;
    merge(target, &a.set, &b.set);
    EXPECT_FALSE(shareData(target, a.set));
    EXPECT_EQ(items(target), items(a.set));
}

TEST_F(Merge, DisablesTheTargetsIteratorsAlone) {
    const SetOf a{{1}}, b{{2}};
    SetOf target{{8}};
    const ConstIterator mine = target.set.begin(), ofA = a.set.begin(), ofB = b.set.begin();
    merge(target.set, &a.set, &b.set);
    EXPECT_EQ(mine.truckerIterator, nullptr);
    EXPECT_EQ(registrations(target.set), 0);
    EXPECT_EQ(kvtest::at(ofA), 1u);
    EXPECT_EQ(kvtest::at(ofB), 2u);
    EXPECT_TRUE(isRegistered(a.set, ofA) && isRegistered(b.set, ofB));
}

TEST_F(Merge, AcrossPages) {
    const SetOf a(plainItems(1, kPageSlots)), b(plainItems(kPageSlots, 2));
    GxapSelectSet target;
    merge(target, &a.set, &b.set);
    EXPECT_EQ(count(target), kPageSlots + 1);
    EXPECT_EQ(pages(target), 2u);
    EXPECT_EQ(target.find(id(kPageSlots + 1)), static_cast<int>(kPageSlots));
    merge(target, &b.set, &a.set);
    EXPECT_EQ(count(target), kPageSlots + 1);
    EXPECT_EQ(target.find(id(kPageSlots)), 0);
    EXPECT_EQ(target.find(id(1)), 2);
}

// --- merge: flags

TEST_F(MergeFlags, UniqueIsOnWhereItIsInEither) {
    for (const Unique ofA : {Unique::kOn, Unique::kOff}) {
        for (const Unique ofB : {Unique::kOn, Unique::kOff}) {
            const SetOf a({{1}}, ofA), b({{2}}, ofB);
            GxapSelectSet target;
            merge(target, &a.set, &b.set);
            EXPECT_EQ(target.sharedData->unique, ofA == Unique::kOn || ofB == Unique::kOn);
            EXPECT_EQ(a.data().unique, ofA == Unique::kOn);
            EXPECT_EQ(b.data().unique, ofB == Unique::kOn);
        }
    }
}

TEST_F(MergeFlags, OfTheTargetItselfDoNotMatter) {
    const SetOf a({{1}, {1}}, Unique::kOff), b({{1}}, Unique::kOff);
    SetOf target{{8}};
    edit(target.set).setSelectByNestedMode(true);
    merge(target.set, &a.set, &b.set);
    EXPECT_EQ(items(target.set), (Items{{1}, {1}, {1}}));
    EXPECT_FALSE(target.data().unique);
    EXPECT_FALSE(target.set.isSelectByNestedMode());
}

TEST_F(MergeFlags, UniqueOfTheSecondKeepsTheDuplicatesOfTheFirst) {
    const SetOf a({{1}, {1}, {2}}, Unique::kOff), b({{1}, {3}}, Unique::kOn);
    GxapSelectSet target;
    merge(target, &a.set, &b.set);
    EXPECT_TRUE(target.sharedData->unique);
    EXPECT_EQ(items(target), (Items{{1}, {1}, {2}, {3}}));
}

TEST_F(MergeFlags, UniqueOfTheFirstRefusesTheDuplicatesOfTheSecond) {
    const SetOf a({{1}}, Unique::kOn), b({{3}, {3}, {1}}, Unique::kOff);
    GxapSelectSet target;
    merge(target, &a.set, &b.set);
    EXPECT_EQ(items(target), (Items{{1}, {3}}));
}

TEST_F(MergeFlags, WithoutUniqueAddsEverything) {
    const SetOf a({{1}, {2}}, Unique::kOff), b({{2}, {2}, {3}}, Unique::kOff);
    GxapSelectSet target;
    merge(target, &a.set, &b.set);
    EXPECT_EQ(items(target), (Items{{1}, {2}, {2}, {2}, {3}}));
}

TEST_F(MergeFlags, NestedModeIsOnWhereItIsInEither) {
    for (const bool ofA : {true, false}) {
        for (const bool ofB : {true, false}) {
            SetOf a{{1}}, b{{2}};
            edit(a.set).setSelectByNestedMode(ofA);
            edit(b.set).setSelectByNestedMode(ofB);
            GxapSelectSet target;
            merge(target, &a.set, &b.set);
            EXPECT_EQ(target.isSelectByNestedMode(), ofA || ofB);
            EXPECT_EQ(a.set.isSelectByNestedMode(), ofA);
            EXPECT_EQ(b.set.isSelectByNestedMode(), ofB);
        }
    }
}

// --- merge: records

TEST_F(MergeRecords, AreComparedAsBySelect) {
    const SetOf a{{1, 2, 0, {7}, 1.5}, {2}, {3, 0, 5}};
    const SetOf b{{1, 2, -1, {7}, 1.5}, {1, 2, 0, {7}, 2.5}, {1, 2, 0, {8}, 1.5}, {3, 0, 6}, {2}};
    GxapSelectSet target;
    merge(target, &a.set, &b.set);
    EXPECT_EQ(
        items(target),
        (Items{{1, 2, 0, {7}, 1.5}, {2}, {3, 0, 5}, {1, 2, 0, {7}, 2.5}, {1, 2, 0, {8}, 1.5}, {3, 0, 6}}));
}

TEST_F(MergeRecords, AreCopies) {
    const SetOf a{{1}}, b{{2, 1, 3, {7}, 1.5}};
    GxapSelectSet target;
    merge(target, &a.set, &b.set);
    EXPECT_NE(record(target, 0), record(a.set, 0));
    ASSERT_NE(record(target, 1), record(b.set, 0));
    EXPECT_NE(record(target, 1)->selectedEntityInfo, record(b.set, 0)->selectedEntityInfo);
    EXPECT_EQ(record(target, 1)->nestedEntFullPath.data.block,
              record(b.set, 0)->nestedEntFullPath.data.block);
}

TEST_F(MergeRecords, OfTheFirstKeepTheirHighlightsThoseOfTheSecondLoseThem) {
    const SetOf a{{1}}, b{{2}};
    kvtest::giveSegments(*record(a.set, 0), 1);
    kvtest::giveSegments(*record(b.set, 0), 1);
    GxapSelectSet target;
    merge(target, &a.set, &b.set);
    ASSERT_NE(record(target, 0)->highlightSegmentArray, nullptr);
    EXPECT_EQ(record(target, 0)->highlightSegmentArray->logicalLength(), 1);
    EXPECT_EQ(record(target, 1)->highlightSegmentArray, nullptr);
}

TEST_F(MergeRecords, ThatTheIndexHasLostAreMergedToo) {
    SetOf a{{1}}, b{{2, 1}, {2, 2}, {3}};
    edit(b.set).remove(id(2), id(1));
    GxapSelectSet target;
    merge(target, &a.set, &b.set);
    EXPECT_EQ(items(target), (Items{{1}, {2, 2}, {3}}));
}

TEST_F(MergeRecords, ThatAreNullArePassedOver) {
    SetOf a{{1}}, b{{2}, {3}};
    const auto taken = kvtest::takeRecordOut(b.set, 0);
    GxapSelectSet target;
    merge(target, &a.set, &b.set);
    EXPECT_EQ(items(target), (Items{{1}, {3}}));
}

TEST_F(MergeRecords, OfFreedSlotsAndEmptyPagesAreNone) {
    SetOf a{{1}}, b(plainItems(1, kPageSlots + 3));
    edit(b.set).remove(id(kPageSlots + 2));
    const auto taken = kvtest::emptyFirstPageInPlace(b.set);
    GxapSelectSet target;
    merge(target, &a.set, &b.set);
    EXPECT_EQ(items(target), (Items{{1}, {kPageSlots + 1}, {kPageSlots + 3}}));
}

// --- merge: the target is an operand

TEST_F(MergeIntoOperand, TheFirstAddsTheSecond) {
    SetOf target{{1}, {2}};
    const SetOf b{{2}, {3}};
    const auto* data = target.set.sharedData;
    const ConstIterator it = target.set.begin();
    merge(target.set, &target.set, &b.set);
    EXPECT_EQ(items(target.set), plainItems(1, 3));
    EXPECT_EQ(target.set.sharedData, data);
    EXPECT_EQ(kvtest::at(it), 1u);
    EXPECT_TRUE(isRegistered(target.set, it));
}

TEST_F(MergeIntoOperand, TheFirstWithSharedDataBecomesPrivate) {
    SetOf target{{1}, {2}};
    const GxapSelectSet sharer(target.set);
    const SetOf b{{3}};
    const ConstIterator it = target.set.begin();
    merge(target.set, &target.set, &b.set);
    EXPECT_EQ(items(target.set), plainItems(1, 3));
    EXPECT_EQ(items(sharer), plainItems(1, 2));
    EXPECT_EQ(it.truckerIterator, nullptr);
}

TEST_F(MergeIntoOperand, TheFirstWithNothingToAddStaysShared) {
    SetOf target{{1}};
    const GxapSelectSet sharer(target.set), empty;
    const ConstIterator it = target.set.begin();
    merge(target.set, &target.set, nullptr);
    merge(target.set, nullptr, &target.set);
    merge(target.set, &target.set, &empty);
    EXPECT_TRUE(shareData(target.set, sharer));
    EXPECT_EQ(kvtest::at(it), 1u);
}

TEST_F(MergeIntoOperand, TheEmptyFirstSharesTheSecond) {
    GxapSelectSet target;
    const SetOf b{{1}};
    merge(target, &target, &b.set);
    EXPECT_TRUE(shareData(target, b.set));
}

TEST_F(MergeIntoOperand, TheSecondLosesItsItems) {
    const SetOf a{{1}, {2}};
    SetOf target{{2}, {3}};
    merge(target.set, &a.set, &target.set);
    EXPECT_EQ(items(target.set), plainItems(1, 2));
    EXPECT_FALSE(shareData(target.set, a.set));
}

TEST_F(MergeIntoOperand, TheSecondHoldsTheFirstTwiceWithoutUnique) {
    const SetOf a({{1}, {2}}, Unique::kOff);
    SetOf target{{3}};
    merge(target.set, &a.set, &target.set);
    EXPECT_EQ(items(target.set), (Items{{1}, {2}, {1}, {2}}));
    EXPECT_FALSE(target.data().unique);
    EXPECT_EQ(items(a.set), plainItems(1, 2));
}

TEST_F(MergeIntoOperand, TheSecondKeepsItselfWhereTheFirstIsEmpty) {
    const GxapSelectSet a;
    SetOf target{{1}};
    const auto* data = target.set.sharedData;
    merge(target.set, &a, &target.set);
    EXPECT_EQ(target.set.sharedData, data);
    EXPECT_EQ(items(target.set), plainItems(1, 1));
}

TEST_F(MergeIntoOperand, TheEmptySecondTakesTheFirst) {
    const SetOf a({{1}}, Unique::kOff);
    GxapSelectSet target;
    merge(target, &a.set, &target);
    EXPECT_EQ(items(target), (Items{{1}, {1}}));
}

TEST_F(MergeIntoOperand, BothDoublesItWithoutUnique) {
    SetOf target({{1}, {2}, {1}}, Unique::kOff);
    merge(target.set, &target.set, &target.set);
    EXPECT_EQ(items(target.set), (Items{{1}, {2}, {1}, {1}, {2}, {1}}));
}

TEST_F(MergeIntoOperand, BothChangesNothingWithUnique) {
    SetOf target{{1}, {2}};
    const auto* data = target.set.sharedData;
    merge(target.set, &target.set, &target.set);
    EXPECT_EQ(items(target.set), plainItems(1, 2));
    EXPECT_EQ(target.set.sharedData, data);
}

TEST_F(MergeIntoOperand, BothDoublesItAcrossPages) {
    SetOf target(plainItems(1, kPageSlots - 1), Unique::kOff);
    merge(target.set, &target.set, &target.set);
    EXPECT_EQ(count(target.set), 2 * kPageSlots - 2);
    EXPECT_EQ(pages(target.set), 2u);
}

TEST_F(MergeIntoOperand, OutlivesTheDataThatItReads) {
    SetOf target({{1}, {2, 1, 5, {7}, 1.5}, {3}}, Unique::kOff);
    const FleetingSharer sharer(target.set);
    merge(target.set, &target.set, &target.set);
    EXPECT_TRUE(sharer.isGone());
    const Item nested{2, 1, 5, {7}, 1.5};
    EXPECT_EQ(items(target.set), (Items{{1}, nested, {3}, {1}, nested, {3}}));
}

// --- minus

TEST_F(Minus, MakesTheDifference) {
    const SetOf a{{1}, {2}, {3}, {4}}, b{{4}, {2}, {9}};
    GxapSelectSet target;
    minus(target, &a.set, &b.set);
    EXPECT_EQ(items(target), (Items{{1}, {3}}));
    EXPECT_EQ(owners(target), 1u);
    EXPECT_EQ(items(a.set), plainItems(1, 4));
    EXPECT_EQ(items(b.set), (Items{{4}, {2}, {9}}));
    EXPECT_EQ(leftRecords({&target, &a.set, &b.set}), 2u);
}

// A caller has set the count to 3. So minus() removes only three items. It removes in the order of `b`, which
// has the highest ids first.
TEST_F(Minus, EndsWhenACountThatACallerHasMadeTooSmallIsUsedUp) {
    constexpr unsigned long kItems = 40;
    GxapSelectSet a, b;
    for (unsigned long n = kItems; n > 0; --n) {
        kvtest::appendIds(a, n, 1);
        kvtest::appendIds(b, n, 1);
    }
    a.sharedData->entityCount = 3;
    edit(a).minus(&a, &b);
    EXPECT_EQ(count(a), 0u);
    EXPECT_EQ(a.sharedData->dataMap.size(), kItems - 3);
    for (unsigned long n = 1; n <= kItems; ++n)
        EXPECT_EQ(a.sharedData->dataMap.count(id(n)), n <= kItems - 3 ? 1u : 0u) << n;
    a.sharedData->entityCount = kItems - 3;
}

TEST_F(Minus, ReplacesWhatTheTargetHeld) {
    const SetOf a{{1}, {2}}, b{{2}};
    SetOf target{{8}, {1, 1}};
    minus(target.set, &a.set, &b.set);
    EXPECT_EQ(items(target.set), plainItems(1, 1));
    EXPECT_EQ(leftRecords({&target.set, &a.set, &b.set}), 1u);
}

TEST_F(Minus, OfNothingClearsTheTarget) {
    const SetOf b{{1}};
    GxapSelectSet none;
    none.releaseData();
    const GxapSelectSet empty;
    const GxapSelectSet* const nothings[] = {nullptr, &none, &empty};
    for (const GxapSelectSet* a : nothings) {
        SetOf target({{8}, {9}}, Unique::kOff);
        minus(target.set, a, &b.set);
        EXPECT_EQ(count(target.set), 0u);
        EXPECT_FALSE(target.data().unique);
        EXPECT_EQ(owners(target.set), 1u);
    }
    EXPECT_EQ(none.sharedData, nullptr);
}

TEST_F(Minus, OfNothingLeavesSharedDataToTheOthers) {
    SetOf target({{8}}, Unique::kOff);
    const GxapSelectSet sharer(target.set);
    minus(target.set, nullptr, &sharer);
    EXPECT_EQ(count(target.set), 0u);
    EXPECT_TRUE(target.data().unique);
    EXPECT_EQ(items(sharer), plainItems(8, 1));
}

TEST_F(Minus, OfNothingLeavesAnEmptyTargetThatIsTheFirstAsItIs) {
    GxapSelectSet target;
    const GxapSelectSet sharer(target);
    const SetOf b{{1}};
    minus(target, &target, &b.set);
    EXPECT_TRUE(shareData(target, sharer));
    target.releaseData();
    edit(target).minus(&target, &b.set);
    EXPECT_EQ(target.sharedData, nullptr);
}

TEST_F(Minus, NothingSharesTheFirst) {
    const SetOf a({{1}, {2}}, Unique::kOff);
    const GxapSelectSet empty;
    GxapSelectSet none, target;
    none.releaseData();
    minus(target, &a.set, nullptr);
    EXPECT_TRUE(shareData(target, a.set));
    minus(target, nullptr, nullptr);
    minus(target, &a.set, &empty);
    EXPECT_TRUE(shareData(target, a.set));
    minus(target, nullptr, nullptr);
    minus(target, &a.set, &none);
    EXPECT_TRUE(shareData(target, a.set));
    EXPECT_EQ(none.sharedData, nullptr);
}

TEST_F(Minus, OfSetsWithNothingInCommonSharesTheFirst) {
    const SetOf a{{1}, {2, 5}}, b{{3}, {2, 6}, {1, 1}};
    GxapSelectSet target;
    minus(target, &a.set, &b.set);
    EXPECT_TRUE(shareData(target, a.set));
    EXPECT_EQ(owners(a.set), 2u);
}

TEST_F(Minus, OfASetAndItselfIsEmpty) {
    const SetOf a{{1}, {2, 1, 5}, {3, 0, 0, {7}}};
    GxapSelectSet target;
    minus(target, &a.set, &a.set);
    EXPECT_EQ(count(target), 0u);
    EXPECT_EQ(pages(target), 0u);
    EXPECT_TRUE(target.sharedData->dataMap.empty());
    EXPECT_EQ(count(a.set), 3u);
    EXPECT_EQ(leftRecords({&target, &a.set}), 3u);
}

TEST_F(Minus, TakesOneItemForEachEqualOne) {
    const SetOf a({{1}, {1}, {1}, {2}}, Unique::kOff), b({{1}, {2}, {1}, {2}}, Unique::kOff);
    GxapSelectSet target;
    minus(target, &a.set, &b.set);
    EXPECT_EQ(items(target), plainItems(1, 1));
    EXPECT_FALSE(target.sharedData->unique);
}

TEST_F(Minus, OfManyTakesTheItemsOfAnEntityBehindOneThatIsNotThere) {
    Items held, taken, left;
    for (unsigned long n = 1; n <= 20; ++n) {
        held.insert(held.end(), {{n, 1}, {n, 2}});
        taken.insert(taken.end(), {{n, 9}, {n, 1}});
        left.push_back({n, 2});
    }
    const SetOf a(held), b(taken);
    GxapSelectSet target;
    minus(target, &a.set, &b.set);
    EXPECT_EQ(items(target), left);
}

TEST_F(Minus, TellsMarkersApartThatAreOnlyEquivalent) {
    const SetOf a{{1, 2, 0}, {3, 2, -1}, {4, 2, 0}}, b{{1, 2, -1}, {3, 2, 0}, {4, 2, 0}};
    GxapSelectSet target;
    minus(target, &a.set, &b.set);
    EXPECT_EQ(items(target), (Items{{1, 2, 0}, {3, 2, -1}}));
}

TEST_F(Minus, BecomesPrivateForAMarkerThatIsOnlyEquivalent) {
    const SetOf a{{1, 2, 0}}, b{{1, 2, -1}};
    GxapSelectSet target;
    minus(target, &a.set, &b.set);
    EXPECT_FALSE(shareData(target, a.set));
    EXPECT_EQ(items(target), (Items{{1, 2, 0}}));
}

TEST_F(Minus, LooksNeitherAtPathNorAtTransform) {
    const SetOf a{{1, 2, 3, {7}}, {1, 2, 3, {8}}, {2, 0, -1, {}, 1.5}}, b{{1, 2, 3, {8}}, {2}};
    GxapSelectSet target;
    minus(target, &a.set, &b.set);
    EXPECT_EQ(items(target), (Items{{1, 2, 3, {8}}}));
}

TEST_F(Minus, KeepsTheFlagsOfTheFirst) {
    SetOf a({{1}, {2}}, Unique::kOff);
    edit(a.set).setSelectByNestedMode(true);
    const SetOf b{{1}};
    GxapSelectSet target;
    minus(target, &a.set, &b.set);
    EXPECT_FALSE(target.sharedData->unique);
    EXPECT_TRUE(target.isSelectByNestedMode());
    SetOf c{{1}};
    edit(c.set).setSelectByNestedMode(true);
    minus(target, &b.set, &c.set);
    EXPECT_FALSE(target.isSelectByNestedMode());
}

TEST_F(Minus, TakesWhatTheIndexOfTheSecondHasLost) {
    const SetOf a{{2, 2}, {3}};
    SetOf b{{2, 1}, {2, 2}};
    edit(b.set).remove(id(2), id(1));
    GxapSelectSet target;
    minus(target, &a.set, &b.set);
    EXPECT_EQ(items(target), plainItems(3, 1));
}

TEST_F(Minus, PassesOverNullRecordsOfTheSecond) {
    const SetOf a{{1}, {2}};
    SetOf b{{1}, {2}};
    const auto taken = kvtest::takeRecordOut(b.set, 0);
    GxapSelectSet target;
    minus(target, &a.set, &b.set);
    EXPECT_EQ(items(target), plainItems(1, 1));
}

TEST_F(Minus, WalksOverFreedSlotsAndEmptyPages) {
    const SetOf a{{1}, {kPageSlots + 1}, {kPageSlots + 2}, {kPageSlots + 3}};
    SetOf b(plainItems(1, kPageSlots + 3));
    edit(b.set).remove(id(kPageSlots + 2));
    const auto taken = kvtest::emptyFirstPageInPlace(b.set);
    GxapSelectSet target;
    minus(target, &a.set, &b.set);
    EXPECT_EQ(items(target), (Items{{1}, {kPageSlots + 2}}));
}

TEST_F(Minus, ReleasesThePagesThatItEmpties) {
    const SetOf a(plainItems(1, 2 * kPageSlots + 1)), b(plainItems(kPageSlots + 1, kPageSlots));
    GxapSelectSet target;
    minus(target, &a.set, &b.set);
    EXPECT_EQ(count(target), kPageSlots + 1);
    EXPECT_EQ(pages(target), 2u);
    EXPECT_EQ(target.find(id(2 * kPageSlots + 1)), static_cast<int>(kPageSlots));
}

TEST_F(Minus, DisablesTheTargetsIteratorsAlone) {
    const SetOf a{{1}, {2}}, b{{2}};
    SetOf target{{8}};
    const ConstIterator mine = target.set.begin(), ofA = a.set.begin(), ofB = b.set.begin();
    minus(target.set, &a.set, &b.set);
    EXPECT_EQ(mine.truckerIterator, nullptr);
    EXPECT_EQ(registrations(target.set), 0);
    EXPECT_EQ(kvtest::at(ofA), 1u);
    EXPECT_EQ(kvtest::at(ofB), 2u);
}

// --- minus: the target is an operand

TEST_F(MinusFromItself, TakesTheSecondOut) {
    SetOf target{{1}, {2}, {3}};
    const SetOf b{{2}};
    const auto* data = target.set.sharedData;
    const selected_entity* removed = record(target.set, 1);
    const ConstIterator it = target.set.iteratorAt(2);
    minus(target.set, &target.set, &b.set);
    EXPECT_EQ(items(target.set), (Items{{1}, {3}}));
    EXPECT_EQ(target.set.sharedData, data);
    EXPECT_EQ(kvtest::at(it), 3u);
    EXPECT_TRUE(kvtest::isLiveRecord(removed));
}

TEST_F(MinusFromItself, WithSharedDataBecomesPrivate) {
    SetOf target{{1}, {2}, {3}};
    const GxapSelectSet sharer(target.set);
    const SetOf b{{2}};
    const ConstIterator it = target.set.begin();
    minus(target.set, &target.set, &b.set);
    EXPECT_EQ(items(target.set), (Items{{1}, {3}}));
    EXPECT_EQ(items(sharer), plainItems(1, 3));
    EXPECT_EQ(it.truckerIterator, nullptr);
}

TEST_F(MinusFromItself, OfNothingStaysShared) {
    SetOf target{{1}};
    const GxapSelectSet sharer(target.set);
    const SetOf b{{2}};
    minus(target.set, &target.set, nullptr);
    minus(target.set, &target.set, &b.set);
    EXPECT_TRUE(shareData(target.set, sharer));
}

TEST_F(MinusFromItself, AsTheSecondIsEmptied) {
    const SetOf a{{1}, {2}};
    SetOf target{{2}, {9}};
    minus(target.set, &a.set, &target.set);
    EXPECT_EQ(count(target.set), 0u);
    EXPECT_FALSE(shareData(target.set, a.set));
    EXPECT_EQ(items(a.set), plainItems(1, 2));
}

TEST_F(MinusFromItself, AsTheSecondWithoutAFirstIsCleared) {
    const GxapSelectSet empty;
    SetOf target{{2}, {9}};
    minus(target.set, &empty, &target.set);
    EXPECT_EQ(count(target.set), 0u);
    EXPECT_EQ(leftRecords({&target.set, &empty}), 0u);
}

TEST_F(MinusFromItself, AsBothIsEmptied) {
    SetOf target({{1}, {2}, {2}, {1, 5}}, Unique::kOff);
    minus(target.set, &target.set, &target.set);
    EXPECT_EQ(count(target.set), 0u);
    EXPECT_EQ(pages(target.set), 0u);
    EXPECT_EQ(leftRecords({&target.set}), 4u);
}

TEST_F(MinusFromItself, AsBothIsEmptiedAcrossPages) {
    SetOf target(plainItems(1, kPageSlots + 1));
    minus(target.set, &target.set, &target.set);
    EXPECT_EQ(count(target.set), 0u);
    EXPECT_EQ(pages(target.set), 0u);
}

TEST_F(MinusFromItself, OutlivesTheDataThatItReads) {
    SetOf target{{1}, {2, 1, 5, {7}, 1.5}, {3}};
    const FleetingSharer sharer(target.set);
    minus(target.set, &target.set, &target.set);
    EXPECT_TRUE(sharer.isGone());
    EXPECT_EQ(count(target.set), 0u);
}

TEST_F(MinusFromItself, AsBothKeepsWhatTheIndexHasLost) {
    SetOf target{{1, 1}, {1, 2}, {3}};
    edit(target.set).remove(id(1), id(1));
    edit(target.set).minus(&target.set, &target.set);
    EXPECT_EQ(items(target.set), (Items{{1, 2}}));
    EXPECT_EQ(count(target.set), 1u);
    EXPECT_TRUE(invariants(target.set, IndexState::kMayLackEntries));
}

// minus() looks up {1, 2} first, and does not find it: the index lacks the entry. minus() finds {3} and
// copies the data. The copy has a complete index, so minus() then finds {1, 2, 5}.
TEST_F(MinusFromItself, OfSharedDataFindsAgainWhatTheIndexHadLost) {
    SetOf target{{1, 1}, {1, 2}, {3}, {1, 2, 5}};
    edit(target.set).remove(id(1), id(1));
    const GxapSelectSet sharer(target.set);
    minus(target.set, &target.set, &target.set);
    EXPECT_EQ(items(target.set), (Items{{1, 2}}));
    EXPECT_EQ(items(sharer), (Items{{1, 2}, {3}, {1, 2, 5}}));
}

} // namespace
