#include "selectcontext/GxapSelectedEntInfo.h"

#include "tests/selectcontext/support/RecordTestSupport.h"
#include "tests/support/Thrown.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>

namespace {

using kvtest::AllocationCount;
using kvtest::fence;
using kvtest::matrixWith;

class EntInfo : public kvtest::SetTest {};

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// The block of an info: two bytes for the capacity, two bytes for the size, and then the fields (`payload`).
// The fields are pointers at misaligned addresses.
struct BlockImage {
    std::uint16_t capacity;
    std::uint16_t size;
    const unsigned char* payload;

    const void* pointerAt(std::size_t offset) const {
        const void* pointer = nullptr;
        std::memcpy(&pointer, payload + offset, sizeof(pointer));
        return pointer;
    }
};

BlockImage imageOf(const GxapSelectedEntInfo& info) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(info.elasticData);
    BlockImage image{0, 0, bytes + 4};
    std::memcpy(&image.capacity, bytes, sizeof(image.capacity));
    std::memcpy(&image.size, bytes + 2, sizeof(image.size));
    return image;
}

void setCapacity(GxapSelectedEntInfo& info, std::uint16_t capacity) {
    std::memcpy(info.elasticData, &capacity, sizeof(capacity));
}

// Allocates a block without fields for `info`. The block has this capacity. `info` must not have a block yet.
void giveRoomyBlock(GxapSelectedEntInfo& info, std::uint16_t capacity) {
    info.elasticData = static_cast<GxDbElasticData*>(_kvMalloc(4u + capacity));
    std::memset(static_cast<void*>(info.elasticData), 0, 4);
    setCapacity(info, capacity);
}

// Gives an info the fence result `first`, and then `second`. Returns the result that is kept.
SelFenceIntersectInfo heldAfter(const SelFenceIntersectInfo& first, const SelFenceIntersectInfo& second) {
    GxapSelectedEntInfo info;
    info.setFenceIntersectInfoPtr(new SelFenceIntersectInfo(first));
    info.setSelFenceResultInfo(second);
    SelFenceIntersectInfo held{};
    EXPECT_TRUE(info.getSelFenceResultInfo(held));
    return held;
}

} // namespace

// ---- tables and defaults

TEST_F(EntInfo, OffsetTableHoldsTheOffsetsByPrecedingPresenceBits) {
    EXPECT_EQ(GxapSelectedEntInfo::smEDataOffsetTable[0], 0);
    EXPECT_EQ(GxapSelectedEntInfo::smEDataOffsetTable[1], 8);
    EXPECT_EQ(GxapSelectedEntInfo::smEDataOffsetTable[2], 8);
    EXPECT_EQ(GxapSelectedEntInfo::smEDataOffsetTable[3], 16);
}

TEST_F(EntInfo, SizeTableHoldsTwoPointerSizes) {
    EXPECT_EQ(GxapSelectedEntInfo::smEDataTypeSizeTable[0], 8);
    EXPECT_EQ(GxapSelectedEntInfo::smEDataTypeSizeTable[1], 8);
}

TEST_F(EntInfo, DefaultsOfBothFieldsAreNull) {
    EXPECT_EQ(GxapSelectedEntInfo::FenceIntersectInfoPtrDefVal, nullptr);
    EXPECT_EQ(GxapSelectedEntInfo::CompoundTransformBTROffsetPtrDefVal, nullptr);
}

// ---- a fresh info

TEST_F(EntInfo, FreshInfoHasItsInitialWords) {
    const GxapSelectedEntInfo info;
    EXPECT_EQ(info.word0, 0u);
    EXPECT_EQ(info.word1, 0u);
    EXPECT_EQ(info.halfWord, -1);
    EXPECT_EQ(info.presenceBits, 0u);
    EXPECT_EQ(info.elasticData, nullptr);
}

TEST_F(EntInfo, FreshInfoAllocatesNothing) {
    const AllocationCount before;
    const GxapSelectedEntInfo info;
    EXPECT_EQ(before.mallocCalls(), 0);
    EXPECT_EQ(before.newCalls(), 0);
}

TEST_F(EntInfo, FreshInfoSharesTheEmptyVectorBlock) {
    const auto before = gpEmptyVectorData->refCount.load();
    {
        const GxapSelectedEntInfo info;
        EXPECT_EQ(info.pointArray.data.block, gpEmptyVectorData);
        EXPECT_EQ(gpEmptyVectorData->refCount.load(), before + 1);
    }
    EXPECT_EQ(gpEmptyVectorData->refCount.load(), before);
}

TEST_F(EntInfo, WithoutAnEmptyVectorBlockTheFreshPointArrayIsNull) {
    const kvtest::WithoutEmptyBlock withoutEmptyBlock;
    const GxapSelectedEntInfo info;
    EXPECT_EQ(info.pointArray.data.block, nullptr);
    const GxapSelectedEntInfo copy(info);
    EXPECT_EQ(copy.pointArray.data.block, nullptr);
}

TEST_F(EntInfo, FreshInfoHoldsNeitherFenceResultNorMatrix) {
    const GxapSelectedEntInfo info;
    EXPECT_EQ(info.getFenceInfoPtr(), nullptr);
    EXPECT_EQ(info.getBTRMatPtr(), nullptr);
}

TEST_F(EntInfo, AbsentFenceResultIsReadFromItsDefault) {
    GxapSelectedEntInfo info;
    EXPECT_EQ(info.getFenceIntersectInfoPtr(), &GxapSelectedEntInfo::FenceIntersectInfoPtrDefVal);
    const GxapSelectedEntInfo& constInfo = info;
    EXPECT_EQ(constInfo.getFenceIntersectInfoPtr(), &GxapSelectedEntInfo::FenceIntersectInfoPtrDefVal);
}

TEST_F(EntInfo, AbsentMatrixIsReadFromItsDefault) {
    GxapSelectedEntInfo info;
    EXPECT_EQ(info.getCompoundTransformBTROffsetPtr(),
              &GxapSelectedEntInfo::CompoundTransformBTROffsetPtrDefVal);
    const GxapSelectedEntInfo& constInfo = info;
    EXPECT_EQ(constInfo.getCompoundTransformBTROffsetPtr(),
              &GxapSelectedEntInfo::CompoundTransformBTROffsetPtrDefVal);
}

TEST_F(EntInfo, AbsentFieldBesideAPresentOneIsReadFromItsDefault) {
    GxapSelectedEntInfo withFence;
    withFence.setSelFenceResultInfo(fence(1, 0.5));
    EXPECT_EQ(withFence.getCompoundTransformBTROffsetPtr(),
              &GxapSelectedEntInfo::CompoundTransformBTROffsetPtrDefVal);
    GxapSelectedEntInfo withMatrix;
    withMatrix.setCompoundTransformWithBTROffset(matrixWith(2));
    EXPECT_EQ(withMatrix.getFenceIntersectInfoPtr(), &GxapSelectedEntInfo::FenceIntersectInfoPtrDefVal);
}

TEST_F(EntInfo, AbsentFenceResultLeavesTheOutputAlone) {
    const GxapSelectedEntInfo info;
    SelFenceIntersectInfo out = fence(77, 1.5);
    EXPECT_FALSE(info.getSelFenceResultInfo(out));
    EXPECT_EQ(out.index, 77);
    EXPECT_EQ(out.param, 1.5);
}

TEST_F(EntInfo, AbsentMatrixReadsAsTheIdentity) {
    const GxapSelectedEntInfo info;
    GxGeMatrix3d out = matrixWith(42);
    EXPECT_FALSE(info.getCompoundTransformWithBTROffset(out));
    EXPECT_TRUE(kvtest::isIdentity(out));
}

// ---- the compact block

TEST_F(EntInfo, StoredFenceResultLiesAtPayloadOffsetZero) {
    GxapSelectedEntInfo info;
    auto* stored = new SelFenceIntersectInfo(fence(1, 0.5));
    info.setFenceIntersectInfoPtr(stored);
    EXPECT_EQ(info.presenceBits, 1u);
    const BlockImage block = imageOf(info);
    EXPECT_EQ(block.capacity, 8);
    EXPECT_EQ(block.size, 8);
    EXPECT_EQ(block.pointerAt(0), stored);
    EXPECT_EQ(static_cast<void*>(info.getFenceIntersectInfoPtr()), block.payload);
    EXPECT_EQ(info.getFenceInfoPtr(), stored);
}

TEST_F(EntInfo, StoredMatrixAloneLiesAtPayloadOffsetZero) {
    GxapSelectedEntInfo info;
    auto* stored = new GxGeMatrix3d;
    info.setCompoundTransformBTROffsetPtr(stored);
    EXPECT_EQ(info.presenceBits, 2u);
    const BlockImage block = imageOf(info);
    EXPECT_EQ(block.capacity, 8);
    EXPECT_EQ(block.size, 8);
    EXPECT_EQ(block.pointerAt(0), stored);
    EXPECT_EQ(static_cast<void*>(info.getCompoundTransformBTROffsetPtr()), block.payload);
    EXPECT_EQ(info.getBTRMatPtr(), stored);
}

TEST_F(EntInfo, MatrixStoredAfterAFenceResultLiesBehindIt) {
    GxapSelectedEntInfo info;
    auto* storedFence = new SelFenceIntersectInfo(fence(1, 0.5));
    auto* storedMatrix = new GxGeMatrix3d;
    info.setFenceIntersectInfoPtr(storedFence);
    info.setCompoundTransformBTROffsetPtr(storedMatrix);
    EXPECT_EQ(info.presenceBits, 3u);
    const BlockImage block = imageOf(info);
    EXPECT_EQ(block.capacity, 16);
    EXPECT_EQ(block.size, 16);
    EXPECT_EQ(block.pointerAt(0), storedFence);
    EXPECT_EQ(block.pointerAt(8), storedMatrix);
    EXPECT_EQ(info.getFenceInfoPtr(), storedFence);
    EXPECT_EQ(info.getBTRMatPtr(), storedMatrix);
}

TEST_F(EntInfo, FenceResultStoredAfterAMatrixShiftsTheMatrix) {
    GxapSelectedEntInfo info;
    auto* storedMatrix = new GxGeMatrix3d;
    auto* storedFence = new SelFenceIntersectInfo(fence(1, 0.5));
    info.setCompoundTransformBTROffsetPtr(storedMatrix);
    info.setFenceIntersectInfoPtr(storedFence);
    EXPECT_EQ(info.presenceBits, 3u);
    const BlockImage block = imageOf(info);
    EXPECT_EQ(block.size, 16);
    EXPECT_EQ(block.pointerAt(0), storedFence);
    EXPECT_EQ(block.pointerAt(8), storedMatrix);
    EXPECT_EQ(static_cast<void*>(info.getCompoundTransformBTROffsetPtr()), block.payload + 8);
}

TEST_F(EntInfo, ConstGettersDesignateTheSamePayload) {
    GxapSelectedEntInfo info;
    info.setSelFenceResultInfo(fence(1, 0.5));
    info.setCompoundTransformWithBTROffset(matrixWith(2));
    const GxapSelectedEntInfo& constInfo = info;
    EXPECT_EQ(constInfo.getFenceIntersectInfoPtr(), info.getFenceIntersectInfoPtr());
    EXPECT_EQ(constInfo.getCompoundTransformBTROffsetPtr(), info.getCompoundTransformBTROffsetPtr());
}

TEST_F(EntInfo, BlockComesFromTheApplicationsAllocatorInExactSizes) {
    GxapSelectedEntInfo info;
    info.setFenceIntersectInfoPtr(new SelFenceIntersectInfo(fence(1, 0.5)));
    EXPECT_EQ(kvinmemory::liveBlocksOfSize(4 + 8), 1);
    info.setCompoundTransformBTROffsetPtr(new GxGeMatrix3d);
    EXPECT_EQ(kvinmemory::liveBlocksOfSize(4 + 8), 0);
    EXPECT_EQ(kvinmemory::liveBlocksOfSize(4 + 16), 1);
    info.ReleaseFenceInfoPtr();
    EXPECT_EQ(kvinmemory::liveBlocksOfSize(4 + 8), 1);
    EXPECT_EQ(kvinmemory::liveBlocksOfSize(4 + 16), 0);
}

TEST_F(EntInfo, StoringOverAPresentPointerOverwritesInPlace) {
    GxapSelectedEntInfo info;
    auto* first = new SelFenceIntersectInfo(fence(1, 0.5));
    auto* second = new SelFenceIntersectInfo(fence(9, 0.5));
    info.setFenceIntersectInfoPtr(first);
    info.setCompoundTransformBTROffsetPtr(new GxGeMatrix3d);
    GxDbElasticData* const block = info.elasticData;
    info.setFenceIntersectInfoPtr(second);
    EXPECT_EQ(info.elasticData, block);
    EXPECT_EQ(info.presenceBits, 3u);
    EXPECT_EQ(imageOf(info).size, 16);
    EXPECT_EQ(info.getFenceInfoPtr(), second);
    delete first; // setFenceIntersectInfoPtr() does not delete the old object
}

TEST_F(EntInfo, StoringAMatrixOverAPresentOneOverwritesInPlace) {
    GxapSelectedEntInfo info;
    auto* first = new GxGeMatrix3d;
    auto* second = new GxGeMatrix3d;
    info.setFenceIntersectInfoPtr(new SelFenceIntersectInfo(fence(1, 0.5)));
    info.setCompoundTransformBTROffsetPtr(first);
    info.setCompoundTransformBTROffsetPtr(second);
    EXPECT_EQ(imageOf(info).size, 16);
    EXPECT_EQ(info.getBTRMatPtr(), second);
    EXPECT_EQ(info.getFenceInfoPtr()->index, 1);
    delete first;
}

TEST_F(EntInfo, StoringNullIntoAnAbsentFieldChangesNothing) {
    GxapSelectedEntInfo info;
    const AllocationCount before;
    info.setFenceIntersectInfoPtr(nullptr);
    info.setCompoundTransformBTROffsetPtr(nullptr);
    EXPECT_EQ(info.presenceBits, 0u);
    EXPECT_EQ(info.elasticData, nullptr);
    EXPECT_EQ(before.mallocCalls(), 0);
}

TEST_F(EntInfo, StoringNullRemovesTheFieldWithoutDeletingWhatItHeld) {
    GxapSelectedEntInfo info;
    auto* storedFence = new SelFenceIntersectInfo(fence(1, 0.5));
    auto* storedMatrix = new GxGeMatrix3d;
    info.setFenceIntersectInfoPtr(storedFence);
    info.setCompoundTransformBTROffsetPtr(storedMatrix);
    info.setFenceIntersectInfoPtr(nullptr);
    EXPECT_EQ(info.presenceBits, 2u);
    EXPECT_EQ(info.getFenceInfoPtr(), nullptr);
    info.setCompoundTransformBTROffsetPtr(nullptr);
    EXPECT_EQ(info.presenceBits, 0u);
    EXPECT_EQ(info.getBTRMatPtr(), nullptr);
    EXPECT_EQ(storedFence->index, 1);
    delete storedFence;
    delete storedMatrix;
}

TEST_F(EntInfo, RemovingTheMatrixCompactsTheBlockToTheFenceResult) {
    GxapSelectedEntInfo info;
    info.setCompoundTransformWithBTROffset(matrixWith(2));
    info.setSelFenceResultInfo(fence(1, 0.5));
    info.ReleaseBTRMatPtr();
    EXPECT_EQ(info.presenceBits, 1u);
    const BlockImage block = imageOf(info);
    EXPECT_EQ(block.capacity, 8);
    EXPECT_EQ(block.size, 8);
    EXPECT_EQ(block.pointerAt(0), info.getFenceInfoPtr());
    EXPECT_EQ(info.getFenceInfoPtr()->index, 1);
    EXPECT_EQ(info.getBTRMatPtr(), nullptr);
}

TEST_F(EntInfo, RemovingTheFenceResultMovesTheMatrixDown) {
    GxapSelectedEntInfo info;
    info.setSelFenceResultInfo(fence(1, 0.5));
    info.setCompoundTransformWithBTROffset(matrixWith(2));
    const GxGeMatrix3d* const matrix = info.getBTRMatPtr();
    info.ReleaseFenceInfoPtr();
    EXPECT_EQ(info.presenceBits, 2u);
    const BlockImage block = imageOf(info);
    EXPECT_EQ(block.capacity, 8);
    EXPECT_EQ(block.size, 8);
    EXPECT_EQ(block.pointerAt(0), matrix);
    EXPECT_EQ(info.getBTRMatPtr(), matrix);
    EXPECT_EQ(info.getFenceInfoPtr(), nullptr);
}

TEST_F(EntInfo, RemovingTheLastFieldKeepsTheEmptyBlock) {
    GxapSelectedEntInfo info;
    info.setSelFenceResultInfo(fence(1, 0.5));
    GxDbElasticData* const block = info.elasticData;
    info.ReleaseFenceInfoPtr();
    EXPECT_EQ(info.elasticData, block);
    EXPECT_EQ(imageOf(info).capacity, 8);
    EXPECT_EQ(imageOf(info).size, 0);
    EXPECT_EQ(info.presenceBits, 0u);
}

TEST_F(EntInfo, KeptEmptyBlockIsUsedAgain) {
    GxapSelectedEntInfo info;
    info.setSelFenceResultInfo(fence(1, 0.5));
    info.ReleaseFenceInfoPtr();
    GxDbElasticData* const block = info.elasticData;
    const AllocationCount before;
    info.setCompoundTransformWithBTROffset(matrixWith(3));
    EXPECT_EQ(before.mallocCalls(), 0);
    EXPECT_EQ(info.elasticData, block);
    EXPECT_EQ(imageOf(info).size, 8);
    EXPECT_EQ(info.getBTRMatPtr()->entry[0][0], 3);
}

TEST_F(EntInfo, EmptiedBlockGrowsByExactlyWhatIsMissing) {
    GxapSelectedEntInfo info;
    info.setSelFenceResultInfo(fence(1, 0.5));
    info.ReleaseFenceInfoPtr();
    info.setCompoundTransformWithBTROffset(matrixWith(3));
    info.setSelFenceResultInfo(fence(2, 0.5));
    const BlockImage block = imageOf(info);
    EXPECT_EQ(block.capacity, 16);
    EXPECT_EQ(block.size, 16);
    EXPECT_EQ(info.getFenceInfoPtr()->index, 2);
    EXPECT_EQ(info.getBTRMatPtr()->entry[0][0], 3);
}

TEST_F(EntInfo, RoomInTheBlockIsUsedBeforeItGrows) {
    GxapSelectedEntInfo info;
    giveRoomyBlock(info, 24);
    GxDbElasticData* const block = info.elasticData;
    info.setCompoundTransformWithBTROffset(matrixWith(3));
    info.setSelFenceResultInfo(fence(2, 0.5));
    EXPECT_EQ(info.elasticData, block);
    EXPECT_EQ(imageOf(info).capacity, 24);
    EXPECT_EQ(imageOf(info).size, 16);
    EXPECT_EQ(info.getFenceInfoPtr()->index, 2);
    EXPECT_EQ(info.getBTRMatPtr()->entry[0][0], 3);
}

TEST_F(EntInfo, BlockThatIsAlreadyExactIsNotReallocatedByCompaction) {
    GxapSelectedEntInfo info;
    info.setSelFenceResultInfo(fence(1, 0.5));
    info.setCompoundTransformWithBTROffset(matrixWith(2));
    setCapacity(info, 8); // as if the block had been made for one field
    GxDbElasticData* const block = info.elasticData;
    const AllocationCount before;
    info.ReleaseFenceInfoPtr();
    EXPECT_EQ(before.mallocCalls(), 0);
    EXPECT_EQ(info.elasticData, block);
    EXPECT_EQ(info.getBTRMatPtr()->entry[0][0], 2);
}

TEST_F(EntInfo, FieldThatWouldLieBehindTheBlockIsNotStored) {
    GxapSelectedEntInfo info;
    info.presenceBits = 1; // the block does not have the fence result that comes before the matrix
    info.setCompoundTransformWithBTROffset(matrixWith(2));
    EXPECT_EQ(info.presenceBits, 1u);
    EXPECT_EQ(info.elasticData, nullptr);
    info.presenceBits = 0;
}

TEST_F(EntInfo, FieldThatTheBlockLacksIsNotOverwritten) {
    GxapSelectedEntInfo info;
    info.setSelFenceResultInfo(fence(1, 0.5));
    info.presenceBits = 3; // the block does not have a matrix
    info.setCompoundTransformWithBTROffset(matrixWith(2));
    EXPECT_EQ(imageOf(info).size, 8);
    EXPECT_EQ(info.getCompoundTransformBTROffsetPtr(), nullptr);
    info.presenceBits = 1;
}

TEST_F(EntInfo, StoringNullIntoAFieldThatTheBlockLacksClearsItsBit) {
    GxapSelectedEntInfo info;
    info.presenceBits = 1;
    info.setFenceIntersectInfoPtr(nullptr);
    EXPECT_EQ(info.presenceBits, 0u);
    EXPECT_EQ(info.elasticData, nullptr);
}

TEST_F(EntInfo, BlockThatCannotHaveALargerCapacityStaysAsItIs) {
    GxapSelectedEntInfo info;
    giveRoomyBlock(info, 65535);
    const std::uint16_t size = 65530;
    std::memcpy(reinterpret_cast<unsigned char*>(info.elasticData) + 2, &size, sizeof(size));
    GxDbElasticData* const block = info.elasticData;
    kvtest::expectStatus([&] { info.setSelFenceResultInfo(fence(1, 0.5)); }, 6);
    EXPECT_EQ(info.elasticData, block);
    EXPECT_EQ(info.presenceBits, 0u);
}

TEST_F(EntInfo, PresenceBitWithoutABlockDesignatesNothing) {
    GxapSelectedEntInfo info;
    info.presenceBits = 3;
    EXPECT_EQ(info.getFenceIntersectInfoPtr(), nullptr);
    EXPECT_EQ(info.getCompoundTransformBTROffsetPtr(), nullptr);
    info.presenceBits = 0;
}

TEST_F(EntInfo, PresenceBitOverATooShortBlockDesignatesNothing) {
    GxapSelectedEntInfo info;
    info.setSelFenceResultInfo(fence(1, 0.5));
    info.presenceBits = 3;
    EXPECT_NE(info.getFenceIntersectInfoPtr(), nullptr);
    EXPECT_EQ(info.getCompoundTransformBTROffsetPtr(), nullptr);
    info.presenceBits = 1;
}

TEST_F(EntInfo, PresenceBitOverAnEmptyBlockDesignatesNothing) {
    GxapSelectedEntInfo info;
    info.setSelFenceResultInfo(fence(1, 0.5));
    info.ReleaseFenceInfoPtr();
    info.presenceBits = 1;
    EXPECT_EQ(info.getFenceIntersectInfoPtr(), nullptr);
    info.presenceBits = 2;
    EXPECT_EQ(info.getCompoundTransformBTROffsetPtr(), nullptr);
    info.presenceBits = 0;
}

TEST_F(EntInfo, InconsistentInfoReadsAsHoldingNothingAndDiesQuietly) {
    GxapSelectedEntInfo info;
    info.presenceBits = 3;
    SelFenceIntersectInfo out = fence(5, 5);
    GxGeMatrix3d matrix = matrixWith(5);
    EXPECT_EQ(info.getFenceInfoPtr(), nullptr);
    EXPECT_EQ(info.getBTRMatPtr(), nullptr);
    EXPECT_FALSE(info.getSelFenceResultInfo(out));
    EXPECT_FALSE(info.getCompoundTransformWithBTROffset(matrix));
}

// ---- the fence result

TEST_F(EntInfo, FirstFenceResultIsStoredAsACopy) {
    GxapSelectedEntInfo info;
    const SelFenceIntersectInfo given = fence(2, 0.5);
    info.setSelFenceResultInfo(given);
    EXPECT_NE(info.getFenceInfoPtr(), &given);
    EXPECT_EQ(info.getFenceInfoPtr()->index, 2);
    EXPECT_EQ(info.getFenceInfoPtr()->param, 0.5);
}

TEST_F(EntInfo, FenceResultIsCopiedAsTwoWholeWords) {
    SelFenceIntersectInfo given = fence(2, 0.5);
    given.reserved = 0x5EED;
    GxapSelectedEntInfo info;
    info.setSelFenceResultInfo(given);
    SelFenceIntersectInfo out{};
    ASSERT_TRUE(info.getSelFenceResultInfo(out));
    EXPECT_EQ(std::memcmp(&out, &given, sizeof(out)), 0);
}

TEST_F(EntInfo, EarlierResultReplacesAsTwoWholeWords) {
    SelFenceIntersectInfo earlier = fence(1, 0.5);
    earlier.reserved = 0x5EED;
    const SelFenceIntersectInfo held = heldAfter(fence(2, 0.5), earlier);
    EXPECT_EQ(std::memcmp(&held, &earlier, sizeof(held)), 0);
}

TEST_F(EntInfo, FenceResultIsReplacedInItsOwnPlace) {
    GxapSelectedEntInfo info;
    info.setSelFenceResultInfo(fence(2, 0.5));
    const SelFenceIntersectInfo* const held = info.getFenceInfoPtr();
    info.setSelFenceResultInfo(fence(1, 0.5));
    EXPECT_EQ(info.getFenceInfoPtr(), held);
    EXPECT_EQ(held->index, 1);
}

TEST_F(EntInfo, FenceResultKeepsTheEarliestCrossing) {
    GxapSelectedEntInfo info;
    info.setSelFenceResultInfo(fence(2, 0.5));
    info.setSelFenceResultInfo(fence(3, 0.1));
    EXPECT_EQ(info.getFenceInfoPtr()->index, 2);
    EXPECT_EQ(info.getFenceInfoPtr()->param, 0.5);
    info.setSelFenceResultInfo(fence(2, 0.25));
    EXPECT_EQ(info.getFenceInfoPtr()->param, 0.25);
    info.setSelFenceResultInfo(fence(-1, 0.0));
    EXPECT_EQ(info.getFenceInfoPtr()->index, 2);
    EXPECT_EQ(info.getFenceInfoPtr()->param, 0.25);
}

TEST_F(EntInfo, NegativeIndexIsNoResult) {
    GxapSelectedEntInfo info;
    info.setSelFenceResultInfo(fence(-1, 0.0));
    info.setSelFenceResultInfo(fence(std::numeric_limits<std::int32_t>::min(), 0.0));
    EXPECT_EQ(info.getFenceInfoPtr(), nullptr);
    EXPECT_EQ(info.presenceBits, 0u);
    EXPECT_EQ(info.elasticData, nullptr);
}

TEST_F(EntInfo, IndexZeroIsAResult) {
    GxapSelectedEntInfo info;
    info.setSelFenceResultInfo(fence(0, 0.0));
    ASSERT_NE(info.getFenceInfoPtr(), nullptr);
    EXPECT_EQ(info.getFenceInfoPtr()->index, 0);
}

TEST_F(EntInfo, UnsetHeldResultIsReplacedByAny) {
    EXPECT_EQ(heldAfter(fence(-1, 0.0), fence(1000, 9.0)).index, 1000);
}

TEST_F(EntInfo, HeldResultBelowUnsetStays) {
    EXPECT_EQ(heldAfter(fence(-2, 0.0), fence(1, 0.0)).index, -2);
}

TEST_F(EntInfo, SmallerIndexReplacesWhateverItsParameter) {
    const SelFenceIntersectInfo held = heldAfter(fence(2, 0.1), fence(1, 0.9));
    EXPECT_EQ(held.index, 1);
    EXPECT_EQ(held.param, 0.9);
}

TEST_F(EntInfo, EqualIndexWithLargerOrEqualParameterStays) {
    EXPECT_EQ(heldAfter(fence(2, 0.5), fence(2, 0.75)).param, 0.5);
    SelFenceIntersectInfo equal = fence(2, 0.5);
    equal.reserved = 1;
    EXPECT_EQ(heldAfter(fence(2, 0.5), equal).reserved, 0);
}

TEST_F(EntInfo, ComparisonWithNotANumberKeepsTheHeldResult) {
    EXPECT_EQ(heldAfter(fence(2, 0.5), fence(2, kNaN)).param, 0.5);
    EXPECT_TRUE(std::isnan(heldAfter(fence(2, kNaN), fence(2, 0.5)).param));
}

TEST_F(EntInfo, SmallerIndexReplacesAlsoANotANumber) {
    EXPECT_EQ(heldAfter(fence(2, kNaN), fence(1, 0.5)).param, 0.5);
}

TEST_F(EntInfo, SettingTheFenceByPointerCopiesTheValue) {
    GxapSelectedEntInfo info;
    SelFenceIntersectInfo given = fence(2, 0.5);
    info.setFenceInfoPtr(&given);
    given.index = 99;
    ASSERT_NE(info.getFenceInfoPtr(), nullptr);
    EXPECT_NE(info.getFenceInfoPtr(), &given);
    EXPECT_EQ(info.getFenceInfoPtr()->index, 2);
}

TEST_F(EntInfo, SettingTheFenceByPointerKeepsTheEarliestToo) {
    GxapSelectedEntInfo info;
    const SelFenceIntersectInfo first = fence(2, 0.5);
    const SelFenceIntersectInfo later = fence(3, 0.5);
    const SelFenceIntersectInfo none = fence(-1, 0.5);
    info.setFenceInfoPtr(&first);
    info.setFenceInfoPtr(&later);
    info.setFenceInfoPtr(&none);
    EXPECT_EQ(info.getFenceInfoPtr()->index, 2);
}

TEST_F(EntInfo, SettingANullFencePointerReleasesTheResult) {
    GxapSelectedEntInfo info;
    info.setSelFenceResultInfo(fence(2, 0.5));
    info.setFenceInfoPtr(nullptr);
    EXPECT_EQ(info.getFenceInfoPtr(), nullptr);
    EXPECT_EQ(info.presenceBits, 0u);
}

TEST_F(EntInfo, SettingItsOwnFencePointerChangesNothing) {
    GxapSelectedEntInfo info;
    info.setSelFenceResultInfo(fence(2, 0.5));
    info.setFenceInfoPtr(info.getFenceInfoPtr());
    EXPECT_EQ(info.getFenceInfoPtr()->index, 2);
    EXPECT_EQ(info.getFenceInfoPtr()->param, 0.5);
}

TEST_F(EntInfo, ReleasingTheFenceResultDeletesIt) {
    GxapSelectedEntInfo info;
    const AllocationCount before;
    info.setSelFenceResultInfo(fence(2, 0.5));
    EXPECT_EQ(before.liveNew(), 1);
    info.ReleaseFenceInfoPtr();
    EXPECT_EQ(before.liveNew(), 0);
    EXPECT_EQ(info.getFenceInfoPtr(), nullptr);
}

TEST_F(EntInfo, ReleasingAnAbsentFenceResultDoesNothing) {
    GxapSelectedEntInfo info;
    info.setCompoundTransformWithBTROffset(matrixWith(2));
    info.ReleaseFenceInfoPtr();
    EXPECT_EQ(info.presenceBits, 2u);
    EXPECT_EQ(info.getBTRMatPtr()->entry[0][0], 2);
}

// ---- the matrix

TEST_F(EntInfo, MatrixIsStoredAsACopyOfAllItsValues) {
    GxapSelectedEntInfo info;
    const GxGeMatrix3d given = matrixWith(10);
    info.setCompoundTransformWithBTROffset(given);
    ASSERT_NE(info.getBTRMatPtr(), nullptr);
    EXPECT_NE(info.getBTRMatPtr(), &given);
    EXPECT_TRUE(kvtest::sameEntries(*info.getBTRMatPtr(), given));
}

TEST_F(EntInfo, HeldMatrixIsReadBackWhole) {
    GxapSelectedEntInfo info;
    info.setCompoundTransformWithBTROffset(matrixWith(10));
    GxGeMatrix3d out = matrixWith(99);
    EXPECT_TRUE(info.getCompoundTransformWithBTROffset(out));
    EXPECT_TRUE(kvtest::sameEntries(out, matrixWith(10)));
}

TEST_F(EntInfo, HeldMatrixIsOverwrittenInItsOwnPlace) {
    GxapSelectedEntInfo info;
    info.setCompoundTransformWithBTROffset(matrixWith(10));
    const GxGeMatrix3d* const held = info.getBTRMatPtr();
    info.setCompoundTransformWithBTROffset(matrixWith(20));
    EXPECT_EQ(info.getBTRMatPtr(), held);
    EXPECT_TRUE(kvtest::sameEntries(*held, matrixWith(20)));
}

TEST_F(EntInfo, IdentityMatrixIsStoredLikeAnyOther) {
    GxapSelectedEntInfo info;
    const GxGeMatrix3d identity;
    info.setCompoundTransformWithBTROffset(identity);
    ASSERT_NE(info.getBTRMatPtr(), nullptr);
    GxGeMatrix3d out = matrixWith(1);
    EXPECT_TRUE(info.getCompoundTransformWithBTROffset(out));
    EXPECT_TRUE(kvtest::isIdentity(out));
}

TEST_F(EntInfo, SettingAMatrixComparesNothing) {
    GxapSelectedEntInfo info;
    info.setCompoundTransformWithBTROffset(matrixWith(1));
    info.setCompoundTransformWithBTROffset(matrixWith(1));
    EXPECT_TRUE(kvinmemory::matrixComparisons().empty());
}

TEST_F(EntInfo, SettingTheMatrixByPointerCopiesTheValue) {
    GxapSelectedEntInfo info;
    GxGeMatrix3d given = matrixWith(10);
    info.setBTRMatPtr(&given);
    given.entry[0][0] = -1;
    ASSERT_NE(info.getBTRMatPtr(), nullptr);
    EXPECT_NE(info.getBTRMatPtr(), &given);
    EXPECT_EQ(info.getBTRMatPtr()->entry[0][0], 10);
}

TEST_F(EntInfo, SettingItsOwnMatrixPointerChangesNothing) {
    GxapSelectedEntInfo info;
    info.setCompoundTransformWithBTROffset(matrixWith(10));
    info.setBTRMatPtr(info.getBTRMatPtr());
    EXPECT_TRUE(kvtest::sameEntries(*info.getBTRMatPtr(), matrixWith(10)));
}

TEST_F(EntInfo, SettingANullMatrixPointerReleasesTheMatrix) {
    GxapSelectedEntInfo info;
    info.setCompoundTransformWithBTROffset(matrixWith(10));
    info.setBTRMatPtr(nullptr);
    EXPECT_EQ(info.getBTRMatPtr(), nullptr);
    EXPECT_EQ(info.presenceBits, 0u);
}

TEST_F(EntInfo, ReleasingTheMatrixDeletesIt) {
    GxapSelectedEntInfo info;
    const AllocationCount before;
    info.setCompoundTransformWithBTROffset(matrixWith(10));
    EXPECT_EQ(before.liveNew(), 1);
    info.ReleaseBTRMatPtr();
    EXPECT_EQ(before.liveNew(), 0);
}

TEST_F(EntInfo, ReleasingAnAbsentMatrixDoesNothing) {
    GxapSelectedEntInfo info;
    info.setSelFenceResultInfo(fence(2, 0.5));
    info.ReleaseBTRMatPtr();
    EXPECT_EQ(info.presenceBits, 1u);
    EXPECT_EQ(info.getFenceInfoPtr()->index, 2);
}

// ---- copies

TEST_F(EntInfo, CopyTakesTheWords) {
    GxapSelectedEntInfo source;
    source.word0 = 6;
    source.word1 = 0xFFFFFFFFu;
    source.halfWord = 12;
    const GxapSelectedEntInfo copy(source);
    EXPECT_EQ(copy.word0, 6u);
    EXPECT_EQ(copy.word1, 0xFFFFFFFFu);
    EXPECT_EQ(copy.halfWord, 12);
}

TEST_F(EntInfo, CopySharesThePoints) {
    GxapSelectedEntInfo source;
    source.pointArray.setLogicalLength(3);
    {
        const GxapSelectedEntInfo copy(source);
        EXPECT_EQ(copy.pointArray.data.block, source.pointArray.data.block);
        EXPECT_EQ(source.pointArray.data.block->refCount.load(), 2u);
    }
    EXPECT_EQ(source.pointArray.data.block->refCount.load(), 1u);
}

TEST_F(EntInfo, CopyOfABareInfoHasNoBlock) {
    const GxapSelectedEntInfo source;
    const GxapSelectedEntInfo copy(source);
    EXPECT_EQ(copy.presenceBits, 0u);
    EXPECT_EQ(copy.elasticData, nullptr);
}

TEST_F(EntInfo, CopyOwnsItsOwnFenceResultAndMatrix) {
    GxapSelectedEntInfo source;
    source.setSelFenceResultInfo(fence(2, 0.5));
    source.setCompoundTransformWithBTROffset(matrixWith(10));
    const GxapSelectedEntInfo copy(source);
    EXPECT_EQ(copy.presenceBits, 3u);
    EXPECT_NE(copy.elasticData, source.elasticData);
    ASSERT_NE(copy.getFenceInfoPtr(), nullptr);
    EXPECT_NE(copy.getFenceInfoPtr(), source.getFenceInfoPtr());
    EXPECT_EQ(copy.getFenceInfoPtr()->index, 2);
    EXPECT_EQ(copy.getFenceInfoPtr()->param, 0.5);
    ASSERT_NE(copy.getBTRMatPtr(), nullptr);
    EXPECT_NE(copy.getBTRMatPtr(), source.getBTRMatPtr());
    EXPECT_TRUE(kvtest::sameEntries(*copy.getBTRMatPtr(), matrixWith(10)));
}

TEST_F(EntInfo, ChangingTheCopysMatrixLeavesTheSource) {
    GxapSelectedEntInfo source;
    source.setCompoundTransformWithBTROffset(matrixWith(10));
    GxapSelectedEntInfo copy(source);
    copy.setCompoundTransformWithBTROffset(matrixWith(20));
    EXPECT_TRUE(kvtest::sameEntries(*source.getBTRMatPtr(), matrixWith(10)));
}

TEST_F(EntInfo, CopyDropsAFenceResultWithoutIndex) {
    GxapSelectedEntInfo source;
    source.setFenceIntersectInfoPtr(new SelFenceIntersectInfo(fence(-1, 0.5)));
    source.setCompoundTransformWithBTROffset(matrixWith(10));
    const GxapSelectedEntInfo copy(source);
    EXPECT_EQ(copy.presenceBits, 2u);
    EXPECT_EQ(copy.getFenceInfoPtr(), nullptr);
    EXPECT_NE(copy.getBTRMatPtr(), nullptr);
}

// ---- assignment

TEST_F(EntInfo, AssignmentTakesTheWordsAndReturnsItsTarget) {
    GxapSelectedEntInfo source;
    source.word0 = 6;
    source.word1 = 7;
    source.halfWord = 8;
    GxapSelectedEntInfo target;
    EXPECT_EQ(&(target = source), &target);
    EXPECT_EQ(target.word0, 6u);
    EXPECT_EQ(target.word1, 7u);
    EXPECT_EQ(target.halfWord, 8);
}

TEST_F(EntInfo, AssignmentSharesThePointsAndReleasesTheOldOnes) {
    GxapSelectedEntInfo source;
    source.pointArray.setLogicalLength(3);
    GxapSelectedEntInfo target;
    target.pointArray.setLogicalLength(5);
    const AllocationCount before;
    target = source;
    EXPECT_EQ(target.pointArray.data.block, source.pointArray.data.block);
    EXPECT_EQ(source.pointArray.data.block->refCount.load(), 2u);
    EXPECT_EQ(before.liveMalloc(), -1) << "the old block is freed";
    EXPECT_EQ(before.liveNew(), -1) << "and so is its storage";
}

TEST_F(EntInfo, AssignmentBetweenSharersOfThePointsKeepsTheirCount) {
    GxapSelectedEntInfo source;
    source.pointArray.setLogicalLength(3);
    GxapSelectedEntInfo target(source);
    target = source;
    EXPECT_EQ(source.pointArray.data.block->refCount.load(), 2u);
}

TEST_F(EntInfo, AssignmentKeepsTheTargetsEarlierFenceResult) {
    GxapSelectedEntInfo source;
    source.setSelFenceResultInfo(fence(5, 0.0));
    GxapSelectedEntInfo target;
    target.setSelFenceResultInfo(fence(1, 0.0));
    target = source;
    EXPECT_EQ(target.getFenceInfoPtr()->index, 1);
}

TEST_F(EntInfo, AssignmentTakesAnEarlierFenceResult) {
    GxapSelectedEntInfo source;
    source.setSelFenceResultInfo(fence(1, 0.25));
    GxapSelectedEntInfo target;
    target.setSelFenceResultInfo(fence(5, 0.0));
    target = source;
    EXPECT_EQ(target.getFenceInfoPtr()->index, 1);
    EXPECT_NE(target.getFenceInfoPtr(), source.getFenceInfoPtr());
}

TEST_F(EntInfo, AssignmentIgnoresAFenceResultWithoutIndex) {
    GxapSelectedEntInfo source;
    source.setFenceIntersectInfoPtr(new SelFenceIntersectInfo(fence(-1, 0.0)));
    GxapSelectedEntInfo target;
    target.setSelFenceResultInfo(fence(5, 0.0));
    target = source;
    EXPECT_EQ(target.getFenceInfoPtr()->index, 5);
}

TEST_F(EntInfo, AssignmentOfAnInfoWithoutExtrasDeletesTheTargets) {
    const GxapSelectedEntInfo source;
    GxapSelectedEntInfo target;
    target.setSelFenceResultInfo(fence(5, 0.0));
    target.setCompoundTransformWithBTROffset(matrixWith(10));
    const AllocationCount before;
    target = source;
    EXPECT_EQ(target.presenceBits, 0u);
    EXPECT_EQ(target.getFenceInfoPtr(), nullptr);
    EXPECT_EQ(target.getBTRMatPtr(), nullptr);
    EXPECT_EQ(before.liveNew(), -2);
}

TEST_F(EntInfo, AssignmentCopiesTheMatrix) {
    GxapSelectedEntInfo source;
    source.setCompoundTransformWithBTROffset(matrixWith(10));
    GxapSelectedEntInfo target;
    target.setCompoundTransformWithBTROffset(matrixWith(20));
    target = source;
    EXPECT_NE(target.getBTRMatPtr(), source.getBTRMatPtr());
    EXPECT_TRUE(kvtest::sameEntries(*target.getBTRMatPtr(), matrixWith(10)));
}

TEST_F(EntInfo, SelfAssignmentChangesNothing) {
    GxapSelectedEntInfo info;
    info.word0 = 6;
    info.pointArray.setLogicalLength(3);
    info.setSelFenceResultInfo(fence(5, 0.5));
    info.setCompoundTransformWithBTROffset(matrixWith(10));
    GxapSelectedEntInfo& alias = info;
    info = alias;
    EXPECT_EQ(info.word0, 6u);
    EXPECT_EQ(info.pointArray.logicalLength(), 3);
    EXPECT_EQ(info.pointArray.data.block->refCount.load(), 1u);
    EXPECT_EQ(info.getFenceInfoPtr()->index, 5);
    EXPECT_TRUE(kvtest::sameEntries(*info.getBTRMatPtr(), matrixWith(10)));
}

// ---- destruction

TEST_F(EntInfo, DestructionFreesEverythingTheInfoOwns) {
    const AllocationCount before;
    {
        GxapSelectedEntInfo info;
        info.pointArray.setLogicalLength(3);
        info.setSelFenceResultInfo(fence(5, 0.5));
        info.setCompoundTransformWithBTROffset(matrixWith(10));
        EXPECT_EQ(before.liveMalloc(), 2) << "the point block and the compact block";
        EXPECT_EQ(before.liveNew(), 3) << "the point storage, the fence result, the matrix";
    }
    EXPECT_EQ(before.liveMalloc(), 0);
    EXPECT_EQ(before.liveNew(), 0);
}

TEST_F(EntInfo, DestructionFreesAnEmptiedBlock) {
    const AllocationCount before;
    {
        GxapSelectedEntInfo info;
        info.setSelFenceResultInfo(fence(5, 0.5));
        info.ReleaseFenceInfoPtr();
        EXPECT_EQ(before.liveMalloc(), 1);
    }
    EXPECT_EQ(before.liveMalloc(), 0);
}

TEST_F(EntInfo, DestructionLeavesSharedPointsToTheirOtherOwner) {
    KvVector<GxGePoint3d> points;
    points.setLogicalLength(3);
    points.at(2).x = 7;
    {
        GxapSelectedEntInfo info;
        info.pointArray = points;
    }
    EXPECT_EQ(points.data.block->refCount.load(), 1u);
    EXPECT_EQ(points.at(2).x, 7);
}
