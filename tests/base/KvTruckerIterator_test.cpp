#include "base/KvTrucker.h"

#include "tests/base/ContainerTest.h"
#include "tests/base/Invariants.h"
#include "tests/base/SmallStore.h"
#include "tests/support/NewTracking.h"
#include "tests/support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace {

using kvtest::beforeFirst;
using kvtest::expectMessage;
using kvtest::fill;
using kvtest::invariants;
using kvtest::kAccessError;
using kvtest::kBeforeFirst;
using kvtest::kSmallPageSlots;
using kvtest::pageAt;
using kvtest::pageCount;
using kvtest::removeIndex;
using kvtest::SmallStore;
using kvtest::valuesOf;
using kvtest::walkFrom;
using ::testing::ElementsAre;

class KvTruckerIteratorTest : public kvtest::ContainerTest {
protected:
    void TearDown() override {
        store.freeAllPages();
        slots = std::vector<SmallStore::Slot*>();
        ContainerTest::TearDown();
    }

    // Removes the elements `first` to `last`, which must be on `page`. The store keeps the page, even without
    // elements.
    void emptyAndKeep(std::size_t first, std::size_t last, SmallStore::Page* page) {
        for (std::size_t i = first; i <= last; ++i)
            store.removeSlot(slots[i], page, false);
    }

    void fillWith(int count) { slots = fill(store, count); }

    SmallStore store;
    std::vector<SmallStore::Slot*> slots;
};

bool isBeforeFirst(const SmallStore::iterator& it) {
    return !it.page && !it.slot && !it.pageEnd && it.position == kBeforeFirst;
}

// ---- dereferencing

TEST_F(KvTruckerIteratorTest, DereferenceGivesAReferenceToTheValue) {
    fillWith(3);
    const SmallStore::iterator it = store.iteratorAt(1);
    EXPECT_EQ(&*it, &slots[1]->value);
    *it = 50;
    EXPECT_EQ(store.at(1), 50);
}

TEST_F(KvTruckerIteratorTest, DereferencingTheEndRaisesAccessError) {
    expectMessage([&] { *store.end(); }, kAccessError);
    fillWith(2);
    expectMessage([&] { *store.end(); }, kAccessError);
    store.append(2);
    store.append(3);
    expectMessage([&] { *store.end(); }, kAccessError);
}

TEST_F(KvTruckerIteratorTest, DereferencingTheBeforeFirstStateRaisesAccessError) {
    fillWith(2);
    expectMessage([&] { *beforeFirst(store); }, kAccessError);
}

TEST_F(KvTruckerIteratorTest, DereferencingAnIteratorThatFoundNothingRaisesAccessError) {
    fillWith(2);
    expectMessage([&] { *store.iteratorAt(2); }, kAccessError);
}

TEST_F(KvTruckerIteratorTest, DereferencingAFreedSlotRaisesAccessError) {
    fillWith(3);
    SmallStore::iterator it = store.iteratorAt(1);
    store.removeAt(it);
    expectMessage([&] { *it; }, kAccessError);
}

TEST_F(KvTruckerIteratorTest, DereferencingASlotThatWasNeverUsedRaisesAccessError) {
    fillWith(2);
    SmallStore::iterator it = store.iteratorAt(1);
    ++it.slot;
    expectMessage([&] { *it; }, kAccessError);
}

TEST_F(KvTruckerIteratorTest, DereferencingAnIteratorWithoutASlotRaisesAccessError) {
    fillWith(2);
    SmallStore::iterator it = store.iteratorAt(1);
    it.slot = nullptr;
    expectMessage([&] { *it; }, kAccessError);
}

TEST_F(KvTruckerIteratorTest, DereferencingAnIteratorWithoutAStoreRaisesAccessError) {
    fillWith(2);
    SmallStore::iterator it = store.iteratorAt(1);
    it.trucker = nullptr;
    expectMessage([&] { *it; }, kAccessError);
}

// ---- next

TEST_F(KvTruckerIteratorTest, NextWalksAllElementsAcrossPages) {
    fillWith(10);
    EXPECT_THAT(walkFrom(store, store.iteratorAt(0)), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9));
    EXPECT_THAT(walkFrom(store, store.iteratorAt(3)), ElementsAre(3, 4, 5, 6, 7, 8, 9));
}

TEST_F(KvTruckerIteratorTest, NextCountsThePositionUpAndStartsAtOneInEachPage) {
    fillWith(6);
    SmallStore::iterator it = store.iteratorAt(0);
    for (int i = 0; i < 6; ++i) {
        SmallStore::Page* page = pageAt(store, i / 4);
        EXPECT_EQ(it.slot, slots[static_cast<std::size_t>(i)]);
        EXPECT_EQ(it.page, page);
        EXPECT_EQ(it.pageEnd, page->slots + kSmallPageSlots);
        EXPECT_EQ(it.position, static_cast<std::uint32_t>(i % 4 + 1));
        it.next();
    }
    EXPECT_TRUE(store.isEnd(it));
}

TEST_F(KvTruckerIteratorTest, NextPassesOverFreedSlots) {
    fillWith(9);
    removeIndex(store, 7);
    removeIndex(store, 4);
    removeIndex(store, 2);
    removeIndex(store, 1);
    EXPECT_THAT(walkFrom(store, store.iteratorAt(0)), ElementsAre(0, 3, 5, 6, 8));
}

TEST_F(KvTruckerIteratorTest, NextFromTheLastElementIsTheEndInEveryField) {
    fillWith(6);
    SmallStore::iterator it = store.iteratorAt(5);
    it.next();
    EXPECT_EQ(it.trucker, &store);
    EXPECT_EQ(it.page, store.tail);
    EXPECT_EQ(it.pageEnd, store.tail->slots + kSmallPageSlots);
    EXPECT_EQ(it.slot, it.pageEnd);
    EXPECT_EQ(it.position, 2u);
}

TEST_F(KvTruckerIteratorTest, NextAtTheEndStaysAtTheEnd) {
    fillWith(4);
    SmallStore::iterator it = store.end();
    it.next();
    EXPECT_TRUE(store.isEnd(it));
    it.next();
    EXPECT_TRUE(store.isEnd(it));
}

TEST_F(KvTruckerIteratorTest, NextFromBeforeFirstReachesTheFirstElementWithPositionZero) {
    fillWith(6);
    SmallStore::iterator it = beforeFirst(store);
    it.next();
    EXPECT_EQ(it.page, store.head);
    EXPECT_EQ(it.pageEnd, store.head->slots + kSmallPageSlots);
    EXPECT_EQ(it.slot, slots[0]);
    EXPECT_EQ(it.position, 0u);
    EXPECT_EQ(*it, 0);
}

TEST_F(KvTruckerIteratorTest, LaterStepsCountUpFromThePositionZero) {
    fillWith(6);
    SmallStore::iterator it = beforeFirst(store);
    it.next();
    it.next();
    EXPECT_EQ(it.slot, slots[1]);
    EXPECT_EQ(it.position, 1u);
    it.next();
    it.next();
    EXPECT_EQ(it.slot, slots[3]);
    EXPECT_EQ(it.position, 3u);
    it.next();
    EXPECT_EQ(it.slot, slots[4]);
    EXPECT_EQ(it.position, 1u);
}

TEST_F(KvTruckerIteratorTest, WalkFromBeforeFirstPassesEveryElement) {
    fillWith(9);
    removeIndex(store, 5);
    SmallStore::iterator it = beforeFirst(store);
    it.next();
    EXPECT_THAT(walkFrom(store, it), ElementsAre(0, 1, 2, 3, 4, 6, 7, 8));
}

TEST_F(KvTruckerIteratorTest, NextFromBeforeFirstOverAFreedFirstSlotGivesPositionOne) {
    fillWith(4);
    removeIndex(store, 0);
    SmallStore::iterator it = beforeFirst(store);
    it.next();
    EXPECT_EQ(it.slot, slots[1]);
    EXPECT_EQ(it.position, 1u);
}

TEST_F(KvTruckerIteratorTest, NextFromBeforeFirstPassesOverAnEmptyHead) {
    fillWith(6);
    emptyAndKeep(0, 3, store.head);
    SmallStore::iterator it = beforeFirst(store);
    it.next();
    EXPECT_EQ(it.page, store.tail);
    EXPECT_EQ(it.slot, slots[4]);
    EXPECT_EQ(it.position, 1u);
}

TEST_F(KvTruckerIteratorTest, NextFromBeforeFirstOfAStoreWithoutPagesDoesNotMove) {
    SmallStore::iterator it = beforeFirst(store);
    it.next();
    EXPECT_TRUE(isBeforeFirst(it));
}

TEST_F(KvTruckerIteratorTest, NextFromBeforeFirstWithoutAStoreDoesNotMove) {
    SmallStore::iterator it{};
    it.toBeforeFirst();
    it.next();
    EXPECT_TRUE(isBeforeFirst(it));
    EXPECT_EQ(it.trucker, nullptr);
}

TEST_F(KvTruckerIteratorTest, NextFromBeforeFirstInAStoreWithOnlyAnEmptyPageReachesTheEnd) {
    fillWith(1);
    emptyAndKeep(0, 0, store.head);
    SmallStore::iterator it = beforeFirst(store);
    it.next();
    EXPECT_TRUE(store.isEnd(it));
    EXPECT_EQ(it.slot, store.tail->slots + kSmallPageSlots);
    EXPECT_EQ(it.position, 0u);
}

TEST_F(KvTruckerIteratorTest, BeforeFirstStateIsKnownByItsPositionWhateverTheOtherFieldsHold) {
    fillWith(6);
    SmallStore::iterator it = store.iteratorAt(5);
    it.position = kBeforeFirst;
    it.next();
    EXPECT_EQ(it.slot, slots[0]);
    EXPECT_EQ(it.position, 0u);
}

TEST_F(KvTruckerIteratorTest, NextSkipsAnEmptyMiddlePage) {
    fillWith(12);
    emptyAndKeep(4, 7, pageAt(store, 1));
    SmallStore::iterator it = store.iteratorAt(3);
    it.next();
    EXPECT_EQ(it.page, store.tail);
    EXPECT_EQ(it.slot, slots[8]);
    EXPECT_EQ(it.position, 1u);
}

TEST_F(KvTruckerIteratorTest, NextBeforeAnEmptyTailReachesTheEnd) {
    fillWith(5);
    emptyAndKeep(4, 4, store.tail);
    SmallStore::iterator it = store.iteratorAt(3);
    it.next();
    EXPECT_TRUE(store.isEnd(it));
    it.next();
    EXPECT_TRUE(store.isEnd(it));
}

TEST_F(KvTruckerIteratorTest, NextPassesOverAPageThatCountsElementsButHasNone) {
    fillWith(12);
    emptyAndKeep(4, 7, pageAt(store, 1));
    pageAt(store, 1)->liveCount = 2;
    SmallStore::iterator it = store.iteratorAt(3);
    it.next();
    EXPECT_EQ(it.slot, slots[8]);
    EXPECT_EQ(it.position, 1u);
}

TEST_F(KvTruckerIteratorTest, NextFindsTheFirstElementBehindTheHolesOfAPage) {
    fillWith(8);
    removeIndex(store, 4);
    removeIndex(store, 4);
    SmallStore::iterator it = store.iteratorAt(3);
    it.next();
    EXPECT_EQ(it.slot, slots[6]);
    EXPECT_EQ(it.position, 1u);
}

TEST_F(KvTruckerIteratorTest, StalePositionEndsThePageEarly) {
    fillWith(6);
    SmallStore::iterator it = store.iteratorAt(2);
    store.removeSlot(slots[0], store.head, true);
    it.next();
    EXPECT_EQ(it.slot, slots[4]);
    EXPECT_EQ(it.position, 1u);
}

TEST_F(KvTruckerIteratorTest, IteratorWithoutPageOrSlotOrPageEndDoesNotMove) {
    fillWith(6);
    SmallStore::iterator it = store.iteratorAt(1);
    it.page = nullptr;
    it.next();
    EXPECT_EQ(it.slot, slots[1]);
    EXPECT_EQ(it.position, 2u);

    it = store.iteratorAt(1);
    it.slot = nullptr;
    it.next();
    EXPECT_EQ(it.slot, nullptr);
    EXPECT_EQ(it.page, store.head);
    EXPECT_EQ(it.position, 2u);

    it = store.iteratorAt(1);
    it.pageEnd = nullptr;
    it.next();
    EXPECT_EQ(it.slot, slots[1]);
    EXPECT_EQ(it.position, 2u);
}

TEST_F(KvTruckerIteratorTest, IteratorThatFoundNothingDoesNotMove) {
    fillWith(2);
    SmallStore::iterator it = store.iteratorAt(2);
    it.next();
    EXPECT_EQ(it.page, nullptr);
    EXPECT_EQ(it.slot, nullptr);
    EXPECT_EQ(it.position, 0u);
}

TEST_F(KvTruckerIteratorTest, NextSeesElementsThatWereAppendedBehindIt) {
    fillWith(3);
    SmallStore::iterator it = store.iteratorAt(2);
    store.append(3);
    store.append(4);
    it.next();
    EXPECT_EQ(*it, 3);
    it.next();
    EXPECT_EQ(*it, 4);
}

TEST_F(KvTruckerIteratorTest, OldEndReachesTheNewEndWhenTheTailHasGrown) {
    fillWith(2);
    SmallStore::iterator it = store.end();
    store.append(2);
    it.next();
    EXPECT_TRUE(store.isEnd(it));
}

TEST_F(KvTruckerIteratorTest, OldEndReachesThePageThatWasAppendedBehindIt) {
    fillWith(4);
    SmallStore::iterator it = store.end();
    store.append(4);
    it.next();
    EXPECT_EQ(*it, 4);
    EXPECT_EQ(it.position, 1u);
}

TEST_F(KvTruckerIteratorTest, EndOfAStoreWithoutPagesDoesNotMove) {
    SmallStore::iterator it = store.end();
    store.append(0);
    it.next();
    EXPECT_EQ(it.page, nullptr);
    EXPECT_EQ(it.slot, nullptr);
    EXPECT_EQ(it.position, 0u);
}

// ---- stepBack

TEST_F(KvTruckerIteratorTest, StepBackWithoutASlotDoesNotMove) {
    fillWith(6);
    SmallStore::iterator it = store.iteratorAt(5);
    it.slot = nullptr;
    kvdetail::stepBack(&store, it);
    EXPECT_EQ(it.page, store.tail);
    EXPECT_EQ(it.slot, nullptr);
    EXPECT_EQ(it.position, 2u);
}

// ---- removeAt

TEST_F(KvTruckerIteratorTest, RemoveAtFreesTheSlotAndStaysOnIt) {
    fillWith(4);
    SmallStore::iterator it = store.iteratorAt(1);
    store.removeAt(it);
    EXPECT_EQ(slots[1]->free, 1);
    EXPECT_EQ(store.head->liveCount, 3u);
    EXPECT_EQ(it.page, store.head);
    EXPECT_EQ(it.slot, slots[1]);
    EXPECT_EQ(it.position, 2u);
    EXPECT_THAT(valuesOf(store), ElementsAre(0, 2, 3));
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerIteratorTest, RemoveAtKeepsTheFillEnd) {
    fillWith(3);
    removeIndex(store, 2);
    EXPECT_EQ(store.head->fillEnd, store.head->slots + 3);
}

TEST_F(KvTruckerIteratorTest, RemoveAtAFreedSlotDoesNothing) {
    fillWith(4);
    SmallStore::iterator it = store.iteratorAt(1);
    store.removeAt(it);
    store.removeAt(it);
    EXPECT_EQ(store.head->liveCount, 3u);
    EXPECT_EQ(it.slot, slots[1]);
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerIteratorTest, RemoveAtTheEndDoesNothing) {
    SmallStore::iterator it = store.end();
    store.removeAt(it);
    EXPECT_TRUE(store.isEnd(it));
    fillWith(4);
    it = store.end();
    store.removeAt(it);
    EXPECT_TRUE(store.isEnd(it));
    EXPECT_THAT(valuesOf(store), ElementsAre(0, 1, 2, 3));
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerIteratorTest, RemoveAtAnOldEndDoesNothing) {
    fillWith(3);
    SmallStore::iterator it = store.end();
    store.append(3);
    store.removeAt(it);
    EXPECT_THAT(valuesOf(store), ElementsAre(0, 1, 2, 3));
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerIteratorTest, RemoveAtAnElementOfAnotherStoreDoesNothing) {
    fillWith(3);
    SmallStore other;
    fill(other, 5);
    for (const int index : {1, 4}) { // element 4 is alone on its page
        SmallStore::iterator it = other.iteratorAt(index);
        const SmallStore::iterator before = it;
        store.removeAt(it);
        EXPECT_EQ(it.trucker, before.trucker);
        EXPECT_EQ(it.page, before.page);
        EXPECT_EQ(it.slot, before.slot);
        EXPECT_EQ(it.position, before.position);
    }
    EXPECT_THAT(valuesOf(other), ElementsAre(0, 1, 2, 3, 4));
    EXPECT_THAT(valuesOf(store), ElementsAre(0, 1, 2));
    EXPECT_TRUE(invariants(store));
    EXPECT_TRUE(invariants(other));
    other.freeAllPages();
}

TEST_F(KvTruckerIteratorTest, RemoveAtWithoutPageOrSlotDoesNothing) {
    fillWith(4);
    SmallStore::iterator it = store.iteratorAt(1);
    it.page = nullptr;
    store.removeAt(it);
    EXPECT_THAT(valuesOf(store), ElementsAre(0, 1, 2, 3));
    it = store.iteratorAt(1);
    it.slot = nullptr;
    store.removeAt(it);
    EXPECT_THAT(valuesOf(store), ElementsAre(0, 1, 2, 3));
    it = beforeFirst(store);
    store.removeAt(it);
    EXPECT_THAT(valuesOf(store), ElementsAre(0, 1, 2, 3));
    EXPECT_TRUE(isBeforeFirst(it));
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerIteratorTest, StepBehindARemovalGoesOnBehindTheFreedSlot) {
    fillWith(4);
    SmallStore::iterator it = store.iteratorAt(1);
    store.removeAt(it);
    it.next();
    EXPECT_EQ(it.slot, slots[2]);
    EXPECT_EQ(it.position, 3u);
}

TEST_F(KvTruckerIteratorTest, SecondStepBehindARemovalEndsThePageEarly) {
    fillWith(6);
    SmallStore::iterator it = store.iteratorAt(1);
    store.removeAt(it);
    it.next();
    it.next();
    EXPECT_EQ(it.slot, slots[4]);
}

TEST_F(KvTruckerIteratorTest, RemovalFromAPositionZeroKeepsTheWholePageInReach) {
    fillWith(6);
    SmallStore::iterator it = beforeFirst(store);
    it.next();
    store.removeAt(it);
    it.next();
    EXPECT_EQ(it.slot, slots[1]);
    EXPECT_EQ(it.position, 1u);
    EXPECT_THAT(walkFrom(store, it), ElementsAre(1, 2, 3, 4, 5));
}

TEST_F(KvTruckerIteratorTest, EmptyingTheTailMovesBackToTheLastElementOfThePageBefore) {
    fillWith(5);
    SmallStore::Page* head = store.head;
    SmallStore::iterator it = store.iteratorAt(4);
    store.removeAt(it);
    EXPECT_EQ(store.head, head);
    EXPECT_EQ(store.tail, head);
    EXPECT_EQ(head->next, nullptr);
    EXPECT_EQ(it.page, head);
    EXPECT_EQ(it.slot, slots[3]);
    EXPECT_EQ(it.pageEnd, head->slots + kSmallPageSlots);
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerIteratorTest, PositionAfterMovingBackIsOneLessThanThePagesCount) {
    fillWith(5);
    SmallStore::iterator it = store.iteratorAt(4);
    store.removeAt(it);
    EXPECT_EQ(it.position, 3u);
}

TEST_F(KvTruckerIteratorTest, MovingBackPassesOverFreedSlots) {
    fillWith(5);
    removeIndex(store, 3);
    removeIndex(store, 1);
    SmallStore::iterator it = store.iteratorAt(2);
    store.removeAt(it);
    EXPECT_EQ(it.slot, slots[2]);
    EXPECT_EQ(it.position, 1u);
}

TEST_F(KvTruckerIteratorTest, MovingBackReachesTheFirstSlotOfThePageBefore) {
    fillWith(5);
    removeIndex(store, 3);
    removeIndex(store, 2);
    removeIndex(store, 1);
    SmallStore::iterator it = store.iteratorAt(1);
    store.removeAt(it);
    EXPECT_EQ(it.slot, slots[0]);
    EXPECT_EQ(it.position, 0u);
    EXPECT_EQ(*it, 0);
}

TEST_F(KvTruckerIteratorTest, MovingBackPassesOverAnEmptyPage) {
    fillWith(9);
    emptyAndKeep(4, 7, pageAt(store, 1));
    SmallStore::iterator it = store.iteratorAt(4);
    store.removeAt(it);
    EXPECT_EQ(it.page, store.head);
    EXPECT_EQ(it.slot, slots[3]);
    EXPECT_EQ(it.position, 3u);
    EXPECT_EQ(pageCount(store), 2u);
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerIteratorTest, EmptyingAPageBehindEmptyPagesOnlyGoesBeforeTheFirst) {
    fillWith(5);
    emptyAndKeep(0, 3, store.head);
    SmallStore::iterator it = store.iteratorAt(0);
    store.removeAt(it);
    EXPECT_TRUE(isBeforeFirst(it));
    EXPECT_EQ(pageCount(store), 1u);
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerIteratorTest, EmptyingTheHeadGoesBeforeTheFirstAndMakesTheNextPageTheHead) {
    fillWith(6);
    SmallStore::Page* second = store.tail;
    for (int i = 0; i < 3; ++i)
        removeIndex(store, 0);
    SmallStore::iterator it = store.iteratorAt(0);
    store.removeAt(it);
    EXPECT_TRUE(isBeforeFirst(it));
    EXPECT_EQ(it.trucker, &store);
    EXPECT_EQ(store.head, second);
    EXPECT_EQ(store.tail, second);
    it.next();
    EXPECT_EQ(*it, 4);
    EXPECT_EQ(it.position, 0u);
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerIteratorTest, EmptyingTheOnlyPageLeavesAStoreWithoutPages) {
    fillWith(1);
    const long before = kvtest::liveNewBlocks();
    SmallStore::iterator it = store.iteratorAt(0);
    store.removeAt(it);
    EXPECT_TRUE(isBeforeFirst(it));
    EXPECT_EQ(store.head, nullptr);
    EXPECT_EQ(store.tail, nullptr);
    EXPECT_LT(kvtest::liveNewBlocks(), before);
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerIteratorTest, EmptyingAMiddlePageUnlinksItAndMovesBack) {
    fillWith(12);
    SmallStore::Page* head = store.head;
    SmallStore::Page* tail = store.tail;
    for (int i = 0; i < 3; ++i)
        removeIndex(store, 4);
    SmallStore::iterator it = store.iteratorAt(4);
    store.removeAt(it);
    EXPECT_EQ(head->next, tail);
    EXPECT_EQ(store.head, head);
    EXPECT_EQ(store.tail, tail);
    EXPECT_EQ(it.slot, slots[3]);
    it.next();
    EXPECT_EQ(*it, 8);
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerIteratorTest, EmptiedPageIsFreedAtOnce) {
    fillWith(5);
    const long withTwoPages = kvtest::liveNewBlocks();
    removeIndex(store, 4);
    EXPECT_LT(kvtest::liveNewBlocks(), withTwoPages);
}

TEST_F(KvTruckerIteratorTest, RemovalWithABeforeFirstPositionFreesThePageWithoutMovingBack) {
    fillWith(5);
    SmallStore::iterator it = store.iteratorAt(4);
    it.position = kBeforeFirst;
    store.removeAt(it);
    EXPECT_EQ(pageCount(store), 1u);
    EXPECT_EQ(it.position, kBeforeFirst);
    EXPECT_TRUE(invariants(store));
    it.next();
    EXPECT_EQ(it.slot, slots[0]);
    EXPECT_EQ(it.position, 0u);
}

TEST_F(KvTruckerIteratorTest, RemovalFromAPageThatCountsNoElementFreesThePage) {
    fillWith(5);
    SmallStore::iterator it = store.iteratorAt(4);
    store.tail->liveCount = 0;
    store.removeAt(it);
    EXPECT_EQ(pageCount(store), 1u);
    EXPECT_EQ(it.slot, slots[3]);
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerIteratorTest, AppendAfterTheTailWasFreedFillsThePageBeforeOrOpensANewOne) {
    fillWith(5);
    removeIndex(store, 4);
    store.append(9);
    EXPECT_EQ(pageCount(store), 2u);
    EXPECT_THAT(valuesOf(store), ElementsAre(0, 1, 2, 3, 9));
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerIteratorTest, RemovingAWholeFirstPageOfFourThousandNinetySixMakesTheSecondTheHead) {
    KvTrucker<int*, 65536u> large;
    for (int i = 0; i < 4097; ++i)
        large.append(nullptr);
    KvTrucker<int*, 65536u>::Page* second = large.tail;
    const long withTwoPages = kvtest::liveNewBlocks();
    for (int i = 0; i < 4096; ++i) {
        KvTrucker<int*, 65536u>::iterator it = large.iteratorAt(0);
        large.removeAt(it);
    }
    EXPECT_EQ(large.head, second);
    EXPECT_EQ(large.tail, second);
    EXPECT_EQ(second->liveCount, 1u);
    EXPECT_LT(kvtest::liveNewBlocks(), withTwoPages);
    EXPECT_TRUE(invariants(large));
}

TEST_F(KvTruckerIteratorTest, RemovingAllElementsFromTheFrontEmptiesTheStore) {
    fillWith(19);
    for (int i = 0; i < 19; ++i) {
        removeIndex(store, 0);
        ASSERT_TRUE(invariants(store)) << i;
    }
    EXPECT_EQ(store.head, nullptr);
}

TEST_F(KvTruckerIteratorTest, RemovingAllElementsFromTheBackEmptiesTheStore) {
    fillWith(19);
    for (int i = 18; i >= 0; --i) {
        removeIndex(store, i);
        ASSERT_TRUE(invariants(store)) << i;
    }
    EXPECT_EQ(store.head, nullptr);
}

} // namespace
