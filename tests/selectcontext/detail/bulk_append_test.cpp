#include "selectcontext/BulkAppend.h"

#include "base/KvShortcuts.h"
#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/selectcontext/support/IndexTestSupport.h"
#include "tests/selectcontext/support/RecordTestSupport.h"
#include "tests/selectcontext/support/SetTestSupport.h"
#include "tests/support/AllocationFailure.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <vector>

namespace {

using kvdetail::kHasBulkAppend;
using kvdetail::SSetData;
using kvdetail::Store;
using kvtest::ascending;
using kvtest::edit;
using kvtest::id;
using kvtest::invariants;
using kvtest::isIndexed;
using kvtest::mainIds;
using kvtest::Numbers;
using kvtest::shuffled;

const GxDbObjectId kNoId;

class BulkAppendTest : public kvtest::SetTest {
protected:
    void TearDown() override {
        edit(held).clear();
        edit(added).clear();
        SetTest::TearDown();
    }

    static void append(GxapSelectSet& set, const Numbers& numbers) {
        for (const unsigned long n : numbers)
            edit(set).append(id(n), kNoId);
    }

    // Several items of every id: of the whole, of a part, with markers, with a path, with a path and a
    // transform.
    static void appendSeveralOfEach(GxapSelectSet& set, const Numbers& numbers) {
        for (const unsigned long n : numbers) {
            KvVector<GxDbObjectId> path;
            kvtest::append(path, id(n % 5 + 1));
            edit(set).append(id(n), kNoId);
            edit(set).append(id(n), id(n % 2 + 1));
            edit(set).select(id(n), kNoId, static_cast<long>(n % 3), nullptr, nullptr);
            edit(set).select(id(n), kNoId, 7, nullptr, &path);
            edit(set).select(id(n), kNoId, 7, infoMovedBy(static_cast<double>(n % 3)), &path);
        }
    }

    static void appendMovedBy(GxapSelectSet& set, double x) {
        const KvVector<GxDbObjectId> path;
        edit(set).select(id(1), kNoId, -1, infoMovedBy(x), &path);
    }

    static GxapSelectedEntInfo* infoMovedBy(double x) {
        GxGeMatrix3d moved;
        moved.entry[0][3] = x;
        GxapSelectedEntInfo* const info = kvtest::makeInfo();
        info->setCompoundTransformWithBTROffset(moved);
        return info;
    }

    bool appendInBulk() { return kvdetail::appendInBulk(data(), *added.sharedData); }

    // The items are those that appending one by one makes, in the same order, and index and count know them.
    void expectAppends() {
        GxapSelectSet expected(held);
        for (const Store::Slot* slot : kvtest::occupiedSlots(*added.sharedData)) {
            if (slot->value)
                edit(expected).append(slot->value);
        }
        ASSERT_TRUE(edit(held).writeData() && appendInBulk());
        ASSERT_EQ(mainIds(held), mainIds(expected));
        EXPECT_EQ(data().entityCount, expected.sharedData->entityCount);
        EXPECT_TRUE(isIndexed(data()));
        EXPECT_TRUE(invariants(held));
        expectEqualRecords(expected);
    }

    void expectEqualRecords(const GxapSelectSet& expected) {
        const auto slots = kvtest::occupiedSlots(data());
        const auto wantedSlots = kvtest::occupiedSlots(*expected.sharedData);
        for (std::size_t i = 0; i < slots.size(); ++i) {
            const selected_entity& record = *slots[i]->value;
            const selected_entity& wanted = *wantedSlots[i]->value;
            ASSERT_EQ(record.subEntId, wanted.subEntId) << i;
            ASSERT_EQ(record.gsMarker, wanted.gsMarker) << i;
            ASSERT_EQ(record.nestedEntFullPath.data.block, wanted.nestedEntFullPath.data.block) << i;
            ASSERT_EQ(record.hlVpArray.data.block, wanted.hlVpArray.data.block) << i;
            ASSERT_FALSE(record.highlightSegmentArray || record.subselPathArray || record.hasSubselPaths)
                << i;
            ASSERT_EQ(record.selectedEntityInfo == nullptr, wanted.selectedEntityInfo == nullptr) << i;
            if (!record.selectedEntityInfo)
                continue;
            ASSERT_NE(record.selectedEntityInfo, wanted.selectedEntityInfo) << i;
            ASSERT_EQ(record.selectedEntityInfo->getBTRMatPtr()->entry[0][3],
                      wanted.selectedEntityInfo->getBTRMatPtr()->entry[0][3])
                << i;
        }
    }

    void expectRefused() {
        const Numbers before = mainIds(held);
        EXPECT_FALSE(appendInBulk());
        EXPECT_EQ(mainIds(held), before);
        EXPECT_TRUE(isIndexed(data()));
        EXPECT_TRUE(invariants(held));
    }

    bool isWorthIt() const { return kvdetail::isWorthAppendingInBulk(*held.sharedData, *added.sharedData); }
    SSetData& data() { return *held.sharedData; }

    GxapSelectSet held;
    GxapSelectSet added;
};

TEST_F(BulkAppendTest, IsWorthItForIdsInNoOrder) {
    append(added, shuffled(100, 1));
    EXPECT_EQ(isWorthIt(), kHasBulkAppend);
}

TEST_F(BulkAppendTest, IsNotWorthItForIdsThatAscend) {
    append(added, ascending(100));
    EXPECT_FALSE(isWorthIt());
}

TEST_F(BulkAppendTest, IsNotWorthItForFewRecords) {
    append(added, shuffled(15, 1));
    EXPECT_FALSE(isWorthIt());
    append(added, {100});
    EXPECT_EQ(isWorthIt(), kHasBulkAppend);
}

TEST_F(BulkAppendTest, IsNotWorthItForFewRecordsBesideTheIndex) {
    append(added, shuffled(60, 1));
    append(held, ascending(61 * 4 - 1));
    EXPECT_EQ(isWorthIt(), kHasBulkAppend);
    append(held, {61 * 4});
    EXPECT_FALSE(isWorthIt());
}

TEST_F(BulkAppendTest, IsNotWorthItWithoutAStore) {
    append(added, shuffled(100, 1));
    const SSetData withoutStore;
    EXPECT_FALSE(kvdetail::isWorthAppendingInBulk(withoutStore, *added.sharedData));
}

TEST_F(BulkAppendTest, AppendsToAnEmptySet) {
    append(added, shuffled(300, 2));
    expectAppends();
}

TEST_F(BulkAppendTest, AppendsWhatIsMissing) {
    append(held, shuffled(300, 3));
    for (const unsigned long n : shuffled(300, 4))
        append(added, {n + 150});
    expectAppends();
}

TEST_F(BulkAppendTest, AppendsAcrossPages) {
    append(held, shuffled(3000, 3));
    append(added, shuffled(9000, 4));
    expectAppends();
}

TEST_F(BulkAppendTest, AppendsAtBothEndsOfTheIndex) {
    append(held, {500, 501});
    append(added, {900, 3, 500, 901, 2, 1});
    expectAppends();
}

TEST_F(BulkAppendTest, AppendsWhereItPassesManyEntries) {
    for (const unsigned long n : shuffled(2000, 5))
        append(held, {2 * n});
    for (const unsigned long n : shuffled(40, 6))
        append(added, {100 * n, 100 * n + 1});
    expectAppends();
}

TEST_F(BulkAppendTest, TellsItemsOfOneIdApart) {
    appendSeveralOfEach(held, shuffled(40, 7));
    for (const unsigned long n : shuffled(40, 8))
        appendSeveralOfEach(added, {n + 20});
    expectAppends();
}

TEST_F(BulkAppendTest, TellsItemsOfOneIdApartInTheAddedSet) {
    added.sharedData->unique = false;
    for (const unsigned seed : {9u, 10u, 11u})
        appendSeveralOfEach(added, shuffled(20, seed));
    ASSERT_GT(added.sharedData->entityCount, 250u);
    append(held, {5});
    expectAppends();
}

// Transforms are equal within a tolerance: the second item is as good as the first, and the third as the
// second.
TEST_F(BulkAppendTest, AnItemThatIsRefusedRefusesNoOther) {
    const double step = 0.75 * GxGeContext::gTol.equalPoint;
    added.sharedData->unique = false;
    appendMovedBy(held, 1);
    appendMovedBy(added, 1 + step);
    appendMovedBy(added, 1 + 2 * step);
    expectAppends();
    EXPECT_EQ(data().entityCount, 2u);
}

TEST_F(BulkAppendTest, TellsTransformsApartInTheAddedSet) {
    added.sharedData->unique = false;
    for (const double x : {2, 1, 2, 3, 1})
        appendMovedBy(added, x);
    expectAppends();
    EXPECT_EQ(data().entityCount, 3u);
}

TEST_F(BulkAppendTest, AppendsEqualItemsToASetThatIsNotUnique) {
    held.sharedData->unique = false;
    added.sharedData->unique = false;
    appendSeveralOfEach(held, shuffled(20, 12));
    for (const unsigned seed : {13u, 14u})
        appendSeveralOfEach(added, shuffled(30, seed));
    expectAppends();
}

TEST_F(BulkAppendTest, AppendsASetToItself) {
    held.sharedData->unique = false;
    append(held, shuffled(100, 15));
    Numbers twice = mainIds(held);
    twice.insert(twice.end(), twice.begin(), twice.begin() + 100);
    ASSERT_TRUE(kvdetail::appendInBulk(data(), data()));
    EXPECT_EQ(mainIds(held), twice);
    EXPECT_TRUE(isIndexed(data()));
    EXPECT_TRUE(invariants(held));
}

TEST_F(BulkAppendTest, PassesSlotsWithoutARecordAndRecordsWithoutAnId) {
    append(added, shuffled(100, 16));
    Store& store = *added.sharedData->entities;
    const std::unique_ptr<selected_entity> taken(store.at(17));
    store.at(17) = nullptr;
    store.at(18)->mainEntId = kNoId;
    expectAppends();
    EXPECT_EQ(data().entityCount, 98u);
}

TEST_F(BulkAppendTest, TakesAnEntryWithoutASlotForNoItem) {
    append(added, shuffled(100, 17));
    data().dataMap.emplace(id(20), 0);
    ASSERT_TRUE(appendInBulk());
    EXPECT_EQ(data().entityCount, 100u);
    EXPECT_EQ(data().dataMap.count(id(20)), 2u);
    EXPECT_EQ(data().dataMap.lower_bound(id(20))->second, 0u);
    data().dataMap.erase(data().dataMap.lower_bound(id(20)));
    EXPECT_TRUE(isIndexed(data()));
}

TEST_F(BulkAppendTest, DistinctStubsOfOneObjectAreRefused) {
    kvinmemory::makeEqual(id(60), id(61));
    append(held, shuffled(50, 18));
    added.sharedData->unique = false;
    append(added, {70, 61, 60});
    expectRefused();
}

TEST_F(BulkAppendTest, ItemOfAnotherStubOfTheObjectIsHeld) {
    kvinmemory::makeEqual(id(60), id(61));
    append(held, {59, 60, 62});
    append(added, {70, 61, 58});
    expectAppends();
    EXPECT_EQ(data().entityCount, 5u);
}

TEST_F(BulkAppendTest, IdsInAnotherOrderThanTheirAddressesAreRefused) {
    kvinmemory::makeEqual(id(3), id(90));
    append(held, shuffled(50, 18));
    append(added, {70, 90, 60});
    expectRefused();
}

TEST_F(BulkAppendTest, ItemsAreFoundWhoeverHasLookedThemUpBefore) {
    append(held, shuffled(200, 21));
    for (const unsigned long n : ascending(200))
        static_cast<void>(held.findInMap(id(n)));
    append(added, shuffled(400, 22));
    ASSERT_TRUE(appendInBulk());
    for (const unsigned long n : ascending(400))
        ASSERT_EQ(held.findInMap(id(n)), data().dataMap.find(id(n))) << n;
    EXPECT_EQ(held.findInMap(id(401)), data().dataMap.end());
}

// Enough for a second page, and with an info, so that every kind of allocation has its turn.
TEST_F(BulkAppendTest, AppendsSomeOrAllAndLosesNothing) {
    append(held, ascending(kvtest::kPageSlots - 5));
    append(added, shuffled(60, 23));
    appendSeveralOfEach(added, {5000, 4990});
    GxapSelectSet whole(held);
    for (const Store::Slot* slot : kvtest::occupiedSlots(*added.sharedData))
        edit(whole).append(slot->value);
    const Numbers expected = mainIds(whole);
    ASSERT_EQ(expected.size(), kvtest::kPageSlots + 5);

    kvtest::forEachAllocationFailure([&](kvtest::FailurePoint& point) {
        edit(held).clear();
        append(held, ascending(kvtest::kPageSlots - 5));
        point.run([&] { appendInBulk(); });
        const Numbers found = mainIds(held);
        ASSERT_LE(found.size(), expected.size());
        EXPECT_TRUE(std::equal(found.begin(), found.end(), expected.begin()));
        EXPECT_TRUE(isIndexed(data()));
        EXPECT_TRUE(invariants(held));
        EXPECT_TRUE(appendInBulk());
        EXPECT_EQ(mainIds(held), expected);
        EXPECT_TRUE(isIndexed(data()));
    });
}

} // namespace
