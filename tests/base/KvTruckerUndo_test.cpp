// Tests undoAppend(), mark() and isBehind(). Operations on many elements need these functions.
#include "base/KvTrucker.h"

#include "tests/base/ContainerTest.h"
#include "tests/base/Invariants.h"
#include "tests/base/SmallStore.h"
#include "tests/support/AllocationFailure.h"
#include "tests/support/NewTracking.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

namespace {

using kvtest::fill;
using kvtest::invariants;
using kvtest::kNotFound;
using kvtest::pageCount;
using kvtest::removeIndex;
using kvtest::SmallStore;
using kvtest::valuesOf;
using kvtest::walkFrom;
using ::testing::ElementsAre;

// ---- undoAppend

class KvTruckerUndoTest : public kvtest::ContainerTest {};

TEST_F(KvTruckerUndoTest, GivesTheValueBack) {
    SmallStore store;
    fill(store, 2);
    store.append(77);
    EXPECT_EQ(store.undoAppend(), 77);
    EXPECT_EQ(store.undoAppend(), 1);
    EXPECT_THAT(valuesOf(store), ElementsAre(0));
}

TEST_F(KvTruckerUndoTest, SlotIsOneThatWasNeverUsed) {
    SmallStore store;
    const auto slots = fill(store, 3);
    store.undoAppend();
    EXPECT_EQ(slots[2]->free, 1);
    EXPECT_EQ(store.tail->fillEnd, slots[2]);
    EXPECT_EQ(store.tail->liveCount, 2u);
    EXPECT_EQ(store.positionOf(slots[2]), kNotFound);
    EXPECT_EQ(store.elementAt(2), nullptr);
    EXPECT_TRUE(invariants(store));
    EXPECT_EQ(store.append(9), slots[2]);
    EXPECT_THAT(valuesOf(store), ElementsAre(0, 1, 9));
}

TEST_F(KvTruckerUndoTest, PageThatWasMadeForItIsFreed) {
    SmallStore store;
    fill(store, 4);
    SmallStore::Page* const head = store.head;
    const long before = kvtest::liveNewBlocks();
    store.append(4);
    EXPECT_EQ(store.undoAppend(), 4);
    EXPECT_EQ(store.head, head);
    EXPECT_EQ(store.tail, head);
    EXPECT_EQ(head->next, nullptr);
    EXPECT_EQ(kvtest::liveNewBlocks(), before);
    EXPECT_TRUE(invariants(store));
    store.append(5);
    EXPECT_THAT(valuesOf(store), ElementsAre(0, 1, 2, 3, 5));
}

TEST_F(KvTruckerUndoTest, FirstAppendTakenBackLeavesAStoreWithoutPages) {
    const long before = kvtest::liveNewBlocks();
    SmallStore store;
    store.append(7);
    EXPECT_EQ(store.undoAppend(), 7);
    EXPECT_EQ(store.head, nullptr);
    EXPECT_EQ(store.tail, nullptr);
    EXPECT_EQ(kvtest::liveNewBlocks(), before);
}

TEST_F(KvTruckerUndoTest, PageWithFreedSlotsBeforeItStays) {
    SmallStore store;
    const auto slots = fill(store, 7);
    for (std::size_t i = 4; i < 6; ++i)
        store.removeSlot(slots[i], store.tail, true);
    EXPECT_EQ(store.undoAppend(), 6);
    EXPECT_EQ(pageCount(store), 2u);
    EXPECT_EQ(store.tail->liveCount, 0u);
    EXPECT_EQ(store.append(8), slots[6]);
    EXPECT_THAT(valuesOf(store), ElementsAre(0, 1, 2, 3, 8));
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerUndoTest, PageWithHolesCountsOn) {
    SmallStore store;
    auto slots = fill(store, 7);
    store.removeSlot(slots[5], store.tail, true);
    for (int round = 0; round < 3; ++round) {
        const SmallStore::Slot* const added = store.append(7);
        EXPECT_EQ(store.positionOf(added), 6u);
        EXPECT_EQ(store.elementAt(6), added);
        EXPECT_EQ(store.undoAppend(), 7);
        EXPECT_EQ(store.elementAt(6), nullptr);
        EXPECT_EQ(store.positionOf(slots[6]), 5u);
        EXPECT_EQ(store.elementAt(5), slots[6]);
        EXPECT_THAT(walkFrom(store, store.iteratorAt(4)), ElementsAre(4, 6));
    }
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerUndoTest, ManyAppendsAreTakenBackAcrossPages) {
    SmallStore store;
    fill(store, 30);
    for (std::size_t i = 0; i < 10; ++i)
        removeIndex(store, static_cast<int>(2 * i));
    const std::vector<long> before = valuesOf(store);
    const std::size_t pagesBefore = pageCount(store);
    for (long value = 100; value < 150; ++value)
        store.append(value);
    for (long value = 149; value >= 100; --value) {
        ASSERT_EQ(store.undoAppend(), value);
        ASSERT_TRUE(invariants(store)) << value;
    }
    EXPECT_EQ(pageCount(store), pagesBefore);
    EXPECT_EQ(valuesOf(store), before);
    EXPECT_EQ(walkFrom(store, store.iteratorAt(0)), before);
    for (std::size_t i = 0; i < before.size(); ++i)
        EXPECT_EQ(store.positionOf(store.elementAt(static_cast<int>(i))), i);
}

TEST_F(KvTruckerUndoTest, IteratorOnThePageThatIsFreedIsOnNoPage) {
    SmallStore store;
    fill(store, 5);
    SmallStore::iterator it = store.iteratorAt(4);
    store.undoAppend();
    EXPECT_FALSE(it.isOnPage());
    it.next();
    EXPECT_TRUE(store.isEnd(it));
}

TEST_F(KvTruckerUndoTest, NeedsNoMemory) {
    kvtest::forEachAllocationFailure(
        [](kvtest::FailurePoint& point) {
            SmallStore store;
            fill(store, 30);
            EXPECT_TRUE(point
                            .run([&] {
                                while (store.head)
                                    store.undoAppend();
                            })
                            .completed);
        },
        kvtest::Expect::None);
}

// ---- mark and isBehind

class KvTruckerMarkTest : public kvtest::ContainerTest {
protected:
    void TearDown() override {
        store.freeAllPages();
        ContainerTest::TearDown();
    }

    // Returns the values that were appended after the mark.
    std::vector<long> behind() const {
        std::vector<long> values;
        for (SmallStore::iterator it = store.iteratorAt(0); !store.isEnd(it); it.next()) {
            if (store.isBehind(it, mark))
                values.push_back(*it);
        }
        return values;
    }

    SmallStore store;
    SmallStore::Mark mark{};
};

TEST_F(KvTruckerMarkTest, WhatIsAppendedLaterIsBehindIt) {
    for (const int size : {1, 3, 4, 5, 8}) {
        SCOPED_TRACE(::testing::Message() << size << " elements before it");
        store.freeAllPages();
        fill(store, size);
        mark = store.mark();
        EXPECT_THAT(behind(), ElementsAre());
        store.append(100);
        EXPECT_THAT(behind(), ElementsAre(100));
        for (const long value : {101, 102, 103, 104, 105})
            store.append(value);
        EXPECT_THAT(behind(), ElementsAre(100, 101, 102, 103, 104, 105));
    }
}

TEST_F(KvTruckerMarkTest, EverythingIsBehindTheMarkOfAStoreWithoutPages) {
    mark = store.mark();
    fill(store, 5);
    EXPECT_THAT(behind(), ElementsAre(0, 1, 2, 3, 4));
}

TEST_F(KvTruckerMarkTest, StoreThatWasEmptiedForgetsNothing) {
    fill(store, 9);
    store.freeAllPages();
    mark = store.mark();
    fill(store, 5);
    EXPECT_THAT(behind(), ElementsAre(0, 1, 2, 3, 4));
}

TEST_F(KvTruckerMarkTest, EverythingIsBehindTheMarkOnceAllWasFreed) {
    fill(store, 6);
    mark = store.mark();
    store.freeAllPages();
    fill(store, 6);
    EXPECT_THAT(behind(), ElementsAre(0, 1, 2, 3, 4, 5));
}

TEST_F(KvTruckerMarkTest, StaysWhereItIsWhenElementsBeforeItAreRemoved) {
    fill(store, 10);
    mark = store.mark();
    removeIndex(store, 9);
    removeIndex(store, 3);
    store.append(100);
    EXPECT_THAT(behind(), ElementsAre(100));
    removeIndex(store, 7);
    EXPECT_THAT(behind(), ElementsAre(100));
}

TEST_F(KvTruckerMarkTest, StaysWhereItIsWhenItsPageIsFreed) {
    fill(store, 10);
    mark = store.mark();
    removeIndex(store, 9);
    removeIndex(store, 8);
    ASSERT_EQ(pageCount(store), 2u);
    EXPECT_THAT(behind(), ElementsAre());
    store.append(100);
    store.append(101);
    EXPECT_THAT(behind(), ElementsAre(100, 101));
}

TEST_F(KvTruckerMarkTest, StaysWhereItIsWhenPagesBeforeItAreFreed) {
    fill(store, 10);
    mark = store.mark();
    for (int i = 0; i < 8; ++i)
        removeIndex(store, 0);
    ASSERT_EQ(pageCount(store), 1u);
    for (const long value : {100, 101, 102})
        store.append(value);
    EXPECT_THAT(behind(), ElementsAre(100, 101, 102));
}

TEST_F(KvTruckerMarkTest, StaysWhereItIsWhenAppendsAreTakenBack) {
    fill(store, 7);
    mark = store.mark();
    for (long value = 100; value < 110; ++value)
        store.append(value);
    for (int i = 0; i < 10; ++i)
        store.undoAppend();
    EXPECT_THAT(behind(), ElementsAre());
    for (const long value : {200, 201, 202})
        store.append(value);
    EXPECT_THAT(behind(), ElementsAre(200, 201, 202));
}

TEST_F(KvTruckerMarkTest, NothingOfAPageThatIsGoneIsBehindIt) {
    fill(store, 4);
    mark = store.mark();
    store.append(100);
    const SmallStore::iterator it = store.iteratorAt(4);
    EXPECT_TRUE(store.isBehind(it, mark));
    store.undoAppend();
    EXPECT_FALSE(store.isBehind(it, mark));
}

TEST_F(KvTruckerMarkTest, NothingWithoutAPageIsBehindIt) {
    mark = store.mark();
    EXPECT_FALSE(store.isBehind(store.end(), mark));
    fill(store, 5);
    EXPECT_FALSE(store.isBehind(store.iteratorAt(99), mark));
    EXPECT_FALSE(store.isBehind(kvtest::beforeFirst(store), mark));
}

} // namespace
