// Tests iterators whose page is freed. The address sanitizer reports a read of freed memory.
#include "base/KvTrucker.h"

#include "base/detail/StoreEpoch.h"
#include "tests/base/ContainerTest.h"
#include "tests/base/Invariants.h"
#include "tests/base/SmallStore.h"
#include "tests/support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace {

using kvtest::expectMessage;
using kvtest::fill;
using kvtest::invariants;
using kvtest::kAccessError;
using kvtest::pageCount;
using kvtest::SmallStore;
using kvtest::valuesOf;
using kvtest::walkFrom;
using ::testing::ElementsAre;

// A store with six elements on two pages. Two iterators are on the second page. The tests free one of the
// pages and then use the iterators.
class KvTruckerStaleIteratorTest : public kvtest::ContainerTest {
protected:
    void SetUp() override {
        ContainerTest::SetUp();
        slots = fill(store, 6);
        onFifth = store.iteratorAt(4);
        atEnd = store.end();
    }

    void TearDown() override {
        store.freeAllPages();
        slots = std::vector<SmallStore::Slot*>();
        ContainerTest::TearDown();
    }

    void freeTail() {
        SmallStore::Page* tail = store.tail;
        store.removeSlot(slots[4], tail, true);
        store.removeSlot(slots[5], tail, true);
    }

    void freeHead() {
        SmallStore::Page* head = store.head;
        for (std::size_t i = 0; i < 4; ++i)
            store.removeSlot(slots[i], head, true);
    }

    // Frees a page of one store in each group of epochs. So also raises the epoch of `store`.
    static void freeAPageElsewhere() {
        for (std::uint32_t group = 0; group < kvdetail::StoreEpoch::kGroups; ++group) {
            SmallStore other;
            other.append(1);
            other.freeAllPages();
        }
    }

    SmallStore store;
    std::vector<SmallStore::Slot*> slots;
    SmallStore::iterator onFifth{};
    SmallStore::iterator atEnd{};
};

TEST_F(KvTruckerStaleIteratorTest, DereferenceAfterThePageWasFreedRaisesAccessError) {
    freeTail();
    expectMessage([&] { *onFifth; }, kAccessError);
}

TEST_F(KvTruckerStaleIteratorTest, DereferenceOfAnOldEndAfterItsPageWasFreedRaisesAccessError) {
    freeTail();
    expectMessage([&] { *atEnd; }, kAccessError);
}

TEST_F(KvTruckerStaleIteratorTest, DereferenceRaisesEachTime) {
    freeTail();
    expectMessage([&] { *onFifth; }, kAccessError);
    expectMessage([&] { *onFifth; }, kAccessError);
}

TEST_F(KvTruckerStaleIteratorTest, NextAfterThePageWasFreedGoesToTheEnd) {
    freeTail();
    onFifth.next();
    EXPECT_TRUE(store.isEnd(onFifth));
    EXPECT_EQ(onFifth.page, store.head);
}

TEST_F(KvTruckerStaleIteratorTest, NextOfAnOldEndGoesToTheNewEnd) {
    freeTail();
    EXPECT_FALSE(store.isEnd(atEnd));
    atEnd.next();
    EXPECT_TRUE(store.isEnd(atEnd));
}

TEST_F(KvTruckerStaleIteratorTest, NextAfterAllPagesWereFreedGoesToTheEndOfTheStoreWithoutPages) {
    store.freeAllPages();
    onFifth.next();
    EXPECT_TRUE(store.isEnd(onFifth));
    EXPECT_EQ(onFifth.page, nullptr);
    EXPECT_EQ(onFifth.position, 0u);
}

TEST_F(KvTruckerStaleIteratorTest, NextAfterAnEarlierPageWasFreedGoesToTheEnd) {
    SmallStore::iterator onSecond = store.iteratorAt(1);
    freeHead();
    onSecond.next();
    EXPECT_TRUE(store.isEnd(onSecond));
    EXPECT_EQ(onSecond.page, store.tail);
}

TEST_F(KvTruckerStaleIteratorTest, RemovalAfterThePageWasFreedDoesNothing) {
    freeTail();
    store.removeAt(onFifth);
    EXPECT_THAT(valuesOf(store), ElementsAre(0, 1, 2, 3));
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerStaleIteratorTest, RemovalAfterAllPagesWereFreedDoesNothing) {
    store.freeAllPages();
    store.removeAt(onFifth);
    store.removeAt(atEnd);
    EXPECT_EQ(store.head, nullptr);
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerStaleIteratorTest, DereferenceAfterAllPagesWereFreedRaisesAccessError) {
    store.freeAllPages();
    expectMessage([&] { *onFifth; }, kAccessError);
}

TEST_F(KvTruckerStaleIteratorTest, RemovalThroughAnotherIteratorLeavesTheFirstOneHarmless) {
    SmallStore::iterator other = store.iteratorAt(4);
    store.removeAt(other);
    other = store.iteratorAt(4);
    store.removeAt(other);
    ASSERT_EQ(pageCount(store), 1u);
    expectMessage([&] { *onFifth; }, kAccessError);
    store.removeAt(onFifth);
    onFifth.next();
    EXPECT_TRUE(store.isEnd(onFifth));
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerStaleIteratorTest, RemovalWithABeforeFirstPositionLeavesAnIteratorThatReadsNothing) {
    freeHead();
    store.removeSlot(slots[4], store.tail, true);
    SmallStore::iterator it = store.iteratorAt(0);
    it.position = kvtest::kBeforeFirst;
    store.removeAt(it);
    ASSERT_EQ(store.head, nullptr);
    expectMessage([&] { *it; }, kAccessError);
}

TEST_F(KvTruckerStaleIteratorTest, ComparingWithTheEndReadsFieldsOnly) {
    store.freeAllPages();
    EXPECT_FALSE(store.isEnd(onFifth));
    EXPECT_FALSE(store.isEnd(atEnd));
}

TEST_F(KvTruckerStaleIteratorTest, IteratorOnALivingPageWorksAfterAnotherPageWasFreed) {
    freeHead();
    EXPECT_EQ(*onFifth, 4);
    onFifth.next();
    EXPECT_EQ(*onFifth, 5);
    onFifth.next();
    EXPECT_TRUE(store.isEnd(onFifth));
}

TEST_F(KvTruckerStaleIteratorTest, IteratorOnALivingPageRemovesAfterAnotherPageWasFreed) {
    freeHead();
    store.removeAt(onFifth);
    EXPECT_THAT(valuesOf(store), ElementsAre(5));
    EXPECT_EQ(onFifth.slot, slots[4]);
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerStaleIteratorTest, IteratorWorksAfterAPageOfAnotherStoreWasFreed) {
    freeAPageElsewhere();
    EXPECT_EQ(*onFifth, 4);
    freeAPageElsewhere();
    onFifth.next();
    EXPECT_EQ(*onFifth, 5);
    freeAPageElsewhere();
    store.removeAt(onFifth);
    EXPECT_THAT(valuesOf(store), ElementsAre(0, 1, 2, 3, 4));
}

TEST_F(KvTruckerStaleIteratorTest, EndStaysTheEndAfterAPageOfAnotherStoreWasFreed) {
    freeAPageElsewhere();
    EXPECT_TRUE(store.isEnd(atEnd));
    expectMessage([&] { *atEnd; }, kAccessError);
    atEnd.next();
    EXPECT_TRUE(store.isEnd(atEnd));
    store.removeAt(atEnd);
    EXPECT_THAT(valuesOf(store), ElementsAre(0, 1, 2, 3, 4, 5));
}

TEST_F(KvTruckerStaleIteratorTest, OldEndReachesThePageAppendedBehindItAfterAPageOfAnotherStoreWasFreed) {
    store.append(6);
    store.append(7);
    SmallStore::iterator it = store.end();
    freeAPageElsewhere();
    store.append(8);
    it.next();
    EXPECT_EQ(*it, 8);
    EXPECT_EQ(it.position, 1u);
}

TEST_F(KvTruckerStaleIteratorTest, WalkGoesOnThoughAPageElsewhereIsFreedAtEachStep) {
    std::vector<long> seen;
    for (SmallStore::iterator it = store.iteratorAt(0); !store.isEnd(it); it.next()) {
        freeAPageElsewhere();
        seen.push_back(*it);
        freeAPageElsewhere();
    }
    EXPECT_THAT(seen, ElementsAre(0, 1, 2, 3, 4, 5));
}

TEST_F(KvTruckerStaleIteratorTest, SlotOutsideItsPageIsNotReadOncePagesWereFreed) {
    SmallStore::Slot foreign{7, 0};
    onFifth.slot = &foreign;
    freeAPageElsewhere();
    expectMessage([&] { *onFifth; }, kAccessError);
    store.removeAt(onFifth);
    EXPECT_EQ(foreign.free, 0);
    onFifth.next();
    EXPECT_TRUE(store.isEnd(onFifth));
}

TEST_F(KvTruckerStaleIteratorTest, BeforeFirstStateReachesTheFirstElementThoughPagesWereFreed) {
    SmallStore::iterator it = kvtest::beforeFirst(store);
    freeHead();
    it.next();
    EXPECT_EQ(*it, 4);
    EXPECT_EQ(it.position, 0u);
}

TEST_F(KvTruckerStaleIteratorTest, DisabledIteratorDoesNotMoveThoughPagesWereFreed) {
    SmallStore::iterator it = store.iteratorAt(99);
    freeTail();
    it.next();
    EXPECT_EQ(it.page, nullptr);
    EXPECT_EQ(it.slot, nullptr);
}

TEST_F(KvTruckerStaleIteratorTest, DestroyedStoreMakesIteratorsOfOtherStoresCheckTheirPage) {
    for (std::uint32_t group = 0; group < kvdetail::StoreEpoch::kGroups; ++group) {
        SmallStore other;
        other.append(1);
    }
    EXPECT_THAT(walkFrom(store, onFifth), ElementsAre(4, 5));
}

TEST_F(KvTruckerStaleIteratorTest, FreshIteratorOfARefilledStoreWorks) {
    store.freeAllPages();
    fill(store, 6);
    EXPECT_THAT(walkFrom(store, store.iteratorAt(0)), ElementsAre(0, 1, 2, 3, 4, 5));
}

// The new page may have the address of the freed page. The test accepts an error, and also a read of the new
// page.
TEST_F(KvTruckerStaleIteratorTest, IteratorIntoARefilledStoreReadsAnElementOrRaises) {
    freeTail();
    store.append(40);
    store.append(50);
    long read = 40;
    try {
        read = *onFifth;
    } catch (KvExceptionWithMsg* error) {
        delete error;
    }
    EXPECT_EQ(read, 40);
    onFifth.next();
    EXPECT_TRUE(store.isEnd(onFifth) || *onFifth == 50);
    EXPECT_TRUE(invariants(store));
}

} // namespace
