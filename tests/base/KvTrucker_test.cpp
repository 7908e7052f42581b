#include "base/KvTrucker.h"

#include "platform/inmemory/InMemoryOsBase.h"
#include "tests/base/ContainerTest.h"
#include "tests/base/Invariants.h"
#include "tests/base/SmallStore.h"
#include "tests/support/NewTracking.h"
#include "tests/support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace {

using kvtest::beforeFirst;
using kvtest::expectMessage;
using kvtest::expectStatus;
using kvtest::fill;
using kvtest::invariants;
using kvtest::kNoIndex;
using kvtest::kNotFound;
using kvtest::kSmallPageSlots;
using kvtest::pageAt;
using kvtest::pageCount;
using kvtest::removeIndex;
using kvtest::SmallStore;
using kvtest::valuesOf;
using kvtest::walkFrom;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using PointerStore = KvTrucker<int*, 65536u, KvTkDefaultAllocator<int*>>;

class KvTruckerTest : public kvtest::ContainerTest {};

TEST_F(KvTruckerTest, NewStoreHasNoPages) {
    const SmallStore store;
    EXPECT_EQ(store.head, nullptr);
    EXPECT_EQ(store.tail, nullptr);
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerTest, NewStoreAllocatesNothing) {
    const long before = kvtest::newCalls();
    const SmallStore store;
    EXPECT_EQ(kvtest::newCalls(), before);
}

// ---- append

TEST_F(KvTruckerTest, AppendHandsOutTheFirstSlotOfTheFirstPage) {
    SmallStore store;
    SmallStore::Slot* slot = store.append();
    ASSERT_NE(store.head, nullptr);
    EXPECT_EQ(store.tail, store.head);
    EXPECT_EQ(slot, store.head->slots);
    EXPECT_EQ(slot->free, 0);
    EXPECT_EQ(store.head->liveCount, 1u);
    EXPECT_EQ(store.head->fillEnd, store.head->slots + 1);
    EXPECT_EQ(store.head->next, nullptr);
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerTest, AppendedSlotTakesTheCallersValueLater) {
    SmallStore store;
    store.append()->value = 42;
    EXPECT_EQ(store.at(0), 42);
}

TEST_F(KvTruckerTest, AppendOfAValueStoresIt) {
    SmallStore store;
    const SmallStore::Slot* slot = store.append(7);
    EXPECT_EQ(slot->value, 7);
    EXPECT_EQ(slot->free, 0);
}

TEST_F(KvTruckerTest, AppendOfAValueThatLiesInTheStoreItself) {
    SmallStore store;
    fill(store, 4);
    store.append(store.at(3));
    EXPECT_THAT(valuesOf(store), ElementsAre(0, 1, 2, 3, 3));
}

TEST_F(KvTruckerTest, NewPageHasEverySlotFreeButTheFirst) {
    SmallStore store;
    store.append(1);
    for (std::ptrdiff_t i = 1; i < kSmallPageSlots; ++i)
        EXPECT_EQ(store.head->slots[i].free, 1) << i;
}

TEST_F(KvTruckerTest, AppendFillsThePageSlotBySlot) {
    SmallStore store;
    const auto slots = fill(store, 4);
    for (std::size_t i = 0; i < slots.size(); ++i)
        EXPECT_EQ(slots[i], store.head->slots + i);
    EXPECT_EQ(pageCount(store), 1u);
    EXPECT_EQ(store.head->fillEnd, store.head->slots + kSmallPageSlots);
    EXPECT_EQ(store.head->liveCount, 4u);
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerTest, AppendToAFullPageLinksANewTail) {
    SmallStore store;
    const auto slots = fill(store, 5);
    ASSERT_EQ(pageCount(store), 2u);
    EXPECT_EQ(store.head->next, store.tail);
    EXPECT_EQ(store.tail->next, nullptr);
    EXPECT_EQ(slots[4], store.tail->slots);
    EXPECT_EQ(store.tail->liveCount, 1u);
    EXPECT_EQ(store.head->liveCount, 4u);
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerTest, EveryFourThousandNinetySixthAppendOpensAPage) {
    PointerStore store;
    for (int i = 0; i < 4096; ++i)
        store.append(nullptr);
    EXPECT_EQ(pageCount(store), 1u);
    store.append(nullptr);
    EXPECT_EQ(pageCount(store), 2u);
    for (int i = 4097; i < 8192; ++i)
        store.append(nullptr);
    EXPECT_EQ(pageCount(store), 2u);
    store.append(nullptr);
    EXPECT_EQ(pageCount(store), 3u);
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerTest, PagesAreAllocatedOnlyByTheAppendThatOpensThem) {
    SmallStore store;
    store.append(0);
    const long afterFirst = kvtest::newCalls();
    store.append(1);
    store.append(2);
    store.append(3);
    EXPECT_EQ(kvtest::newCalls(), afterFirst);
    store.append(4);
    EXPECT_GT(kvtest::newCalls(), afterFirst);
}

TEST_F(KvTruckerTest, SlotsKeepTheirAddressesWhileTheStoreGrows) {
    SmallStore store;
    const auto slots = fill(store, 100);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(store.elementAt(i), slots[static_cast<std::size_t>(i)]);
        EXPECT_EQ(slots[static_cast<std::size_t>(i)]->value, i);
    }
}

TEST_F(KvTruckerTest, AppendDoesNotReuseAFreedSlot) {
    SmallStore store;
    const auto slots = fill(store, 2);
    removeIndex(store, 0);
    const SmallStore::Slot* slot = store.append(9);
    EXPECT_EQ(slot, slots[1] + 1);
    EXPECT_EQ(slots[0]->free, 1);
    EXPECT_THAT(valuesOf(store), ElementsAre(1, 9));
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerTest, AppendOpensAPageWhenTheTailIsFullOfFreedSlots) {
    SmallStore store;
    fill(store, 4);
    removeIndex(store, 0);
    removeIndex(store, 0);
    store.append(9);
    EXPECT_EQ(pageCount(store), 2u);
    EXPECT_THAT(valuesOf(store), ElementsAre(2, 3, 9));
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerTest, AppendFollowsAFillEndThatTheCallerMoved) {
    SmallStore store;
    const auto slots = fill(store, 3);
    store.tail->fillEnd = store.tail->slots;
    store.tail->liveCount = 0;
    EXPECT_EQ(store.append(9), slots[0]);
}

TEST_F(KvTruckerTest, StoreOfOneSlotPagesIsReleasedHoweverLongItsChain) {
    const long before = kvtest::liveNewBlocks();
    {
        KvTrucker<long, 16u> store;
        for (long i = 0; i < 300000; ++i)
            store.append(i);
        EXPECT_EQ(store.tail->slots->value, 299999);
    }
    EXPECT_EQ(kvtest::liveNewBlocks(), before);
}

template <class T>
struct Copied { // not trivially copyable: a store must not copy its bytes
    Copied() = default;
    Copied(T number) noexcept : value(number) {}
    Copied(const Copied& other) noexcept : value(other.value) {}
    Copied& operator=(const Copied& other) noexcept {
        value = other.value;
        return *this;
    }
    T value = 7;
};

template <class Store>
void expectFreshPageIsClear() {
    Store store;
    store.append();
    const auto* const slots = store.head->slots;
    EXPECT_EQ(slots[0].free, 0);
    for (std::uint32_t i = 1; i < Store::kSlotsPerPage; ++i)
        ASSERT_EQ(slots[i].free, 1) << i;
}

TEST_F(KvTruckerTest, EverySlotOfAFreshPageIsFree) {
    expectFreshPageIsClear<KvTrucker<long, 16u>>();
    expectFreshPageIsClear<KvTrucker<long, 1600u>>(); // 100 slots, which is no power of two
    expectFreshPageIsClear<KvTrucker<long, 65536u>>();
    expectFreshPageIsClear<KvTrucker<Copied<long>, 1600u>>();
}

TEST_F(KvTruckerTest, EveryValueOfAFreshPageIsADefaultOne) {
    KvTrucker<Copied<long>, 1600u> store;
    store.append();
    for (std::uint32_t i = 0; i < 100; ++i)
        ASSERT_EQ(store.head->slots[i].value.value, 7) << i;
    KvTrucker<int*, 65536u> pointers;
    pointers.append();
    for (std::uint32_t i = 0; i < 4096; ++i)
        ASSERT_EQ(pointers.head->slots[i].value, nullptr) << i;
}

// ---- elementAt

TEST_F(KvTruckerTest, ElementAtGivesSlotPageAndIndexInThePage) {
    SmallStore store;
    const auto slots = fill(store, 10);
    for (int i = 0; i < 10; ++i) {
        SmallStore::Page* page = nullptr;
        unsigned index = kNoIndex;
        EXPECT_EQ(store.elementAt(i, &page, &index), slots[static_cast<std::size_t>(i)]);
        EXPECT_EQ(page, pageAt(store, i / 4)) << i;
        EXPECT_EQ(index, static_cast<unsigned>(i % 4));
    }
}

TEST_F(KvTruckerTest, ElementAtWorksWithEitherOutputAlone) {
    SmallStore store;
    const auto slots = fill(store, 6);
    SmallStore::Page* page = nullptr;
    unsigned index = 99;
    EXPECT_EQ(store.elementAt(5, &page), slots[5]);
    EXPECT_EQ(page, store.tail);
    EXPECT_EQ(store.elementAt(5, nullptr, &index), slots[5]);
    EXPECT_EQ(index, 1u);
}

TEST_F(KvTruckerTest, ElementAtCountsOccupiedSlotsOnly) {
    SmallStore store;
    const auto slots = fill(store, 8);
    removeIndex(store, 1);
    removeIndex(store, 3);
    unsigned index = 99;
    EXPECT_EQ(store.elementAt(0), slots[0]);
    EXPECT_EQ(store.elementAt(1, nullptr, &index), slots[2]);
    EXPECT_EQ(index, 1u);
    EXPECT_EQ(store.elementAt(2), slots[3]);
    EXPECT_EQ(store.elementAt(3, nullptr, &index), slots[5]);
    EXPECT_EQ(index, 0u);
    EXPECT_EQ(store.elementAt(5), slots[7]);
    EXPECT_EQ(store.elementAt(6), nullptr);
}

TEST_F(KvTruckerTest, ElementAtOfAnEmptyStoreIsNull) {
    const SmallStore store;
    SmallStore::Page junk{};
    SmallStore::Page* page = &junk;
    unsigned index = 5;
    EXPECT_EQ(store.elementAt(0, &page, &index), nullptr);
    EXPECT_EQ(page, nullptr);
    EXPECT_EQ(index, kNoIndex);
}

TEST_F(KvTruckerTest, ElementAtBeyondTheLastIsNullAndReachesNoPage) {
    SmallStore store;
    fill(store, 6);
    SmallStore::Page* page = store.head;
    unsigned index = 5;
    EXPECT_EQ(store.elementAt(6, &page, &index), nullptr);
    EXPECT_EQ(page, nullptr);
    EXPECT_EQ(index, kNoIndex);
    EXPECT_EQ(store.elementAt(INT_MAX), nullptr);
}

TEST_F(KvTruckerTest, ElementAtOfANegativeIndexRaisesInvalidIndex) {
    SmallStore store;
    expectStatus([&] { store.elementAt(-1); }, 24);
    fill(store, 3);
    expectStatus([&] { store.elementAt(-1); }, 24);
    expectStatus([&] { store.elementAt(INT_MIN); }, 24);
}

TEST_F(KvTruckerTest, ElementAtSetsItsOutputsBeforeItRefusesANegativeIndex) {
    SmallStore store;
    fill(store, 3);
    SmallStore::Page* page = store.head;
    unsigned index = 2;
    expectStatus([&] { store.elementAt(-1, &page, &index); }, 24);
    EXPECT_EQ(page, nullptr);
    EXPECT_EQ(index, kNoIndex);
}

TEST_F(KvTruckerTest, ElementAtPassesOverAnEmptyPage) {
    SmallStore store;
    const auto slots = fill(store, 12);
    SmallStore::Page* middle = pageAt(store, 1);
    for (std::size_t i = 4; i < 8; ++i)
        store.removeSlot(slots[i], middle, false);
    ASSERT_EQ(pageCount(store), 3u);
    EXPECT_EQ(store.elementAt(3), slots[3]);
    EXPECT_EQ(store.elementAt(4), slots[8]);
    EXPECT_EQ(store.elementAt(7), slots[11]);
    EXPECT_EQ(store.elementAt(8), nullptr);
}

TEST_F(KvTruckerTest, CountTooHighByOneFindsAnOccupiedSlotAtTheFillEnd) {
    SmallStore store;
    const auto slots = fill(store, 2);
    store.head->liveCount = 3;
    SmallStore::Slot* fillEnd = store.head->fillEnd;
    fillEnd->free = 0;
    EXPECT_EQ(store.elementAt(2), fillEnd);
    EXPECT_EQ(fillEnd, slots[1] + 1);
}

TEST_F(KvTruckerTest, CountTooHighByOneRaisesInvalidIndexWhenTheFillEndIsFree) {
    SmallStore store;
    fill(store, 2);
    store.head->liveCount = 3;
    expectStatus([&] { store.elementAt(2); }, 24);
    expectStatus([&] { store.at(2); }, 24);
    expectStatus([&] { store.iteratorAt(2); }, 24);
}

TEST_F(KvTruckerTest, CountTooHighInAFullPageNeverReadsBehindItsBlock) {
    SmallStore store;
    fill(store, 4);
    store.head->liveCount = 5;
    expectStatus([&] { store.elementAt(4); }, 24);
}

TEST_F(KvTruckerTest, CountTooHighByMoreIsNull) {
    SmallStore store;
    fill(store, 2);
    store.head->liveCount = 4;
    store.head->fillEnd->free = 0;
    unsigned index = 99;
    EXPECT_EQ(store.elementAt(3, nullptr, &index), nullptr);
    EXPECT_EQ(index, 3u);
}

TEST_F(KvTruckerTest, CountTooHighInAnEarlierPageHidesNoElementOfTheOthers) {
    SmallStore store;
    const auto slots = fill(store, 6);
    store.head->liveCount = 5;
    EXPECT_EQ(store.elementAt(3), slots[3]);
    EXPECT_EQ(store.elementAt(5), slots[4]);
    EXPECT_EQ(store.elementAt(6), slots[5]);
}

TEST_F(KvTruckerTest, SlotsFreedByTheCallerAreNoLongerCounted) {
    SmallStore store;
    const auto slots = fill(store, 4);
    slots[1]->free = 1;
    store.head->liveCount = 3;
    EXPECT_EQ(store.elementAt(1), slots[2]);
    EXPECT_EQ(store.positionOf(slots[3]), 2u);
    EXPECT_EQ(store.positionOf(slots[1]), kNotFound);
}

TEST_F(KvTruckerTest, SlotsOccupiedAgainByTheCallerAreCounted) {
    SmallStore store;
    const auto slots = fill(store, 4);
    removeIndex(store, 0);
    slots[0]->free = 0;
    store.head->liveCount = 4;
    EXPECT_EQ(store.elementAt(0), slots[0]);
    EXPECT_EQ(store.elementAt(3), slots[3]);
    EXPECT_EQ(store.positionOf(slots[3]), 3u);
}

TEST_F(KvTruckerTest, SlotFreedByTheCallerInAPageWithHolesIsNoLongerCounted) {
    SmallStore store;
    const auto slots = fill(store, 4);
    removeIndex(store, 0);
    slots[2]->free = 1;
    store.head->liveCount = 2;
    EXPECT_EQ(store.elementAt(0), slots[1]);
    EXPECT_EQ(store.elementAt(1), slots[3]);
    EXPECT_EQ(store.positionOf(slots[3]), 1u);
    EXPECT_THAT(walkFrom(store, store.iteratorAt(0)), ElementsAre(1, 3));
}

TEST_F(KvTruckerTest, SlotOccupiedByTheCallerInAPageWithHolesIsCounted) {
    SmallStore store;
    const auto slots = fill(store, 4);
    removeIndex(store, 1);
    removeIndex(store, 1);
    slots[1]->free = 0;
    store.head->liveCount = 3;
    EXPECT_EQ(store.elementAt(1), slots[1]);
    EXPECT_EQ(store.positionOf(slots[3]), 2u);
    EXPECT_THAT(walkFrom(store, store.iteratorAt(0)), ElementsAre(0, 1, 3));
}

TEST_F(KvTruckerTest, StepBackPassesASlotFreedByTheCallerInAPageWithHoles) {
    SmallStore store;
    const auto slots = fill(store, 4);
    removeIndex(store, 1);
    slots[2]->free = 1;
    SmallStore::iterator it = store.iteratorAt(0);
    it = {&store, store.head, store.head->slots + 4, slots[3], 2, it.epoch};
    kvdetail::stepBack(&store, it);
    EXPECT_EQ(it.slot, slots[0]);
}

TEST_F(KvTruckerTest, RemovalsAfterACallersRemovalCountOn) {
    SmallStore store;
    const auto slots = fill(store, 4);
    slots[0]->free = 1;
    store.head->liveCount = 3;
    store.removeSlot(slots[2], store.head, true);
    EXPECT_EQ(store.elementAt(0), slots[1]);
    EXPECT_EQ(store.elementAt(1), slots[3]);
    EXPECT_EQ(store.positionOf(slots[3]), 1u);
    store.append(4);
    EXPECT_EQ(store.positionOf(store.tail->slots), 2u);
}

TEST_F(KvTruckerTest, RemovalThroughAnIteratorOutsideItsPageTouchesNothing) {
    SmallStore store;
    fill(store, 3);
    SmallStore::Slot foreign{7, 0};
    SmallStore::iterator it = store.iteratorAt(1);
    it.slot = &foreign;
    store.removeAt(it);
    EXPECT_EQ(foreign.free, 0);
    EXPECT_THAT(valuesOf(store), ElementsAre(0, 1, 2));
}

// ---- at

TEST_F(KvTruckerTest, AtGivesAReferenceToTheStoredValue) {
    SmallStore store;
    const auto slots = fill(store, 6);
    EXPECT_EQ(&store.at(5), &slots[5]->value);
    store.at(5) = 50;
    EXPECT_EQ(slots[5]->value, 50);
}

TEST_F(KvTruckerTest, AtOutsideTheStoreRaisesInvalidIndex) {
    SmallStore store;
    expectStatus([&] { store.at(0); }, 24);
    fill(store, 5);
    expectStatus([&] { store.at(5); }, 24);
    expectStatus([&] { store.at(-1); }, 24);
    expectStatus([&] { store.at(INT_MAX); }, 24);
    expectStatus([&] { store.at(INT_MIN); }, 24);
}

TEST_F(KvTruckerTest, AtFollowsRemovals) {
    SmallStore store;
    fill(store, 6);
    removeIndex(store, 2);
    EXPECT_EQ(store.at(2), 3);
    EXPECT_EQ(store.at(4), 5);
    expectStatus([&] { store.at(5); }, 24);
}

// ---- iteratorAt and end

TEST_F(KvTruckerTest, IteratorAtCountsPositionsFromOneInEachPage) {
    SmallStore store;
    const auto slots = fill(store, 6);
    for (int i = 0; i < 6; ++i) {
        const SmallStore::iterator it = store.iteratorAt(i);
        SmallStore::Page* page = pageAt(store, i / 4);
        EXPECT_EQ(it.trucker, &store);
        EXPECT_EQ(it.page, page);
        EXPECT_EQ(it.pageEnd, page->slots + kSmallPageSlots);
        EXPECT_EQ(it.slot, slots[static_cast<std::size_t>(i)]);
        EXPECT_EQ(it.position, static_cast<std::uint32_t>(i % 4 + 1));
        EXPECT_EQ(*it, i);
    }
}

TEST_F(KvTruckerTest, IteratorAtCountsOccupiedSlotsOnly) {
    SmallStore store;
    const auto slots = fill(store, 4);
    removeIndex(store, 1);
    const SmallStore::iterator it = store.iteratorAt(2);
    EXPECT_EQ(it.slot, slots[3]);
    EXPECT_EQ(it.position, 3u);
}

TEST_F(KvTruckerTest, IteratorAtANegativeIndexIsTheEnd) {
    SmallStore store;
    EXPECT_TRUE(store.isEnd(store.iteratorAt(-1)));
    fill(store, 6);
    const SmallStore::iterator it = store.iteratorAt(-1);
    EXPECT_TRUE(store.isEnd(it));
    EXPECT_EQ(it.slot, store.tail->slots + kSmallPageSlots);
    EXPECT_TRUE(store.isEnd(store.iteratorAt(INT_MIN)));
}

TEST_F(KvTruckerTest, IteratorAtAnIndexBeyondTheLastHasNoPageAndPositionZero) {
    SmallStore store;
    fill(store, 6);
    const SmallStore::iterator it = store.iteratorAt(6);
    EXPECT_EQ(it.trucker, &store);
    EXPECT_EQ(it.page, nullptr);
    EXPECT_EQ(it.pageEnd, nullptr);
    EXPECT_EQ(it.slot, nullptr);
    EXPECT_EQ(it.position, 0u);
    EXPECT_FALSE(store.isEnd(it));
}

TEST_F(KvTruckerTest, IteratorAtInAPageThatCountsTooManyKeepsTheIndexItCouldNotFind) {
    SmallStore store;
    fill(store, 2);
    store.head->liveCount = 4;
    const SmallStore::iterator it = store.iteratorAt(3);
    EXPECT_EQ(it.page, nullptr);
    EXPECT_EQ(it.pageEnd, nullptr);
    EXPECT_EQ(it.slot, nullptr);
    EXPECT_EQ(it.position, 4u);
}

TEST_F(KvTruckerTest, IteratorAtOfAStoreWithoutPagesIsItsEnd) {
    const SmallStore store;
    const SmallStore::iterator it = store.iteratorAt(0);
    EXPECT_EQ(it.slot, nullptr);
    EXPECT_EQ(it.position, 0u);
    EXPECT_TRUE(store.isEnd(it));
}

TEST_F(KvTruckerTest, EndStandsBehindTheTailsBlockWithItsCount) {
    SmallStore store;
    fill(store, 6);
    const SmallStore::iterator end = store.end();
    EXPECT_EQ(end.trucker, &store);
    EXPECT_EQ(end.page, store.tail);
    EXPECT_EQ(end.slot, store.tail->slots + kSmallPageSlots);
    EXPECT_EQ(end.pageEnd, end.slot);
    EXPECT_EQ(end.position, 2u);
    EXPECT_TRUE(store.isEnd(end));
}

TEST_F(KvTruckerTest, EndOfALargePageIsItsFullBlockAway) {
    PointerStore store;
    store.append(nullptr);
    const PointerStore::iterator end = store.end();
    const auto distance =
        reinterpret_cast<const char*>(end.slot) - reinterpret_cast<const char*>(store.tail->slots);
    EXPECT_EQ(distance, 65536);
}

TEST_F(KvTruckerTest, EndOfAStoreWithoutPagesHasTheStoreOnly) {
    const SmallStore store;
    const SmallStore::iterator end = store.end();
    EXPECT_EQ(end.trucker, &store);
    EXPECT_EQ(end.page, nullptr);
    EXPECT_EQ(end.pageEnd, nullptr);
    EXPECT_EQ(end.slot, nullptr);
    EXPECT_EQ(end.position, 0u);
    EXPECT_TRUE(store.isEnd(end));
}

TEST_F(KvTruckerTest, IsEndComparesStorePageSlotAndPositionButNotPageEnd) {
    SmallStore store;
    SmallStore other;
    fill(store, 6);
    SmallStore::iterator it = store.end();
    it.pageEnd = nullptr;
    EXPECT_TRUE(store.isEnd(it));
    it = store.end();
    it.trucker = &other;
    EXPECT_FALSE(store.isEnd(it));
    it = store.end();
    it.page = store.head;
    EXPECT_FALSE(store.isEnd(it));
    it = store.end();
    --it.slot;
    EXPECT_FALSE(store.isEnd(it));
    it = store.end();
    ++it.position;
    EXPECT_FALSE(store.isEnd(it));
}

TEST_F(KvTruckerTest, NoElementsIteratorIsTheEnd) {
    SmallStore store;
    fill(store, 8);
    for (int i = 0; i < 8; ++i)
        EXPECT_FALSE(store.isEnd(store.iteratorAt(i))) << i;
}

TEST_F(KvTruckerTest, EndTakenBeforeAnAppendToTheTailIsNoLongerTheEnd) {
    SmallStore store;
    fill(store, 2);
    const SmallStore::iterator end = store.end();
    store.append(2);
    EXPECT_FALSE(store.isEnd(end));
}

// ---- positionOf

TEST_F(KvTruckerTest, PositionOfCountsTheOccupiedSlotsBefore) {
    SmallStore store;
    const auto slots = fill(store, 10);
    for (std::size_t i = 0; i < slots.size(); ++i)
        EXPECT_EQ(store.positionOf(slots[i]), i);
    removeIndex(store, 6);
    removeIndex(store, 1);
    EXPECT_EQ(store.positionOf(slots[0]), 0u);
    EXPECT_EQ(store.positionOf(slots[2]), 1u);
    EXPECT_EQ(store.positionOf(slots[5]), 4u);
    EXPECT_EQ(store.positionOf(slots[7]), 5u);
    EXPECT_EQ(store.positionOf(slots[9]), 7u);
}

TEST_F(KvTruckerTest, PositionOfAFreedSlotIsNotFound) {
    SmallStore store;
    const auto slots = fill(store, 4);
    removeIndex(store, 1);
    EXPECT_EQ(store.positionOf(slots[1]), kNotFound);
}

TEST_F(KvTruckerTest, PositionOfNullIsNotFound) {
    SmallStore store;
    EXPECT_EQ(store.positionOf(nullptr), kNotFound);
    fill(store, 2);
    EXPECT_EQ(store.positionOf(nullptr), kNotFound);
}

TEST_F(KvTruckerTest, PositionOfAnAddressElsewhereIsNotFound) {
    SmallStore store;
    SmallStore other;
    fill(store, 2);
    const auto foreign = fill(other, 2);
    const SmallStore::Slot local{5, 0};
    EXPECT_EQ(store.positionOf(foreign[0]), kNotFound);
    EXPECT_EQ(store.positionOf(&local), kNotFound);
    EXPECT_EQ(store.positionOf(reinterpret_cast<const void*>(std::uintptr_t{16})), kNotFound);
    EXPECT_EQ(store.positionOf(reinterpret_cast<const void*>(~std::uintptr_t{15})), kNotFound);
}

TEST_F(KvTruckerTest, PositionOfANeverUsedSlotIsNotFound) {
    SmallStore store;
    fill(store, 2);
    store.head->slots[2].free = 0;
    EXPECT_EQ(store.positionOf(store.head->slots + 2), kNotFound);
    store.head->slots[2].free = 1;
    EXPECT_EQ(store.positionOf(store.head->slots + 2), kNotFound);
    EXPECT_EQ(store.positionOf(store.head->slots + kSmallPageSlots), kNotFound);
}

TEST_F(KvTruckerTest, PositionOfTheEndOfAFullBlockIsNotFound) {
    SmallStore store;
    fill(store, 4);
    EXPECT_EQ(store.positionOf(store.head->slots + kSmallPageSlots), kNotFound);
}

TEST_F(KvTruckerTest, PositionOfAnAddressInsideASlotIsNotFound) {
    SmallStore store;
    const auto slots = fill(store, 3);
    const char* bytes = reinterpret_cast<const char*>(slots[1]);
    for (int offset = 1; offset < 16; ++offset)
        EXPECT_EQ(store.positionOf(bytes + offset), kNotFound) << offset;
}

TEST_F(KvTruckerTest, PositionOfAnOldAddressIsNotFoundInAStoreWithoutPages) {
    SmallStore store;
    const void* old = store.append(1);
    store.freeAllPages();
    EXPECT_EQ(store.positionOf(old), kNotFound);
}

// ---- removeSlot

TEST_F(KvTruckerTest, RemoveSlotFreesTheSlotAndCountsItOff) {
    SmallStore store;
    const auto slots = fill(store, 4);
    store.removeSlot(slots[2], store.head, true);
    EXPECT_EQ(slots[2]->free, 1);
    EXPECT_EQ(store.head->liveCount, 3u);
    EXPECT_EQ(store.head->fillEnd, store.head->slots + 4);
    EXPECT_THAT(valuesOf(store), ElementsAre(0, 1, 3));
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerTest, RemoveSlotFreesAnEmptiedHeadWhenAsked) {
    SmallStore store;
    const auto slots = fill(store, 6);
    const SmallStore::Page* tail = store.tail;
    SmallStore::Page* head = store.head;
    for (std::size_t i = 0; i < 4; ++i)
        store.removeSlot(slots[i], head, true);
    EXPECT_EQ(store.head, tail);
    EXPECT_EQ(store.tail, tail);
    EXPECT_THAT(valuesOf(store), ElementsAre(4, 5));
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerTest, RemoveSlotFreesAnEmptiedMiddlePageWhenAsked) {
    SmallStore store;
    const auto slots = fill(store, 12);
    SmallStore::Page* middle = pageAt(store, 1);
    for (std::size_t i = 4; i < 8; ++i)
        store.removeSlot(slots[i], middle, true);
    EXPECT_EQ(pageCount(store), 2u);
    EXPECT_EQ(store.head->next, store.tail);
    EXPECT_THAT(valuesOf(store), ElementsAre(0, 1, 2, 3, 8, 9, 10, 11));
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerTest, RemoveSlotFreesAnEmptiedTailWhenAsked) {
    SmallStore store;
    const auto slots = fill(store, 5);
    SmallStore::Page* head = store.head;
    store.removeSlot(slots[4], store.tail, true);
    EXPECT_EQ(store.tail, head);
    EXPECT_EQ(head->next, nullptr);
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerTest, RemoveSlotFreesTheOnlyPageWhenAsked) {
    const long before = kvtest::liveNewBlocks();
    SmallStore store;
    SmallStore::Slot* slot = store.append(1);
    store.removeSlot(slot, store.head, true);
    EXPECT_EQ(store.head, nullptr);
    EXPECT_EQ(store.tail, nullptr);
    EXPECT_EQ(kvtest::liveNewBlocks(), before);
}

TEST_F(KvTruckerTest, RemoveSlotResetsAnEmptiedTailThatIsNotToBeFreed) {
    SmallStore store;
    const auto slots = fill(store, 6);
    SmallStore::Page* tail = store.tail;
    store.removeSlot(slots[4], tail, false);
    EXPECT_EQ(tail->fillEnd, tail->slots + 2);
    store.removeSlot(slots[5], tail, false);
    EXPECT_EQ(store.tail, tail);
    EXPECT_EQ(tail->fillEnd, tail->slots);
    EXPECT_EQ(tail->liveCount, 0u);
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerTest, AppendReusesAResetTailFromItsFirstSlot) {
    SmallStore store;
    const auto slots = fill(store, 5);
    store.removeSlot(slots[4], store.tail, false);
    EXPECT_EQ(store.append(9), slots[4]);
    EXPECT_EQ(pageCount(store), 2u);
    EXPECT_THAT(valuesOf(store), ElementsAre(0, 1, 2, 3, 9));
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerTest, OnlyPageThatIsNotToBeFreedIsResetToo) {
    SmallStore store;
    const auto slots = fill(store, 2);
    SmallStore::Page* page = store.head;
    store.removeSlot(slots[0], page, false);
    store.removeSlot(slots[1], page, false);
    EXPECT_EQ(store.head, page);
    EXPECT_EQ(page->fillEnd, page->slots);
    EXPECT_EQ(store.elementAt(0), nullptr);
    EXPECT_EQ(store.append(7), slots[0]);
}

TEST_F(KvTruckerTest, EmptiedPageThatIsNeitherTailNorToBeFreedStays) {
    SmallStore store;
    const auto slots = fill(store, 6);
    SmallStore::Page* head = store.head;
    for (std::size_t i = 0; i < 4; ++i)
        store.removeSlot(slots[i], head, false);
    EXPECT_EQ(store.head, head);
    EXPECT_EQ(head->liveCount, 0u);
    EXPECT_EQ(head->fillEnd, head->slots + kSmallPageSlots);
    EXPECT_THAT(valuesOf(store), ElementsAre(4, 5));
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerTest, StoreIsUsableAroundAnEmptiedPageThatStays) {
    SmallStore store;
    const auto slots = fill(store, 6);
    for (std::size_t i = 0; i < 4; ++i)
        store.removeSlot(slots[i], store.head, false);
    EXPECT_EQ(store.at(0), 4);
    EXPECT_EQ(store.positionOf(slots[4]), 0u);
    EXPECT_EQ(store.positionOf(slots[0]), kNotFound);
    EXPECT_THAT(walkFrom(store, store.iteratorAt(0)), ElementsAre(4, 5));
    store.append(6);
    EXPECT_THAT(valuesOf(store), ElementsAre(4, 5, 6));
}

TEST_F(KvTruckerTest, RemoveSlotMarksNoSlotOutsideThePagesBlock) {
    SmallStore store;
    const auto slots = fill(store, 6);
    store.removeSlot(slots[5], store.head, true);
    EXPECT_EQ(slots[5]->free, 0);
    EXPECT_EQ(store.head->liveCount, 3u);
    EXPECT_EQ(store.tail->liveCount, 2u);
}

TEST_F(KvTruckerTest, RemoveSlotMarksNothingOneBehindTheBlock) {
    SmallStore store;
    fill(store, 4);
    store.removeSlot(store.head->slots + kSmallPageSlots, store.head, true);
    EXPECT_EQ(store.head->liveCount, 3u);
    EXPECT_THAT(valuesOf(store), ElementsAre(0, 1, 2, 3));
}

TEST_F(KvTruckerTest, RemoveSlotOfANullSlotOnlyCounts) {
    SmallStore store;
    fill(store, 2);
    store.removeSlot(nullptr, store.head, true);
    EXPECT_EQ(store.head->liveCount, 1u);
    EXPECT_THAT(valuesOf(store), ElementsAre(0, 1));
}

TEST_F(KvTruckerTest, RemoveSlotNeverCountsBelowZero) {
    SmallStore store;
    const auto slots = fill(store, 5);
    store.head->liveCount = 0;
    store.removeSlot(slots[0], store.head, false);
    EXPECT_EQ(store.head->liveCount, 0u);
    EXPECT_EQ(slots[0]->free, 1);
}

TEST_F(KvTruckerTest, RemoveSlotWithoutAPageDoesNothing) {
    SmallStore store;
    const auto slots = fill(store, 5);
    store.removeSlot(slots[4], nullptr, true);
    EXPECT_EQ(slots[4]->free, 0);
    EXPECT_EQ(pageCount(store), 2u);
    EXPECT_TRUE(invariants(store));
}

// ---- occupiedSlots

TEST_F(KvTruckerTest, OccupiedSlotsAreThoseOfAllPages) {
    for (const int size : {0, 3, 4, 5, 64, 68, 69, 200}) {
        SCOPED_TRACE(::testing::Message() << size << " elements");
        SmallStore store;
        fill(store, size);
        EXPECT_EQ(store.occupiedSlots(), static_cast<std::uint32_t>(size));
        for (int i = 0; i < size; i += 3)
            removeIndex(store, i / 3 * 2);
        EXPECT_EQ(store.occupiedSlots(), valuesOf(store).size());
        store.append(1);
        EXPECT_EQ(store.occupiedSlots(), valuesOf(store).size());
    }
}

// ---- freeAllPages and destruction

TEST_F(KvTruckerTest, FreeAllPagesLeavesAStoreWithoutPages) {
    const long before = kvtest::liveNewBlocks();
    SmallStore store;
    for (long i = 0; i < 20; ++i)
        store.append(i);
    store.freeAllPages();
    EXPECT_EQ(store.head, nullptr);
    EXPECT_EQ(store.tail, nullptr);
    EXPECT_EQ(kvtest::liveNewBlocks(), before);
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerTest, FreeAllPagesOfAStoreWithoutPagesIsHarmless) {
    SmallStore store;
    store.freeAllPages();
    store.freeAllPages();
    EXPECT_EQ(store.head, nullptr);
}

TEST_F(KvTruckerTest, StoreIsUsableAfterFreeAllPages) {
    SmallStore store;
    fill(store, 9);
    store.freeAllPages();
    fill(store, 5);
    EXPECT_THAT(valuesOf(store), ElementsAre(0, 1, 2, 3, 4));
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerTest, DestructionFreesPagesButNotWhatTheSlotsPointAt) {
    const long before = kvtest::liveNewBlocks();
    int value = 5;
    int* const heap = new int(6);
    {
        PointerStore store;
        store.append(&value);
        store.append(heap);
    }
    EXPECT_EQ(value, 5);
    EXPECT_EQ(*heap, 6);
    EXPECT_EQ(kvtest::liveNewBlocks(), before + 1);
    delete heap;
}

TEST_F(KvTruckerTest, RemovalFreesPagesButNotWhatTheSlotsPointAt) {
    int value = 5;
    PointerStore store;
    store.append(&value);
    PointerStore::iterator it = store.iteratorAt(0);
    store.removeAt(it);
    EXPECT_EQ(value, 5);
}

TEST_F(KvTruckerTest, StoreTakesItsMemoryFromNewOnly) {
    const long before = kvinmemory::mallocCalls();
    SmallStore store;
    fill(store, 20);
    removeIndex(store, 3);
    EXPECT_EQ(kvinmemory::mallocCalls(), before);
}

TEST_F(KvTruckerTest, ClearedStoreWalksNothing) {
    SmallStore store;
    fill(store, 5);
    store.freeAllPages();
    EXPECT_THAT(walkFrom(store, store.end()), IsEmpty());
    SmallStore::iterator it = beforeFirst(store);
    it.next();
    EXPECT_EQ(it.slot, nullptr);
    EXPECT_EQ(it.position, kvtest::kBeforeFirst);
}

TEST_F(KvTruckerTest, RecordedErrorIsTheThrownOne) {
    SmallStore store;
    fill(store, 1);
    expectStatus([&] { store.at(1); }, 24);
    expectMessage([&] { *store.end(); }, L"Error access KvTrucker");
}

} // namespace
