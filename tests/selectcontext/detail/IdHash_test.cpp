#include "selectcontext/detail/IdHash.h"

#include "base/detail/NodePool.h"
#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/support/AllocationFailure.h"
#include "tests/support/Ids.h"
#include "tests/support/KvTest.h"

#include <gtest/gtest.h>

#include <iterator>
#include <memory>
#include <random>
#include <utility>

namespace {

using kvdetail::IdHash;
using kvtest::id;
using DataMap = IdHash::DataMap;

DataMap makeMap() {
    auto* const pool = new kvdetail::NodePool;
    DataMap map{DataMap::allocator_type(pool)};
    pool->release();
    return map;
}

// Has an index with its own pool. The hash was built when the index had id(1) ... id(100).
class IdHashTest : public kvtest::KvTest {
protected:
    void SetUp() override {
        KvTest::SetUp();
        for (unsigned long n = 1; n <= 100; ++n)
            map.emplace(id(n), n);
        hash = IdHash::build(map);
        ASSERT_NE(hash, nullptr);
    }

    // Expects that the hash finds the entry that the index finds, or finds no entry.
    void expectHint(const GxDbObjectId& wanted) const {
        const auto found = hash->find(map, wanted);
        if (found != map.end()) {
            EXPECT_EQ(found, map.lower_bound(wanted));
        }
    }

    void expectKnown(unsigned long n) const {
        ASSERT_NE(hash->find(map, id(n)), map.end()) << n;
        EXPECT_EQ(hash->find(map, id(n)), map.lower_bound(id(n))) << n;
    }

    void add(unsigned long n) {
        const auto entry = map.emplace(id(n), n);
        ASSERT_TRUE(hash->noteAdded(map, entry));
        hash->follow(map);
    }

    void erase(DataMap::const_iterator entry) {
        hash->noteErasing(map, entry);
        map.erase(entry);
        hash->follow(map);
    }

    DataMap map = makeMap();
    std::unique_ptr<IdHash> hash;
};

TEST_F(IdHashTest, KnowsEveryIdAndNoOther) {
    EXPECT_TRUE(hash->isCurrent(map));
    for (unsigned long n = 1; n <= 100; ++n)
        expectKnown(n);
    EXPECT_EQ(hash->find(map, id(101)), map.end());
    EXPECT_EQ(hash->find(map, GxDbObjectId()), map.end());
}

TEST_F(IdHashTest, PeekLeadsToTheEntryOrNowhere) {
    ASSERT_NE(hash->peek(id(7)), nullptr);
    EXPECT_EQ(hash->peek(id(7))->second, 7u);
    EXPECT_EQ(hash->peek(id(101)), nullptr);
}

TEST_F(IdHashTest, FollowsThroughRandomEdits) {
    std::mt19937 random(5);
    for (int step = 0; step < 20000; ++step) {
        const unsigned long n = 1 + random() % 400;
        const auto held = map.lower_bound(id(n));
        if (random() % 2 == 0 || held == map.end())
            add(n);
        else
            erase(std::next(map.begin(), static_cast<long>(random() % map.size())));
        ASSERT_TRUE(hash->isCurrent(map));
        expectHint(id(n));
    }
    for (unsigned long n = 1; n <= 400; ++n) {
        if (map.count(id(n)) == 1) {
            EXPECT_NE(hash->find(map, id(n)), map.end()) << n;
        }
        expectHint(id(n));
    }
}

TEST_F(IdHashTest, LeadsToTheFirstOfEqualIds) {
    add(5);
    add(5);
    expectKnown(5);
    erase(map.lower_bound(id(5)));
    expectKnown(5);
    erase(std::prev(map.upper_bound(id(5))));
    expectKnown(5);
    erase(map.lower_bound(id(5)));
    EXPECT_EQ(hash->find(map, id(5)), map.end());
}

TEST_F(IdHashTest, IsBehindOnceAnEntryCameOrWentUnseen) {
    map.erase(map.begin());
    EXPECT_FALSE(hash->isCurrent(map));
    map.emplace(id(1), 1);
    EXPECT_FALSE(hash->isCurrent(map)) << "as many entries as before";
}

TEST_F(IdHashTest, IsBehindWhileAnEntryIsOut) {
    auto node = map.extract(map.begin());
    EXPECT_FALSE(hash->isCurrent(map));
    map.emplace(id(200), 200);
    EXPECT_FALSE(hash->isCurrent(map)) << "as many entries as before";
}

TEST_F(IdHashTest, IsBehindForTheEntriesOfAnotherIndex) {
    DataMap other = makeMap();
    for (unsigned long n = 1; n <= 100; ++n)
        other.emplace(id(n), n);
    map.swap(other);
    EXPECT_FALSE(hash->isCurrent(map));
}

TEST_F(IdHashTest, IsBehindForAnIndexWithoutAPool) {
    const DataMap copy(map);
    EXPECT_FALSE(hash->isCurrent(copy));
}

TEST_F(IdHashTest, IsBehindOnceAnEntryWasGivenAnotherId) {
    auto node = map.extract(map.lower_bound(id(5)));
    node.key() = id(7);
    map.insert(map.lower_bound(id(7)), std::move(node));
    ASSERT_EQ(map.lower_bound(id(7))->second, 5u);
    EXPECT_FALSE(hash->isCurrent(map));
}

TEST_F(IdHashTest, IsBehindOnceTheFirstOfEqualIdsWasMovedBehindTheOthers) {
    add(5);
    auto node = map.extract(map.lower_bound(id(5)));
    map.insert(std::move(node));
    EXPECT_FALSE(hash->isCurrent(map));
}

TEST_F(IdHashTest, TwoStubsOfOneObjectAreRefused) {
    kvinmemory::makeEqual(id(30), id(70));
    DataMap equal = makeMap();
    for (unsigned long n = 1; n <= 100; ++n)
        equal.emplace(id(n), n);
    EXPECT_EQ(IdHash::build(equal), nullptr);
}

TEST_F(IdHashTest, NullStubOfAnObjectIsRefusedToo) {
    kvinmemory::makeEqual(id(30), GxDbObjectId());
    DataMap equal = makeMap();
    equal.emplace(GxDbObjectId(), 1);
    for (unsigned long n = 30; n <= 100; ++n)
        equal.emplace(id(n), n);
    EXPECT_EQ(IdHash::build(equal), nullptr);
}

TEST_F(IdHashTest, SecondStubOfAnObjectEndsTheHash) {
    kvinmemory::makeEqual(id(30), id(300));
    EXPECT_FALSE(hash->noteAdded(map, map.emplace(id(300), 300)));
}

// The hash first ignores the bits in which the first stubs agree. The later stubs differ from each other in
// those bits only. If the hash did not adapt, all later stubs would share one bucket.
TEST_F(IdHashTest, StubsThatDifferInOtherBitsThanTheFirstAreFoundAsFast) {
    constexpr unsigned long kMany = 200000; // quadratic work would take minutes
    DataMap growing = makeMap();
    for (unsigned long n = 1; n <= 100; ++n)
        growing.emplace(id(n << 20), n);
    const std::unique_ptr<IdHash> grown = IdHash::build(growing);
    ASSERT_NE(grown, nullptr);
    for (unsigned long n = 1; n <= kMany; ++n) {
        const auto entry = growing.emplace(id((101ul << 20) + n), n);
        ASSERT_TRUE(grown->noteAdded(growing, entry));
        grown->follow(growing);
        ASSERT_EQ(grown->find(growing, id((101ul << 20) + n)), entry);
    }
    EXPECT_EQ(grown->find(growing, id(7ul << 20)), growing.lower_bound(id(7ul << 20)));
}

TEST_F(IdHashTest, UnknownStubOfAKnownObjectIsLeftToTheIndex) {
    kvinmemory::makeEqual(id(30), id(300));
    EXPECT_EQ(hash->find(map, id(300)), map.end());
}

TEST_F(IdHashTest, BuildsWithoutMemoryOrNotAtAll) {
    kvtest::forEachAllocationFailure([this](kvtest::FailurePoint& point) {
        std::unique_ptr<IdHash> built;
        const kvtest::Outcome outcome = point.run([&] { built = IdHash::build(map); });
        EXPECT_FALSE(outcome.failed);
        EXPECT_EQ(built == nullptr, outcome.injected);
    });
}

TEST_F(IdHashTest, GrowsOrSaysThatItCannot) {
    kvtest::forEachAllocationFailure([](kvtest::FailurePoint& point) {
        DataMap growing = makeMap();
        growing.emplace(id(1), 1);
        const std::unique_ptr<IdHash> grown = IdHash::build(growing);
        for (unsigned long n = 2; n <= 500; ++n)
            growing.emplace(id(n), n);
        bool follows = true;
        const kvtest::Outcome outcome = point.run([&] {
            for (auto entry = std::next(growing.begin()); follows && entry != growing.end(); ++entry)
                follows = grown->noteAdded(growing, entry);
        });
        EXPECT_FALSE(outcome.failed);
        EXPECT_EQ(follows, !outcome.injected);
    });
}

} // namespace
