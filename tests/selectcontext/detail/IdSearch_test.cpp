// Tests look-ups in sets whose items are ordered by id, unordered, or partly ordered. Whole-set operations
// guess the next index entry, make a hash of ids, and prefetch. None of these may change a result.
#include "base/detail/Shortcuts.h"
#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/selectcontext/support/EditTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

using kvtest::edit;
using kvtest::id;
using kvtest::invariants;
using kvtest::mainIds;
using Numbers = std::vector<unsigned long>;

Numbers ascending(unsigned long first, std::size_t count) {
    Numbers numbers(count);
    std::iota(numbers.begin(), numbers.end(), first);
    return numbers;
}

Numbers inOrder(const std::string& order, Numbers numbers) {
    std::mt19937 random(11);
    if (order == "Descending")
        std::reverse(numbers.begin(), numbers.end());
    if (order == "Shuffled")
        std::shuffle(numbers.begin(), numbers.end(), random);
    if (order == "HalfOrdered")
        std::shuffle(numbers.begin() + static_cast<std::ptrdiff_t>(numbers.size() / 2), numbers.end(),
                     random);
    if (order == "InRuns") {
        for (std::size_t i = 0; i + 40 <= numbers.size(); i += 40)
            std::rotate(numbers.begin() + static_cast<std::ptrdiff_t>(i),
                        numbers.begin() + static_cast<std::ptrdiff_t>(i + 13),
                        numbers.begin() + static_cast<std::ptrdiff_t>(i + 40));
    }
    return numbers;
}

void appendAll(GxapSelectSet& set, const Numbers& numbers) {
    for (const unsigned long n : numbers)
        edit(set).append(id(n), GxDbObjectId());
}

Numbers without(const Numbers& all, const Numbers& taken) {
    const std::set<unsigned long> gone(taken.begin(), taken.end());
    Numbers rest;
    std::copy_if(all.begin(), all.end(), std::back_inserter(rest),
                 [&gone](unsigned long n) { return gone.count(n) == 0; });
    return rest;
}

Numbers joined(Numbers first, const Numbers& second) {
    const Numbers added = without(second, first);
    first.insert(first.end(), added.begin(), added.end());
    return first;
}

class LookupsTest : public kvtest::EditTest, public ::testing::WithParamInterface<const char*> {
protected:
    static constexpr std::size_t kCount = 3000;

    static Numbers ordered(unsigned long first, std::size_t count) {
        return inOrder(GetParam(), ascending(first, count));
    }
};

INSTANTIATE_TEST_SUITE_P(, LookupsTest,
                         ::testing::Values("Ascending", "Descending", "Shuffled", "HalfOrdered", "InRuns"),
                         [](const auto& order) { return std::string(order.param); });

TEST_P(LookupsTest, ContainsFindsAllOfASubset) {
    GxapSelectSet all;
    GxapSelectSet part;
    appendAll(all, ascending(1, kCount));
    appendAll(part, ordered(500, 2000));
    EXPECT_TRUE(all.contains(&part));
    EXPECT_FALSE(part.contains(&all));
}

TEST_P(LookupsTest, ContainsMissesTheLastOne) {
    GxapSelectSet all;
    GxapSelectSet part;
    appendAll(all, ordered(1, kCount));
    appendAll(part, ordered(500, 2000));
    edit(part).append(id(kCount + 1), GxDbObjectId());
    EXPECT_FALSE(all.contains(&part));
}

TEST_P(LookupsTest, FindsTheNextOfAnIdWhoseFirstWasRemoved) {
    GxapSelectSet set;
    edit(set).setUnique(false);
    appendAll(set, ordered(1, kCount));
    for (unsigned long part = 1; part <= 3; ++part)
        edit(set).append(id(7), id(part));
    for (unsigned long n = 1; n <= kCount; ++n)
        static_cast<void>(set.findInMap(id(n)));
    const auto& map = set.sharedData->dataMap;
    ASSERT_TRUE(edit(set).remove(id(7), GxDbObjectId(), -1));
    for (unsigned long part = 1; part <= 3; ++part) {
        EXPECT_EQ(set.findInMap(id(7)), map.lower_bound(id(7)));
        ASSERT_TRUE(edit(set).remove(id(7), id(part), -1));
    }
    EXPECT_EQ(set.findInMap(id(7)), map.end());
    EXPECT_TRUE(invariants(set));
}

TEST_P(LookupsTest, IntersectsInTheLastOneAlone) {
    GxapSelectSet one;
    GxapSelectSet other;
    appendAll(one, ordered(1, kCount));
    appendAll(other, ordered(10000, kCount));
    EXPECT_FALSE(one.intersectedWith(&other));
    edit(other).append(id(1234), GxDbObjectId());
    EXPECT_TRUE(one.intersectedWith(&other));
}

TEST_P(LookupsTest, MergeAddsWhatIsMissing) {
    const Numbers held = ascending(1, kCount);
    const Numbers added = ordered(1500, kCount);
    GxapSelectSet a;
    GxapSelectSet b;
    GxapSelectSet result;
    appendAll(a, held);
    appendAll(b, added);
    edit(result).merge(&a, &b);
    EXPECT_EQ(mainIds(result), joined(held, added));
    EXPECT_TRUE(invariants(result));
    for (const unsigned long n : added)
        ASSERT_NE(result.findInMap(id(n)), result.sharedData->dataMap.end());
}

TEST_P(LookupsTest, MinusTakesWhatIsThere) {
    const Numbers held = ordered(1, kCount);
    const Numbers taken = ordered(1500, kCount);
    GxapSelectSet a;
    GxapSelectSet b;
    GxapSelectSet result;
    appendAll(a, held);
    appendAll(b, taken);
    edit(result).minus(&a, &b);
    EXPECT_EQ(mainIds(result), without(held, taken));
    EXPECT_TRUE(invariants(result));
}

TEST_P(LookupsTest, MinusInPlaceTakesEverySecond) {
    Numbers taken;
    for (const unsigned long n : ordered(1, kCount)) {
        if (n % 2 == 0)
            taken.push_back(n);
    }
    const Numbers held = ascending(1, kCount);
    GxapSelectSet a;
    GxapSelectSet b;
    appendAll(a, held);
    appendAll(b, taken);
    edit(a).minus(&a, &b);
    EXPECT_EQ(mainIds(a), without(held, taken));
    EXPECT_TRUE(invariants(a));
}

TEST_P(LookupsTest, SingleLookupsAndRemovalsGoOnBesideEachOther) {
    GxapSelectSet set;
    appendAll(set, ordered(1, kCount));
    Numbers left = mainIds(set);
    for (const unsigned long n : ordered(1, kCount)) {
        ASSERT_NE(set.findInMap(id(n)), set.sharedData->dataMap.end()) << n;
        if (n % 3 != 0)
            continue;
        ASSERT_TRUE(edit(set).remove(id(n)));
        ASSERT_EQ(set.findInMap(id(n)), set.sharedData->dataMap.end()) << n;
    }
    EXPECT_TRUE(invariants(set));
}

TEST_P(LookupsTest, DistinctStubsOfOneObjectAreOneItem) {
    for (unsigned long n = 1; n <= 300; n += 3)
        kvinmemory::makeEqual(id(n), id(20000 + n));
    Numbers twins;
    for (const unsigned long n : ordered(1, 600))
        twins.push_back(n % 3 == 1 && n <= 300 ? 20000 + n : n);
    GxapSelectSet a;
    GxapSelectSet b;
    appendAll(a, ascending(1, 600));
    appendAll(b, twins);
    EXPECT_TRUE(a.contains(&b));
    EXPECT_TRUE(b.contains(&a));
    GxapSelectSet sum;
    edit(sum).merge(&a, &b);
    EXPECT_EQ(mainIds(sum), ascending(1, 600));
    edit(sum).minus(&sum, &b);
    EXPECT_TRUE(mainIds(sum).empty());
}

// ---- costs

class LookupsCost : public kvtest::EditTest {
protected:
    static constexpr std::size_t kCount = 3000;

    // Returns the number of id comparisons of all.contains(&part), where both sets have the same ids.
    static long comparisonsOfContaining(const Numbers& numbers) {
        GxapSelectSet all;
        GxapSelectSet part;
        appendAll(all, ascending(1, kCount));
        appendAll(part, numbers);
        kvinmemory::countIdComparisons(true);
        EXPECT_TRUE(all.contains(&part));
        return kvinmemory::idEqualityCalls() + kvinmemory::idOrderCalls();
    }
};

TEST_F(LookupsCost, OfTheNextIdIsNoComparison) {
    if (!kvdetail::kHasNextId)
        GTEST_SKIP() << "this build does not try the next id";
    EXPECT_LE(comparisonsOfContaining(ascending(1, kCount)), 20);
}

TEST_F(LookupsCost, OfIdsInNoOrderIsThatOfTheHash) {
    if (!kvdetail::kHasIdHash)
        GTEST_SKIP() << "this build has no hash of ids";
    const Numbers shuffled = inOrder("Shuffled", ascending(1, kCount));
    EXPECT_LE(comparisonsOfContaining(shuffled), static_cast<long>(2 * kCount));
}

} // namespace
