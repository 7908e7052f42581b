// Tests that merging many items gives the same set as appending them one by one. A merge sorts the added
// items only if they are many, also in proportion to the index. The tests try numbers on both sides of each
// limit.
#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/selectcontext/support/IndexTestSupport.h"
#include "tests/selectcontext/support/RecordTestSupport.h"
#include "tests/selectcontext/support/SetTestSupport.h"
#include "tests/support/AllocationFailure.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <set>
#include <vector>

namespace {

using kvtest::ascending;
using kvtest::count;
using kvtest::edit;
using kvtest::elementAt;
using kvtest::id;
using kvtest::invariants;
using kvtest::isIndexed;
using kvtest::kNoId;
using kvtest::mainIds;
using kvtest::makeInfoMovedBy;
using kvtest::Numbers;
using kvtest::occupiedSlots;
using kvtest::shuffled;
using kvtest::SSetData;
using kvtest::Store;

// A merge that adds fewer items than this appends them one by one.
constexpr unsigned long kFewestSorted = 16;
// A merge also appends the items one by one if the index has more entries than this for each added item.
constexpr unsigned long kMostEntriesBeside = 4;

void append(GxapSelectSet& set, const Numbers& numbers) {
    for (const unsigned long n : numbers)
        edit(set).append(id(n), kNoId);
}

void appendMovedBy(GxapSelectSet& set, double x, unsigned long n = 1) {
    const KvVector<GxDbObjectId> path;
    edit(set).select(id(n), kNoId, -1, makeInfoMovedBy(x), &path);
}

// Appends up to five items of each id. They differ in sub id, marker, path and transform.
void appendSeveralOfEach(GxapSelectSet& set, const Numbers& numbers) {
    for (const unsigned long n : numbers) {
        const KvVector<GxDbObjectId> path = kvtest::idVector({n % 5 + 1});
        edit(set).append(id(n), kNoId);
        edit(set).append(id(n), id(n % 2 + 1));
        edit(set).select(id(n), kNoId, static_cast<long>(n % 3), nullptr, nullptr);
        edit(set).select(id(n), kNoId, 7, nullptr, &path);
        edit(set).select(id(n), kNoId, 7, makeInfoMovedBy(static_cast<double>(n % 3)), &path);
    }
}

Numbers movedUp(Numbers numbers, unsigned long distance) {
    for (unsigned long& n : numbers)
        n += distance;
    return numbers;
}

// Returns the records of the set, in store order.
std::vector<selected_entity*> recordsOf(const GxapSelectSet& set) {
    std::vector<selected_entity*> records;
    for (const Store::Slot* slot : occupiedSlots(*set.sharedData)) {
        if (slot->value)
            records.push_back(slot->value);
    }
    return records;
}

// Returns a copy of `held` to which the records of `added` were appended one by one. The copy is unique if
// `held` or `added` is unique.
std::unique_ptr<GxapSelectSet> appendedInTurn(const GxapSelectSet& held, const GxapSelectSet& added) {
    auto expected = std::make_unique<GxapSelectSet>(held);
    edit(*expected).writeData()->unique = held.sharedData->unique || added.sharedData->unique;
    for (const selected_entity* record : recordsOf(added))
        edit(*expected).append(record);
    return expected;
}

void expectEqualRecords(const GxapSelectSet& set, const GxapSelectSet& expected) {
    const std::vector<selected_entity*> records = recordsOf(set), wantedRecords = recordsOf(expected);
    ASSERT_EQ(records.size(), wantedRecords.size());
    for (std::size_t i = 0; i < records.size(); ++i) {
        SCOPED_TRACE(::testing::Message() << "record " << i);
        const selected_entity &record = *records[i], &wanted = *wantedRecords[i];
        ASSERT_NE(&record, &wanted);
        ASSERT_EQ(record.mainEntId.stub(), wanted.mainEntId.stub());
        ASSERT_EQ(record.subEntId, wanted.subEntId);
        ASSERT_EQ(record.gsMarker, wanted.gsMarker);
        ASSERT_EQ(record.nestedEntFullPath.data.block, wanted.nestedEntFullPath.data.block);
        ASSERT_EQ(record.hlVpArray.data.block, wanted.hlVpArray.data.block);
        ASSERT_FALSE(record.highlightSegmentArray || record.subselPathArray || record.hasSubselPaths);
        ASSERT_EQ(record.selectedEntityInfo == nullptr, wanted.selectedEntityInfo == nullptr);
        if (!record.selectedEntityInfo)
            continue;
        ASSERT_NE(record.selectedEntityInfo, wanted.selectedEntityInfo);
        ASSERT_EQ(record.selectedEntityInfo->getBTRMatPtr()->entry[0][3],
                  wanted.selectedEntityInfo->getBTRMatPtr()->entry[0][3]);
    }
}

class BulkMerge : public kvtest::SetTest {
protected:
    void SetUp() override {
        SetTest::SetUp();
        held = std::make_unique<GxapSelectSet>();
        added = std::make_unique<GxapSelectSet>();
    }

    void TearDown() override {
        held.reset();
        added.reset();
        SetTest::TearDown();
    }

    void startAgain() {
        edit(*held).clear();
        edit(*added).clear();
    }

    static void expectIs(const GxapSelectSet& set, const GxapSelectSet& expected) {
        EXPECT_EQ(count(set), count(expected));
        EXPECT_EQ(set.sharedData->unique, expected.sharedData->unique);
        EXPECT_TRUE(invariants(set));
        expectEqualRecords(set, expected);
    }

    // Merges `held` and `added`, first into a third set, and then into `held`. Expects the result of
    // appending the items one by one.
    void expectMerges() {
        const auto expected = appendedInTurn(*held, *added);
        const Numbers heldBefore = mainIds(*held), addedBefore = mainIds(*added);
        {
            GxapSelectSet sum;
            edit(sum).append(id(8), kNoId);
            edit(sum).merge(held.get(), added.get());
            expectIs(sum, *expected);
            EXPECT_TRUE(isIndexed(*sum.sharedData));
            EXPECT_EQ(mainIds(*held), heldBefore);
            EXPECT_TRUE(invariants(*held));
        }
        edit(*held).merge(held.get(), added.get());
        expectIs(*held, *expected);
        EXPECT_TRUE(isIndexed(*held->sharedData));
        EXPECT_EQ(mainIds(*added), addedBefore);
    }

    SSetData& data() { return *held->sharedData; }

    std::unique_ptr<GxapSelectSet> held;
    std::unique_ptr<GxapSelectSet> added;
};

// ---- which items, and in which order

TEST_F(BulkMerge, AddsFewAndManyItemsInAnyOrder) {
    for (const std::size_t size : {1ul, 2ul, kFewestSorted - 1, kFewestSorted, kFewestSorted + 1, 300ul}) {
        Numbers descending = ascending(size);
        std::reverse(descending.begin(), descending.end());
        for (const Numbers& numbers : {ascending(size), descending, shuffled(size, 2)}) {
            SCOPED_TRACE(::testing::Message() << size << " items, the first of them " << numbers.front());
            startAgain();
            append(*held, {size / 2 + 1, 1000});
            append(*added, numbers);
            expectMerges();
        }
    }
}

TEST_F(BulkMerge, AddsItemsBesideAnIndexOfAnySize) {
    constexpr unsigned long kLimit = kMostEntriesBeside * kFewestSorted;
    for (const unsigned long size : {1ul, kLimit - 1, kLimit, kLimit + 3, kLimit + 4, 10 * kLimit}) {
        SCOPED_TRACE(::testing::Message() << size << " items held");
        startAgain();
        append(*held, shuffled(size, 3));
        append(*added, movedUp(shuffled(kFewestSorted, 4), size - 1));
        expectMerges();
    }
}

TEST_F(BulkMerge, AddsWhatIsMissing) {
    append(*held, shuffled(300, 3));
    append(*added, movedUp(shuffled(300, 4), 150));
    expectMerges();
    EXPECT_EQ(count(*held), 450u);
}

TEST_F(BulkMerge, AddsAcrossPages) {
    append(*held, shuffled(3000, 3));
    append(*added, shuffled(9000, 4));
    expectMerges();
}

TEST_F(BulkMerge, AddsAtBothEndsOfTheIndex) {
    append(*held, movedUp(ascending(5), 500));
    append(*added, movedUp(shuffled(20, 5), 900));
    append(*added, {503, 3, 2, 1});
    expectMerges();
}

TEST_F(BulkMerge, AddsWhereItPassesManyEntries) {
    for (const unsigned long n : shuffled(150, 5))
        append(*held, {2 * n});
    for (const unsigned long n : shuffled(20, 6))
        append(*added, {15 * n, 15 * n + 1});
    expectMerges();
}

// ---- which items are equal

TEST_F(BulkMerge, TellsItemsOfOneIdApart) {
    appendSeveralOfEach(*held, shuffled(40, 7));
    appendSeveralOfEach(*added, movedUp(shuffled(40, 8), 20));
    expectMerges();
}

TEST_F(BulkMerge, TellsItemsOfOneIdApartInTheAddedSet) {
    added->sharedData->unique = false;
    for (const unsigned seed : {9u, 10u, 11u})
        appendSeveralOfEach(*added, shuffled(20, seed));
    ASSERT_GT(count(*added), 250u);
    append(*held, {5});
    expectMerges();
}

// Transforms are equal within a tolerance. The second item equals the first one and is refused. The third
// item equals only the refused one. So the third item is added.
TEST_F(BulkMerge, AnItemThatIsRefusedRefusesNoOther) {
    const double step = 0.75 * GxGeContext::gTol.equalPoint;
    added->sharedData->unique = false;
    appendMovedBy(*held, 1);
    appendMovedBy(*added, 1 + step);
    appendMovedBy(*added, 1 + 2 * step);
    append(*added, movedUp(shuffled(20, 12), 100));
    expectMerges();
    EXPECT_EQ(count(*held), 22u);
}

TEST_F(BulkMerge, TellsTransformsApartInTheAddedSet) {
    added->sharedData->unique = false;
    append(*held, {50});
    append(*added, movedUp(shuffled(20, 12), 100));
    for (const double x : {2, 1, 2, 3, 1})
        appendMovedBy(*added, x);
    expectMerges();
    EXPECT_EQ(count(*held), 24u);
}

TEST_F(BulkMerge, AddsEqualItemsToASetThatIsNotUnique) {
    held->sharedData->unique = false;
    added->sharedData->unique = false;
    appendSeveralOfEach(*held, shuffled(20, 12));
    for (const unsigned seed : {13u, 14u})
        appendSeveralOfEach(*added, shuffled(30, seed));
    expectMerges();
}

TEST_F(BulkMerge, RefusesEqualItemsWhereEitherSetIsUnique) {
    for (const bool isHeldUnique : {false, true}) {
        for (const bool isAddedUnique : {false, true}) {
            SCOPED_TRACE(::testing::Message() << isHeldUnique << isAddedUnique);
            startAgain();
            held->sharedData->unique = false;
            added->sharedData->unique = false;
            append(*held, shuffled(30, 1));
            append(*held, shuffled(5, 2));
            append(*added, movedUp(shuffled(30, 3), 15));
            append(*added, movedUp(shuffled(30, 4), 25));
            held->sharedData->unique = isHeldUnique;
            added->sharedData->unique = isAddedUnique;
            expectMerges();
            EXPECT_EQ(count(*held), isHeldUnique || isAddedUnique ? 35u + 25u : 35u + 60u);
        }
    }
}

TEST_F(BulkMerge, AddsASetToItself) {
    held->sharedData->unique = false;
    append(*held, shuffled(100, 15));
    Numbers twice = mainIds(*held);
    twice.insert(twice.end(), twice.begin(), twice.begin() + 100);
    edit(*held).merge(held.get(), held.get());
    EXPECT_EQ(mainIds(*held), twice);
    EXPECT_TRUE(isIndexed(data()));
    EXPECT_TRUE(invariants(*held));
}

TEST_F(BulkMerge, AddsManyItemsOfOneId) {
    held->sharedData->unique = false;
    added->sharedData->unique = false;
    for (long marker = 1; marker <= 2000; ++marker) {
        edit(*held).select(id(7), kNoId, 3 * marker, nullptr, nullptr);
        edit(*added).select(id(7), kNoId, 2 * marker, nullptr, nullptr);
    }
    held->sharedData->unique = true;
    expectMerges();
    EXPECT_EQ(count(*held), 2000u + 2000u - 666u);
}

// ---- the records

TEST_F(BulkMerge, RecordsShareThePathsOfThoseThatTheyCopy) {
    append(*held, {1});
    appendSeveralOfEach(*added, shuffled(10, 16));
    GxapSelectSet sum;
    edit(sum).merge(held.get(), added.get());
    for (const selected_entity* record : recordsOf(*added)) {
        const auto copies = recordsOf(sum);
        const auto isCopy = [record](const selected_entity* copy) {
            return copy->mainEntId == record->mainEntId && copy->gsMarker == record->gsMarker &&
                   copy->nestedEntFullPath.data.block == record->nestedEntFullPath.data.block;
        };
        EXPECT_TRUE(std::any_of(copies.begin(), copies.end(), isCopy));
    }
}

TEST_F(BulkMerge, PassesSlotsWithoutARecordAndRecordsWithoutAnId) {
    append(*held, {500});
    append(*added, shuffled(100, 16));
    Store& store = *added->sharedData->entities;
    const std::unique_ptr<selected_entity> taken(store.at(17));
    store.at(17) = nullptr;
    store.at(18)->mainEntId = kNoId;
    expectMerges();
    EXPECT_EQ(count(*held), 99u);
}

TEST_F(BulkMerge, PassesFreedSlots) {
    append(*held, {500});
    append(*added, shuffled(100, 16));
    kvtest::takeOutIds(*added, 30, 40);
    expectMerges();
    EXPECT_EQ(count(*held), 61u);
}

// ---- the index

TEST_F(BulkMerge, TakesAnEntryWithoutASlotForNoItem) {
    append(*held, {500});
    append(*added, shuffled(100, 17));
    data().dataMap.emplace(id(20), 0);
    edit(*held).merge(held.get(), added.get());
    EXPECT_EQ(count(*held), 101u);
    ASSERT_EQ(data().dataMap.count(id(20)), 2u);
    EXPECT_EQ(data().dataMap.lower_bound(id(20))->second, 0u);
    data().dataMap.erase(data().dataMap.lower_bound(id(20)));
    EXPECT_TRUE(isIndexed(data()));
}

TEST_F(BulkMerge, AddsDistinctStubsOfOneObject) {
    kvinmemory::makeEqual(id(60), id(61));
    append(*held, shuffled(50, 18));
    added->sharedData->unique = false;
    append(*added, {70, 61, 60});
    append(*added, movedUp(shuffled(30, 19), 100));
    expectMerges();
    EXPECT_EQ(count(*held), 50u + 2u + 30u);
}

TEST_F(BulkMerge, AddsDistinctStubsOfOneObjectToASetThatIsNotUnique) {
    kvinmemory::makeEqual(id(60), id(61));
    held->sharedData->unique = false;
    added->sharedData->unique = false;
    append(*held, shuffled(50, 18));
    append(*added, {70, 61, 60, 61});
    append(*added, movedUp(shuffled(30, 19), 100));
    expectMerges();
}

TEST_F(BulkMerge, HoldsAnItemOfAnotherStubOfTheObject) {
    kvinmemory::makeEqual(id(60), id(61));
    append(*held, {59, 60, 62});
    append(*added, {70, 61, 58});
    append(*added, movedUp(shuffled(30, 19), 100));
    expectMerges();
    EXPECT_EQ(count(*held), 3u + 2u + 30u);
}

TEST_F(BulkMerge, AddsIdsInAnotherOrderThanTheirAddresses) {
    kvinmemory::makeEqual(id(3), id(90));
    append(*held, movedUp(shuffled(50, 18), 3));
    append(*added, movedUp(shuffled(30, 20), 60));
    expectMerges();
    EXPECT_EQ(data().dataMap.begin()->first.stub(), id(90).stub());
}

TEST_F(BulkMerge, ItemsAreFoundAfterIdsWereLookedUpBefore) {
    append(*held, shuffled(200, 21));
    for (const unsigned long n : ascending(200))
        static_cast<void>(held->findInMap(id(n)));
    append(*added, shuffled(400, 22));
    edit(*held).merge(held.get(), added.get());
    for (const unsigned long n : ascending(400))
        ASSERT_EQ(held->findInMap(id(n)), data().dataMap.find(id(n))) << n;
    EXPECT_EQ(held->findInMap(id(401)), data().dataMap.end());
}

// ---- comparisons of transforms

// In each of the two sets, all items have the same id, and each item has another transform.
TEST_F(BulkMerge, ComparesNoMoreTransformsThanAppendingInTurn) {
    for (int i = 0; i < 60; ++i) {
        appendMovedBy(*held, 2 * i);
        appendMovedBy(*added, 3 * i);
    }
    const auto comparisons = [] { return kvinmemory::matrixComparisons().size(); };
    const std::size_t before = comparisons();
    const auto expected = appendedInTurn(*held, *added);
    const std::size_t inTurn = comparisons() - before;
    ASSERT_GT(inTurn, 0u);
    edit(*held).merge(held.get(), added.get());
    EXPECT_LE(comparisons() - before - inTurn, inTurn);
    EXPECT_EQ(count(*held), count(*expected));
}

// ---- without memory

// The added items need a second page, and some of them have infos. So the allocations of pages and infos
// fail, too.
TEST_F(BulkMerge, AddsSomeItemsOrAllAndLosesNothing) {
    constexpr unsigned long kHeld = kvtest::kPageSlots - 5;
    append(*held, ascending(kHeld));
    append(*added, shuffled(kHeld / 2, 23));
    appendSeveralOfEach(*added, {5000, 4990});
    const auto whole = appendedInTurn(*held, *added);
    const Numbers expected = mainIds(*whole);
    ASSERT_EQ(expected.size(), kvtest::kPageSlots + 5);

    kvtest::forEachAllocationFailure([&](kvtest::FailurePoint& point) {
        edit(*held).clear();
        append(*held, ascending(kHeld));
        const kvtest::Outcome outcome = point.run([&] { edit(*held).merge(held.get(), added.get()); });
        const Numbers found = mainIds(*held);
        ASSERT_TRUE(found.size() >= kHeld && found.size() <= expected.size());
        EXPECT_TRUE(std::equal(found.begin(), found.end(), expected.begin()));
        EXPECT_TRUE(outcome.failed || found.size() == expected.size());
        EXPECT_TRUE(isIndexed(data()));
        EXPECT_TRUE(invariants(*held));
        edit(*held).merge(held.get(), added.get());
        EXPECT_EQ(mainIds(*held), expected);
        EXPECT_TRUE(isIndexed(data()));
        EXPECT_TRUE(invariants(*held));
    });
}

TEST_F(BulkMerge, IntoAThirdSetAddsSomeItemsOrAllAndLosesNothing) {
    append(*held, shuffled(20, 24));
    append(*added, movedUp(shuffled(20, 25), 10));
    appendSeveralOfEach(*added, {100, 90, 95});
    const auto whole = appendedInTurn(*held, *added);
    const Numbers expected = mainIds(*whole);

    kvtest::forEachAllocationFailure([&](kvtest::FailurePoint& point) {
        GxapSelectSet sum;
        edit(sum).append(id(8), kNoId);
        const kvtest::Outcome outcome = point.run([&] { edit(sum).merge(held.get(), added.get()); });
        const Numbers found = mainIds(sum);
        ASSERT_LE(found.size(), expected.size());
        EXPECT_TRUE(std::equal(found.begin(), found.end(), expected.begin()) || found == Numbers{8});
        EXPECT_TRUE(outcome.failed || found.size() == expected.size());
        EXPECT_TRUE(invariants(sum));
        edit(sum).merge(held.get(), added.get());
        expectIs(sum, *whole);
        EXPECT_TRUE(isIndexed(*sum.sharedData));
    });
}

} // namespace
