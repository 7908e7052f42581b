// Tests that the contenders of the benchmark do the same work. After the same edits, every contender has the
// items that the library has.

#include "bench/Contenders.h"
#include "bench/OneMainId.h"
#include "bench/Operations.h"

#include <gtest/gtest.h>
#include <random>
#include <set>
#include <vector>

namespace {

using kvbench::idAt;
using kvbench::NestedPick;
using kvbench::Order;
using kvbench::Pick;
using kvbench::Picks;

Pick pick(std::size_t index, long marker = -1) {
    return {idAt(index), GxDbObjectId(), marker};
}

// Returns items with different markers.
Picks marked(std::size_t first, std::size_t count) {
    Picks result;
    for (std::size_t i = first; i < first + count; ++i)
        result.push_back(pick(i, static_cast<long>(i) + 1));
    return result;
}

// Returns an occurrence of an entity inside two blocks. `inner` is the number of the inner block.
NestedPick nested(std::size_t inner, long marker = -1) {
    NestedPick result{pick(7, marker), {}};
    result.path.setLogicalLength(3);
    result.path.at(0) = idAt(100);
    result.path.at(1) = idAt(inner);
    result.path.at(2) = idAt(7);
    return result;
}

template <class Set>
Set setOf(const kvbench::NestedPicks& items) {
    Set set;
    kvbench::fill(set, items);
    return set;
}

template <class Set>
Set setOf(const Picks& items) {
    Set set;
    kvbench::fill(set, items);
    return set;
}

template <class Set>
std::vector<long> markersOf(const Set& set) {
    std::vector<long> markers;
    for (std::size_t i = 0; i < set.size(); ++i)
        markers.push_back(set.at(i));
    return markers;
}

using Markers = std::vector<long>;

template <class Set>
class Contender : public ::testing::Test {};
TYPED_TEST_SUITE(Contender, kvbench::ContendersIn<::testing::Types>, );

TYPED_TEST(Contender, KeepsTheOrderOfSelection) {
    const auto set = setOf<TypeParam>({pick(7, 3), pick(2, 1), pick(9, 2)});
    EXPECT_EQ(markersOf(set), (Markers{3, 1, 2}));
}

TYPED_TEST(Contender, RefusesAnItemThatItHoldsAndTakesAnotherOfTheSameId) {
    const auto set = setOf<TypeParam>({pick(7, 3), pick(7, 4), pick(7, 3)});
    EXPECT_EQ(markersOf(set), (Markers{3, 4}));
}

TYPED_TEST(Contender, TakesZeroAndMinusOneForTheSameMarker) {
    const auto set = setOf<TypeParam>({pick(7, 0), pick(7, -1)});
    EXPECT_EQ(markersOf(set), (Markers{0}));
}

TYPED_TEST(Contender, TellsSubIdsApart) {
    auto set = setOf<TypeParam>({pick(7, 1)});
    set.select(Pick{idAt(7), idAt(8), 1});
    EXPECT_EQ(set.size(), 2u);
    EXPECT_FALSE(set.remove(Pick{idAt(7), idAt(9), 1}));
    EXPECT_TRUE(set.remove(Pick{idAt(7), idAt(8), 1}));
    EXPECT_EQ(set.size(), 1u);
}

TYPED_TEST(Contender, RefusesAnItemWhosePathItHoldsAndTakesOneOfAnotherPath) {
    const auto set = setOf<TypeParam>(kvbench::NestedPicks{nested(101, 1), nested(102, 1), nested(101, 1)});
    EXPECT_EQ(set.size(), 2u);
}

TYPED_TEST(Contender, TellsAnItemWithAPathFromOneWithout) {
    auto set = setOf<TypeParam>({pick(7, 1)});
    set.select(nested(101, 1));
    set.select(pick(7, 1));
    EXPECT_EQ(set.size(), 2u);
}

TYPED_TEST(Contender, RemovesTheFirstItemOfThreeKeysWhateverItsPath) {
    auto set = setOf<TypeParam>(kvbench::NestedPicks{nested(101), nested(102)});
    EXPECT_TRUE(set.remove(nested(102)));
    EXPECT_EQ(set.size(), 1u);
    EXPECT_TRUE(set.remove(nested(102)));
    EXPECT_FALSE(set.remove(nested(102)));
}

TYPED_TEST(Contender, MergesByPath) {
    const auto a = setOf<TypeParam>(kvbench::NestedPicks{nested(101, 1), nested(102, 1)});
    const auto b = setOf<TypeParam>(kvbench::NestedPicks{nested(102, 1), nested(103, 1)});
    TypeParam result;
    result.mergeOf(a, b);
    EXPECT_EQ(result.size(), 3u);
}

TYPED_TEST(Contender, ComparesSetsByPath) {
    const auto all = setOf<TypeParam>(kvbench::NestedPicks{nested(101), nested(102)});
    EXPECT_TRUE(all.contains(setOf<TypeParam>(kvbench::NestedPicks{nested(102)})));
    EXPECT_FALSE(all.contains(setOf<TypeParam>(kvbench::NestedPicks{nested(103)})));
}

TYPED_TEST(Contender, FindsIdsAndTheirPositions) {
    const auto set = setOf<TypeParam>(marked(10, 5));
    EXPECT_TRUE(set.has(idAt(12)));
    EXPECT_FALSE(set.has(idAt(15)));
    EXPECT_EQ(set.positionOf(idAt(10)), 0);
    EXPECT_EQ(set.positionOf(idAt(14)), 4);
    EXPECT_EQ(set.positionOf(idAt(15)), -1);
}

TYPED_TEST(Contender, CountsPositionsPastWhatWasRemoved) {
    auto set = setOf<TypeParam>(marked(0, 5));
    set.remove(pick(1, 2));
    EXPECT_EQ(set.positionOf(idAt(3)), 2);
    EXPECT_EQ(markersOf(set), (Markers{1, 3, 4, 5}));
}

TYPED_TEST(Contender, WalksOverIdsAndMarkersOfWhatItHolds) {
    auto set = setOf<TypeParam>({pick(7, 3), pick(2, 1), pick(9, 2)});
    set.remove(pick(2, 1));
    EXPECT_EQ(set.walk(), reinterpret_cast<std::uintptr_t>(idAt(7).stub()) + 3 +
                              reinterpret_cast<std::uintptr_t>(idAt(9).stub()) + 2);
}

TYPED_TEST(Contender, RemovesByThreeExactKeys) {
    auto set = setOf<TypeParam>({pick(7, 0), pick(7, 4), pick(8, 4)});
    EXPECT_FALSE(set.remove(pick(7, -1)));
    EXPECT_TRUE(set.remove(pick(7, 4)));
    EXPECT_EQ(markersOf(set), (Markers{0, 4}));
    EXPECT_TRUE(set.has(idAt(7)));
    EXPECT_TRUE(set.remove(pick(7, 0)));
    EXPECT_FALSE(set.has(idAt(7)));
}

TYPED_TEST(Contender, TakesNewItemsAfterAllWereRemovedFromAnEnd) {
    for (const auto removeAll : {&TypeParam::removeAllForward, &TypeParam::removeAllBackward}) {
        auto set = setOf<TypeParam>(marked(0, 5));
        (set.*removeAll)();
        EXPECT_EQ(set.size(), 0u);
        EXPECT_FALSE(set.has(idAt(3)));
        kvbench::fill(set, marked(3, 2));
        EXPECT_EQ(markersOf(set), (Markers{4, 5}));
    }
}

TYPED_TEST(Contender, LeavesACopyAsItWasWhenOneSideIsEdited) {
    auto set = setOf<TypeParam>(marked(0, 3));
    const TypeParam before(set);
    set.remove(pick(0, 1));
    kvbench::fill(set, marked(3, 1));
    EXPECT_EQ(markersOf(before), (Markers{1, 2, 3}));
    EXPECT_EQ(before.positionOf(idAt(2)), 2);
    EXPECT_FALSE(before.has(idAt(3)));
}

TYPED_TEST(Contender, MergesByAppendingWhatTheFirstSetLacks) {
    const auto a = setOf<TypeParam>(marked(0, 4));
    const auto b = setOf<TypeParam>(marked(2, 4));
    TypeParam result;
    result.mergeOf(a, b);
    EXPECT_EQ(markersOf(result), (Markers{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(a.size(), 4u);
}

TYPED_TEST(Contender, SubtractsWhatTheSecondSetHolds) {
    const auto a = setOf<TypeParam>(marked(0, 4));
    const auto b = setOf<TypeParam>(marked(2, 4));
    TypeParam result;
    result.minusOf(a, b);
    EXPECT_EQ(markersOf(result), (Markers{1, 2}));
    EXPECT_EQ(a.size(), 4u);
}

TYPED_TEST(Contender, ContainsASetWhoseItemsItAllHolds) {
    const auto all = setOf<TypeParam>(marked(0, 4));
    const auto some = setOf<TypeParam>(marked(1, 2));
    EXPECT_TRUE(all.contains(some));
    EXPECT_FALSE(some.contains(all));
}

TYPED_TEST(Contender, KeepsTheFirstItemOfEachIdWhenTheRuleIsTurnedOn) {
    TypeParam set;
    set.setUniqueRule(false);
    kvbench::fill(set, {pick(5, 1), pick(6, 2), pick(5, 3), pick(7, 4), pick(6, 5)});
    set.setUniqueRule(true);
    EXPECT_EQ(markersOf(set), (Markers{1, 2, 4}));
    EXPECT_TRUE(set.remove(pick(6, 2)));
    EXPECT_FALSE(set.has(idAt(6)));
}

TYPED_TEST(Contender, FindsNoItemToRemoveWhenTheRuleIsTurnedOnForDifferentIds) {
    TypeParam set;
    set.setUniqueRule(false);
    kvbench::fill(set, marked(0, 3));
    set.setUniqueRule(true);
    EXPECT_EQ(markersOf(set), (Markers{1, 2, 3}));
}

// Runs an operation in both orders. check() ends the program if the result of run() is wrong.
template <class Operation>
void checkOperation() {
    for (const Order order : {Order::kAscending, Order::kShuffled}) {
        Operation operation(10, order);
        operation.run();
        operation.check();
        EXPECT_GT(operation.itemsDealtWith(), 0u);
    }
}

template <class... Operations>
void checkAll(kvbench::OperationList<Operations...>) {
    (checkOperation<Operations>(), ...);
}

template <class Set, class... Differences>
void checkOneMainId(kvbench::DifferenceList<Differences...>) {
    (checkAll(kvbench::OperationsOf<Set, kvbench::OneMainId<Set, Differences>>()), ...);
}

TYPED_TEST(Contender, DoesTheJobOfEveryOperation) {
    checkAll(kvbench::AllOperations<TypeParam>());
}

TYPED_TEST(Contender, DoesTheJobOfEveryOperationOnItemsOfOneMainId) {
    checkOneMainId<TypeParam>(kvbench::AllDifferences());
}

TEST(ManyMainIds, DoTheJobOfEveryOperationOnItemsOfOneMainId) {
    checkOneMainId<kvbench::ManyMainIds>(kvbench::AllDifferences());
}

template <class Difference>
class OneMainId : public ::testing::Test {};
using Differences = ::testing::Types<kvbench::SubIdsDiffer, kvbench::MarkersDiffer, kvbench::PathsDiffer>;
TYPED_TEST_SUITE(OneMainId, Differences, );

TYPED_TEST(OneMainId, IsThatOfAllItems) {
    for (const auto& pick : kvbench::OneMainId<kvbench::SelectContext, TypeParam>::items(5, Order::kShuffled))
        EXPECT_EQ(pick.mainId, idAt(0));
}

TYPED_TEST(OneMainId, IsOnePerItemWhereThereAreMany) {
    std::set<const void*> ids;
    for (const auto& pick :
         kvbench::OneMainId<kvbench::ManyMainIds, TypeParam>::items(5, Order::kShuffled, 3))
        ids.insert(pick.mainId.stub());
    EXPECT_EQ(ids.size(), 5u);
}

// The test selects nothing after a removal: then the contenders could have their items in different orders.
TYPED_TEST(Contender, HoldsWhatTheLibraryHoldsAfterRandomEdits) {
    for (unsigned seed = 0; seed < 50; ++seed) {
        std::mt19937 random(seed);
        const auto any = [&random] { return pick(random() % 20, static_cast<long>(random() % 5) - 1); };
        TypeParam set;
        kvbench::SelectContext library;
        for (int i = 0; i < 100; ++i) {
            const Pick item = any();
            set.select(item);
            library.select(item);
        }
        for (int i = 0; i < 100; ++i) {
            const Pick item = any();
            ASSERT_EQ(set.remove(item), library.remove(item)) << "seed " << seed;
        }
        ASSERT_EQ(markersOf(set), markersOf(library)) << "seed " << seed;
        ASSERT_EQ(set.walk(), library.walk()) << "seed " << seed;
        for (std::size_t index = 0; index < 20; ++index)
            ASSERT_EQ(set.has(idAt(index)), library.has(idAt(index))) << "seed " << seed;
    }
}

} // namespace
