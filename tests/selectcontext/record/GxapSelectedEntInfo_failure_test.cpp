// Edits infos while each allocation fails in turn. Nothing leaks. After a failed edit, each field has either
// its old value or its new one.
#include "tests/selectcontext/support/FailureTest.h"
#include "tests/selectcontext/support/RecordTestSupport.h"
#include "tests/support/AllocationFailure.h"

#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <memory>

namespace {

using kvtest::AllocationCount;
using kvtest::FailurePoint;
using kvtest::fence;
using kvtest::forEachAllocationFailure;
using kvtest::matrixWith;
using kvtest::NoMemory;
using kvtest::sameEntries;

class FailingInfo : public kvtest::FailureTest {};

// The optional fields of an info at one moment.
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

// Edits an info while each allocation fails in turn. Expects that the edit is complete or changes nothing,
// and that the info can be used afterwards.
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

// Assigns an info while each allocation fails in turn. Nothing leaks. After a failed assignment, each field
// of the target has either its old value or its new one.
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

} // namespace
