#include "tests/selectcontext/support/RecordTestSupport.h"
#include "tests/support/AllocationFailure.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <utility>
#include <vector>

// Every allocation of these operations fails in turn. Whatever fails, nothing leaks, nothing is freed twice,
// and what was there before is there still.

namespace {

using kvinmemory::livePaths;
using kvtest::addRecord;
using kvtest::AllocationCount;
using kvtest::FailurePoint;
using kvtest::fence;
using kvtest::forEachAllocationFailure;
using kvtest::giveSegments;
using kvtest::id;
using kvtest::invariants;
using kvtest::matrixWith;
using kvtest::owners;
using kvtest::recordAt;
using kvtest::sameEntries;
using kvtest::SegmentArray;
using kvtest::SSetData;
using ConstIterator = GxapSelectSet::ConstIterator;

class FailingAllocation : public kvtest::SetTest {
protected:
    // A thread's first traces make storage that stays; it is made here, before anything is counted.
    FailingAllocation() {
        SCOPED_TRACE("making the storage");
        SCOPED_TRACE("of two traces");
    }
};
class FailingInfo : public FailingAllocation {};
class FailingRecord : public FailingAllocation {};
class FailingData : public FailingAllocation {};

// Every allocation fails as long as it lives.
class NoMemory {
public:
    NoMemory() {
        kvinmemory::failMalloc(1, kvinmemory::FailureMode::FromThenOn);
        kvtest::failNew(1, true);
    }
    NoMemory(const NoMemory&) = delete;
    NoMemory& operator=(const NoMemory&) = delete;
    ~NoMemory() {
        kvtest::allowNew();
        kvinmemory::allowMalloc();
    }
};

// What an info says of itself.
struct InfoContents {
    explicit InfoContents(const GxapSelectedEntInfo& info)
        : presenceBits(info.presenceBits), fenceInfo(info.getFenceInfoPtr()), matrix(info.getBTRMatPtr()) {
        info.getSelFenceResultInfo(fenceValue);
        info.getCompoundTransformWithBTROffset(matrixValue);
    }

    bool operator==(const InfoContents& other) const {
        return presenceBits == other.presenceBits && fenceInfo == other.fenceInfo && matrix == other.matrix &&
               fenceValue.index == other.fenceValue.index && fenceValue.param == other.fenceValue.param &&
               sameEntries(matrixValue, other.matrixValue);
    }

    std::uint64_t presenceBits;
    const SelFenceIntersectInfo* fenceInfo;
    const GxGeMatrix3d* matrix;
    SelFenceIntersectInfo fenceValue = fence(-1, 0);
    GxGeMatrix3d matrixValue;
};

using Prepare = std::function<void(GxapSelectedEntInfo&)>;

void withNothing(GxapSelectedEntInfo&) {}
void withFence(GxapSelectedEntInfo& info) {
    info.setSelFenceResultInfo(fence(5, 0.5));
}
void withMatrix(GxapSelectedEntInfo& info) {
    info.setCompoundTransformWithBTROffset(matrixWith(2));
}
void withBoth(GxapSelectedEntInfo& info) {
    withFence(info);
    withMatrix(info);
}
void withEmptiedBlock(GxapSelectedEntInfo& info) {
    withFence(info);
    info.ReleaseFenceInfoPtr();
}

// The edit of an info is done whole or not at all, and the info can be edited and destroyed afterwards.
void expectAllOrNothing(const Prepare& prepare, const Prepare& edit,
                        kvtest::Expect expect = kvtest::Expect::Failures) {
    GxapSelectedEntInfo model;
    prepare(model);
    edit(model);
    const auto bitsWhenDone = model.presenceBits;
    forEachAllocationFailure(
        [&](FailurePoint& point) {
            const AllocationCount before;
            {
                GxapSelectedEntInfo info;
                prepare(info);
                const InfoContents contents(info);
                const kvtest::Outcome outcome = point.run([&] { edit(info); });
                if (outcome.failed)
                    EXPECT_TRUE(InfoContents(info) == contents);
                else
                    EXPECT_EQ(info.presenceBits, bitsWhenDone);
                withBoth(info);
                EXPECT_EQ(info.presenceBits, 3u);
            }
            EXPECT_EQ(before.liveNew(), 0);
            EXPECT_EQ(before.liveMalloc(), 0);
        },
        expect);
}

void withEarlierFence(GxapSelectedEntInfo& info) {
    info.setSelFenceResultInfo(fence(3, 0.25));
}
void withOtherMatrix(GxapSelectedEntInfo& info) {
    info.setCompoundTransformWithBTROffset(matrixWith(40));
}
void withOtherBoth(GxapSelectedEntInfo& info) {
    withEarlierFence(info);
    withOtherMatrix(info);
}

bool haveSameFence(const GxapSelectedEntInfo& a, const GxapSelectedEntInfo& b) {
    SelFenceIntersectInfo ofA = fence(-1, 0), ofB = fence(-1, 0);
    return a.getSelFenceResultInfo(ofA) == b.getSelFenceResultInfo(ofB) && ofA.index == ofB.index &&
           ofA.param == ofB.param;
}

bool haveSameMatrix(const GxapSelectedEntInfo& a, const GxapSelectedEntInfo& b) {
    GxGeMatrix3d ofA, ofB;
    return a.getCompoundTransformWithBTROffset(ofA) == b.getCompoundTransformWithBTROffset(ofB) &&
           sameEntries(ofA, ofB);
}

// Whatever allocation of an assignment fails, each of the target's fields is what it was or what the
// assignment makes it, and none is left behind.
void assignInTurn(const Prepare& prepareTarget, const Prepare& prepareSource) {
    GxapSelectedEntInfo source, before, after;
    prepareSource(source);
    prepareTarget(before);
    prepareTarget(after);
    const AllocationCount ofAssignment;
    after = source;
    const bool allocates = ofAssignment.newCalls() + ofAssignment.mallocCalls() > 0;
    forEachAllocationFailure(
        [&](FailurePoint& point) {
            const AllocationCount held;
            {
                GxapSelectedEntInfo target;
                prepareTarget(target);
                const bool failed = point.run([&] { target = source; }).failed;
                EXPECT_TRUE(haveSameFence(target, after) || (failed && haveSameFence(target, before)));
                EXPECT_TRUE(haveSameMatrix(target, after) || (failed && haveSameMatrix(target, before)));
            }
            EXPECT_EQ(held.liveNew(), 0);
            EXPECT_EQ(held.liveMalloc(), 0);
        },
        allocates ? kvtest::Expect::Failures : kvtest::Expect::None);
}

// Two records with all that a record can own, and a slot without a record between them.
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

} // namespace

// ---- infos

TEST_F(FailingInfo, FirstFenceResultIsStoredWholeOrNotAtAll) {
    const Prepare edit = [](GxapSelectedEntInfo& info) { info.setSelFenceResultInfo(fence(1, 0.5)); };
    expectAllOrNothing(withNothing, edit);
    expectAllOrNothing(withMatrix, edit);
    expectAllOrNothing(withEmptiedBlock, edit);
}

TEST_F(FailingInfo, FirstMatrixIsStoredWholeOrNotAtAll) {
    const Prepare edit = [](GxapSelectedEntInfo& info) {
        info.setCompoundTransformWithBTROffset(matrixWith(1));
    };
    expectAllOrNothing(withNothing, edit);
    expectAllOrNothing(withFence, edit);
    expectAllOrNothing(withEmptiedBlock, edit);
}

TEST_F(FailingInfo, FormsByPointerStoreWholeOrNotAtAll) {
    const SelFenceIntersectInfo result = fence(1, 0.5);
    const GxGeMatrix3d matrix = matrixWith(1);
    expectAllOrNothing(withMatrix, [&](GxapSelectedEntInfo& info) { info.setFenceInfoPtr(&result); });
    expectAllOrNothing(withFence, [&](GxapSelectedEntInfo& info) { info.setBTRMatPtr(&matrix); });
}

TEST_F(FailingInfo, ReplacingInPlaceNeedsNoMemory) {
    expectAllOrNothing(
        withBoth, [](GxapSelectedEntInfo& info) { info.setSelFenceResultInfo(fence(1, 0.5)); },
        kvtest::Expect::None);
    expectAllOrNothing(
        withBoth, [](GxapSelectedEntInfo& info) { info.setCompoundTransformWithBTROffset(matrixWith(1)); },
        kvtest::Expect::None);
}

TEST_F(FailingInfo, FieldIsReleasedWholeOrNotAtAll) {
    expectAllOrNothing(withBoth, [](GxapSelectedEntInfo& info) { info.ReleaseFenceInfoPtr(); });
    expectAllOrNothing(withBoth, [](GxapSelectedEntInfo& info) { info.ReleaseBTRMatPtr(); });
    expectAllOrNothing(withBoth, [](GxapSelectedEntInfo& info) { info.setFenceInfoPtr(nullptr); });
    expectAllOrNothing(withBoth, [](GxapSelectedEntInfo& info) { info.setBTRMatPtr(nullptr); });
}

TEST_F(FailingInfo, ReleasingTheOnlyFieldNeedsNoMemory) {
    expectAllOrNothing(
        withFence, [](GxapSelectedEntInfo& info) { info.ReleaseFenceInfoPtr(); }, kvtest::Expect::None);
    expectAllOrNothing(
        withMatrix, [](GxapSelectedEntInfo& info) { info.ReleaseBTRMatPtr(); }, kvtest::Expect::None);
}

TEST_F(FailingInfo, PointerThatCouldNotBeStoredStaysTheCallers) {
    for (const Prepare& prepare : {Prepare(withNothing), Prepare(withMatrix)}) {
        forEachAllocationFailure([&](FailurePoint& point) {
            GxapSelectedEntInfo info;
            prepare(info);
            const InfoContents contents(info);
            auto result = std::make_unique<SelFenceIntersectInfo>(fence(1, 0.5));
            const kvtest::Outcome outcome = point.run([&] { info.setFenceIntersectInfoPtr(result.get()); });
            if (outcome.failed)
                EXPECT_TRUE(InfoContents(info) == contents);
            else
                EXPECT_EQ(info.getFenceInfoPtr(), result.release());
        });
    }
    forEachAllocationFailure([](FailurePoint& point) {
        GxapSelectedEntInfo info;
        withFence(info);
        const InfoContents contents(info);
        auto matrix = std::make_unique<GxGeMatrix3d>();
        const kvtest::Outcome outcome =
            point.run([&] { info.setCompoundTransformBTROffsetPtr(matrix.get()); });
        if (outcome.failed)
            EXPECT_TRUE(InfoContents(info) == contents);
        else
            EXPECT_EQ(info.getBTRMatPtr(), matrix.release());
    });
}

TEST_F(FailingInfo, CopyThatFailsLeavesNothingBehind) {
    GxapSelectedEntInfo source;
    source.pointArray.setLogicalLength(2);
    withBoth(source);
    const InfoContents contents(source);
    forEachAllocationFailure([&](FailurePoint& point) {
        const AllocationCount before;
        const auto emptyCount = gpEmptyVectorData->refCount.load();
        std::unique_ptr<GxapSelectedEntInfo> copy;
        point.run([&] { copy = std::make_unique<GxapSelectedEntInfo>(source); });
        if (copy) {
            EXPECT_EQ(copy->presenceBits, 3u);
        }
        copy.reset();
        EXPECT_EQ(before.liveNew(), 0);
        EXPECT_EQ(before.liveMalloc(), 0);
        EXPECT_EQ(source.pointArray.data.block->refCount.load(), 1u);
        EXPECT_EQ(gpEmptyVectorData->refCount.load(), emptyCount);
        EXPECT_TRUE(InfoContents(source) == contents);
    });
}

TEST_F(FailingInfo, AssignmentThatFailsLeavesBothInfosSound) {
    GxapSelectedEntInfo source;
    source.pointArray.setLogicalLength(2);
    withBoth(source);
    const InfoContents contents(source);
    for (const Prepare& prepare : {Prepare(withNothing), Prepare(withFence), Prepare(withMatrix)}) {
        forEachAllocationFailure([&](FailurePoint& point) {
            const AllocationCount before;
            {
                GxapSelectedEntInfo target;
                prepare(target);
                const auto bits = target.presenceBits;
                const kvtest::Outcome outcome = point.run([&] { target = source; });
                if (outcome.failed)
                    EXPECT_EQ(target.presenceBits & bits, bits) << "a field it had is not lost";
                else
                    EXPECT_EQ(target.presenceBits, 3u);
            }
            EXPECT_EQ(before.liveNew(), 0);
            EXPECT_EQ(before.liveMalloc(), 0);
            EXPECT_EQ(source.pointArray.data.block->refCount.load(), 1u);
            EXPECT_TRUE(InfoContents(source) == contents);
        });
    }
}

TEST_F(FailingInfo, AssignmentThatFailsLeavesEachFieldOldOrNew) {
    const Prepare targets[] = {withNothing, withFence, withMatrix, withBoth, withEmptiedBlock};
    const Prepare sources[] = {withNothing, withEarlierFence, withOtherMatrix, withOtherBoth};
    for (const Prepare& prepareTarget : targets) {
        for (const Prepare& prepareSource : sources)
            assignInTurn(prepareTarget, prepareSource);
    }
}

TEST_F(FailingInfo, InfoIsDestroyedWithoutMemory) {
    const AllocationCount before;
    auto info = std::make_unique<GxapSelectedEntInfo>();
    info->pointArray.setLogicalLength(2);
    withBoth(*info);
    {
        const NoMemory noMemory;
        info.reset();
    }
    EXPECT_EQ(before.liveNew(), 0);
    EXPECT_EQ(before.liveMalloc(), 0);
}

// ---- records

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

// ---- sets and their data

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
