#include "base/GxArray.h"

#include "platform/KvDatabase.h"
#include "platform/inmemory/InMemoryOsBase.h"
#include "tests/base/ContainerTest.h"
#include "tests/base/Invariants.h"
#include "tests/support/AllocationFailure.h"
#include "tests/support/Ids.h"
#include "tests/support/NewTracking.h"
#include "tests/support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace {

using kvtest::expectStatus;
using kvtest::forEachAllocationFailure;
using kvtest::invariants;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int kOutOfMemory = 6;
constexpr int kInvalidIndex = 24;

using LongArray = GxArray<long>;

class GxArrayTest : public kvtest::ContainerTest {};
class GxArrayFailureTest : public kvtest::ContainerTest {};

// Returns an array of 0, 1, ... length - 1.
template <class Array = LongArray>
Array filled(int length) {
    Array array;
    array.setLogicalLength(length);
    for (int i = 0; i < length; ++i)
        array.at(i) = i;
    return array;
}

template <class T>
std::vector<T> contents(const GxArray<T>& array) {
    return std::vector<T>(array.mArray, array.mArray + array.logicalLength());
}

// Makes an array of this physical length, and then gives the array one element more than fits in it. Returns
// the new physical length.
template <class T>
int grownFrom(int physicalLength, int growLength = 8) {
    GxArray<T> array;
    array.setPhysicalLength(physicalLength);
    array.mGrowLength = growLength;
    EXPECT_EQ(array.physicalLength(), physicalLength);
    array.setLogicalLength(physicalLength + 1);
    EXPECT_EQ(array.logicalLength(), physicalLength + 1);
    EXPECT_TRUE(invariants(array));
    return array.physicalLength();
}

struct Large {
    char bytes[70000];
};

struct TwentyFour {
    std::int64_t words[3];
};

struct SixteenGigabytes {
    char bytes[std::size_t{1} << 34];
};

TEST_F(GxArrayTest, NewArrayIsEmptyWithGrowLengthEight) {
    const LongArray array;
    EXPECT_EQ(array.logicalLength(), 0);
    EXPECT_EQ(array.physicalLength(), 0);
    EXPECT_EQ(array.growLength(), 8);
    EXPECT_EQ(array.mArray, nullptr);
    EXPECT_TRUE(invariants(array));
}

TEST_F(GxArrayTest, NewArrayAllocatesNothing) {
    const long news = kvtest::newCalls();
    const LongArray array;
    const LongArray copy(array);
    EXPECT_EQ(kvtest::newCalls(), news);
}

TEST_F(GxArrayTest, StorageComesFromNewOnly) {
    const long news = kvtest::newCallsOfSize(8 * sizeof(long));
    const LongArray array = filled(3);
    EXPECT_EQ(kvtest::newCallsOfSize(8 * sizeof(long)), news + 1);
    EXPECT_EQ(kvinmemory::mallocCalls(), 0);
}

TEST_F(GxArrayTest, StorageIsFreedWithTheArray) {
    const long before = kvtest::liveNewBlocks();
    {
        LongArray array = filled(3);
        array.setLogicalLength(30);
        EXPECT_EQ(kvtest::liveNewBlocks(), before + 1);
    }
    EXPECT_EQ(kvtest::liveNewBlocks(), before);
}

// ---- growth

TEST_F(GxArrayTest, FirstGrowthTakesTheGrowLength) {
    EXPECT_EQ(grownFrom<long>(0), 8);
    EXPECT_EQ(grownFrom<long>(0, 3), 3);
}

TEST_F(GxArrayTest, SmallArrayGrowsByItsGrowLength) {
    EXPECT_EQ(grownFrom<long>(4), 12);
    EXPECT_EQ(grownFrom<long>(7), 15);
    EXPECT_EQ(grownFrom<long>(8), 16);
}

TEST_F(GxArrayTest, LargerArrayDoublesWhileItsStorageIsUnderSixtyFourKilobytes) {
    EXPECT_EQ(grownFrom<long>(9), 18);
    EXPECT_EQ(grownFrom<long>(100), 200);
    EXPECT_EQ(grownFrom<long>(8191), 16382);
}

TEST_F(GxArrayTest, ArrayOfSixtyFourKilobytesAndMoreGrowsByThatMuch) {
    EXPECT_EQ(grownFrom<long>(8192), 16384);
    EXPECT_EQ(grownFrom<long>(8193), 16385);
    EXPECT_EQ(grownFrom<long>(16384), 24576);
}

TEST_F(GxArrayTest, StepOfLargeArraysDependsOnTheElementSize) {
    EXPECT_EQ(grownFrom<std::int32_t>(16383), 32766);
    EXPECT_EQ(grownFrom<std::int32_t>(16385), 32769);
    EXPECT_EQ(grownFrom<TwentyFour>(2730), 5460);
    EXPECT_EQ(grownFrom<TwentyFour>(2731), 5461);
    EXPECT_EQ(grownFrom<TwentyFour>(4000), 6730);
    EXPECT_EQ(grownFrom<char>(65535), 131070);
    EXPECT_EQ(grownFrom<char>(70000), 135536);
}

TEST_F(GxArrayTest, ElementsLargerThanTheStepGrowByTheGrowLength) {
    EXPECT_EQ(grownFrom<Large>(1), 9);
    EXPECT_EQ(grownFrom<Large>(20, 3), 23);
}

TEST_F(GxArrayTest, GrowLengthWinsWhereItIsTheLarger) {
    EXPECT_EQ(grownFrom<long>(100, 150), 250);
    EXPECT_EQ(grownFrom<long>(8192, 10000), 18192);
}

TEST_F(GxArrayTest, GrowthBeyondTheStepTakesTheLengthItself) {
    LongArray array = filled(3);
    array.setLogicalLength(50);
    EXPECT_EQ(array.physicalLength(), 50);
    EXPECT_EQ(array.logicalLength(), 50);
    LongArray exact;
    exact.setLogicalLength(9);
    EXPECT_EQ(exact.physicalLength(), 9);
}

TEST_F(GxArrayTest, GrowthWithoutAGrowLengthTakesTheLengthItself) {
    EXPECT_EQ(grownFrom<long>(0, 0), 1);
    EXPECT_EQ(grownFrom<long>(0, -5), 1);
    EXPECT_EQ(grownFrom<long>(4, -5), 8);
}

TEST_F(GxArrayTest, GrowthKeepsTheElements) {
    LongArray array = filled(8);
    array.setLogicalLength(9);
    array.at(8) = 8;
    EXPECT_THAT(contents(array), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8));
}

TEST_F(GxArrayTest, LengthInsideTheCapacityKeepsTheStorage) {
    LongArray array = filled(3);
    const long* storage = array.mArray;
    array.setLogicalLength(8);
    EXPECT_EQ(array.mArray, storage);
    EXPECT_EQ(array.physicalLength(), 8);
    array.setLogicalLength(1);
    EXPECT_EQ(array.mArray, storage);
    EXPECT_EQ(array.physicalLength(), 8);
    EXPECT_THAT(contents(array), ElementsAre(0));
}

TEST_F(GxArrayTest, LengthZeroKeepsTheStorage) {
    LongArray array = filled(3);
    array.setLogicalLength(0);
    EXPECT_EQ(array.physicalLength(), 8);
    EXPECT_EQ(array.logicalLength(), 0);
    EXPECT_TRUE(invariants(array));
}

TEST_F(GxArrayTest, NegativeLengthCountsAsZero) {
    LongArray array = filled(3);
    array.setLogicalLength(-1);
    EXPECT_EQ(array.logicalLength(), 0);
    array.setLogicalLength(INT_MIN);
    EXPECT_EQ(array.logicalLength(), 0);
    EXPECT_EQ(array.physicalLength(), 8);
    LongArray fresh;
    fresh.setLogicalLength(-4);
    EXPECT_EQ(fresh.physicalLength(), 0);
    EXPECT_TRUE(invariants(fresh));
}

TEST_F(GxArrayTest, CapacityThatAnIntCannotHoldIsOutOfMemory) {
    LongArray array = filled(8);
    array.mGrowLength = INT_MAX - 7;
    const long* storage = array.mArray;
    expectStatus([&] { array.setLogicalLength(9); }, kOutOfMemory);
    EXPECT_EQ(array.mArray, storage);
    EXPECT_EQ(array.physicalLength(), 8);
    EXPECT_EQ(array.logicalLength(), 8);
    EXPECT_THAT(contents(array), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
}

TEST_F(GxArrayTest, StorageThatNoPointerCanSpanIsOutOfMemory) {
    GxArray<SixteenGigabytes> array;
    // 2^30 elements of 2^34 bytes: as a number of 64 bits, their size is 0.
    expectStatus([&] { array.setPhysicalLength(1 << 30); }, kOutOfMemory);
    EXPECT_EQ(array.physicalLength(), 0);
    EXPECT_TRUE(invariants(array));
}

// ---- physical length

TEST_F(GxArrayTest, PhysicalLengthZeroFreesTheStorage) {
    const long before = kvtest::liveNewBlocks();
    LongArray array = filled(3);
    array.setPhysicalLength(0);
    EXPECT_EQ(kvtest::liveNewBlocks(), before);
    EXPECT_EQ(array.mArray, nullptr);
    EXPECT_EQ(array.physicalLength(), 0);
    EXPECT_EQ(array.logicalLength(), 0);
    EXPECT_TRUE(invariants(array));
}

TEST_F(GxArrayTest, ArrayIsUsableAfterItsStorageWasFreed) {
    LongArray array = filled(3);
    array.setPhysicalLength(0);
    array.setPhysicalLength(0);
    array.setLogicalLength(1);
    array.at(0) = 5;
    EXPECT_THAT(contents(array), ElementsAre(5));
    EXPECT_EQ(array.physicalLength(), 8);
}

TEST_F(GxArrayTest, PhysicalLengthIsTakenExactlyAndKeepsTheElements) {
    LongArray array = filled(3);
    array.setPhysicalLength(20);
    EXPECT_EQ(array.physicalLength(), 20);
    EXPECT_THAT(contents(array), ElementsAre(0, 1, 2));
    array.setPhysicalLength(3);
    EXPECT_EQ(array.physicalLength(), 3);
    EXPECT_THAT(contents(array), ElementsAre(0, 1, 2));
    EXPECT_TRUE(invariants(array));
}

// ---- elements

TEST_F(GxArrayTest, AtAndIndexGiveTheSameElement) {
    LongArray array = filled(3);
    const LongArray& constArray = array;
    EXPECT_EQ(&array.at(1), array.mArray + 1);
    EXPECT_EQ(&array[1], array.mArray + 1);
    EXPECT_EQ(&constArray.at(2), array.mArray + 2);
    EXPECT_EQ(&constArray[2], array.mArray + 2);
    array[1] = 50;
    EXPECT_THAT(contents(array), ElementsAre(0, 50, 2));
}

TEST_F(GxArrayTest, AtOutsideTheLengthRaisesInvalidIndex) {
    LongArray array = filled(3);
    const LongArray& constArray = array;
    for (const int i : {-1, 3, 8, INT_MAX, INT_MIN}) {
        expectStatus([&] { array.at(i); }, kInvalidIndex);
        expectStatus([&] { constArray.at(i); }, kInvalidIndex);
    }
}

TEST_F(GxArrayTest, HoldsIds) {
    GxArray<GxDbObjectId, GxArrayMemCopyReallocator<GxDbObjectId>> ids;
    for (int i = 0; i < 20; ++i) {
        ids.setLogicalLength(i + 1);
        ids.at(i) = kvtest::id(static_cast<unsigned long>(i) + 1);
    }
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(ids.at(i), kvtest::id(static_cast<unsigned long>(i) + 1));
    EXPECT_EQ(ids.physicalLength(), 32);
}

// ---- copies

TEST_F(GxArrayTest, CopyHasElementsOfItsOwn) {
    LongArray array = filled(3);
    LongArray copy(array);
    EXPECT_NE(copy.mArray, array.mArray);
    EXPECT_THAT(contents(copy), ElementsAre(0, 1, 2));
    copy.at(0) = 9;
    EXPECT_EQ(array.at(0), 0);
    EXPECT_TRUE(invariants(copy));
}

TEST_F(GxArrayTest, CopiesGrowAsTheirSourceDoes) {
    LongArray array = filled(3);
    array.mGrowLength = 20;
    LongArray copy(array);
    LongArray assigned;
    assigned = array;
    EXPECT_EQ(copy.growLength(), 20);
    EXPECT_EQ(assigned.growLength(), 20);
}

TEST_F(GxArrayTest, CopyOfAnEmptyArrayIsEmpty) {
    LongArray array = filled(3);
    array.setLogicalLength(0);
    const LongArray copy(array);
    EXPECT_THAT(contents(copy), IsEmpty());
    EXPECT_TRUE(invariants(copy));
}

TEST_F(GxArrayTest, AssignmentCopiesTheElements) {
    const LongArray shorter = filled(2);
    const LongArray longer = filled(20);
    LongArray array = filled(5);
    EXPECT_EQ(&(array = longer), &array);
    EXPECT_EQ(contents(array), contents(longer));
    EXPECT_TRUE(invariants(array));
    array = shorter;
    EXPECT_THAT(contents(array), ElementsAre(0, 1));
    EXPECT_TRUE(invariants(array));
    array = LongArray();
    EXPECT_THAT(contents(array), IsEmpty());
    array = longer;
    EXPECT_EQ(contents(array), contents(longer));
    EXPECT_NE(array.mArray, longer.mArray);
}

TEST_F(GxArrayTest, AssignmentToItselfChangesNothing) {
    LongArray array = filled(3);
    const LongArray& self = array;
    array = self;
    EXPECT_THAT(contents(array), ElementsAre(0, 1, 2));
    EXPECT_TRUE(invariants(array));
}

// ---- out of memory

TEST_F(GxArrayFailureTest, StorageThatCannotBeObtainedRaisesStatusSix) {
    LongArray array;
    expectStatus(
        [&] {
            kvtest::failNew(1, false);
            array.setLogicalLength(1);
        },
        kOutOfMemory);
    EXPECT_EQ(kvtest::failedNews(), 1);
    kvtest::allowNew();
    EXPECT_EQ(array.physicalLength(), 0);
    EXPECT_TRUE(invariants(array));
}

TEST_F(GxArrayFailureTest, GrowthThatFailsLeavesTheArrayAsItWas) {
    forEachAllocationFailure([](kvtest::FailurePoint& point) {
        LongArray array = filled(8);
        const long* storage = array.mArray;
        const kvtest::Outcome outcome = point.run([&] { array.setLogicalLength(9); });
        EXPECT_EQ(outcome.failed, outcome.injected);
        EXPECT_TRUE(invariants(array));
        if (!outcome.failed)
            return;
        EXPECT_EQ(array.mArray, storage);
        EXPECT_EQ(array.physicalLength(), 8);
        EXPECT_THAT(contents(array), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
    });
}

TEST_F(GxArrayFailureTest, PhysicalLengthThatFailsLeavesTheArrayAsItWas) {
    forEachAllocationFailure([](kvtest::FailurePoint& point) {
        LongArray array = filled(3);
        const kvtest::Outcome outcome = point.run([&] { array.setPhysicalLength(100); });
        EXPECT_EQ(outcome.failed, outcome.injected);
        EXPECT_TRUE(invariants(array));
        EXPECT_EQ(array.physicalLength(), outcome.failed ? 8 : 100);
        EXPECT_THAT(contents(array), ElementsAre(0, 1, 2));
    });
}

TEST_F(GxArrayFailureTest, CopyThatFailsLeavesNothingBehind) {
    const LongArray source = filled(3);
    forEachAllocationFailure([&](kvtest::FailurePoint& point) {
        const long before = kvtest::liveNewBlocks();
        const kvtest::Outcome outcome = point.run([&] { const LongArray copy(source); });
        EXPECT_EQ(outcome.failed, outcome.injected);
        EXPECT_EQ(kvtest::liveNewBlocks(), before);
    });
}

TEST_F(GxArrayFailureTest, AssignmentThatFailsLeavesTheTargetSound) {
    const LongArray source = filled(30);
    forEachAllocationFailure([&](kvtest::FailurePoint& point) {
        LongArray target = filled(3);
        const kvtest::Outcome outcome = point.run([&] { target = source; });
        EXPECT_EQ(outcome.failed, outcome.injected);
        EXPECT_TRUE(invariants(target));
        if (outcome.failed) {
            EXPECT_THAT(contents(target), ElementsAre(0, 1, 2));
        } else {
            EXPECT_EQ(contents(target), contents(source));
        }
    });
}

TEST_F(GxArrayFailureTest, LengthInsideTheCapacityNeedsNoMemory) {
    forEachAllocationFailure(
        [](kvtest::FailurePoint& point) {
            LongArray array = filled(3);
            const kvtest::Outcome outcome = point.run([&] {
                array.setLogicalLength(8);
                array.setLogicalLength(0);
                array.setPhysicalLength(0);
            });
            EXPECT_TRUE(outcome.completed);
        },
        kvtest::Expect::None);
}

} // namespace
