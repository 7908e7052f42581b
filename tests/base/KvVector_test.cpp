#include "base/KvVector.h"

#include "platform/inmemory/InMemoryDatabase.h"
#include "platform/inmemory/InMemoryOsBase.h"
#include "tests/base/ContainerTest.h"
#include "tests/base/Invariants.h"
#include "tests/base/VectorValues.h"
#include "tests/support/Ids.h"
#include "tests/support/NewTracking.h"
#include "tests/support/Thrown.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <new>
#include <string>
#include <vector>

namespace {

using kvtest::contents;
using kvtest::emptyBlockCount;
using kvtest::expectStatus;
using kvtest::filled;
using kvtest::invariants;
using kvtest::Sample;
using kvtest::shares;
using kvtest::value;
using kvtest::values;
using kvtest::WithoutEmptyBlock;

constexpr int kOutOfMemory = 6;
constexpr int kInvalidIndex = 24;

using IntVector = KvVector<int>;
using IdVector = KvVector<GxDbObjectId>;

// ---- what holds for every element type and allocator

template <class Vector>
class KvVectorOf : public kvtest::ContainerTest {
protected:
    static std::vector<kvtest::Element<Vector>> numbered(const std::vector<int>& numbers) {
        return values<Vector>(numbers);
    }
};

struct TypeName {
    template <class Vector>
    static std::string GetName(int index) {
        static const char* const kNames[] = {"Int", "String", "Sample", "ObjectId", "DelegatedDouble"};
        return kNames[index];
    }
};

using VectorTypes =
    ::testing::Types<KvVector<int>, KvVector<std::string>, KvVector<Sample>, KvVector<GxDbObjectId>,
                     KvVector<double, KvDelegateMemAllocator<double>>>;
TYPED_TEST_SUITE(KvVectorOf, VectorTypes, TypeName);

TYPED_TEST(KvVectorOf, NewVectorSharesTheEmptyBlock) {
    const std::uint32_t before = emptyBlockCount();
    {
        const TypeParam vector;
        EXPECT_EQ(vector.data.block, gpEmptyVectorData);
        EXPECT_EQ(emptyBlockCount(), before + 1);
        EXPECT_EQ(vector.logicalLength(), 0);
        EXPECT_EQ(vector.physicalLength(), 0);
        EXPECT_EQ(vector.growLength(), 8);
        EXPECT_TRUE(invariants(vector));
    }
    EXPECT_EQ(emptyBlockCount(), before);
}

TYPED_TEST(KvVectorOf, NewVectorAllocatesNothing) {
    const long news = kvtest::newCalls();
    const long mallocs = kvinmemory::mallocCalls();
    const TypeParam vector;
    const TypeParam copy(vector);
    EXPECT_EQ(kvtest::newCalls(), news);
    EXPECT_EQ(kvinmemory::mallocCalls(), mallocs);
}

TYPED_TEST(KvVectorOf, CopyOfAnEmptyVectorSharesTheEmptyBlockToo) {
    const std::uint32_t before = emptyBlockCount();
    const TypeParam vector;
    const TypeParam copy(vector);
    EXPECT_EQ(copy.data.block, gpEmptyVectorData);
    EXPECT_EQ(emptyBlockCount(), before + 2);
}

TYPED_TEST(KvVectorOf, CopySharesTheBlock) {
    const TypeParam vector = filled<TypeParam>(3);
    EXPECT_EQ(shares(vector), 1u);
    const long mallocs = kvinmemory::mallocCalls();
    {
        const TypeParam copy(vector);
        EXPECT_EQ(copy.data.block, vector.data.block);
        EXPECT_EQ(shares(vector), 2u);
        EXPECT_EQ(kvinmemory::mallocCalls(), mallocs);
    }
    EXPECT_EQ(shares(vector), 1u);
    EXPECT_EQ(contents(vector), this->numbered({0, 1, 2}));
}

TYPED_TEST(KvVectorOf, BlockOutlivesTheVectorItWasMadeBy) {
    TypeParam copy;
    {
        const TypeParam vector = filled<TypeParam>(3);
        copy = vector;
    }
    EXPECT_EQ(shares(copy), 1u);
    EXPECT_EQ(contents(copy), this->numbered({0, 1, 2}));
    EXPECT_TRUE(invariants(copy));
}

TYPED_TEST(KvVectorOf, AssignmentSharesTheBlockAndReleasesTheOldOne) {
    const std::uint32_t before = emptyBlockCount();
    const TypeParam source = filled<TypeParam>(3);
    TypeParam target;
    EXPECT_EQ(emptyBlockCount(), before + 1);
    target = source;
    EXPECT_EQ(emptyBlockCount(), before);
    EXPECT_EQ(target.data.block, source.data.block);
    EXPECT_EQ(shares(source), 2u);
}

TYPED_TEST(KvVectorOf, AssignmentFreesABlockThatNobodyElseShares) {
    TypeParam target = filled<TypeParam>(5);
    const long blocks = kvinmemory::liveBlocksOfSize(sizeof(KvVectorBlock));
    target = TypeParam();
    EXPECT_EQ(kvinmemory::liveBlocksOfSize(sizeof(KvVectorBlock)), blocks - 1);
    EXPECT_EQ(target.logicalLength(), 0);
}

TYPED_TEST(KvVectorOf, AssignmentToItselfChangesNothing) {
    TypeParam vector = filled<TypeParam>(3);
    const TypeParam& self = vector;
    vector = self;
    EXPECT_EQ(shares(vector), 1u);
    EXPECT_EQ(contents(vector), this->numbered({0, 1, 2}));
    const TypeParam copy(vector);
    vector = copy;
    EXPECT_EQ(shares(vector), 2u);
}

TYPED_TEST(KvVectorOf, AssignmentReturnsItsTarget) {
    TypeParam target;
    const TypeParam source = filled<TypeParam>(2);
    EXPECT_EQ(&(target = source), &target);
}

// ---- setLogicalLength

TYPED_TEST(KvVectorOf, FirstGrowthTakesTheGrowLength) {
    const std::uint32_t before = emptyBlockCount();
    TypeParam vector;
    vector.setLogicalLength(1);
    EXPECT_EQ(vector.logicalLength(), 1);
    EXPECT_EQ(vector.physicalLength(), 8);
    EXPECT_EQ(vector.growLength(), 8);
    EXPECT_EQ(shares(vector), 1u);
    EXPECT_EQ(emptyBlockCount(), before);
    EXPECT_TRUE(invariants(vector));
}

TYPED_TEST(KvVectorOf, FirstGrowthBeyondTheGrowLengthTakesTheLengthItself) {
    TypeParam vector;
    vector.setLogicalLength(9);
    EXPECT_EQ(vector.physicalLength(), 9);
    EXPECT_EQ(vector.growLength(), 8);
}

TYPED_TEST(KvVectorOf, GrowthStepIsTakenFromTheLogicalLength) {
    TypeParam vector = filled<TypeParam>(3);
    vector.data.block->physicalLength = 4;
    vector.setLogicalLength(5);
    EXPECT_EQ(vector.physicalLength(), 11);
    EXPECT_EQ(vector.logicalLength(), 5);
    EXPECT_EQ(contents(vector)[2], value<TypeParam>(2));
    EXPECT_TRUE(invariants(vector));
}

TYPED_TEST(KvVectorOf, GrowthBeyondTheStepTakesTheLengthItself) {
    TypeParam vector = filled<TypeParam>(3);
    vector.data.block->physicalLength = 4;
    vector.setLogicalLength(20);
    EXPECT_EQ(vector.physicalLength(), 20);
    EXPECT_EQ(vector.logicalLength(), 20);
}

TYPED_TEST(KvVectorOf, GrowthKeepsTheElements) {
    TypeParam vector = filled<TypeParam>(8);
    vector.setLogicalLength(9);
    EXPECT_EQ(vector.physicalLength(), 16);
    kvtest::setValues(vector, 8, 8);
    EXPECT_EQ(contents(vector), this->numbered({0, 1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(shares(vector), 1u);
}

TYPED_TEST(KvVectorOf, NewBlockTakesTheGrowLengthOfTheOneItReplaces) {
    TypeParam vector = filled<TypeParam>(8);
    vector.data.block->growLength = 3;
    vector.setLogicalLength(9);
    EXPECT_EQ(vector.physicalLength(), 11);
    EXPECT_EQ(vector.growLength(), 3);
    TypeParam copy(vector);
    copy.copyBeforeWrite(0);
    EXPECT_EQ(copy.growLength(), 3);
}

TYPED_TEST(KvVectorOf, SameLengthLeavesASharedBlockShared) {
    TypeParam vector = filled<TypeParam>(3);
    const TypeParam copy(vector);
    const long mallocs = kvinmemory::mallocCalls();
    vector.setLogicalLength(3);
    EXPECT_EQ(vector.data.block, copy.data.block);
    EXPECT_EQ(kvinmemory::mallocCalls(), mallocs);
}

TYPED_TEST(KvVectorOf, LengthZeroOfANewVectorAllocatesNothing) {
    TypeParam vector;
    const long mallocs = kvinmemory::mallocCalls();
    vector.setLogicalLength(0);
    EXPECT_EQ(vector.data.block, gpEmptyVectorData);
    EXPECT_EQ(kvinmemory::mallocCalls(), mallocs);
}

TYPED_TEST(KvVectorOf, ShrinkingAPrivateBlockKeepsItAndItsCapacity) {
    TypeParam vector = filled<TypeParam>(5);
    const KvVectorBlock* block = vector.data.block;
    vector.setLogicalLength(2);
    EXPECT_EQ(vector.data.block, block);
    EXPECT_EQ(vector.physicalLength(), 8);
    EXPECT_EQ(contents(vector), this->numbered({0, 1}));
    vector.setLogicalLength(0);
    EXPECT_EQ(vector.data.block, block);
    EXPECT_EQ(vector.physicalLength(), 8);
    EXPECT_TRUE(invariants(vector));
}

TYPED_TEST(KvVectorOf, GrowingAgainInsideThePrivateCapacityBringsTheOldElementsBack) {
    TypeParam vector = filled<TypeParam>(5);
    vector.setLogicalLength(2);
    vector.setLogicalLength(5);
    EXPECT_EQ(contents(vector), this->numbered({0, 1, 2, 3, 4}));
}

TYPED_TEST(KvVectorOf, ShrinkingASharedVectorLeavesTheOtherUnchanged) {
    TypeParam vector = filled<TypeParam>(5);
    const TypeParam other(vector);
    vector.setLogicalLength(2);
    EXPECT_NE(vector.data.block, other.data.block);
    EXPECT_EQ(contents(vector), this->numbered({0, 1}));
    EXPECT_EQ(vector.physicalLength(), 8);
    EXPECT_EQ(contents(other), this->numbered({0, 1, 2, 3, 4}));
    EXPECT_EQ(shares(other), 1u);
    EXPECT_EQ(shares(vector), 1u);
    EXPECT_TRUE(invariants(vector));
}

TYPED_TEST(KvVectorOf, ShrinkingASharedVectorToNothingKeepsItsCapacity) {
    TypeParam vector = filled<TypeParam>(5);
    const TypeParam other(vector);
    vector.setLogicalLength(0);
    EXPECT_EQ(vector.logicalLength(), 0);
    EXPECT_EQ(vector.physicalLength(), 8);
    EXPECT_NE(vector.data.block, gpEmptyVectorData);
    EXPECT_EQ(contents(other), this->numbered({0, 1, 2, 3, 4}));
}

// setLogicalLength(0) calls copyBeforeWrite(0), which copies all elements. So the elements are still in the
// block when the length grows again.
TYPED_TEST(KvVectorOf, ShrinkingASharedVectorToNothingCopiesItsElements) {
    TypeParam vector = filled<TypeParam>(3);
    const TypeParam other(vector);
    vector.setLogicalLength(0);
    vector.setLogicalLength(3);
    EXPECT_EQ(contents(vector), this->numbered({0, 1, 2}));
}

TYPED_TEST(KvVectorOf, GrowingASharedVectorInsideItsCapacityMakesItPrivate) {
    TypeParam vector = filled<TypeParam>(3);
    const TypeParam other(vector);
    vector.setLogicalLength(4);
    EXPECT_NE(vector.data.block, other.data.block);
    EXPECT_EQ(vector.physicalLength(), 8);
    kvtest::setValues(vector, 3, 3);
    EXPECT_EQ(contents(vector), this->numbered({0, 1, 2, 3}));
    EXPECT_EQ(contents(other), this->numbered({0, 1, 2}));
}

TYPED_TEST(KvVectorOf, GrowingASharedVectorBeyondItsCapacityReleasesTheSharedBlock) {
    TypeParam vector = filled<TypeParam>(8);
    const TypeParam other(vector);
    vector.setLogicalLength(9);
    EXPECT_EQ(shares(other), 1u);
    EXPECT_EQ(other.logicalLength(), 8);
    EXPECT_EQ(vector.physicalLength(), 16);
    EXPECT_EQ(contents(other), this->numbered({0, 1, 2, 3, 4, 5, 6, 7}));
    vector.setLogicalLength(8);
    EXPECT_EQ(contents(vector), contents(other));
}

TYPED_TEST(KvVectorOf, NegativeLengthCountsAsZero) {
    TypeParam vector = filled<TypeParam>(3);
    vector.setLogicalLength(-1);
    EXPECT_EQ(vector.logicalLength(), 0);
    EXPECT_EQ(vector.physicalLength(), 8);
    vector.setLogicalLength(INT_MIN);
    EXPECT_EQ(vector.logicalLength(), 0);
    EXPECT_TRUE(invariants(vector));
}

TYPED_TEST(KvVectorOf, NegativeLengthOfANewVectorAllocatesNothing) {
    TypeParam vector;
    vector.setLogicalLength(-1);
    EXPECT_EQ(vector.data.block, gpEmptyVectorData);
}

TYPED_TEST(KvVectorOf, CapacityThatAnIntCannotHoldIsOutOfMemory) {
    TypeParam vector = filled<TypeParam>(8);
    vector.data.block->growLength = INT_MAX;
    const KvVectorBlock* block = vector.data.block;
    expectStatus([&] { vector.setLogicalLength(9); }, kOutOfMemory);
    EXPECT_EQ(vector.data.block, block);
    EXPECT_EQ(contents(vector), this->numbered({0, 1, 2, 3, 4, 5, 6, 7}));
    EXPECT_TRUE(invariants(vector));
}

TYPED_TEST(KvVectorOf, CapacityThatAnIntCannotHoldLeavesASharedBlockShared) {
    TypeParam vector = filled<TypeParam>(8);
    vector.data.block->growLength = INT_MAX - 7;
    const TypeParam other(vector);
    expectStatus([&] { vector.setLogicalLength(9); }, kOutOfMemory);
    EXPECT_EQ(vector.data.block, other.data.block);
    EXPECT_EQ(shares(other), 2u);
}

TYPED_TEST(KvVectorOf, NegativeGrowLengthStillGrowsToTheLength) {
    TypeParam vector = filled<TypeParam>(8);
    vector.data.block->growLength = INT_MIN;
    vector.setLogicalLength(9);
    EXPECT_EQ(vector.physicalLength(), 9);
    EXPECT_EQ(contents(vector)[7], value<TypeParam>(7));
}

// ---- copyBeforeWrite

TYPED_TEST(KvVectorOf, CopyBeforeWriteLeavesAPrivateBlockAlone) {
    TypeParam vector = filled<TypeParam>(3);
    const KvVectorBlock* block = vector.data.block;
    const long mallocs = kvinmemory::mallocCalls();
    vector.copyBeforeWrite(0);
    vector.copyBeforeWrite(1);
    EXPECT_EQ(vector.data.block, block);
    EXPECT_EQ(contents(vector), this->numbered({0, 1, 2}));
    EXPECT_EQ(kvinmemory::mallocCalls(), mallocs);
}

TYPED_TEST(KvVectorOf, CopyBeforeWriteOfZeroKeepsEverything) {
    TypeParam vector = filled<TypeParam>(9);
    vector.data.block->growLength = 5;
    const TypeParam other(vector);
    vector.copyBeforeWrite(0);
    EXPECT_NE(vector.data.block, other.data.block);
    EXPECT_EQ(vector.logicalLength(), 9);
    EXPECT_EQ(vector.physicalLength(), 9);
    EXPECT_EQ(vector.growLength(), 5);
    EXPECT_EQ(contents(vector), contents(other));
    EXPECT_EQ(shares(vector), 1u);
    EXPECT_EQ(shares(other), 1u);
    EXPECT_TRUE(invariants(vector));
}

TYPED_TEST(KvVectorOf, CopyBeforeWriteOfFewerKeepsThatMany) {
    TypeParam vector = filled<TypeParam>(5);
    const TypeParam other(vector);
    vector.copyBeforeWrite(2);
    EXPECT_EQ(contents(vector), this->numbered({0, 1}));
    EXPECT_EQ(vector.physicalLength(), 8);
    EXPECT_EQ(contents(other), this->numbered({0, 1, 2, 3, 4}));
}

TYPED_TEST(KvVectorOf, CopyBeforeWriteOfMoreKeepsEverything) {
    for (const unsigned kept : {5u, 6u, 0x80000000u, 0xFFFFFFFFu}) {
        TypeParam vector = filled<TypeParam>(5);
        const TypeParam other(vector);
        vector.copyBeforeWrite(kept);
        EXPECT_NE(vector.data.block, other.data.block);
        EXPECT_EQ(contents(vector), this->numbered({0, 1, 2, 3, 4})) << kept;
    }
}

TYPED_TEST(KvVectorOf, CopyBeforeWriteOfTheEmptyBlockMakesRoomForSixteen) {
    const std::uint32_t before = emptyBlockCount();
    TypeParam vector;
    vector.copyBeforeWrite(0);
    EXPECT_NE(vector.data.block, gpEmptyVectorData);
    EXPECT_EQ(vector.logicalLength(), 0);
    EXPECT_EQ(vector.physicalLength(), 16);
    EXPECT_EQ(vector.growLength(), 8);
    EXPECT_EQ(shares(vector), 1u);
    EXPECT_EQ(emptyBlockCount(), before);
    EXPECT_TRUE(invariants(vector));
}

TYPED_TEST(KvVectorOf, OneOfThreeSharersLeavesTheOthersTogether) {
    const TypeParam first = filled<TypeParam>(3);
    TypeParam second(first);
    const TypeParam third(second);
    EXPECT_EQ(shares(first), 3u);
    second.copyBeforeWrite(0);
    EXPECT_EQ(shares(first), 2u);
    EXPECT_EQ(first.data.block, third.data.block);
    EXPECT_EQ(shares(second), 1u);
}

// ---- at

TYPED_TEST(KvVectorOf, AtWritesInPlaceInAPrivateBlock) {
    TypeParam vector = filled<TypeParam>(3);
    const KvVectorBlock* block = vector.data.block;
    vector.at(1) = value<TypeParam>(50);
    EXPECT_EQ(vector.data.block, block);
    EXPECT_EQ(contents(vector), this->numbered({0, 50, 2}));
}

TYPED_TEST(KvVectorOf, AtWritesIntoACopyOfASharedBlock) {
    TypeParam vector = filled<TypeParam>(3);
    const TypeParam other(vector);
    vector.at(1) = value<TypeParam>(50);
    EXPECT_EQ(contents(vector), this->numbered({0, 50, 2}));
    EXPECT_EQ(contents(other), this->numbered({0, 1, 2}));
}

TYPED_TEST(KvVectorOf, AtMakesTheBlockPrivateEvenForARead) {
    TypeParam vector = filled<TypeParam>(3);
    const TypeParam other(vector);
    EXPECT_EQ(vector.at(0), value<TypeParam>(0));
    EXPECT_NE(vector.data.block, other.data.block);
    EXPECT_EQ(shares(other), 1u);
}

TYPED_TEST(KvVectorOf, ConstAtLeavesTheBlockShared) {
    const TypeParam vector = filled<TypeParam>(3);
    const TypeParam other(vector);
    EXPECT_EQ(vector.at(2), value<TypeParam>(2));
    EXPECT_EQ(&vector.at(2), &other.at(2));
    EXPECT_EQ(shares(vector), 2u);
}

TYPED_TEST(KvVectorOf, AtOutsideTheLengthRaisesInvalidIndex) {
    TypeParam vector = filled<TypeParam>(3);
    const TypeParam& constVector = vector;
    for (const int i : {-1, 3, 7, 8, INT_MAX, INT_MIN}) {
        expectStatus([&] { vector.at(i); }, kInvalidIndex);
        expectStatus([&] { constVector.at(i); }, kInvalidIndex);
    }
}

TYPED_TEST(KvVectorOf, AtOfANewVectorRaisesInvalidIndex) {
    TypeParam vector;
    const TypeParam& constVector = vector;
    expectStatus([&] { vector.at(0); }, kInvalidIndex);
    expectStatus([&] { constVector.at(0); }, kInvalidIndex);
    EXPECT_EQ(vector.data.block, gpEmptyVectorData);
}

TYPED_TEST(KvVectorOf, AtThatFailsLeavesTheBlockShared) {
    TypeParam vector = filled<TypeParam>(3);
    const TypeParam other(vector);
    expectStatus([&] { vector.at(3); }, kInvalidIndex);
    EXPECT_EQ(vector.data.block, other.data.block);
    EXPECT_EQ(shares(other), 2u);
}

// ---- removeAt

TYPED_TEST(KvVectorOf, RemoveAtMovesTheFollowingElementsDown) {
    TypeParam vector = filled<TypeParam>(5);
    vector.removeAt(1);
    EXPECT_EQ(contents(vector), this->numbered({0, 2, 3, 4}));
    vector.removeAt(0);
    EXPECT_EQ(contents(vector), this->numbered({2, 3, 4}));
    EXPECT_EQ(vector.physicalLength(), 8);
    EXPECT_TRUE(invariants(vector));
}

TYPED_TEST(KvVectorOf, RemoveAtTheLastOnlyShortens) {
    TypeParam vector = filled<TypeParam>(3);
    const KvVectorBlock* block = vector.data.block;
    vector.removeAt(2);
    EXPECT_EQ(contents(vector), this->numbered({0, 1}));
    EXPECT_EQ(vector.data.block, block);
    vector.setLogicalLength(3);
    EXPECT_EQ(contents(vector), this->numbered({0, 1, 2}));
}

TYPED_TEST(KvVectorOf, RemoveAtTheOnlyElementLeavesAnEmptyVectorWithItsCapacity) {
    TypeParam vector = filled<TypeParam>(1);
    vector.removeAt(0);
    EXPECT_EQ(vector.logicalLength(), 0);
    EXPECT_EQ(vector.physicalLength(), 8);
    EXPECT_TRUE(invariants(vector));
}

TYPED_TEST(KvVectorOf, RemoveAtInASharedVectorLeavesTheOtherUnchanged) {
    for (const int i : {0, 1, 2}) {
        TypeParam vector = filled<TypeParam>(3);
        const TypeParam other(vector);
        vector.removeAt(i);
        EXPECT_EQ(vector.logicalLength(), 2);
        EXPECT_EQ(vector.physicalLength(), 8);
        EXPECT_EQ(contents(other), this->numbered({0, 1, 2})) << i;
        EXPECT_EQ(shares(other), 1u);
        EXPECT_TRUE(invariants(vector));
    }
}

TYPED_TEST(KvVectorOf, RemoveAtInASharedVectorRemovesTheRightElement) {
    TypeParam vector = filled<TypeParam>(4);
    const TypeParam other(vector);
    vector.removeAt(1);
    EXPECT_EQ(contents(vector), this->numbered({0, 2, 3}));
}

TYPED_TEST(KvVectorOf, RemoveAtTheOnlyElementOfASharedVectorLeavesTheOtherUnchanged) {
    TypeParam vector = filled<TypeParam>(1);
    const TypeParam other(vector);
    vector.removeAt(0);
    EXPECT_EQ(vector.logicalLength(), 0);
    EXPECT_EQ(contents(other), this->numbered({0}));
    EXPECT_EQ(shares(other), 1u);
}

TYPED_TEST(KvVectorOf, RemoveAtOutsideTheLengthRaisesInvalidIndexAndStaysShared) {
    TypeParam vector = filled<TypeParam>(3);
    const TypeParam other(vector);
    for (const int i : {-1, 3, 8, INT_MAX, INT_MIN})
        expectStatus([&] { vector.removeAt(i); }, kInvalidIndex);
    EXPECT_EQ(vector.data.block, other.data.block);
    EXPECT_EQ(vector.logicalLength(), 3);
}

TYPED_TEST(KvVectorOf, RemoveAtOfANewVectorRaisesInvalidIndex) {
    TypeParam vector;
    expectStatus([&] { vector.removeAt(0); }, kInvalidIndex);
    expectStatus([&] { vector.removeAt(-1); }, kInvalidIndex);
}

// ---- the release of a block

TYPED_TEST(KvVectorOf, ReleaseOfAPrivateBlockFreesItAndClearsTheHandle) {
    TypeParam vector = filled<TypeParam>(3);
    const long blocks = kvinmemory::liveBlocksOfSize(sizeof(KvVectorBlock));
    vector.data._release();
    EXPECT_EQ(vector.data.block, nullptr);
    EXPECT_EQ(kvinmemory::liveBlocksOfSize(sizeof(KvVectorBlock)), blocks - 1);
    EXPECT_EQ(vector.logicalLength(), 0);
}

TYPED_TEST(KvVectorOf, ReleaseOfASharedBlockCountsDownAndLeavesTheHandle) {
    TypeParam vector = filled<TypeParam>(3);
    TypeParam other(vector);
    KvVectorBlock* block = vector.data.block;
    vector.data._release();
    EXPECT_EQ(vector.data.block, block);
    EXPECT_EQ(block->refCount.load(), 1u);
    EXPECT_EQ(contents(other), this->numbered({0, 1, 2}));
    block->refCount.fetch_add(1); // for the destructor, which releases the block once more
}

TYPED_TEST(KvVectorOf, ReleaseOfANullHandleDoesNothing) {
    TypeParam vector = filled<TypeParam>(3);
    vector.data._release();
    vector.data._release();
    EXPECT_EQ(vector.data.block, nullptr);
}

TYPED_TEST(KvVectorOf, ReleasedVectorIsUsableAgain) {
    TypeParam vector = filled<TypeParam>(3);
    vector.data._release();
    vector.setLogicalLength(2);
    kvtest::setValues(vector, 0, 0);
    EXPECT_EQ(contents(vector), this->numbered({0, 1}));
    EXPECT_EQ(vector.physicalLength(), 8);
    EXPECT_TRUE(invariants(vector));
}

TYPED_TEST(KvVectorOf, StorageAndBlockAreFreedWithTheLastVector) {
    const long news = kvtest::liveNewBlocks();
    const long blocks = kvinmemory::liveBlocks();
    {
        TypeParam vector = filled<TypeParam>(3);
        TypeParam other(vector);
        vector.setLogicalLength(30);
        other.at(0) = value<TypeParam>(7);
        EXPECT_GT(kvinmemory::liveBlocks(), blocks);
    }
    EXPECT_EQ(kvtest::liveNewBlocks(), news);
    EXPECT_EQ(kvinmemory::liveBlocks(), blocks);
}

// ---- without an empty block

TYPED_TEST(KvVectorOf, NewVectorHasNoBlockWhereThereIsNoEmptyOne) {
    const WithoutEmptyBlock none;
    const TypeParam vector;
    EXPECT_EQ(vector.data.block, nullptr);
    EXPECT_EQ(vector.logicalLength(), 0);
    EXPECT_EQ(vector.physicalLength(), 0);
    EXPECT_TRUE(invariants(vector));
}

TYPED_TEST(KvVectorOf, VectorWithoutABlockIsCopiedAndAssigned) {
    const WithoutEmptyBlock none;
    const TypeParam vector;
    const TypeParam copy(vector);
    EXPECT_EQ(copy.logicalLength(), 0);
    TypeParam target = filled<TypeParam>(3);
    target = vector;
    EXPECT_EQ(target.logicalLength(), 0);
    target = filled<TypeParam>(2);
    EXPECT_EQ(contents(target), this->numbered({0, 1}));
    target = TypeParam();
    EXPECT_EQ(target.logicalLength(), 0);
}

TYPED_TEST(KvVectorOf, VectorWithoutABlockGrowsByEight) {
    const WithoutEmptyBlock none;
    TypeParam vector;
    vector.setLogicalLength(1);
    EXPECT_EQ(vector.logicalLength(), 1);
    EXPECT_EQ(vector.physicalLength(), 8);
    EXPECT_EQ(vector.growLength(), 8);
    kvtest::setValues(vector, 0, 0);
    EXPECT_EQ(contents(vector), this->numbered({0}));
    EXPECT_TRUE(invariants(vector));
}

TYPED_TEST(KvVectorOf, VectorWithoutABlockHasNoElement) {
    const WithoutEmptyBlock none;
    TypeParam vector;
    const TypeParam& constVector = vector;
    expectStatus([&] { vector.at(0); }, kInvalidIndex);
    expectStatus([&] { vector.at(-1); }, kInvalidIndex);
    expectStatus([&] { constVector.at(0); }, kInvalidIndex);
    expectStatus([&] { vector.removeAt(0); }, kInvalidIndex);
}

TYPED_TEST(KvVectorOf, VectorWithoutABlockIsLeftAloneByWhatChangesNothing) {
    const WithoutEmptyBlock none;
    TypeParam vector;
    vector.copyBeforeWrite(0);
    vector.copyBeforeWrite(5);
    vector.setLogicalLength(0);
    vector.setLogicalLength(-3);
    EXPECT_EQ(vector.logicalLength(), 0);
    EXPECT_EQ(vector.physicalLength(), 0);
}

TYPED_TEST(KvVectorOf, VectorMadeBeforeTheEmptyBlockWentLetsItGoAfterwards) {
    const std::uint32_t before = emptyBlockCount();
    {
        TypeParam vector;
        const WithoutEmptyBlock none;
        vector.setLogicalLength(3);
        kvtest::setValues(vector, 0, 0);
        EXPECT_EQ(contents(vector), this->numbered({0, 1, 2}));
    }
    EXPECT_EQ(emptyBlockCount(), before);
}

// ---- with another empty block

class EmptyBlockReplaced {
public:
    explicit EmptyBlockReplaced(KvVectorBlock& block) : mOriginal(gpEmptyVectorData) {
        gpEmptyVectorData = &block;
    }
    EmptyBlockReplaced(const EmptyBlockReplaced&) = delete;
    EmptyBlockReplaced& operator=(const EmptyBlockReplaced&) = delete;
    ~EmptyBlockReplaced() { gpEmptyVectorData = mOriginal; }

private:
    KvVectorBlock* mOriginal;
};

TYPED_TEST(KvVectorOf, GrowLengthComesFromTheEmptyBlockThatTheApplicationProvides) {
    KvVectorBlock provided{{1}, 0, 0, 2, nullptr};
    const EmptyBlockReplaced replaced(provided);
    {
        TypeParam vector;
        EXPECT_EQ(provided.refCount.load(), 2u);
        vector.setLogicalLength(1);
        EXPECT_EQ(provided.refCount.load(), 1u);
        EXPECT_EQ(vector.physicalLength(), 2);
        EXPECT_EQ(vector.growLength(), 2);
    }
    EXPECT_EQ(provided.refCount.load(), 1u);
}

TYPED_TEST(KvVectorOf, EmptyBlockIsNeverWrittenTo) {
    TypeParam vector;
    vector.setLogicalLength(4);
    vector.setLogicalLength(0);
    TypeParam other;
    other.copyBeforeWrite(0);
    EXPECT_EQ(gpEmptyVectorData->logicalLength, 0);
    EXPECT_EQ(gpEmptyVectorData->physicalLength, 0);
    EXPECT_EQ(gpEmptyVectorData->growLength, 8);
    EXPECT_EQ(gpEmptyVectorData->array, nullptr);
}

// ---- where the memory comes from

class KvVectorMemory : public kvtest::ContainerTest {};

TEST_F(KvVectorMemory, DefaultAllocatorTakesTheBlockFromTheApplicationAndTheStorageFromNew) {
    const long news = kvtest::newCalls();
    const long newsOfSize = kvtest::newCallsOfSize(8 * sizeof(int));
    const long mallocs = kvinmemory::mallocCalls();
    IntVector vector;
    vector.setLogicalLength(3);
    EXPECT_EQ(kvtest::newCalls(), news + 1);
    EXPECT_EQ(kvtest::newCallsOfSize(8 * sizeof(int)), newsOfSize + 1);
    EXPECT_EQ(kvinmemory::mallocCalls(), mallocs + 1);
    EXPECT_EQ(kvinmemory::mallocCallsOfSize(sizeof(KvVectorBlock)), 1);
}

TEST_F(KvVectorMemory, DelegateAllocatorTakesBlockAndStorageFromTheApplication) {
    const long news = kvtest::newCalls();
    IdVector vector;
    vector.setLogicalLength(9);
    EXPECT_EQ(kvtest::newCalls(), news);
    EXPECT_EQ(kvinmemory::mallocCalls(), 2);
    EXPECT_EQ(kvinmemory::mallocCallsOfSize(sizeof(KvVectorBlock)), 1);
    EXPECT_EQ(kvinmemory::mallocCallsOfSize(9 * sizeof(GxDbObjectId)), 1);
}

TEST_F(KvVectorMemory, DelegatedStorageGoesBackToTheApplication) {
    {
        IdVector vector;
        vector.setLogicalLength(9);
    }
    EXPECT_EQ(kvinmemory::freeCalls(), 2);
    EXPECT_EQ(kvinmemory::liveBlocks(), 0);
}

TEST_F(KvVectorMemory, DelegatedStorageOfABlockWithoutCapacityIsNotFreed) {
    GxDbObjectId storage[2];
    auto* block = static_cast<KvVectorBlock*>(_kvMalloc(sizeof(KvVectorBlock)));
    new (block) KvVectorBlock{{1}, 0, 0, 8, storage};
    IdVector vector;
    vector.data._release();
    vector.data.block = block;
    vector.data._release();
    EXPECT_EQ(vector.data.block, nullptr);
    EXPECT_EQ(kvinmemory::liveBlocks(), 0);
    EXPECT_EQ(kvinmemory::foreignFrees(), 0);
}

TEST_F(KvVectorMemory, DefaultStorageOfABlockWithoutCapacityIsFreed) {
    IntVector vector;
    vector.data._release();
    const long news = kvtest::liveNewBlocks();
    auto* block = static_cast<KvVectorBlock*>(_kvMalloc(sizeof(KvVectorBlock)));
    vector.data.block = new (block) KvVectorBlock{{1}, 0, 0, 8, new int[2]};
    ASSERT_EQ(kvtest::liveNewBlocks(), news + 1);
    vector.data._release();
    EXPECT_EQ(vector.data.block, nullptr);
    EXPECT_EQ(kvtest::liveNewBlocks(), news);
    EXPECT_EQ(kvinmemory::liveBlocks(), 0);
}

TEST_F(KvVectorMemory, DefaultStorageOfABlockWithoutCapacityIsFreedWhenTheVectorGrows) {
    const long news = kvtest::liveNewBlocks();
    {
        IntVector vector;
        vector.data._release();
        auto* block = static_cast<KvVectorBlock*>(_kvMalloc(sizeof(KvVectorBlock)));
        vector.data.block = new (block) KvVectorBlock{{1}, 0, 0, 8, new int[2]};
        vector.setLogicalLength(1);
        EXPECT_EQ(kvtest::liveNewBlocks(), news + 1);
    }
    EXPECT_EQ(kvtest::liveNewBlocks(), news);
    EXPECT_EQ(kvinmemory::liveBlocks(), 0);
}

TEST_F(KvVectorMemory, CopyOfASharedBlockAllocatesOnce) {
    IdVector vector = filled<IdVector>(3);
    const IdVector other(vector);
    const long mallocs = kvinmemory::mallocCalls();
    vector.at(0);
    EXPECT_EQ(kvinmemory::mallocCalls(), mallocs + 2);
    vector.at(1);
    vector.setLogicalLength(8);
    EXPECT_EQ(kvinmemory::mallocCalls(), mallocs + 2);
}

TEST_F(KvVectorMemory, RemovalFromAPrivateBlockAllocatesNothing) {
    IdVector vector = filled<IdVector>(5);
    const long mallocs = kvinmemory::mallocCalls();
    vector.removeAt(1);
    vector.removeAt(3);
    EXPECT_EQ(kvinmemory::mallocCalls(), mallocs);
}

TEST_F(KvVectorMemory, DelegateAllocatorGivesNothingForFewerThanOne) {
    const long mallocs = kvinmemory::mallocCalls();
    EXPECT_EQ(KvDelegateMemAllocator<int>::alloc(0), nullptr);
    EXPECT_EQ(KvDelegateMemAllocator<int>::alloc(-1), nullptr);
    EXPECT_EQ(KvDelegateMemAllocator<int>::alloc(INT_MIN), nullptr);
    EXPECT_EQ(kvinmemory::mallocCalls(), mallocs);
}

TEST_F(KvVectorMemory, DelegateAllocatorAsksForTheElementsBytes) {
    double* storage = KvDelegateMemAllocator<double>::alloc(5);
    EXPECT_TRUE(kvinmemory::isLiveBlock(storage));
    EXPECT_EQ(kvinmemory::liveBlocksOfSize(5 * sizeof(double)), 1);
    _kvFree(storage);
}

TEST_F(KvVectorMemory, DelegateAllocatorCountsBytesBeyondAnInt) {
    kvinmemory::failMalloc(1, kvinmemory::FailureMode::Once);
    expectStatus([] { KvDelegateMemAllocator<double>::alloc(INT_MAX); }, kOutOfMemory);
    EXPECT_EQ(kvinmemory::mallocCallsOfSize(std::size_t{INT_MAX} * sizeof(double)), 1);
}

// A growth allocates a block and its storage, in any order. The loop makes the first or the second
// allocation fail, until the vector has asked for storage of this size.
TEST_F(KvVectorMemory, GrowthToTheLargestIntIsAskedFor) {
    IdVector vector = filled<IdVector>(8);
    vector.data.block->growLength = INT_MAX - 8;
    const std::size_t bytes = std::size_t{INT_MAX} * sizeof(GxDbObjectId);
    for (long nth = 1; nth <= 2 && kvinmemory::mallocCallsOfSize(bytes) == 0; ++nth) {
        kvinmemory::failMalloc(nth, kvinmemory::FailureMode::Once);
        expectStatus([&] { vector.setLogicalLength(9); }, kOutOfMemory);
    }
    EXPECT_EQ(kvinmemory::mallocCallsOfSize(bytes), 1);
    EXPECT_EQ(vector.logicalLength(), 8);
}

// An element of 8 GiB. No heap has room for INT_MAX such elements. The operator new of this class fails
// without asking the heap, because the heap of a sanitizer would end the program.
struct Vast {
    static void* operator new[](std::size_t) { throw std::bad_alloc(); }
    static void* operator new[](std::size_t, const std::nothrow_t&) noexcept { return nullptr; }
    static void operator delete[](void* memory) noexcept { ::operator delete[](memory); }
    static void operator delete[](void* memory, const std::nothrow_t&) noexcept {
        ::operator delete[](memory);
    }

    char bytes[std::size_t{1} << 33];
};

TEST_F(KvVectorMemory, StorageBeyondTheAddressSpaceIsOutOfMemory) {
    KvVector<Vast> vector;
    expectStatus([&] { vector.setLogicalLength(INT_MAX); }, kOutOfMemory);
    EXPECT_EQ(vector.data.block, gpEmptyVectorData);
    EXPECT_EQ(kvinmemory::liveBlocks(), 0);
}

TEST_F(KvVectorMemory, PointVectorIsReleasedLikeAnyOther) {
    KvVector<GxGePoint3d> vector;
    vector.setLogicalLength(3);
    const long news = kvtest::liveNewBlocks();
    vector.data._release();
    EXPECT_EQ(vector.data.block, nullptr);
    EXPECT_EQ(kvtest::liveNewBlocks(), news - 1);
}

// ---- tryCopyBeforeWrite

class KvVectorTryCopy : public kvtest::ContainerTest {};

TEST_F(KvVectorTryCopy, SharedBlockIsMadePrivateWithAllItsElements) {
    IntVector vector = filled<IntVector>(9);
    const IntVector other(vector);
    vector.tryCopyBeforeWrite();
    EXPECT_EQ(contents(vector), contents(other));
    EXPECT_EQ(shares(vector), 1u);
    EXPECT_EQ(shares(other), 1u);
    EXPECT_TRUE(invariants(vector));
}

TEST_F(KvVectorTryCopy, PrivateBlockIsLeftAlone) {
    IntVector vector = filled<IntVector>(3);
    const KvVectorBlock* block = vector.data.block;
    vector.tryCopyBeforeWrite();
    EXPECT_EQ(vector.data.block, block);
    EXPECT_EQ(contents(vector), values<IntVector>({0, 1, 2}));
}

TEST_F(KvVectorTryCopy, VectorWithoutABlockIsLeftAlone) {
    const WithoutEmptyBlock none;
    IntVector vector;
    vector.tryCopyBeforeWrite();
    EXPECT_EQ(vector.data.block, nullptr);
}

// ---- equality of id vectors

class KvVectorEquality : public kvtest::ContainerTest {};

TEST_F(KvVectorEquality, SharersOfABlockAreEqual) {
    const IdVector vector = kvtest::idVector({1, 2, 3});
    const IdVector copy(vector);
    EXPECT_TRUE(vector == copy);
    EXPECT_TRUE(vector == vector);
}

TEST_F(KvVectorEquality, EqualElementsInBlocksOfTheirOwnAreEqual) {
    EXPECT_TRUE(kvtest::idVector({1, 2, 3}) == kvtest::idVector({1, 2, 3}));
}

TEST_F(KvVectorEquality, AnyElementThatDiffersMakesUnequal) {
    const IdVector vector = kvtest::idVector({1, 2, 3});
    EXPECT_FALSE(vector == kvtest::idVector({9, 2, 3}));
    EXPECT_FALSE(vector == kvtest::idVector({1, 9, 3}));
    EXPECT_FALSE(vector == kvtest::idVector({1, 2, 9}));
}

TEST_F(KvVectorEquality, DifferentLengthsAreUnequal) {
    const IdVector vector = kvtest::idVector({1, 2, 3});
    EXPECT_FALSE(vector == kvtest::idVector({1, 2}));
    EXPECT_FALSE(kvtest::idVector({1, 2}) == vector);
    EXPECT_FALSE(vector == IdVector());
    EXPECT_FALSE(IdVector() == vector);
}

TEST_F(KvVectorEquality, EmptyVectorsAreEqualWhateverTheirBlocks) {
    IdVector emptied = kvtest::idVector({1});
    emptied.setLogicalLength(0);
    IdVector reserved;
    reserved.copyBeforeWrite(0);
    EXPECT_TRUE(emptied == IdVector());
    EXPECT_TRUE(IdVector() == emptied);
    EXPECT_TRUE(emptied == reserved);
    EXPECT_TRUE(IdVector() == IdVector());
}

TEST_F(KvVectorEquality, CapacityAndElementsBehindTheLengthDoNotCount) {
    IdVector longer = kvtest::idVector({1, 2, 3, 4, 5, 6, 7, 8, 9});
    longer.setLogicalLength(2);
    IdVector other = kvtest::idVector({1, 2, 7});
    other.setLogicalLength(2);
    EXPECT_TRUE(longer == other);
}

TEST_F(KvVectorEquality, VectorWithoutABlockEqualsNoneAndEmptyOnesOnly) {
    const IdVector empty;
    IdVector emptied = kvtest::idVector({1});
    emptied.setLogicalLength(0);
    const IdVector one = kvtest::idVector({1});
    const WithoutEmptyBlock none;
    const IdVector without;
    const IdVector another;
    EXPECT_TRUE(without == another);
    EXPECT_TRUE(without == empty);
    EXPECT_TRUE(empty == without);
    EXPECT_TRUE(without == emptied);
    EXPECT_TRUE(emptied == without);
    EXPECT_FALSE(without == one);
    EXPECT_FALSE(one == without);
}

TEST_F(KvVectorEquality, IdsAreComparedTheDatabasesWay) {
    const IdVector a = kvtest::idVector({1, 2, 3});
    const IdVector b = kvtest::idVector({1, 5, 3});
    EXPECT_FALSE(a == b);
    kvinmemory::makeEqual(kvtest::id(2), kvtest::id(5));
    EXPECT_TRUE(a == b);
}

TEST_F(KvVectorEquality, NullIdsAreEqual) {
    EXPECT_TRUE(kvtest::idVector({0}) == kvtest::idVector({0}));
    EXPECT_FALSE(kvtest::idVector({0}) == kvtest::idVector({1}));
}

TEST_F(KvVectorEquality, ComparingLeavesBlocksShared) {
    const IdVector vector = kvtest::idVector({1, 2});
    const IdVector copy(vector);
    static_cast<void>(vector == copy);
    static_cast<void>(vector == kvtest::idVector({1, 2}));
    EXPECT_EQ(shares(vector), 2u);
}

} // namespace
