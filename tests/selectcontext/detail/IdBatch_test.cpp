#include "selectcontext/detail/IdBatch.h"

#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/selectcontext/support/IndexTestSupport.h"
#include "tests/support/AllocationFailure.h"
#include "tests/support/Ids.h"
#include "tests/support/KvTest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace {

using kvdetail::IdBatch;
using kvtest::ascending;
using kvtest::id;
using kvtest::Numbers;
using kvtest::shuffled;

// If a batch has fewer items than this, sort() compares the items. Otherwise it sorts by the digits of the
// stubs.
constexpr std::size_t kFewestByDigits = 256;

const std::size_t kCounts[] = {0, 1, 2, 20, kFewestByDigits - 1, kFewestByDigits, kFewestByDigits + 1, 5000};

using Pairs = std::vector<std::pair<std::uintptr_t, std::uintptr_t>>; // the stub and the value of each item

class IdBatchTest : public kvtest::KvTest {
protected:
    void SetUp() override {
        KvTest::SetUp();
        expectNothingLeft();
    }

    // Returns a batch of these ids. The value of each id is its position in `numbers`.
    static IdBatch batchOf(const Numbers& numbers) {
        IdBatch batch;
        for (const unsigned long n : numbers)
            batch.add(id(n), batch.size());
        return batch;
    }

    static Pairs pairsOf(const IdBatch& batch) {
        Pairs pairs;
        for (const IdBatch::Item& item : batch) {
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(item.id().stub()), item.stub);
            pairs.emplace_back(item.stub, item.value);
        }
        return pairs;
    }

    // Expects that sort() orders the items by stub, and keeps the order of items with equal stubs. The values
    // ascend at first, so sorting pairs of stub and value gives the expected order.
    static void expectSorts(const Numbers& numbers) {
        SCOPED_TRACE(::testing::Message() << numbers.size() << " ids");
        IdBatch batch = batchOf(numbers);
        Pairs expected = pairsOf(batch);
        std::sort(expected.begin(), expected.end());
        ASSERT_EQ(expected.size(), numbers.size());
        EXPECT_TRUE(batch.sort());
        EXPECT_EQ(pairsOf(batch), expected);
        EXPECT_TRUE(batch.sort()) << "sorted again";
        EXPECT_EQ(pairsOf(batch), expected);
    }

    static bool isSortable(const Numbers& numbers) {
        IdBatch batch = batchOf(numbers);
        return batch.sort();
    }
};

TEST_F(IdBatchTest, KeepsIdsAndValuesInTheOrderInWhichTheyCome) {
    const IdBatch batch = batchOf({7, 3, 7});
    ASSERT_EQ(batch.size(), 3u);
    EXPECT_EQ(batch.end() - batch.begin(), 3);
    EXPECT_EQ(batch.begin()[1].id(), id(3));
    EXPECT_EQ(batch.begin()[2].value, 2u);
}

TEST_F(IdBatchTest, SortsIdsThatAscend) {
    for (const std::size_t count : kCounts)
        expectSorts(ascending(count));
}

TEST_F(IdBatchTest, SortsIdsThatDescend) {
    for (const std::size_t count : kCounts) {
        Numbers numbers = ascending(count);
        std::reverse(numbers.begin(), numbers.end());
        expectSorts(numbers);
    }
}

TEST_F(IdBatchTest, SortsIdsInNoOrder) {
    for (const std::size_t count : kCounts)
        expectSorts(shuffled(count, 3));
}

TEST_F(IdBatchTest, SortsALastIdThatIsOutOfOrder) {
    for (const std::size_t count : {100u, 1000u}) {
        Numbers numbers = ascending(count);
        numbers.back() = count / 2;
        expectSorts(numbers);
    }
}

TEST_F(IdBatchTest, KeepsEqualIdsInTheOrderInWhichTheyCome) {
    for (const std::size_t count : {200u, 3000u}) {
        Numbers numbers = shuffled(count, 4);
        for (unsigned long& n : numbers)
            n = n % 17 + 1;
        expectSorts(numbers);
        expectSorts(Numbers(count, 7));
    }
}

TEST_F(IdBatchTest, SortsIdsThatDifferInHighBitsOnly) {
    for (const unsigned shift : {0u, 7u, 8u, 40u, 50u}) {
        Numbers numbers;
        for (const unsigned long n : shuffled(1000, 5))
            numbers.push_back((n << shift) + 1);
        expectSorts(numbers);
    }
}

TEST_F(IdBatchTest, SortsIdsThatDifferInTheHighestAndTheLowestBits) {
    Numbers numbers;
    for (const unsigned long n : shuffled(1000, 6))
        numbers.push_back((n % 2 << 59) + (n % 3 << 30) + n / 6);
    expectSorts(numbers);
}

TEST_F(IdBatchTest, SortsNullIdsToTheFront) {
    expectSorts({4, 0, 3, 0});
    Numbers numbers = shuffled(1000, 7);
    for (const std::size_t i : {3u, 500u, 999u})
        numbers[i] = 0;
    expectSorts(numbers);
}

TEST_F(IdBatchTest, SortsWhatIsAddedAfterASort) {
    for (const std::size_t count : {20u, 1000u}) {
        IdBatch batch = batchOf(ascending(count));
        EXPECT_TRUE(batch.sort());
        batch.add(id(count / 2), count);
        Pairs expected = pairsOf(batch);
        std::sort(expected.begin(), expected.end());
        EXPECT_TRUE(batch.sort());
        EXPECT_EQ(pairsOf(batch), expected);
    }
}

TEST_F(IdBatchTest, EndOfAnIdIsBehindAllOfItsItems) {
    IdBatch batch = batchOf({5, 3, 5, 9, 5, 3});
    ASSERT_TRUE(batch.sort());
    const IdBatch::Item* const first = batch.begin();
    EXPECT_EQ(batch.endOfId(first), first + 2);
    EXPECT_EQ(batch.endOfId(first + 1), first + 2);
    EXPECT_EQ(batch.endOfId(first + 2), first + 5);
    EXPECT_EQ(batch.endOfId(first + 5), batch.end());
}

TEST_F(IdBatchTest, RefusesTwoStubsOfOneObject) {
    kvinmemory::makeEqual(id(60), id(61));
    EXPECT_FALSE(isSortable({60, 61}));
    EXPECT_FALSE(isSortable({61, 70, 60}));
    EXPECT_TRUE(isSortable({61, 70, 61})) << "one of its stubs alone";
    for (const std::size_t count : {100u, 1000u}) {
        EXPECT_FALSE(isSortable(ascending(count)));
        EXPECT_FALSE(isSortable(shuffled(count, 8)));
    }
}

TEST_F(IdBatchTest, RefusesTwoStubsOfOneObjectThatAreFarApart) {
    kvinmemory::makeEqual(id(3), id(900));
    EXPECT_FALSE(isSortable(ascending(1000)));
    EXPECT_FALSE(isSortable(shuffled(1000, 9)));
    EXPECT_TRUE(isSortable(shuffled(899, 9))) << "one of its stubs alone";
}

TEST_F(IdBatchTest, RefusesIdsInAnotherOrderThanTheirAddresses) {
    kvinmemory::makeEqual(id(3), id(900));
    EXPECT_FALSE(isSortable({70, 900, 60})) << "the object has the place of its lower stub";
    EXPECT_TRUE(isSortable({2, 900}));
    Numbers numbers = ascending(1000);
    numbers.erase(numbers.begin() + 2);
    EXPECT_FALSE(isSortable(numbers));
}

TEST_F(IdBatchTest, AddsAllOrNothing) {
    kvtest::forEachAllocationFailure([](kvtest::FailurePoint& point) {
        IdBatch batch;
        std::size_t added = 0;
        const kvtest::Outcome outcome = point.run([&] {
            for (; added < 1000; ++added)
                batch.add(id(2000 - added), added);
        });
        EXPECT_EQ(outcome.failed, outcome.injected);
        EXPECT_EQ(batch.size(), added);
        for (; added < 1000; ++added)
            batch.add(id(2000 - added), added);
        EXPECT_TRUE(batch.sort());
        EXPECT_EQ(batch.begin()->value, 999u);
    });
}

TEST_F(IdBatchTest, ReservedItemsNeedNoMemory) {
    kvtest::forEachAllocationFailure(
        [](kvtest::FailurePoint& point) {
            IdBatch batch;
            batch.reserve(1000);
            point.run([&] {
                for (unsigned long n = 1; n <= 1000; ++n)
                    batch.add(id(n), n);
                EXPECT_TRUE(batch.sort()) << "they come in order";
            });
            EXPECT_EQ(batch.size(), 1000u);
        },
        kvtest::Expect::None);
}

TEST_F(IdBatchTest, SortsOrFailsWithNothingLost) {
    for (const std::size_t count : {100u, 1000u}) {
        kvtest::forEachAllocationFailure([count](kvtest::FailurePoint& point) {
            Numbers numbers = shuffled(count, 10);
            for (unsigned long& n : numbers)
                n = n / 3 + 1;
            IdBatch batch = batchOf(numbers);
            const Pairs before = pairsOf(batch);
            Pairs expected = before;
            std::sort(expected.begin(), expected.end());
            bool isSorted = false;
            const kvtest::Outcome outcome = point.run([&] { isSorted = batch.sort(); });
            EXPECT_EQ(isSorted, outcome.completed);
            Pairs found = pairsOf(batch);
            EXPECT_EQ(found, outcome.completed ? expected : before);
            EXPECT_TRUE(batch.sort());
            EXPECT_EQ(pairsOf(batch), expected);
        });
    }
}

} // namespace
