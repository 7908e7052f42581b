// Destroys records while every allocation fails.
#include "tests/selectcontext/support/FailureTest.h"
#include "tests/selectcontext/support/RecordTestSupport.h"
#include "tests/support/AllocationFailure.h"

#include <gtest/gtest.h>
#include <memory>

namespace {

using kvinmemory::livePaths;
using kvtest::AllocationCount;
using kvtest::giveSegments;
using kvtest::NoMemory;
using kvtest::SegmentArray;

class FailingRecord : public kvtest::FailureTest {};

TEST_F(FailingRecord, RecordIsDestroyedWithoutMemory) {
    const AllocationCount before;
    const std::unique_ptr<GxDbFullSubentPath> path(new GxDbFullSubentPath);
    auto record = std::make_unique<selected_entity>();
    record->nestedEntFullPath = kvtest::idVector({1, 2});
    record->hlVpArray.setLogicalLength(2);
    record->selectedEntityInfo = kvtest::makeFullInfo();
    giveSegments(*record, 2);
    record->subselPathArray = new SegmentArray;
    record->hasSubselPaths = true;
    kvtest::append(*record->subselPathArray, path.get());
    {
        const NoMemory noMemory;
        record.reset();
    }
    EXPECT_EQ(livePaths(), 1);
    EXPECT_EQ(before.liveNew(), 1);
    EXPECT_EQ(before.liveMalloc(), 0);
}

TEST_F(FailingRecord, RecordWithASharedHighlightBlockIsDestroyedWithoutMemory) {
    SegmentArray other;
    kvtest::addPaths(other, 2);
    auto record = std::make_unique<selected_entity>();
    record->highlightSegmentArray = new SegmentArray(other);
    {
        const NoMemory noMemory;
        record.reset();
    }
    EXPECT_EQ(other.data.block->refCount.load(), 1u);
    EXPECT_EQ(other.logicalLength(), 2);
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(FailingRecord, DyingRecordCopiesASharedListOfOneSegment) {
    SegmentArray other;
    kvtest::addPaths(other, 1);
    auto record = std::make_unique<selected_entity>();
    record->highlightSegmentArray = new SegmentArray(other);
    const AllocationCount before;
    record.reset();
    EXPECT_GT(before.mallocCalls(), 0);
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(FailingRecord, DyingRecordRaisesNothingWhereTheSharedListCannotBeCopied) {
    kvinmemory::installCrashRecorder();
    kvtest::forEachAllocationFailure([](kvtest::FailurePoint& point) {
        auto original = std::make_unique<GxapSelectSet>();
        giveSegments(kvtest::addRecord(*original, kvtest::id(1)), 3);
        auto clone = kvtest::cloneOf(*original);
        const SegmentArray& list = *kvtest::recordAt(*clone, 0)->highlightSegmentArray;
        const KvVectorBlock* const block = list.data.block;
        const AllocationCount before;
        const long pathsBefore = livePaths();

        const kvtest::Outcome outcome = point.run([&] { original.reset(); });
        EXPECT_TRUE(outcome.completed);
        EXPECT_TRUE(kvinmemory::recordedExceptions().empty());
        EXPECT_LE(before.liveMalloc(), 0);
        EXPECT_LT(before.liveNew(), 0);
        EXPECT_EQ(livePaths(), pathsBefore) << "the clone still shares them";
        EXPECT_EQ(list.data.block, block);
        EXPECT_EQ(block->refCount.load(), 1u);
        EXPECT_EQ(list.logicalLength(), 3);
        clone.reset();
        EXPECT_EQ(livePaths(), pathsBefore - 3);
    });
}

} // namespace
