#include "selectcontext/detail/HashTable.h"

#include "base/detail/FibonacciHash.h"
#include "tests/support/AllocationFailure.h"
#include "tests/support/KvTest.h"
#include "tests/support/NewTracking.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <new>
#include <random>
#include <set>
#include <vector>

namespace {

using Wide = kvdetail::HashTable<std::uint64_t, unsigned long>;
using Narrow = kvdetail::HashTable<std::uint32_t, unsigned long>;
using Model = std::map<std::uint64_t, unsigned long>;

class HashTableTest : public kvtest::KvTest {
protected:
    void SetUp() override {
        KvTest::SetUp();
        expectNothingLeft();
    }

    // Returns whether the table has exactly the keys of the model, with the same values. No key is higher
    // than `last`.
    template <class Table>
    static ::testing::AssertionResult isAs(const Model& model, const Table& table, std::uint32_t last) {
        if (table.size() != model.size())
            return ::testing::AssertionFailure() << table.size() << " keys instead of " << model.size();
        for (std::uint32_t key = 1; key <= last; ++key) {
            const auto wanted = model.find(key);
            const unsigned long* const found = table.find(key);
            if ((found != nullptr) != (wanted != model.end()))
                return ::testing::AssertionFailure() << "key " << key << (found ? " is there" : " is not");
            if (found && *found != wanted->second)
                return ::testing::AssertionFailure() << "key " << key << " has the value of another";
        }
        return ::testing::AssertionSuccess();
    }
};

TEST_F(HashTableTest, HasNoKeyAtFirst) {
    const Wide table;
    EXPECT_EQ(table.size(), 0u);
    for (const std::uint64_t key : {1ul, 16ul, 17ul, ~0ul})
        EXPECT_EQ(table.find(key), nullptr) << key;
}

TEST_F(HashTableTest, FindsEachKeyWithItsValueAndNoOther) {
    Wide table;
    for (std::uint64_t n = 1; n <= 1000; ++n)
        ASSERT_TRUE(table.insert(16 * n, n).second);
    EXPECT_EQ(table.size(), 1000u);
    for (std::uint64_t n = 1; n <= 1000; ++n) {
        ASSERT_NE(table.find(16 * n), nullptr) << n;
        EXPECT_EQ(*table.find(16 * n), n);
        EXPECT_EQ(table.find(16 * n + 8), nullptr);
    }
    EXPECT_EQ(table.find(16 * 1001), nullptr);
}

TEST_F(HashTableTest, KeepsTheValueOfAKeyThatIsThere) {
    Wide table;
    table.insert(16, 1);
    const auto [value, isNew] = table.insert(16, 2);
    EXPECT_FALSE(isNew);
    EXPECT_EQ(*value, 1u);
    EXPECT_EQ(table.size(), 1u);
}

TEST_F(HashTableTest, GivesAccessToTheValueOfANewKey) {
    Wide table;
    for (std::uint64_t n = 1; n <= 1000; ++n)
        *table.insert(16 * n, 0).first = n;
    for (std::uint64_t n = 1; n <= 1000; ++n)
        ASSERT_EQ(*table.find(16 * n), n);
    *table.find(std::uint64_t{16}) = 7;
    EXPECT_EQ(*table.find(16), 7u);
}

TEST_F(HashTableTest, HasTheLargestKey) {
    Wide table;
    table.insert(1, 1);
    table.insert(~std::uint64_t{0}, 2);
    Narrow narrow;
    narrow.insert(1, 1);
    narrow.insert(~std::uint32_t{0}, 2);
    EXPECT_EQ(*table.find(~std::uint64_t{0}), 2u);
    EXPECT_EQ(*narrow.find(~std::uint32_t{0}), 2u);
}

// A split makes two pages, and may double the directory.
TEST_F(HashTableTest, NoKeyMakesTheTableCopyMoreThanOnePage) {
    Wide table;
    table.insert(1, 1);
    table.insert(2, 2);
    for (std::uint64_t key = 3; key <= 100000; ++key) {
        const long before = kvtest::newCalls();
        table.insert(key, key);
        ASSERT_LE(kvtest::newCalls() - before, 3) << key;
    }
}

TEST_F(HashTableTest, HasAtMostFourBucketsForAKey) {
    constexpr std::size_t kKeys = 100000;
    constexpr long kBuckets = 1024;
    const std::size_t page = 8 + std::size_t{kBuckets} * 2 * sizeof(std::uint64_t);
    kvtest::trackNewSizes(true);
    {
        Wide table;
        for (std::uint64_t key = 1; key <= kKeys; ++key)
            table.insert(16 * key, key);
        const long pages = kvtest::liveNewBlocksOfSize(page);
        EXPECT_GE(pages * kBuckets * 3, static_cast<long>(kKeys) * 5) << "load factor";
        EXPECT_LE(pages * kBuckets, static_cast<long>(kKeys) * 4);
    }
    EXPECT_EQ(kvtest::liveNewBlocksOfSize(page), 0);
    kvtest::trackNewSizes(false);
}

// A look-up of an absent key needs an empty bucket to end at.
TEST_F(HashTableTest, FindsNoAbsentKeyHoweverManyKeysItHas) {
    Wide table;
    for (std::uint64_t key = 1; key <= 2000; ++key) {
        table.insert(key, key);
        ASSERT_EQ(table.find(key + 1), nullptr);
    }
}

TEST_F(HashTableTest, IsSparseOnceMostKeysOfALargeTableAreErased) {
    Wide table;
    EXPECT_FALSE(table.isSparse()) << "small";
    for (std::uint64_t key = 1; key <= 10000; ++key)
        table.insert(key, key);
    EXPECT_FALSE(table.isSparse());
    std::uint64_t erased = 0;
    while (!table.isSparse() && erased < 10000)
        table.erase(++erased);
    EXPECT_GT(erased, 5000u);
    EXPECT_LT(erased, 9000u);
}

TEST_F(HashTableTest, TakesBackAKeyThatWasErased) {
    Wide table;
    table.insert(16, 1);
    table.erase(16);
    EXPECT_EQ(table.find(16), nullptr);
    EXPECT_EQ(table.size(), 0u);
    EXPECT_TRUE(table.insert(16, 2).second);
    EXPECT_EQ(*table.find(16), 2u);
}

// In a table with few buckets, many probe sequences overlap, and some continue at the first bucket.
TEST_F(HashTableTest, IsAsAMapIsWhileKeysComeAndGo) {
    std::mt19937_64 random(3);
    for (const std::uint32_t last : {12u, 40u, 300u, 4000u}) {
        Wide table;
        Narrow narrow;
        Model model;
        for (int step = 0; step < 6000; ++step) {
            const auto key = static_cast<std::uint32_t>(random() % last + 1);
            if (model.erase(key) != 0) {
                table.erase(key);
                narrow.erase(key);
            } else {
                model.emplace(key, step);
                ASSERT_TRUE(table.insert(key, static_cast<unsigned long>(step)).second);
                narrow.insert(key, static_cast<unsigned long>(step));
            }
            if (last > 300 && step % 100 != 0)
                continue; // comparing large tables takes long
            ASSERT_TRUE(isAs(model, table, last));
            ASSERT_TRUE(isAs(model, narrow, last));
        }
    }
}

TEST_F(HashTableTest, EmptiedTableTakesKeysThatDifferFromTheFormerInTheirLowestBits) {
    Wide table;
    for (std::uint64_t n = 1; n <= 100; ++n)
        table.insert(16 * n, n);
    for (std::uint64_t n = 1; n <= 100; ++n)
        table.erase(16 * n);
    EXPECT_EQ(table.size(), 0u);
    for (std::uint64_t n = 1; n <= 100; ++n)
        table.insert(16 * n + 1 + n % 2, n);
    for (std::uint64_t n = 1; n <= 100; ++n) {
        EXPECT_EQ(table.find(16 * n), nullptr);
        ASSERT_NE(table.find(16 * n + 1 + n % 2), nullptr) << n;
        EXPECT_EQ(*table.find(16 * n + 1 + n % 2), n);
    }
}

TEST_F(HashTableTest, FindsKeysThatDifferInEverLowerBits) {
    Wide table;
    for (int bit = 63; bit >= 0; --bit)
        table.insert(std::uint64_t{1} << bit, static_cast<unsigned long>(bit));
    for (int bit = 0; bit < 64; ++bit) {
        ASSERT_NE(table.find(std::uint64_t{1} << bit), nullptr) << bit;
        EXPECT_EQ(*table.find(std::uint64_t{1} << bit), static_cast<unsigned long>(bit));
    }
    for (int bit = 63; bit >= 0; --bit)
        table.erase(std::uint64_t{1} << bit);
    EXPECT_EQ(table.size(), 0u);
}

// The first keys are equal in some bits, which do not affect the choice of a bucket. The later keys differ
// from each other in these bits only. If the table did not adapt, all later keys would share one bucket.
TEST_F(HashTableTest, SpreadsKeysThatDifferInOtherBitsThanTheFirst) {
    constexpr std::uint64_t kMany = 200000; // with quadratic cost, the test would take minutes
    Wide table;
    for (std::uint64_t n = 1; n <= 100; ++n)
        table.insert(n << 40, n);
    for (std::uint64_t n = 1; n <= kMany; ++n)
        table.insert((std::uint64_t{101} << 40) + n, n);
    for (std::uint64_t n = 1; n <= kMany; ++n)
        ASSERT_EQ(*table.find((std::uint64_t{101} << 40) + n), n);
    for (std::uint64_t n = 1; n <= 100; ++n)
        EXPECT_EQ(*table.find(n << 40), n);
}

TEST_F(HashTableTest, SpreadsKeysThatDifferInTheirHighestBitsOnly) {
    constexpr std::uint32_t kMany = 60000;
    Wide table;
    Narrow narrow;
    for (std::uint32_t n = 1; n <= kMany; ++n) {
        table.insert((std::uint64_t{n} << 47) + 5, n);
        narrow.insert((n << 16) + 5, n);
    }
    for (std::uint32_t n = 1; n <= kMany; ++n) {
        ASSERT_EQ(*table.find((std::uint64_t{n} << 47) + 5), n);
        ASSERT_EQ(*narrow.find((n << 16) + 5), n);
    }
}

// Returns the number whose Fibonacci hash is `hash`.
std::uint64_t numberOfHash(std::uint64_t hash) {
    const std::uint64_t factor = kvdetail::fibonacciHash(1);
    std::uint64_t inverse = factor; // right in the three lowest bits; each round doubles the right bits
    for (int round = 0; round < 5; ++round)
        inverse *= 2 - factor * inverse;
    return hash * inverse;
}

// The hashes of the keys differ in their lowest bits only, which choose neither page nor bucket. No directory
// can tell the pages of these keys apart.
TEST_F(HashTableTest, RefusesKeysOfSimilarHashesAndKeepsTheOthers) {
    std::vector<std::uint64_t> keys;
    for (std::uint64_t hash = 0; keys.size() < 1000; ++hash) {
        const std::uint64_t group = numberOfHash(hash);
        if (group < std::uint64_t{1} << 58)
            keys.push_back(64 * group + 1);
    }
    Wide table;
    table.insert(2, 1); // makes the hash use all bits
    std::size_t taken = 0;
    try {
        for (; taken < keys.size(); ++taken)
            table.insert(keys[taken], taken);
    } catch (const std::bad_alloc&) {}
    ASSERT_GE(taken, 100u);
    ASSERT_LT(taken, keys.size()) << "never refused";
    EXPECT_EQ(table.size(), taken + 1);
    for (std::size_t i = 0; i < taken; ++i) {
        ASSERT_NE(table.find(keys[i]), nullptr);
        EXPECT_EQ(*table.find(keys[i]), i);
    }
    EXPECT_EQ(table.find(keys[taken]), nullptr);
}

TEST_F(HashTableTest, IsMadeOrThrowsWithoutMemory) {
    kvtest::forEachAllocationFailure([](kvtest::FailurePoint& point) {
        const kvtest::Outcome outcome = point.run([] { const Wide table; });
        EXPECT_EQ(outcome.failed, outcome.injected);
    });
}

TEST_F(HashTableTest, TakesAKeyOrIsAsItWas) {
    // The second and the third hundred keys differ in lower bits than the hundred keys before.
    const auto keyOf = [](std::uint64_t n) {
        return n < 300 ? (n % 100 + 1) * 4096 >> (n / 100 * 3) : 4096 * n;
    };
    kvtest::forEachAllocationFailure([&](kvtest::FailurePoint& point) {
        Wide table;
        std::uint64_t done = 0;
        const kvtest::Outcome outcome = point.run([&] {
            for (; done < 1000; ++done)
                table.insert(keyOf(done), keyOf(done));
        });
        EXPECT_EQ(outcome.failed, outcome.injected);
        std::set<std::uint64_t> expected;
        for (std::uint64_t n = 0; n < done; ++n)
            expected.insert(keyOf(n));
        EXPECT_EQ(table.size(), expected.size());
        for (const std::uint64_t key : expected) {
            ASSERT_NE(table.find(key), nullptr);
            EXPECT_EQ(*table.find(key), key);
        }
        table.insert(3, 77);
        EXPECT_EQ(*table.find(3), 77u);
    });
}

} // namespace
