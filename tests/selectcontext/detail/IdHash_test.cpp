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

// Builds the hash of the whole index. Returns null if no hash can be built.
std::unique_ptr<IdHash> buildHash(const DataMap& map) {
    auto hash = std::make_unique<IdHash>(map);
    while (!hash->isComplete(map)) {
        if (!hash->addSome(map))
            return nullptr;
    }
    return hash;
}

// Has an index with its own pool. The hash was built when the index had id(1) ... id(100).
class IdHashTest : public kvtest::KvTest {
protected:
    void SetUp() override {
        KvTest::SetUp();
        for (unsigned long n = 1; n <= 100; ++n)
            map.emplace(id(n), n);
        hash = buildHash(map);
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

// ---- a hash that is not complete

// Adds id(1) ... id(count) to `many`, and hashes the first part of them.
std::unique_ptr<IdHash> hashFirstPart(DataMap& many, unsigned long count) {
    for (unsigned long n = 1; n <= count; ++n)
        many.emplace(id(n), n);
    auto partial = std::make_unique<IdHash>(many);
    EXPECT_TRUE(partial->addSome(many));
    EXPECT_FALSE(partial->isComplete(many));
    return partial;
}

// Returns the number of the highest id that the hash has. All ids up to that id must be in the hash.
unsigned long lastHashed(const IdHash& partial) {
    unsigned long n = 0;
    while (partial.peek(id(n + 1)))
        ++n;
    return n;
}

void complete(IdHash& partial, const DataMap& many) {
    while (!partial.isComplete(many))
        ASSERT_TRUE(partial.addSome(many));
}

TEST_F(IdHashTest, EachPartHasAtMostAFewHundredEntries) {
    DataMap many = makeMap();
    const std::unique_ptr<IdHash> partial = hashFirstPart(many, 5000);
    EXPECT_GE(lastHashed(*partial), 32u);
    EXPECT_LE(lastHashed(*partial), 1000u);
    complete(*partial, many);
    EXPECT_EQ(lastHashed(*partial), 5000u);
}

TEST_F(IdHashTest, NextEntryMayBeErasedBeforeTheNextPart) {
    DataMap many = makeMap();
    const std::unique_ptr<IdHash> partial = hashFirstPart(many, 2000);
    const unsigned long next = lastHashed(*partial) + 1;
    for (unsigned long n = next; n < next + 3; ++n) {
        const auto entry = many.find(id(n));
        partial->noteErasing(many, entry);
        many.erase(entry);
        partial->follow(many);
    }
    complete(*partial, many);
    for (unsigned long n = 1; n <= 2000; ++n)
        ASSERT_EQ(partial->find(many, id(n)), many.find(id(n))) << n;
}

TEST_F(IdHashTest, PartMayEndBetweenEqualIds) {
    for (const unsigned long extra : {1ul, 2ul, 3ul}) {
        DataMap many = makeMap();
        many.emplace(id(0), 0);
        for (unsigned long n = 1; n <= 500 * extra; ++n)
            many.emplace(id(7), n);
        many.emplace(id(9), 9);
        const std::unique_ptr<IdHash> hashed = buildHash(many);
        ASSERT_NE(hashed, nullptr);
        EXPECT_EQ(hashed->find(many, id(7)), many.lower_bound(id(7)));
        EXPECT_EQ(hashed->find(many, id(9)), many.lower_bound(id(9)));
    }
}

TEST_F(IdHashTest, SecondStubOfAnObjectBetweenTwoPartsIsRefused) {
    DataMap many = makeMap();
    const std::unique_ptr<IdHash> partial = hashFirstPart(many, 2000);
    const unsigned long last = lastHashed(*partial);
    kvinmemory::makeEqual(id(last), id(last + 1));
    EXPECT_FALSE(partial->addSome(many));
}

// The second stub is in the part that is not hashed yet, so the hash does not know yet that it must be
// deleted.
TEST_F(IdHashTest, EntryOfASecondStubDoesNotReplaceAnErasedOne) {
    DataMap many = makeMap();
    const std::unique_ptr<IdHash> partial = hashFirstPart(many, 2000);
    ASSERT_TRUE(partial->noteAdded(many, many.emplace(id(1), 1))); // an id with two entries
    const unsigned long last = lastHashed(*partial);
    kvinmemory::makeEqual(id(last), id(last + 1));
    const auto entry = many.lower_bound(id(last));
    partial->noteErasing(many, entry);
    many.erase(entry);
    EXPECT_EQ(partial->peek(id(last)), nullptr);
}

TEST_F(IdHashTest, FollowsRandomEditsBetweenItsParts) {
    std::mt19937 random(9);
    for (int round = 0; round < 20; ++round) {
        DataMap many = makeMap();
        const std::unique_ptr<IdHash> partial = hashFirstPart(many, 2000);
        for (int step = 0; !partial->isComplete(many); ++step) {
            const unsigned long n = 1 + random() % 2500;
            const auto held = many.lower_bound(id(n));
            if (random() % 2 == 0 || held == many.end()) {
                ASSERT_TRUE(partial->noteAdded(many, many.emplace(id(n), n)));
            } else {
                partial->noteErasing(many, held);
                many.erase(held);
            }
            partial->follow(many);
            if (step % 50 == 0) {
                ASSERT_TRUE(partial->addSome(many));
            }
        }
        for (unsigned long n = 1; n <= 2500; ++n) {
            const auto first = many.lower_bound(id(n));
            const bool isHeld = first != many.end() && first->first == id(n);
            ASSERT_EQ(partial->find(many, id(n)), isHeld ? first : many.end()) << n;
        }
    }
}

// ---- changes that the hash has not seen

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
    EXPECT_EQ(buildHash(equal), nullptr);
}

TEST_F(IdHashTest, NullStubOfAnObjectIsRefusedToo) {
    kvinmemory::makeEqual(id(30), GxDbObjectId());
    DataMap equal = makeMap();
    equal.emplace(GxDbObjectId(), 1);
    for (unsigned long n = 30; n <= 100; ++n)
        equal.emplace(id(n), n);
    EXPECT_EQ(buildHash(equal), nullptr);
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
    const std::unique_ptr<IdHash> grown = buildHash(growing);
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

TEST_F(IdHashTest, BuildsAPartOrSaysThatItCannot) {
    kvtest::forEachAllocationFailure([this](kvtest::FailurePoint& point) {
        IdHash built(map);
        bool isBuilt = true;
        const kvtest::Outcome outcome = point.run([&] { isBuilt = built.addSome(map); });
        EXPECT_FALSE(outcome.failed);
        EXPECT_EQ(isBuilt, !outcome.injected);
    });
}

TEST_F(IdHashTest, GrowsOrSaysThatItCannot) {
    kvtest::forEachAllocationFailure([](kvtest::FailurePoint& point) {
        DataMap growing = makeMap();
        growing.emplace(id(1), 1);
        const std::unique_ptr<IdHash> grown = buildHash(growing);
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
