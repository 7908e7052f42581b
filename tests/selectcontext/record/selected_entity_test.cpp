#include "selectcontext/selected_entity.h"

#include "tests/selectcontext/support/RecordTestSupport.h"
#include "tests/support/NewTracking.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <vector>

namespace {

using kvinmemory::livePaths;
using kvtest::AllocationCount;
using kvtest::id;
using kvtest::newSegmentsWithoutBlock;
using kvtest::SegmentArray;

class SelectedEntity : public kvtest::SetTest {};

std::vector<const GxDbFullSubentPath*> destroyedPaths() {
    std::vector<const GxDbFullSubentPath*> paths;
    for (const auto& event : kvinmemory::databaseEvents(kvinmemory::DatabaseCall::PathDestruction))
        paths.push_back(event.path);
    return paths;
}

} // namespace

// ---- creation

TEST_F(SelectedEntity, NewRecordHasItsInitialValues) {
    const selected_entity record;
    EXPECT_EQ(record.mainEntId.stub(), nullptr);
    EXPECT_EQ(record.subEntId.stub(), nullptr);
    EXPECT_EQ(record.gsMarker, -1);
    EXPECT_EQ(record.highlightSegmentArray, nullptr);
    EXPECT_EQ(record.subselPathArray, nullptr);
    EXPECT_FALSE(record.hasSubselPaths);
    EXPECT_EQ(record.selectedEntityInfo, nullptr);
}

TEST_F(SelectedEntity, NewRecordsVectorsShareTheEmptyBlock) {
    const auto before = gpEmptyVectorData->refCount.load();
    const selected_entity record;
    EXPECT_EQ(record.hlVpArray.data.block, gpEmptyVectorData);
    EXPECT_EQ(record.nestedEntFullPath.data.block, gpEmptyVectorData);
    EXPECT_EQ(gpEmptyVectorData->refCount.load(), before + 2);
}

TEST_F(SelectedEntity, PlainRecordCostsOneAllocation) {
    const AllocationCount before;
    const auto record = std::make_unique<selected_entity>();
    EXPECT_EQ(before.newCalls(), 1);
    EXPECT_EQ(before.mallocCalls(), 0);
}

TEST_F(SelectedEntity, RecordMadeWithoutAnEmptyBlockHasNullVectors) {
    const kvtest::WithoutEmptyBlock withoutEmptyBlock;
    const selected_entity record;
    EXPECT_EQ(record.hlVpArray.data.block, nullptr);
    EXPECT_EQ(record.nestedEntFullPath.data.block, nullptr);
}

TEST_F(SelectedEntity, RecordMadeByNothrowNewIsAsAnyOther) {
    auto* const record = new (std::nothrow) selected_entity;
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->gsMarker, -1);
    delete record;
}

TEST_F(SelectedEntity, NothrowNewGivesNullWithoutMemory) {
    kvtest::failNew(1, false);
    const selected_entity* const record = new (std::nothrow) selected_entity;
    kvtest::allowNew();
    EXPECT_EQ(record, nullptr);
}

TEST_F(SelectedEntity, MemoryOfNothrowNewIsFreedByTheMatchingDelete) {
    const AllocationCount before;
    void* const memory = selected_entity::operator new(sizeof(selected_entity), std::nothrow);
    EXPECT_EQ(before.newCalls(), 1);
    selected_entity::operator delete(memory, std::nothrow);
}

TEST_F(SelectedEntity, RecordMayBeMadeInTheCallersMemory) {
    alignas(selected_entity) unsigned char memory[sizeof(selected_entity)];
    const AllocationCount before;
    auto* const record = new (memory) selected_entity;
    EXPECT_EQ(static_cast<void*>(record), memory);
    EXPECT_EQ(before.newCalls(), 0);
    record->~selected_entity();
}

// ---- destruction of a plain record

TEST_F(SelectedEntity, PlainRecordFreesOnlyItself) {
    const auto emptyCount = gpEmptyVectorData->refCount.load();
    const AllocationCount before;
    auto* record = new selected_entity;
    record->mainEntId = id(1);
    delete record;
    EXPECT_EQ(gpEmptyVectorData->refCount.load(), emptyCount);
    EXPECT_EQ(before.liveNew(), 0);
    EXPECT_EQ(before.mallocCalls(), 0);
    EXPECT_EQ(before.freeCalls(), 0);
}

// ---- the entity info

TEST_F(SelectedEntity, InfoIsDestroyedAndGivenBackToTheApplication) {
    const AllocationCount before;
    {
        selected_entity record;
        record.selectedEntityInfo = kvtest::makeInfo();
        record.selectedEntityInfo->setSelFenceResultInfo(kvtest::fence(1, 0.5));
        record.selectedEntityInfo->setCompoundTransformWithBTROffset(kvtest::matrixWith(2));
        EXPECT_EQ(before.liveMalloc(), 2);
        EXPECT_EQ(before.liveNew(), 2);
    }
    EXPECT_EQ(before.liveMalloc(), 0);
    EXPECT_EQ(before.liveNew(), 0);
}

// ---- highlight segments

TEST_F(SelectedEntity, HighlightSegmentsAreDeletedWithTheirPaths) {
    const AllocationCount before;
    {
        selected_entity record;
        kvtest::giveSegments(record, 3);
        EXPECT_EQ(livePaths(), 3);
    }
    EXPECT_EQ(livePaths(), 0);
    EXPECT_EQ(before.liveNew(), 0);
    EXPECT_EQ(before.liveMalloc(), 0);
}

TEST_F(SelectedEntity, NullHighlightSegmentsAreSkipped) {
    {
        selected_entity record;
        kvtest::giveSegments(record, 3);
        SegmentArray& segments = *record.highlightSegmentArray;
        for (const int i : {0, 2}) {
            delete segments.at(i);
            segments.at(i) = nullptr;
        }
        EXPECT_EQ(livePaths(), 1);
    }
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(SelectedEntity, EmptyHighlightArrayGoesBackToTheEmptyBlock) {
    const auto emptyCount = gpEmptyVectorData->refCount.load();
    const AllocationCount before;
    {
        selected_entity record;
        record.highlightSegmentArray = new SegmentArray;
    }
    EXPECT_EQ(gpEmptyVectorData->refCount.load(), emptyCount);
    EXPECT_EQ(before.liveNew(), 0);
}

TEST_F(SelectedEntity, HighlightArrayWithoutBlockIsOnlyDeleted) {
    const AllocationCount before;
    {
        selected_entity record;
        record.highlightSegmentArray = newSegmentsWithoutBlock();
    }
    EXPECT_EQ(before.liveNew(), 0);
    EXPECT_EQ(before.mallocCalls(), 0);
}

TEST_F(SelectedEntity, SharedHighlightBlockIsLeftIntactForItsOtherOwner) {
    SegmentArray other;
    kvtest::addPaths(other, 2);
    {
        selected_entity record;
        record.highlightSegmentArray = new SegmentArray(other);
        ASSERT_EQ(other.data.block->refCount.load(), 2u);
    }
    EXPECT_EQ(other.data.block->refCount.load(), 1u);
    EXPECT_EQ(other.logicalLength(), 2);
    EXPECT_NE(kvtest::elementAt(other, 0), nullptr);
    EXPECT_NE(kvtest::elementAt(other, 1), nullptr);
    EXPECT_EQ(livePaths(), 0) << "no record is known to share the paths, so they went with the record";
}

// The destructor of the record makes the list private before it releases the paths.
TEST_F(SelectedEntity, SharedHighlightBlockIsCopiedOnceWhileTheRecordDies) {
    SegmentArray other;
    kvtest::addPaths(other, 3);
    auto record = std::make_unique<selected_entity>();
    record->highlightSegmentArray = new SegmentArray(other);
    const AllocationCount before;
    const long blocksBefore = kvinmemory::mallocCallsOfSize(sizeof(KvVectorBlock));
    record.reset();
    EXPECT_EQ(kvinmemory::mallocCallsOfSize(sizeof(KvVectorBlock)), blocksBefore + 1);
    EXPECT_EQ(before.mallocCalls(), 1);
    EXPECT_EQ(before.newCalls(), 1) << "the elements of the block";
    EXPECT_EQ(before.liveMalloc(), 0);
}

TEST_F(SelectedEntity, PrivateHighlightBlockIsNotCopiedWhileTheRecordDies) {
    auto record = std::make_unique<selected_entity>();
    kvtest::giveSegments(*record, 3);
    const AllocationCount before;
    record.reset();
    EXPECT_EQ(before.mallocCalls(), 0);
    EXPECT_EQ(before.newCalls(), 0);
}

TEST_F(SelectedEntity, EmptySharedHighlightBlockIsNotCopiedWhileTheRecordDies) {
    auto record = std::make_unique<selected_entity>();
    record->highlightSegmentArray = new SegmentArray;
    ASSERT_GE(record->highlightSegmentArray->data.block->refCount.load(), 2u);
    const AllocationCount before;
    record.reset();
    EXPECT_EQ(before.mallocCalls(), 0);
    EXPECT_EQ(before.newCalls(), 0);
}

TEST_F(SelectedEntity, RecordOfASetLeavesTheListOfItsCloneIntact) {
    auto original = std::make_unique<GxapSelectSet>();
    kvtest::giveSegments(kvtest::addRecord(*original, id(1)), 3);
    const auto clone = kvtest::cloneOf(*original);
    const SegmentArray& list = *kvtest::recordAt(*clone, 0)->highlightSegmentArray;
    const KvVectorBlock* const block = list.data.block;
    const void* const elements = block->array;
    ASSERT_EQ(block->refCount.load(), 2u);
    const long blocksBefore = kvinmemory::mallocCallsOfSize(sizeof(KvVectorBlock));
    original.reset();
    EXPECT_EQ(kvinmemory::mallocCallsOfSize(sizeof(KvVectorBlock)), blocksBefore + 1);
    EXPECT_EQ(list.data.block, block);
    EXPECT_EQ(block->array, elements);
    EXPECT_EQ(block->refCount.load(), 1u);
    EXPECT_EQ(list.logicalLength(), 3);
    EXPECT_EQ(livePaths(), 3);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(kvtest::elementAt(list, i)->objectIds().at(0), id(static_cast<unsigned long>(i + 1)));
}

TEST_F(SelectedEntity, HighlightPathsAreDeletedInTheirOrder) {
    std::vector<const GxDbFullSubentPath*> paths;
    auto record = std::make_unique<selected_entity>();
    kvtest::giveSegments(*record, 3);
    for (int i = 0; i < 3; ++i)
        paths.push_back(kvtest::elementAt(*record->highlightSegmentArray, i));
    const std::size_t before = destroyedPaths().size();
    record.reset();
    auto destroyed = destroyedPaths();
    destroyed.erase(destroyed.begin(), destroyed.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_EQ(destroyed, paths);
}

// ---- sub-selection

TEST_F(SelectedEntity, FlaggedSubSelectionArrayIsFreedWithoutItsPaths) {
    const std::unique_ptr<GxDbFullSubentPath> path(new GxDbFullSubentPath);
    const AllocationCount before;
    {
        selected_entity record;
        record.subselPathArray = new SegmentArray;
        kvtest::append(*record.subselPathArray, path.get());
        record.hasSubselPaths = true;
    }
    EXPECT_EQ(livePaths(), 1);
    EXPECT_EQ(before.liveNew(), 0);
    EXPECT_EQ(before.liveMalloc(), 0);
}

TEST_F(SelectedEntity, FlaggedSubSelectionArrayWithoutBlockIsOnlyDeleted) {
    const AllocationCount before;
    {
        selected_entity record;
        record.subselPathArray = newSegmentsWithoutBlock();
        record.hasSubselPaths = true;
    }
    EXPECT_EQ(before.liveNew(), 0);
}

TEST_F(SelectedEntity, FlaggedSharedSubSelectionArrayOnlyGivesUpItsShare) {
    const std::unique_ptr<GxDbFullSubentPath> path(new GxDbFullSubentPath);
    SegmentArray other;
    kvtest::append(other, path.get());
    const AllocationCount before;
    {
        selected_entity record;
        record.subselPathArray = new SegmentArray(other);
        record.hasSubselPaths = true;
    }
    EXPECT_EQ(other.data.block->refCount.load(), 1u);
    EXPECT_EQ(kvtest::elementAt(other, 0), path.get());
    EXPECT_EQ(before.mallocCalls(), 0) << "no private copy is made where no path is deleted";
}

TEST_F(SelectedEntity, FlagWithoutSubSelectionArrayIsHarmless) {
    const AllocationCount before;
    {
        selected_entity record;
        record.hasSubselPaths = true;
    }
    EXPECT_EQ(before.newCalls(), 0);
}

TEST_F(SelectedEntity, UnflaggedSubSelectionArrayOutlivesTheRecord) {
    const std::unique_ptr<GxDbFullSubentPath> path(new GxDbFullSubentPath);
    const std::unique_ptr<SegmentArray> array(new SegmentArray);
    kvtest::append(*array, path.get());
    {
        selected_entity record;
        record.subselPathArray = array.get();
    }
    EXPECT_EQ(array->data.block->refCount.load(), 1u);
    EXPECT_EQ(array->logicalLength(), 1);
    EXPECT_EQ(kvtest::elementAt(*array, 0), path.get());
}

// ---- hlVpArray and nestedEntFullPath

TEST_F(SelectedEntity, LastOwnerOfANestedPathFreesItsBlockAndStorage) {
    const AllocationCount before;
    {
        selected_entity record;
        record.nestedEntFullPath = kvtest::idVector({1, 2});
        EXPECT_EQ(before.liveMalloc(), 2);
    }
    EXPECT_EQ(before.liveMalloc(), 0);
}

TEST_F(SelectedEntity, SharedNestedPathIsLeftToItsOtherOwner) {
    const KvVector<GxDbObjectId> path = kvtest::idVector({1, 2});
    {
        selected_entity record;
        record.nestedEntFullPath = path;
        EXPECT_EQ(path.data.block->refCount.load(), 2u);
    }
    EXPECT_EQ(path.data.block->refCount.load(), 1u);
    EXPECT_TRUE(path.at(1) == id(2));
}

TEST_F(SelectedEntity, LastOwnerOfTheViewportsFreesTheirBlockAndStorage) {
    const AllocationCount before;
    {
        selected_entity record;
        record.hlVpArray.setLogicalLength(4);
        EXPECT_EQ(before.liveMalloc(), 1);
        EXPECT_EQ(before.liveNew(), 1);
    }
    EXPECT_EQ(before.liveMalloc(), 0);
    EXPECT_EQ(before.liveNew(), 0);
}

TEST_F(SelectedEntity, SharedViewportsAreLeftToTheirOtherOwner) {
    KvVector<int> viewports;
    viewports.setLogicalLength(2);
    viewports.at(1) = 5;
    {
        selected_entity record;
        record.hlVpArray = viewports;
        EXPECT_EQ(viewports.data.block->refCount.load(), 2u);
    }
    EXPECT_EQ(viewports.data.block->refCount.load(), 1u);
    EXPECT_EQ(viewports.at(1), 5);
}

TEST_F(SelectedEntity, RecordWithEverythingFreesEverythingItOwns) {
    const AllocationCount before;
    {
        auto record = std::make_unique<selected_entity>();
        record->selectedEntityInfo = kvtest::makeInfo();
        record->selectedEntityInfo->setSelFenceResultInfo(kvtest::fence(1, 0.5));
        record->selectedEntityInfo->setCompoundTransformWithBTROffset(kvtest::matrixWith(2));
        kvtest::giveSegments(*record, 20);
        record->subselPathArray = new SegmentArray;
        record->hasSubselPaths = true;
        record->nestedEntFullPath = kvtest::idVector({1, 2});
        record->hlVpArray.setLogicalLength(3);
    }
    EXPECT_EQ(before.liveMalloc(), 0);
    EXPECT_EQ(before.liveNew(), 0);
    EXPECT_EQ(livePaths(), 0);
}
