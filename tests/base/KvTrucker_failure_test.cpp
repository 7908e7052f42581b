#include "base/KvTrucker.h"

#include "tests/base/ContainerTest.h"
#include "tests/base/Invariants.h"
#include "tests/base/SmallStore.h"
#include "tests/support/AllocationFailure.h"
#include "tests/support/NewTracking.h"
#include "tests/support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using kvtest::expectStatus;
using kvtest::fill;
using kvtest::forEachAllocationFailure;
using kvtest::invariants;
using kvtest::pageCount;
using kvtest::SmallStore;
using kvtest::valuesOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class KvTruckerFailureTest : public kvtest::ContainerTest {};

TEST_F(KvTruckerFailureTest, AppendWithoutMemoryRaisesOutOfMemory) {
    SmallStore store;
    expectStatus(
        [&] {
            kvtest::failNew(1, false);
            store.append(1);
        },
        6);
    kvtest::allowNew();
    EXPECT_EQ(kvtest::failedNews(), 1);
}

TEST_F(KvTruckerFailureTest, FirstAppendThatFailsLeavesAStoreWithoutPages) {
    forEachAllocationFailure([](kvtest::FailurePoint& point) {
        SmallStore store;
        const kvtest::Outcome outcome = point.run([&] { store.append(1); });
        EXPECT_EQ(outcome.failed, outcome.injected);
        EXPECT_TRUE(invariants(store));
        if (outcome.failed) {
            EXPECT_EQ(store.head, nullptr);
            store.append(1);
        }
        EXPECT_THAT(valuesOf(store), ElementsAre(1));
    });
}

TEST_F(KvTruckerFailureTest, AppendThatCannotOpenAPageLeavesTheStoreAsItWas) {
    forEachAllocationFailure([](kvtest::FailurePoint& point) {
        SmallStore store;
        fill(store, 4);
        const kvtest::Outcome outcome = point.run([&] { store.append(4); });
        EXPECT_EQ(outcome.failed, outcome.injected);
        EXPECT_TRUE(invariants(store));
        if (outcome.failed) {
            EXPECT_EQ(pageCount(store), 1u);
            EXPECT_THAT(valuesOf(store), ElementsAre(0, 1, 2, 3));
            store.append(4);
        }
        EXPECT_THAT(valuesOf(store), ElementsAre(0, 1, 2, 3, 4));
    });
}

TEST_F(KvTruckerFailureTest, AppendOfAnUnsetSlotThatCannotOpenAPageLeavesTheStoreAsItWas) {
    forEachAllocationFailure([](kvtest::FailurePoint& point) {
        SmallStore store;
        fill(store, 4);
        const kvtest::Outcome outcome = point.run([&] { store.append()->value = 4; });
        EXPECT_EQ(outcome.failed, outcome.injected);
        EXPECT_TRUE(invariants(store));
        EXPECT_EQ(pageCount(store), outcome.failed ? 1u : 2u);
    });
}

TEST_F(KvTruckerFailureTest, FailedAppendLeavesNoMemoryBehind) {
    forEachAllocationFailure([](kvtest::FailurePoint& point) {
        const long before = kvtest::liveNewBlocks();
        SmallStore store;
        const kvtest::Outcome outcome = point.run([&] { store.append(1); });
        if (outcome.failed) {
            EXPECT_EQ(kvtest::liveNewBlocks(), before);
        }
    });
}

TEST_F(KvTruckerFailureTest, AppendInsideAPageNeedsNoMemory) {
    forEachAllocationFailure(
        [](kvtest::FailurePoint& point) {
            SmallStore store;
            fill(store, 3);
            EXPECT_TRUE(point.run([&] { store.append(3); }).completed);
        },
        kvtest::Expect::None);
}

TEST_F(KvTruckerFailureTest, WalkingAndRemovingNeedNoMemory) {
    forEachAllocationFailure(
        [](kvtest::FailurePoint& point) {
            SmallStore store;
            fill(store, 9);
            const kvtest::Outcome outcome = point.run([&] {
                while (store.head) {
                    SmallStore::iterator it = store.iteratorAt(0);
                    it.next();
                    it = store.iteratorAt(0);
                    store.removeAt(it);
                }
            });
            EXPECT_TRUE(outcome.completed);
            EXPECT_THAT(valuesOf(store), IsEmpty());
        },
        kvtest::Expect::None);
}

} // namespace
