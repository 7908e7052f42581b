#include "base/detail/OccupancyBitmap.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace {

using kvdetail::OccupancyBitmap;

// Returns whether the bits give the same results as a list of flags.
template <unsigned Count>
::testing::AssertionResult agrees(const OccupancyBitmap<Count>& bits, const std::vector<bool>& flags) {
    std::uint32_t before = 0;
    std::uint32_t last = Count;
    for (std::uint32_t i = 0; i < Count; ++i) {
        if (bits.rank(i) != before)
            return ::testing::AssertionFailure() << "rank(" << i << ") is " << bits.rank(i);
        if (bits.lastBefore(i) != last)
            return ::testing::AssertionFailure() << "lastBefore(" << i << ") is " << bits.lastBefore(i);
        if (!flags[i])
            continue;
        if (bits.select(before) != i)
            return ::testing::AssertionFailure() << "select(" << before << ") is " << bits.select(before);
        last = i;
        ++before;
    }
    if (bits.lastBefore(Count) != last)
        return ::testing::AssertionFailure() << "the last bit is " << bits.lastBefore(Count);
    if (bits.count() != before || bits.select(before) != Count)
        return ::testing::AssertionFailure() << "count() is " << bits.count() << " instead of " << before;
    std::uint32_t next = Count;
    for (std::uint32_t i = Count; i-- > 0;) {
        next = flags[i] ? i : next;
        if (bits.firstFrom(i) != next)
            return ::testing::AssertionFailure() << "firstFrom(" << i << ") is " << bits.firstFrom(i);
    }
    return ::testing::AssertionSuccess();
}

template <unsigned Count>
std::vector<bool> firstFlags(std::uint32_t used) {
    std::vector<bool> flags(Count);
    for (std::uint32_t i = 0; i < used; ++i)
        flags[i] = true;
    return flags;
}

// The tests run with these numbers of slots on a page: 4 (part of a word), 64 (a word), 512 (a block of
// words), 515 (a block and part of a word), and 4096 (a page of a set).
template <class Bits>
class OccupancyBitmapTest : public ::testing::Test {};

template <unsigned N>
struct Slots {
    static constexpr unsigned kCount = N;
};
using Sizes = ::testing::Types<Slots<4>, Slots<64>, Slots<512>, Slots<515>, Slots<4096>>;

class SizeNames {
public:
    template <class S>
    static std::string GetName(int) {
        return std::to_string(S::kCount);
    }
};
TYPED_TEST_SUITE(OccupancyBitmapTest, Sizes, SizeNames);

TYPED_TEST(OccupancyBitmapTest, NothingIsKeptBeforeTheStart) {
    const OccupancyBitmap<TypeParam::kCount> bits;
    EXPECT_FALSE(bits.isKept());
    EXPECT_EQ(bits.count(), 0u);
}

TYPED_TEST(OccupancyBitmapTest, StartSetsTheUsedBitsAlone) {
    constexpr unsigned kCount = TypeParam::kCount;
    for (const std::uint32_t used : {0u, 1u, 3u, kCount / 2, kCount / 2 + 1, kCount - 1, kCount}) {
        OccupancyBitmap<kCount> bits;
        bits.start(used);
        EXPECT_TRUE(bits.isKept());
        EXPECT_TRUE(agrees(bits, firstFlags<kCount>(used))) << used << " used";
    }
}

TYPED_TEST(OccupancyBitmapTest, StartForgetsWhatWasKeptBefore) {
    constexpr unsigned kCount = TypeParam::kCount;
    OccupancyBitmap<kCount> bits;
    bits.start(kCount);
    for (std::uint32_t i = 0; i < kCount; ++i)
        bits.clear(i);
    bits.drop();
    EXPECT_FALSE(bits.isKept());
    bits.start(2);
    EXPECT_TRUE(agrees(bits, firstFlags<kCount>(2)));
}

TYPED_TEST(OccupancyBitmapTest, SettingOrClearingTwiceCountsOnce) {
    OccupancyBitmap<TypeParam::kCount> bits;
    bits.start(3);
    bits.clear(1);
    bits.clear(1);
    EXPECT_EQ(bits.count(), 2u);
    bits.set(1);
    bits.set(1);
    EXPECT_TRUE(agrees(bits, firstFlags<TypeParam::kCount>(3)));
}

TYPED_TEST(OccupancyBitmapTest, BitsClearedFromTheFrontOnAndSetAgainAtTheFront) {
    constexpr unsigned kCount = TypeParam::kCount;
    OccupancyBitmap<kCount> bits;
    std::vector<bool> flags = firstFlags<kCount>(kCount);
    bits.start(kCount);
    for (std::uint32_t i = 0; i < kCount; ++i) {
        bits.clear(i);
        flags[i] = false;
        ASSERT_EQ(bits.select(0), i + 1);
    }
    EXPECT_TRUE(agrees(bits, flags));
    bits.set(0);
    flags[0] = true;
    EXPECT_TRUE(agrees(bits, flags));
}

TYPED_TEST(OccupancyBitmapTest, RandomChangesAgreeWithPlainFlags) {
    constexpr unsigned kCount = TypeParam::kCount;
    std::mt19937 random(kCount);
    OccupancyBitmap<kCount> bits;
    std::vector<bool> flags = firstFlags<kCount>(kCount);
    bits.start(kCount);
    for (int round = 0; round < 40; ++round) {
        // Rounds that mostly clear bits alternate with rounds that mostly set bits.
        for (std::uint32_t n = 0; n < kCount; ++n) {
            const auto i = static_cast<std::uint32_t>(random() % kCount);
            const bool occupied = random() % 8 < (round % 2 == 0 ? 1u : 7u);
            flags[i] = occupied;
            occupied ? bits.set(i) : bits.clear(i);
        }
        ASSERT_TRUE(agrees(bits, flags)) << "round " << round;
    }
}

} // namespace
