#include "base/detail/StoreEpoch.h"

#include "tests/support/Threads.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <set>
#include <vector>

namespace {

using kvdetail::StoreEpoch;
using kvtest::onThreads;

constexpr std::uint32_t kGroups = StoreEpoch::kGroups;

class StoreEpochTest : public kvtest::ThreadTest {
protected:
    // In a vector of kGroups stores, every store is of another group.
    using Stores = std::vector<StoreEpoch>;

    static std::vector<std::uint32_t> epochsOf(const Stores& stores) {
        std::vector<std::uint32_t> epochs;
        for (const StoreEpoch& store : stores)
            epochs.push_back(store.current());
        return epochs;
    }
};

TEST_F(StoreEpochTest, ConsecutiveStoresAreOfDifferentGroups) {
    const Stores stores(kGroups);
    for (std::uint32_t i = 0; i < kGroups; ++i) {
        for (std::uint32_t j = 0; j < kGroups; ++j)
            EXPECT_EQ(StoreEpoch::isSameGroup(stores[i].current(), stores[j].current()), i == j);
    }
}

TEST_F(StoreEpochTest, StoresOfOneGroupShareTheirEpoch) {
    const StoreEpoch first;
    const Stores between(kGroups - 1);
    StoreEpoch second;
    EXPECT_EQ(first.current(), second.current());
    second.raise();
    EXPECT_EQ(first.current(), second.current());
}

TEST_F(StoreEpochTest, RaisingChangesTheEpochOfItsGroupAlone) {
    Stores stores(kGroups);
    std::vector<std::uint32_t> expected = epochsOf(stores);
    for (const std::size_t i : {0u, 17u, 63u, 17u}) {
        const std::uint32_t before = stores[i].current();
        stores[i].raise();
        expected[i] += kGroups;
        EXPECT_EQ(epochsOf(stores), expected);
        EXPECT_TRUE(StoreEpoch::isSameGroup(before, stores[i].current()));
        EXPECT_TRUE(StoreEpoch::isLater(stores[i].current(), before));
        EXPECT_FALSE(StoreEpoch::isLater(before, stores[i].current()));
    }
}

TEST_F(StoreEpochTest, RaisingAllChangesTheEpochOfEveryGroup) {
    const Stores stores(kGroups);
    std::vector<std::uint32_t> expected = epochsOf(stores);
    StoreEpoch::raiseAll();
    for (std::uint32_t& epoch : expected)
        epoch += kGroups;
    EXPECT_EQ(epochsOf(stores), expected);
}

TEST_F(StoreEpochTest, EpochOutlivesItsStore) {
    std::uint32_t before = 0;
    {
        StoreEpoch gone;
        gone.raise();
        before = gone.current();
    }
    const Stores between(kGroups - 1);
    const StoreEpoch next;
    EXPECT_EQ(next.current(), before);
}

TEST_F(StoreEpochTest, ValuesOfOneGroupAreOrderedAcrossTheirLargest) {
    constexpr std::uint32_t kLargest = std::numeric_limits<std::uint32_t>::max();
    constexpr std::uint32_t kLast = kLargest - kGroups + 1; // the last value of group 0
    EXPECT_TRUE(StoreEpoch::isLater(kGroups, 0));
    EXPECT_FALSE(StoreEpoch::isLater(0, kGroups));
    EXPECT_FALSE(StoreEpoch::isLater(kGroups, kGroups));
    EXPECT_TRUE(StoreEpoch::isLater(0, kLast));
    EXPECT_FALSE(StoreEpoch::isLater(kLast, 0));
    EXPECT_TRUE(StoreEpoch::isLater(5 + 3 * kGroups, kLast + 5 - 2 * kGroups));
    EXPECT_TRUE(StoreEpoch::isSameGroup(kLast + 5, 5));
    EXPECT_FALSE(StoreEpoch::isSameGroup(kLast + 5, 6));
}

TEST_F(StoreEpochTest, NoTwoStoresHaveOneSerial) {
    constexpr std::size_t kThreads = 4, kStores = 500;
    std::vector<std::vector<std::uint32_t>> serials(kThreads);
    onThreads(kThreads, [&](std::size_t n) {
        for (std::size_t i = 0; i < kStores; ++i)
            serials[n].push_back(StoreEpoch().serial());
    });
    std::set<std::uint32_t> all;
    for (const std::vector<std::uint32_t>& ofOne : serials)
        all.insert(ofOne.begin(), ofOne.end());
    EXPECT_EQ(all.size(), kThreads * kStores);
}

TEST_F(StoreEpochTest, NoRaiseIsLostOnSeveralThreads) {
    constexpr std::size_t kThreads = 4;
    constexpr std::uint32_t kRaises = 1000;
    std::deque<StoreEpoch> stores(kThreads * kGroups); // every kGroups-th store is of the same group
    const std::uint32_t before = stores.front().current();
    onThreads(kThreads, [&](std::size_t n) {
        StoreEpoch& mine = stores[n * kGroups];
        std::uint32_t last = mine.current();
        for (std::uint32_t i = 0; i < kRaises; ++i) {
            if (i % 10 == 0)
                StoreEpoch::raiseAll();
            else
                mine.raise();
            const std::uint32_t now = mine.current();
            EXPECT_TRUE(StoreEpoch::isLater(now, last));
            last = now;
        }
    });
    for (std::size_t n = 0; n < kThreads; ++n)
        EXPECT_EQ(stores[n * kGroups].current(), before + kThreads * kRaises * kGroups);
}

} // namespace
