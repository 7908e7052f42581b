#include "base/KvVector.h"

#include "platform/inmemory/InMemoryOsBase.h"
#include "tests/base/ContainerTest.h"
#include "tests/base/Invariants.h"
#include "tests/base/VectorValues.h"
#include "tests/support/AllocationFailure.h"
#include "tests/support/Ids.h"
#include "tests/support/NewTracking.h"
#include "tests/support/Thrown.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace {

using kvtest::contents;
using kvtest::filled;
using kvtest::forEachAllocationFailure;
using kvtest::invariants;
using kvtest::shares;

template <class Vector>
class KvVectorFailureOf : public kvtest::ContainerTest {
protected:
    using Operation = std::function<void(Vector&)>;

    // Makes each allocation of the operation fail in turn, and expects that a failure does not change the
    // vector. The vector has this length, and its block is private.
    static void expectPrivateVectorSurvives(int length, const Operation& operation) {
        forEachAllocationFailure([&](kvtest::FailurePoint& point) {
            Vector vector = filled<Vector>(length);
            const auto before = contents(vector);
            const KvVectorBlock* block = vector.data.block;
            const kvtest::Outcome outcome = point.run([&] { operation(vector); });
            EXPECT_EQ(outcome.failed, outcome.injected);
            EXPECT_TRUE(invariants(vector));
            if (!outcome.failed)
                return;
            EXPECT_EQ(vector.data.block, block);
            EXPECT_EQ(contents(vector), before);
        });
    }

    // Makes each allocation of the operation fail in turn. The vector has this length, and another vector
    // shares its block. Expects that the other vector never changes, and that both vectors still share the
    // block after a failure.
    static void expectSharersSurvive(int length, const Operation& operation) {
        forEachAllocationFailure([&](kvtest::FailurePoint& point) {
            Vector vector = filled<Vector>(length);
            const Vector other(vector);
            const auto before = contents(other);
            const kvtest::Outcome outcome = point.run([&] { operation(vector); });
            EXPECT_EQ(outcome.failed, outcome.injected);
            EXPECT_TRUE(invariants(vector));
            EXPECT_EQ(contents(other), before);
            EXPECT_EQ(shares(other), outcome.failed ? 2u : 1u);
            if (outcome.failed) {
                EXPECT_EQ(vector.data.block, other.data.block);
            }
        });
    }
};

TYPED_TEST_SUITE(KvVectorFailureOf, kvtest::VectorTypes, kvtest::VectorTypeName);

TYPED_TEST(KvVectorFailureOf, FirstGrowthThatFailsLeavesTheVectorOnTheEmptyBlock) {
    forEachAllocationFailure([](kvtest::FailurePoint& point) {
        const std::uint32_t before = kvtest::emptyBlockCount();
        TypeParam vector;
        const kvtest::Outcome outcome = point.run([&] { vector.setLogicalLength(3); });
        EXPECT_EQ(outcome.failed, outcome.injected);
        EXPECT_TRUE(invariants(vector));
        EXPECT_EQ(kvtest::emptyBlockCount(), before + (outcome.failed ? 1 : 0));
        EXPECT_EQ(vector.logicalLength(), outcome.failed ? 0 : 3);
    });
}

TYPED_TEST(KvVectorFailureOf, FirstGrowthThatFailsWithoutAnEmptyBlockLeavesNone) {
    forEachAllocationFailure([](kvtest::FailurePoint& point) {
        const kvtest::WithoutEmptyBlock none;
        TypeParam vector;
        const kvtest::Outcome outcome = point.run([&] { vector.setLogicalLength(3); });
        EXPECT_EQ(outcome.failed, outcome.injected);
        EXPECT_EQ(vector.data.block == nullptr, outcome.failed);
        EXPECT_TRUE(invariants(vector));
    });
}

TYPED_TEST(KvVectorFailureOf, GrowthThatFailsLeavesAPrivateVectorAsItWas) {
    this->expectPrivateVectorSurvives(8, [](TypeParam& vector) { vector.setLogicalLength(9); });
}

TYPED_TEST(KvVectorFailureOf, GrowthThatFailsLeavesSharersAsTheyWere) {
    this->expectSharersSurvive(8, [](TypeParam& vector) { vector.setLogicalLength(9); });
}

TYPED_TEST(KvVectorFailureOf, LengthInsideTheCapacityThatFailsLeavesSharersAsTheyWere) {
    this->expectSharersSurvive(5, [](TypeParam& vector) { vector.setLogicalLength(6); });
    this->expectSharersSurvive(5, [](TypeParam& vector) { vector.setLogicalLength(2); });
    this->expectSharersSurvive(5, [](TypeParam& vector) { vector.setLogicalLength(0); });
}

TYPED_TEST(KvVectorFailureOf, CopyBeforeWriteThatFailsLeavesSharersAsTheyWere) {
    this->expectSharersSurvive(5, [](TypeParam& vector) { vector.copyBeforeWrite(0); });
    this->expectSharersSurvive(5, [](TypeParam& vector) { vector.copyBeforeWrite(2); });
}

TYPED_TEST(KvVectorFailureOf, AtThatFailsLeavesSharersAsTheyWere) {
    this->expectSharersSurvive(5, [](TypeParam& vector) { vector.at(2); });
}

TYPED_TEST(KvVectorFailureOf, RemovalThatFailsLeavesSharersAsTheyWere) {
    this->expectSharersSurvive(5, [](TypeParam& vector) { vector.removeAt(1); });
    this->expectSharersSurvive(5, [](TypeParam& vector) { vector.removeAt(4); });
}

TYPED_TEST(KvVectorFailureOf, CopyBeforeWriteOfTheEmptyBlockThatFailsStaysOnIt) {
    forEachAllocationFailure([](kvtest::FailurePoint& point) {
        TypeParam vector;
        const kvtest::Outcome outcome = point.run([&] { vector.copyBeforeWrite(0); });
        EXPECT_EQ(outcome.failed, outcome.injected);
        EXPECT_EQ(vector.data.block == gpEmptyVectorData, outcome.failed);
        EXPECT_TRUE(invariants(vector));
    });
}

TYPED_TEST(KvVectorFailureOf, CopyingAndAssigningNeedNoMemory) {
    forEachAllocationFailure(
        [](kvtest::FailurePoint& point) {
            const TypeParam vector = filled<TypeParam>(3);
            const kvtest::Outcome outcome = point.run([&] {
                TypeParam copy(vector);
                TypeParam other;
                other = copy;
                copy = TypeParam();
            });
            EXPECT_TRUE(outcome.completed);
        },
        kvtest::Expect::None);
}

TYPED_TEST(KvVectorFailureOf, FailedOperationLeavesNoMemoryBehind) {
    forEachAllocationFailure([](kvtest::FailurePoint& point) {
        TypeParam vector = filled<TypeParam>(8);
        const TypeParam other(vector);
        const long news = kvtest::liveNewBlocks();
        const long blocks = kvinmemory::liveBlocks();
        if (!point.run([&] { vector.setLogicalLength(9); }).failed)
            return;
        EXPECT_EQ(kvtest::liveNewBlocks(), news);
        EXPECT_EQ(kvinmemory::liveBlocks(), blocks);
    });
}

// ---- the error itself

class KvVectorOutOfMemory : public kvtest::ContainerTest {
protected:
    void TearDown() override {
        kvtest::allowNew();
        kvinmemory::allowMalloc();
        ContainerTest::TearDown();
    }
};

TEST_F(KvVectorOutOfMemory, BlockThatCannotBeObtainedRaisesStatusSix) {
    KvVector<int> vector;
    kvinmemory::failMalloc(1, kvinmemory::FailureMode::Once);
    kvtest::expectStatus([&] { vector.setLogicalLength(3); }, 6);
    EXPECT_EQ(kvinmemory::failedMallocs(), 1);
}

TEST_F(KvVectorOutOfMemory, DelegatedStorageThatCannotBeObtainedRaisesStatusSix) {
    for (const long nth : {1, 2}) {
        KvVector<GxDbObjectId> vector;
        kvinmemory::failMalloc(nth, kvinmemory::FailureMode::Once);
        kvtest::expectStatus([&] { vector.setLogicalLength(3); }, 6);
        EXPECT_EQ(kvinmemory::failedMallocs(), 1);
    }
}

TEST_F(KvVectorOutOfMemory, DelegateAllocatorRaisesStatusSix) {
    kvinmemory::failMalloc(1, kvinmemory::FailureMode::Once);
    kvtest::expectStatus([] { KvDelegateMemAllocator<int>::alloc(3); }, 6);
}

TEST_F(KvVectorOutOfMemory, StorageThatNewCannotGiveRaisesStatusSix) {
    KvVector<int> vector;
    kvtest::expectStatus(
        [&] {
            kvtest::failNew(1, false);
            vector.setLogicalLength(3);
        },
        6);
    EXPECT_EQ(kvtest::failedNews(), 1);
}

TEST_F(KvVectorOutOfMemory, CopyThatIsOnlyTriedLeavesTheBlockShared) {
    forEachAllocationFailure([](kvtest::FailurePoint& point) {
        auto vector = filled<KvVector<int>>(5);
        const KvVector<int> other(vector);
        const kvtest::Outcome outcome = point.run([&] { vector.tryCopyBeforeWrite(); });
        EXPECT_TRUE(outcome.completed);
        EXPECT_EQ(shares(other), outcome.injected ? 2u : 1u);
        EXPECT_EQ(contents(vector), contents(other));
        EXPECT_TRUE(invariants(vector));
    });
}

} // namespace
