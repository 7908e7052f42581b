#include "selectcontext/OrderedIndex.h"

#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/selectcontext/support/IndexTestSupport.h"
#include "tests/selectcontext/support/SetTestSupport.h"
#include "tests/support/AllocationFailure.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <memory>

namespace {

using kvdetail::OrderedIndex;
using kvdetail::SSetData;
using kvdetail::Store;
using kvtest::ascending;
using kvtest::fillStore;
using kvtest::id;
using kvtest::isIndexed;
using kvtest::Numbers;
using kvtest::shuffled;

class OrderedIndexTest : public kvtest::SetTest {
protected:
    void SetUp() override {
        SetTest::SetUp();
        data = kvdetail::makeData();
    }

    void TearDown() override {
        data.reset();
        SetTest::TearDown();
    }

    void index() const {
        OrderedIndex ordered(*data);
        kvdetail::forEachOccupied(*data->entities, [&](const Store::Slot* slot) { ordered.add(slot); });
        ordered.finish();
    }

    void expectOrders(const Numbers& numbers) {
        fillStore(*data, numbers);
        index();
        EXPECT_TRUE(isIndexed(*data));
    }

    std::unique_ptr<SSetData> data;
};

TEST_F(OrderedIndexTest, EmptyStoreHasAnEmptyIndex) {
    expectOrders({});
}

TEST_F(OrderedIndexTest, AscendingIds) {
    expectOrders(ascending(3000));
}

TEST_F(OrderedIndexTest, DescendingIds) {
    Numbers numbers = ascending(3000);
    std::reverse(numbers.begin(), numbers.end());
    expectOrders(numbers);
}

TEST_F(OrderedIndexTest, ShuffledIdsFewAndMany) {
    for (const std::size_t count : {2u, 20u, 255u, 256u, 257u, 5000u}) {
        data = kvdetail::makeData();
        expectOrders(shuffled(count, 3));
    }
}

TEST_F(OrderedIndexTest, LastIdAloneIsOutOfOrder) {
    Numbers numbers = ascending(1000);
    numbers.back() = 500;
    expectOrders(numbers);
}

TEST_F(OrderedIndexTest, EqualIdsStayInStoreOrder) {
    Numbers numbers = shuffled(3000, 4);
    for (unsigned long& n : numbers)
        n = n % 97 + 1;
    expectOrders(numbers);
}

TEST_F(OrderedIndexTest, OneIdAlone) {
    expectOrders(Numbers(1000, 7));
}

TEST_F(OrderedIndexTest, IdsThatDifferInHighBitsOnly) {
    Numbers numbers;
    for (const unsigned long n : shuffled(1000, 5))
        numbers.push_back((n << 40) + 3);
    expectOrders(numbers);
}

TEST_F(OrderedIndexTest, DistinctStubsOfOneObject) {
    kvinmemory::makeEqual(id(3), id(900));
    kvinmemory::makeEqual(id(5), id(6));
    kvinmemory::makeEqual(id(400), id(2));
    expectOrders(ascending(1000));
    data = kvdetail::makeData();
    expectOrders(shuffled(1000, 6));
    data = kvdetail::makeData();
    expectOrders({1, 900, 3, 900, 5, 6, 5});
}

TEST_F(OrderedIndexTest, SortsOrFailsWithNothingLost) {
    const Numbers orders[] = {ascending(600), shuffled(600, 7)};
    for (const Numbers& numbers : orders) {
        kvtest::forEachAllocationFailure([&](kvtest::FailurePoint& point) {
            data = kvdetail::makeData();
            fillStore(*data, numbers);
            const kvtest::Outcome outcome = point.run([&] { index(); });
            EXPECT_EQ(outcome.failed, outcome.injected);
            EXPECT_LE(data->dataMap.size(), numbers.size());
            kvdetail::clearIndex(*data);
            EXPECT_TRUE(data->dataMap.empty());
            index();
            EXPECT_TRUE(isIndexed(*data));
            data.reset();
        });
    }
}

} // namespace
