#include "selectcontext/detail/EqualIds.h"

#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/support/AllocationFailure.h"
#include "tests/support/Ids.h"
#include "tests/support/KvTest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <numeric>
#include <optional>
#include <random>
#include <vector>

namespace {

using kvdetail::EqualIds;
using kvinmemory::makeEqual;
using kvtest::id;
using Numbers = std::vector<unsigned long>;

long comparisons() {
    return kvinmemory::idEqualityCalls() + kvinmemory::idOrderCalls();
}

class EqualIdsTest : public kvtest::KvTest {
protected:
    static constexpr unsigned long kMany = 10000;
    static constexpr long kSearch = 2 * 14 + 4; // most comparisons of one search

    void SetUp() override {
        KvTest::SetUp();
        expectNothingLeft();
        ids.emplace();
    }

    void TearDown() override {
        ids.reset();
        KvTest::TearDown();
    }

    void addAll(const Numbers& numbers) {
        for (const unsigned long n : numbers)
            EXPECT_EQ(ids->add(id(n)), id(n).stub());
    }

    static Numbers ascending(unsigned long count) {
        Numbers numbers(count);
        std::iota(numbers.begin(), numbers.end(), 1);
        return numbers;
    }

    void expectRepresents(unsigned long n, unsigned long representative) const {
        const std::optional<const GxDbStub*> found = ids->find(id(n));
        ASSERT_TRUE(found.has_value()) << n;
        EXPECT_EQ(*found, id(representative).stub()) << n;
    }

    std::optional<EqualIds> ids;
};

TEST_F(EqualIdsTest, KnowsNoIdAtFirst) {
    EXPECT_EQ(ids->size(), 0u);
    EXPECT_EQ(ids->find(id(1)), std::nullopt);
    EXPECT_EQ(ids->find(GxDbObjectId()), std::nullopt);
}

TEST_F(EqualIdsTest, FindingAddsNothing) {
    static_cast<void>(ids->find(id(1)));
    EXPECT_EQ(ids->size(), 0u);
    EXPECT_EQ(ids->find(id(1)), std::nullopt);
}

TEST_F(EqualIdsTest, EachIdRepresentsItselfInWhateverOrderTheyCome) {
    Numbers shuffled = ascending(1000);
    std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(1));
    const Numbers up = ascending(1000);
    for (const Numbers& numbers : {up, Numbers(up.rbegin(), up.rend()), shuffled}) {
        ids.emplace();
        addAll(numbers);
        addAll(numbers);
        EXPECT_EQ(ids->size(), 1000u);
        for (const unsigned long n : numbers)
            expectRepresents(n, n);
        EXPECT_EQ(ids->find(id(1001)), std::nullopt);
    }
}

TEST_F(EqualIdsTest, FirstStubOfAnObjectRepresentsTheOthers) {
    makeEqual(id(5), id(900));
    makeEqual(id(5), id(70));
    addAll({1, 70, 300});
    EXPECT_EQ(ids->add(id(900)), id(70).stub());
    EXPECT_EQ(ids->add(id(5)), id(70).stub());
    EXPECT_EQ(ids->size(), 3u);
    for (const unsigned long n : {5ul, 70ul, 900ul})
        expectRepresents(n, 70);
}

TEST_F(EqualIdsTest, StubThatWasNotAddedIsFoundByItsObject) {
    makeEqual(id(5), id(900));
    addAll({1, 900, 901});
    expectRepresents(5, 900);
    EXPECT_EQ(ids->size(), 3u);
}

TEST_F(EqualIdsTest, NullStubIsAnIdLikeAnyOther) {
    addAll({1, 0});
    expectRepresents(0, 0);
    EXPECT_EQ(ids->size(), 2u);
}

TEST_F(EqualIdsTest, NullStubMayBeOneOfAnObject) {
    makeEqual(id(30), GxDbObjectId());
    addAll({1, 30});
    expectRepresents(0, 30);
    EXPECT_EQ(ids->add(GxDbObjectId()), id(30).stub());
    expectRepresents(0, 30);
    EXPECT_EQ(ids->size(), 2u);
}

TEST_F(EqualIdsTest, IdThatIsAddedAfterALookUpOfAnotherGetsItsOwnPlace) {
    for (unsigned long n = 1; n <= 9; ++n)
        makeEqual(id(10 * n), id(10 * n + 1000));
    for (const unsigned long n : {50ul, 10ul, 90ul, 30ul, 70ul, 20ul, 80ul, 40ul, 60ul}) {
        EXPECT_EQ(ids->find(id(45)), std::nullopt);
        EXPECT_EQ(ids->add(id(n)), id(n).stub());
    }
    for (unsigned long n = 1; n <= 9; ++n)
        expectRepresents(10 * n + 1000, 10 * n);
}

TEST_F(EqualIdsTest, IdThatIsAddedAtThePlaceOfAnEqualOneIsNotTakenForNew) {
    makeEqual(id(50), id(900));
    addAll({10, 90});
    EXPECT_EQ(ids->find(id(50)), std::nullopt);
    addAll({50});
    EXPECT_EQ(ids->add(id(900)), id(50).stub());
    EXPECT_EQ(ids->size(), 3u);
}

// ---- what they cost

TEST_F(EqualIdsTest, KnownStubIsFoundWithoutAComparison) {
    addAll(ascending(kMany));
    kvinmemory::countIdComparisons(true);
    for (unsigned long n = 1; n <= kMany; ++n) {
        ASSERT_EQ(*ids->find(id(n)), id(n).stub());
        ASSERT_EQ(ids->add(id(n)), id(n).stub());
    }
    EXPECT_EQ(comparisons(), 0);
}

TEST_F(EqualIdsTest, NullStubIsFoundWithoutAComparisonToo) {
    addAll({0, 1, 2});
    kvinmemory::countIdComparisons(true);
    expectRepresents(0, 0);
    EXPECT_EQ(comparisons(), 0);
}

TEST_F(EqualIdsTest, SecondStubIsSearchedOnlyUntilItIsAdded) {
    makeEqual(id(5), id(kMany + 5));
    addAll(ascending(kMany));
    ids->add(id(kMany + 5));
    kvinmemory::countIdComparisons(true);
    expectRepresents(kMany + 5, 5);
    EXPECT_EQ(comparisons(), 0);
}

TEST_F(EqualIdsTest, UnknownStubIsSearchedInTheOrderOfTheIds) {
    for (unsigned long n = 1; n <= kMany; ++n)
        ids->add(id(2 * n));
    kvinmemory::countIdComparisons(true);
    EXPECT_EQ(ids->find(id(4001)), std::nullopt);
    EXPECT_LE(comparisons(), kSearch);
}

TEST_F(EqualIdsTest, UnknownStubBehindAllOthersIsNotSearched) {
    addAll(ascending(kMany));
    kvinmemory::countIdComparisons(true);
    EXPECT_EQ(ids->find(id(kMany + 1)), std::nullopt);
    EXPECT_LE(comparisons(), 2);
}

TEST_F(EqualIdsTest, IdsInAscendingOrderAreAddedWithoutASearch) {
    kvinmemory::countIdComparisons(true);
    addAll(ascending(kMany));
    EXPECT_LE(comparisons(), static_cast<long>(5 * kMany));
}

TEST_F(EqualIdsTest, IdThatWasJustLookedForIsAddedWithoutASearch) {
    for (unsigned long n = 1; n <= kMany; ++n)
        ids->add(id(2 * n));
    EXPECT_EQ(ids->find(id(4001)), std::nullopt);
    kvinmemory::countIdComparisons(true);
    ids->add(id(4001));
    EXPECT_LE(comparisons(), 6);
}

// ---- without memory

TEST_F(EqualIdsTest, AreMadeOrThrowWithoutMemory) {
    kvtest::forEachAllocationFailure([](kvtest::FailurePoint& point) {
        const kvtest::Outcome outcome = point.run([] { const EqualIds made; });
        EXPECT_EQ(outcome.failed, outcome.injected);
    });
}

TEST_F(EqualIdsTest, KeepWhatTheyHadWhenAnIdCannotBeAdded) {
    kvtest::forEachAllocationFailure([](kvtest::FailurePoint& point) {
        EqualIds grown;
        unsigned long added = 0;
        const kvtest::Outcome outcome = point.run([&] {
            for (; added < 200; ++added)
                grown.add(id(added + 1));
        });
        EXPECT_EQ(outcome.failed, outcome.injected);
        for (unsigned long n = 1; n <= added; ++n)
            ASSERT_EQ(grown.find(id(n)), std::optional<const GxDbStub*>(id(n).stub()));
        EXPECT_EQ(grown.add(id(500)), id(500).stub());
        EXPECT_EQ(grown.add(id(added + 1)), id(added + 1).stub());
    });
}

TEST_F(EqualIdsTest, IdThatCannotBeAddedIsNotFound) {
    kvtest::forEachAllocationFailure([](kvtest::FailurePoint& point) {
        EqualIds grown;
        unsigned long added = 0;
        point.run([&] {
            for (; added < 200; ++added)
                grown.add(id(added + 1));
        });
        EXPECT_EQ(grown.find(id(added + 1)), std::nullopt);
        EXPECT_EQ(grown.size(), added);
    });
}

} // namespace
