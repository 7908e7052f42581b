// Uses sets and their data while each allocation fails in turn. Nothing leaks, and nothing is freed twice. A
// failed call leaves the items of a set unchanged.
#include "tests/selectcontext/support/FailureTest.h"
#include "tests/selectcontext/support/RecordTestSupport.h"
#include "tests/support/AllocationFailure.h"

#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace {

using kvinmemory::livePaths;
using kvtest::addRecord;
using kvtest::AllocationCount;
using kvtest::FailurePoint;
using kvtest::forEachAllocationFailure;
using kvtest::giveSegments;
using kvtest::id;
using kvtest::invariants;
using kvtest::NoMemory;
using kvtest::owners;
using kvtest::recordAt;
using kvtest::SegmentArray;
using kvtest::SSetData;
using ConstIterator = GxapSelectSet::ConstIterator;

class FailingData : public kvtest::FailureTest {};

// Has two records with a value in every field. Between them is a slot without a record.
struct RichSet {
    RichSet() {
        for (unsigned long n = 1; n <= 3; ++n)
            fill(addRecord(set, id(n), id(10 + n), static_cast<long>(n)));
        takenOut = kvtest::takeRecordOut(set, 1);
        set.sharedData->dataMap.erase(id(2));
    }

    ~RichSet() {
        for (GxDbFullSubentPath* path : subselPaths)
            delete path;
    }

    void fill(selected_entity& record) {
        record.nestedEntFullPath = kvtest::idVector({1, 2});
        record.hlVpArray.setLogicalLength(2);
        record.selectedEntityInfo = kvtest::makeFullInfo();
        giveSegments(record, 2);
        record.subselPathArray = new SegmentArray;
        record.hasSubselPaths = true;
        subselPaths.push_back(new GxDbFullSubentPath);
        kvtest::append(*record.subselPathArray, subselPaths.back());
    }

    GxapSelectSet set;
    std::unique_ptr<selected_entity> takenOut;
    std::vector<GxDbFullSubentPath*> subselPaths;
};

void expectSharesEverything(const selected_entity& copy, const selected_entity& source) {
    EXPECT_EQ(copy.nestedEntFullPath.data.block, source.nestedEntFullPath.data.block);
    EXPECT_EQ(copy.hlVpArray.data.block, source.hlVpArray.data.block);
    EXPECT_EQ(copy.highlightSegmentArray->data.block, source.highlightSegmentArray->data.block);
    EXPECT_EQ(copy.subselPathArray->data.block, source.subselPathArray->data.block);
    EXPECT_EQ(copy.selectedEntityInfo->presenceBits, 3u);
}

void expectSharedWithNobody(const selected_entity& record) {
    EXPECT_EQ(record.nestedEntFullPath.data.block->refCount.load(), 1u);
    EXPECT_EQ(record.hlVpArray.data.block->refCount.load(), 1u);
    EXPECT_EQ(record.highlightSegmentArray->data.block->refCount.load(), 1u);
    EXPECT_EQ(record.subselPathArray->data.block->refCount.load(), 1u);
    EXPECT_EQ(record.selectedEntityInfo->pointArray.data.block->refCount.load(), 1u);
}

TEST_F(FailingData, SetIsConstructedWholeOrNotAtAll) {
    forEachAllocationFailure([](FailurePoint& point) {
        const AllocationCount before;
        std::unique_ptr<GxapSelectSet> set;
        point.run([&] { set = std::make_unique<GxapSelectSet>(); });
        if (set) {
            EXPECT_TRUE(invariants(*set));
        }
        set.reset();
        EXPECT_EQ(before.liveNew(), 0);
        EXPECT_EQ(before.liveMalloc(), 0);
    });
}

TEST_F(FailingData, SetThatCannotCreateDataKeepsWhatItHas) {
    forEachAllocationFailure([](FailurePoint& point) {
        GxapSelectSet set;
        addRecord(set, id(1));
        const GxapSelectSet sharer(set);
        const ConstIterator it = set.begin();
        const kvtest::Outcome outcome = point.run([&] { set.createData(); });
        if (outcome.failed) {
            EXPECT_EQ(set.sharedData, sharer.sharedData);
            EXPECT_EQ(owners(set), 2u);
            EXPECT_TRUE(kvtest::isRegistered(set, it));
            EXPECT_EQ(it.get(), recordAt(set, 0));
        } else {
            EXPECT_EQ(owners(sharer), 1u);
            EXPECT_EQ(set.sharedData->entityCount, 0u);
        }
        EXPECT_TRUE(invariants(set));
        EXPECT_TRUE(invariants(sharer));
    });
}

TEST_F(FailingData, SetWithoutDataGetsDataWithAStoreOrNone) {
    forEachAllocationFailure([](FailurePoint& point) {
        GxapSelectSet set;
        set.releaseData();
        const AllocationCount before;
        const kvtest::Outcome outcome = point.run([&] { set.createData(); });
        if (outcome.failed) {
            EXPECT_EQ(set.sharedData, nullptr);
            EXPECT_EQ(before.liveNew(), 0);
        } else {
            ASSERT_NE(set.sharedData, nullptr);
            EXPECT_NE(set.sharedData->entities, nullptr);
        }
    });
}

TEST_F(FailingData, CloneIsMadeWholeOrLeavesNothingBehind) {
    forEachAllocationFailure([](FailurePoint& point) {
        RichSet rich;
        const SSetData& data = *rich.set.sharedData;
        const long paths = livePaths();
        const AllocationCount before;
        const auto emptyCount = gpEmptyVectorData->refCount.load();
        std::unique_ptr<SSetData> clone;
        const kvtest::Outcome outcome = point.run([&] { clone.reset(data.clone()); });
        EXPECT_EQ(outcome.completed, clone != nullptr);
        if (clone) {
            ASSERT_EQ(kvtest::occupiedSlots(*clone).size(), 2u);
            expectSharesEverything(*recordAt(*clone, 0), *recordAt(data, 0));
            expectSharesEverything(*recordAt(*clone, 1), *recordAt(data, 2));
            EXPECT_EQ(clone->dataMap.size(), 2u);
        }
        clone.reset();
        EXPECT_EQ(before.liveNew(), 0);
        EXPECT_EQ(before.liveMalloc(), 0);
        EXPECT_EQ(livePaths(), paths);
        EXPECT_EQ(gpEmptyVectorData->refCount.load(), emptyCount);
        expectSharedWithNobody(*recordAt(data, 0));
        expectSharedWithNobody(*recordAt(data, 2));
    });
}

TEST_F(FailingData, PathsOfACloneThatFailedBelongToTheSourceAlone) {
    forEachAllocationFailure([](FailurePoint& point) {
        {
            RichSet rich;
            std::unique_ptr<SSetData> clone;
            point.run([&] { clone.reset(rich.set.sharedData->clone()); });
        }
        EXPECT_EQ(livePaths(), 0);
    });
}

TEST_F(FailingData, CloneThatFailsLeavesAnEarlierClonesShareOfThePaths) {
    forEachAllocationFailure([](FailurePoint& point) {
        auto source = std::make_unique<GxapSelectSet>();
        giveSegments(addRecord(*source, id(1)), 3);
        const auto earlier = kvtest::cloneOf(*source);
        std::unique_ptr<SSetData> clone;
        point.run([&] { clone.reset(source->sharedData->clone()); });
        clone.reset();
        source.reset();
        EXPECT_EQ(livePaths(), 3);
        EXPECT_EQ(kvtest::elementAt(*recordAt(*earlier, 0)->highlightSegmentArray, 2)->objectIds()[0].stub(),
                  id(3).stub());
    });
}

TEST_F(FailingData, CloneThatFailsOnItsSecondPageLeavesNothingBehind) {
    GxapSelectSet set;
    kvtest::addRecords(set, kvtest::kPageSlots + 1);
    const AllocationCount calls;
    delete set.sharedData->clone();
    const long allocations = calls.newCalls();
    for (long nth = allocations - 8; nth <= allocations; ++nth) {
        SCOPED_TRACE(nth);
        FailurePoint point(kvtest::Allocation::New, kvtest::Failing::Once, nth);
        const AllocationCount before;
        std::unique_ptr<SSetData> clone;
        const kvtest::Outcome outcome = point.run([&] { clone.reset(set.sharedData->clone()); });
        EXPECT_TRUE(outcome.failed);
        EXPECT_EQ(clone, nullptr);
        EXPECT_EQ(before.liveNew(), 0);
    }
    EXPECT_TRUE(invariants(set));
}

TEST_F(FailingData, DataIsClearedWithoutMemory) {
    RichSet rich;
    rich.takenOut.reset();
    {
        const NoMemory noMemory;
        rich.set.sharedData->clear();
    }
    EXPECT_EQ(rich.set.sharedData->entityCount, 0u);
    EXPECT_EQ(livePaths(), 3) << "the sub-selected ones";
    EXPECT_TRUE(invariants(rich.set));
}

TEST_F(FailingData, SetsThatSharePathsAreDestroyedWithoutMemory) {
    RichSet rich;
    rich.takenOut.reset();
    auto clone = kvtest::cloneOf(rich.set);
    auto later = kvtest::cloneOf(*clone);
    {
        const NoMemory noMemory;
        clone.reset();
        rich.set.releaseData();
        later.reset();
    }
    EXPECT_EQ(livePaths(), 3) << "the sub-selected ones";
}

} // namespace
