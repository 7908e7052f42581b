// Tests a store whose slots and pages a caller has changed directly. Under the address sanitizer, these tests
// also show that no freed memory is read.
#include "base/KvTrucker.h"

#include "base/detail/Shortcuts.h"
#include "base/detail/StoreEpoch.h"
#include "tests/base/ContainerTest.h"
#include "tests/base/Invariants.h"
#include "tests/base/SmallStore.h"
#include "tests/support/AllocationFailure.h"
#include "tests/support/NewTracking.h"
#include "tests/support/Thrown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace {

using kvtest::expectMessage;
using kvtest::expectStatus;
using kvtest::fill;
using kvtest::invariants;
using kvtest::kAccessError;
using kvtest::kNotFound;
using kvtest::kSmallPageSlots;
using kvtest::pageAt;
using kvtest::pageCount;
using kvtest::removeIndex;
using kvtest::SmallStore;
using kvtest::valuesOf;
using kvtest::walkFrom;
using ::testing::ElementsAre;

constexpr int kInvalidIndex = 24;

// Expects that look-ups by position, look-ups by address, and walks in both directions find the occupied
// slots of the pages.
template <class Store>
void expectSound(const Store& store) {
    const auto slots = kvtest::occupiedSlots(store);
    for (std::size_t i = 0; i < slots.size(); ++i) {
        ASSERT_EQ(store.elementAt(static_cast<int>(i)), slots[i]) << i;
        ASSERT_EQ(store.positionOf(slots[i]), i);
    }
    EXPECT_EQ(store.elementAt(static_cast<int>(slots.size())), nullptr);
    auto it = store.iteratorAt(0);
    for (std::size_t i = 0; i < slots.size(); ++i, it.next())
        ASSERT_EQ(it.slot, slots[i]) << i;
    EXPECT_TRUE(slots.empty() || store.isEnd(it));
    if (!slots.empty()) {
        it = store.iteratorAt(static_cast<int>(slots.size() - 1));
        for (std::size_t i = slots.size() - 1; i > 0; --i) {
            ASSERT_EQ(it.slot, slots[i]) << i;
            kvdetail::stepBack(&store, it);
        }
        EXPECT_EQ(it.slot, slots[0]);
    }
    EXPECT_TRUE(invariants(store));
}

void freeByHand(SmallStore::Page* page) {
    KvTkDefaultAllocator<long>::deallocate(page->slots, 64);
    KvTkDefaultAllocator<long>::deallocate(page, sizeof(SmallStore::Page));
}

// ---- slots that were moved by hand

class KvTruckerHintsTest : public kvtest::ContainerTest {
protected:
    void TearDown() override {
        store.freeAllPages();
        slots = std::vector<SmallStore::Slot*>();
        ContainerTest::TearDown();
    }

    void fillWith(int count) { slots = fill(store, count); }

    // Moves the value of an occupied slot to a free slot of the same page. The `liveCount` of the page stays
    // correct.
    void move(std::size_t from, std::size_t to) const {
        ASSERT_EQ(slots[from]->free, 0);
        ASSERT_EQ(slots[to]->free, 1);
        *slots[to] = *slots[from];
        slots[from]->free = 1;
    }

    void lookAtAll() const {
        for (int i = 0; i < static_cast<int>(valuesOf(store).size()); ++i)
            EXPECT_EQ(store.positionOf(store.elementAt(i)), static_cast<std::uint32_t>(i));
    }

    SmallStore store;
    std::vector<SmallStore::Slot*> slots;
};

TEST_F(KvTruckerHintsTest, SlotsMovedByHandAreSeenOnceTheHintsAreForgotten) {
    fillWith(40);
    for (const std::size_t hole : {0u, 9u, 10u, 22u, 39u})
        store.removeSlot(slots[hole], store.pageOf(slots[hole]), true);
    lookAtAll();
    move(3, 0);
    move(8, 9);
    move(11, 10);
    move(20, 22);
    move(36, 39);
    store.forgetHints();
    expectSound(store);
}

// In the tests of a moved slot, the second page has elements in slots 1 and 3. The element in slot 1 is then
// moved to slot 0 by hand. The hints are not forgotten.
class KvTruckerMovedSlotTest : public KvTruckerHintsTest {
protected:
    void SetUp() override {
        KvTruckerHintsTest::SetUp();
        fillWith(8);
        for (const std::size_t hole : {4u, 6u})
            store.removeSlot(slots[hole], store.tail, true);
        move(5, 4);
    }
};

TEST_F(KvTruckerMovedSlotTest, NextPassesOverTheSlotThatTheElementHasLeft) {
    SmallStore::iterator it = store.iteratorAt(3);
    it.next();
    EXPECT_EQ(it.slot, slots[4]);
    it.next();
    EXPECT_EQ(it.slot, slots[7]);
    EXPECT_EQ(it.position, 2u);
}

TEST_F(KvTruckerMovedSlotTest, StepBackPassesOverTheSlotThatTheElementHasLeft) {
    SmallStore::iterator it = store.iteratorAt(5);
    ASSERT_EQ(it.slot, slots[7]);
    kvdetail::stepBack(&store, it);
    EXPECT_EQ(it.slot, slots[4]);
    EXPECT_EQ(it.position, 1u);
}

TEST_F(KvTruckerMovedSlotTest, ElementIsFoundByItsPositionWhereItIs) {
    EXPECT_EQ(store.elementAt(4), slots[4]);
    EXPECT_EQ(store.elementAt(5), slots[7]);
}

TEST_F(KvTruckerHintsTest, PageOfManySlotsIsSeenAsItIsOnceTheHintsAreForgotten) {
    KvTrucker<long, 65536u> large;
    for (long value = 0; value < 3 * 4096; ++value)
        large.append(value);
    auto* const page = large.head->next;
    for (std::uint32_t i = 0; i < 4096; i += 3)
        large.removeSlot(page->slots + i, page, true);
    EXPECT_EQ(large.positionOf(page->slots + 4000), 4096u + 2666u);
    for (std::uint32_t i = 0; i + 1 < 4096; i += 6) {
        page->slots[i] = page->slots[i + 1];
        page->slots[i + 1].free = 1;
    }
    large.forgetHints();
    expectSound(large);
}

TEST_F(KvTruckerHintsTest, RemovalsAfterTheHintsWereForgottenCountOn) {
    fillWith(20);
    store.removeSlot(slots[5], store.pageOf(slots[5]), true);
    move(6, 5);
    store.forgetHints();
    store.removeSlot(slots[7], store.pageOf(slots[7]), true);
    expectSound(store);
    store.append(20);
    expectSound(store);
    EXPECT_EQ(store.undoAppend(), 20);
    expectSound(store);
}

TEST_F(KvTruckerHintsTest, StoreOfOnePageSeesMovedSlotsAtOnce) {
    fillWith(4);
    removeIndex(store, 1);
    lookAtAll();
    move(2, 1);
    expectSound(store);
    move(0, 2);
    expectSound(store);
}

TEST_F(KvTruckerHintsTest, StoreThatWasEmptiedSeesMovedSlotsAtOnce) {
    fillWith(20);
    store.freeAllPages();
    fillWith(4);
    removeIndex(store, 1);
    move(0, 1);
    expectSound(store);
}

TEST_F(KvTruckerHintsTest, StoreOfOnePageLeftSeesMovedSlotsAtOnceOnceTheHintsAreForgotten) {
    fillWith(5);
    removeIndex(store, 4);
    ASSERT_EQ(pageCount(store), 1u);
    store.forgetHints();
    removeIndex(store, 1);
    move(0, 1);
    expectSound(store);
}

TEST_F(KvTruckerHintsTest, StoreWithoutPagesHasNoHintsToForget) {
    store.forgetHints();
    EXPECT_EQ(store.head, nullptr);
    fillWith(20);
    expectSound(store);
}

TEST_F(KvTruckerHintsTest, HintsAreForgottenWithoutMemory) {
    if (!kvdetail::kHasPageIndex)
        GTEST_SKIP() << "this build has no page index";
    kvtest::forEachAllocationFailure([](kvtest::FailurePoint& point) {
        SmallStore filled;
        const auto added = fill(filled, 40);
        filled.removeSlot(added[9], filled.pageOf(added[9]), true);
        *added[9] = *added[10];
        added[10]->free = 1;
        EXPECT_TRUE(point.run([&] { filled.forgetHints(); }).completed);
        expectSound(filled);
    });
}

// ---- chains that were changed by hand

class KvTruckerChainTest : public kvtest::ContainerTest {
protected:
    static constexpr int kPages = 10;

    void SetUp() override {
        ContainerTest::SetUp();
        slots = fill(store, kPages * static_cast<int>(kSmallPageSlots));
        expectSound(store); // from now on, look-ups by address trust the page index
    }

    void TearDown() override {
        store.freeAllPages();
        slots = std::vector<SmallStore::Slot*>();
        ContainerTest::TearDown();
    }

    // Takes the page at this ordinal out of the chain. The caller must free the page.
    SmallStore::Page* takeOut(int ordinal) {
        SmallStore::Page* const before = pageAt(store, ordinal - 1);
        return std::exchange(before->next, before->next->next);
    }

    SmallStore::Slot* slotOf(int page, int i) const {
        return slots[static_cast<std::size_t>(page * kSmallPageSlots + i)];
    }

    SmallStore store;
    std::vector<SmallStore::Slot*> slots;
};

TEST_F(KvTruckerChainTest, PageTakenOutIsForgottenWithTheHints) {
    SmallStore::Page* const gone = takeOut(4);
    store.forgetHints();
    expectSound(store);
    freeByHand(gone);
    EXPECT_EQ(store.positionOf(slotOf(4, 1)), kNotFound);
    expectSound(store);
    for (int i = 0; i < 4; ++i)
        removeIndex(store, 0);
    expectSound(store);
    fill(store, 20);
    expectSound(store);
}

TEST_F(KvTruckerChainTest, PagesThatChangedPlacesAreSeenOnceTheHintsAreForgotten) {
    SmallStore::Page* const moved = takeOut(2);
    moved->next = pageAt(store, 6)->next;
    pageAt(store, 6)->next = moved;
    expectSound(store);
    store.forgetHints();
    expectSound(store);
    EXPECT_EQ(store.positionOf(slotOf(2, 0)), 28u);
    for (int i = 0; i < 4; ++i)
        removeIndex(store, 28);
    expectSound(store);
}

TEST_F(KvTruckerChainTest, AllPagesButOneTakenOutAreForgottenWithTheHints) {
    std::vector<SmallStore::Page*> gone;
    while (store.head->next)
        gone.push_back(takeOut(1));
    store.tail = store.head;
    store.forgetHints();
    for (SmallStore::Page* page : gone)
        freeByHand(page);
    EXPECT_EQ(store.positionOf(slotOf(4, 1)), kNotFound);
    expectSound(store);
    fill(store, 30);
    expectSound(store);
}

// Two pages are taken out of the chain. `third` still links to `fourth`.
TEST_F(KvTruckerChainTest, PagesThatLeftTogetherAreNoPagesOfTheStore) {
    SmallStore::Page* const third = pageAt(store, 3);
    SmallStore::Page* const fourth = third->next;
    pageAt(store, 2)->next = fourth->next;
    EXPECT_EQ(store.positionOf(slotOf(3, 1)), kNotFound);
    EXPECT_EQ(store.positionOf(slotOf(4, 1)), kNotFound);
    expectSound(store);

    const long before = kvtest::liveNewBlocks();
    for (int i = 0; i < 4; ++i) {
        store.removeSlot(slotOf(3, i), third, true);
        store.removeSlot(slotOf(4, i), fourth, true);
    }
    EXPECT_EQ(kvtest::liveNewBlocks(), before);
    EXPECT_EQ(third->liveCount, 0u);
    EXPECT_EQ(fourth->liveCount, 0u);
    EXPECT_EQ(pageCount(store), 8u);
    expectSound(store);
    freeByHand(third);
    freeByHand(fourth);
}

TEST_F(KvTruckerChainTest, RemovalThroughAnIteratorFreesNoPageThatLeft) {
    SmallStore::iterator it = store.iteratorAt(16);
    SmallStore::Page* const gone = takeOut(4);
    gone->liveCount = 1;
    const long before = kvtest::liveNewBlocks();
    store.removeAt(it);
    EXPECT_EQ(kvtest::liveNewBlocks(), before);
    EXPECT_EQ(it.page, nullptr);
    expectSound(store);
    freeByHand(gone);
}

TEST_F(KvTruckerChainTest, WalkPassesOverPagesWithoutSlotsWhateverTheyCount) {
    for (SmallStore::Page* const page : {store.head, pageAt(store, 3)}) {
        KvTkDefaultAllocator<long>::deallocate(page->slots, 64);
        page->slots = nullptr;
        page->fillEnd = nullptr;
    }
    SmallStore::iterator it = kvtest::beforeFirst(store);
    it.next();
    EXPECT_EQ(it.slot, slotOf(1, 0));
    EXPECT_EQ(it.position, 1u);
    EXPECT_EQ(walkFrom(store, it), valuesOf(store));
}

TEST_F(KvTruckerChainTest, IteratorOnAPageOfAnotherStoreWorksOnceAPageWasFreed) {
    SmallStore other;
    // The birth of the page is a greater number than the epoch of the iterator, but belongs to another group.
    while (other.end().epoch <= store.end().epoch) {
        other.append(0);
        other.undoAppend();
    }
    ASSERT_FALSE(kvdetail::StoreEpoch::isSameGroup(other.end().epoch, store.end().epoch));
    fill(other, 4);
    SmallStore::Page* const page = std::exchange(other.head, nullptr);
    other.tail = nullptr;
    page->next = pageAt(store, 2)->next;
    pageAt(store, 2)->next = page;
    store.forgetHints();
    const SmallStore::iterator it = store.iteratorAt(13);
    ASSERT_EQ(it.page, page);
    for (int i = 0; i < 4; ++i)
        removeIndex(store, 0);
    EXPECT_EQ(*it, 1);
}

// Allocates zeros behind each block. They look like occupied slots.
class ZeroTailAllocator {
public:
    static void* allocate(std::size_t bytes) noexcept {
        void* const memory = ::operator new(bytes + kTail, std::nothrow);
        if (memory)
            std::memset(static_cast<unsigned char*>(memory) + bytes, 0, kTail);
        return memory;
    }
    static void deallocate(void* memory, std::size_t /*bytes*/) noexcept { ::operator delete(memory); }

private:
    static constexpr std::size_t kTail = 64;
};

TEST_F(KvTruckerChainTest, FullPageThatCountsTooManyElementsHasNoneBehindItsSlots) {
    KvTrucker<long, 64u, ZeroTailAllocator> full;
    for (long value = 0; value < kSmallPageSlots; ++value)
        full.append(value);
    full.head->liveCount = 5;
    expectStatus([&] { full.elementAt(4); }, kInvalidIndex);
}

// A chain of so many pages that the store counts them in the page index.
class KvTruckerLongChainTest : public KvTruckerChainTest {
protected:
    static constexpr int kAllPages = 20;

    void SetUp() override {
        KvTruckerChainTest::SetUp();
        const auto added = fill(store, (kAllPages - kPages) * static_cast<int>(kSmallPageSlots));
        slots.insert(slots.end(), added.begin(), added.end());
        expectSound(store);
    }

    void expectOnePageLess() const {
        EXPECT_EQ(store.occupiedSlots(), (kAllPages - 1) * kSmallPageSlots);
        expectSound(store);
    }
};

TEST_F(KvTruckerLongChainTest, HeadTakenOutIsNotCounted) {
    SmallStore::Page* const gone = std::exchange(store.head, store.head->next);
    expectOnePageLess();
    freeByHand(gone);
}

TEST_F(KvTruckerLongChainTest, TailTakenOutIsNotCounted) {
    SmallStore::Page* const gone = takeOut(kAllPages - 1);
    store.tail = pageAt(store, kAllPages - 2);
    expectOnePageLess();
    freeByHand(gone);
}

TEST_F(KvTruckerLongChainTest, PageTakenOutOfTheMiddleIsNotCounted) {
    SmallStore::Page* const gone = takeOut(12);
    expectOnePageLess();
    freeByHand(gone);
}

TEST_F(KvTruckerLongChainTest, PageWhoseCountWasChangedByHandIsCountedAsItIs) {
    slotOf(5, 1)->free = 1;
    --pageAt(store, 5)->liveCount;
    EXPECT_EQ(store.elementAt(22), slotOf(5, 3));
    EXPECT_EQ(store.elementAt(23), slotOf(6, 0));
}

// ---- pages that another store has freed

// The tests give a page to another store, which frees the page. Then they use iterators of the first store
// that are still on the page.
class KvTruckerGivenPageTest : public KvTruckerChainTest {
protected:
    void expectReadsNothing(const std::function<void(SmallStore& other)>& freeIn) {
        SmallStore::iterator onPage = store.iteratorAt(17);
        SmallStore::iterator alsoOnPage = store.iteratorAt(18);
        const SmallStore::iterator elsewhere = store.iteratorAt(30);
        EXPECT_EQ(store.positionOf(slotOf(4, 2)), 18u);
        {
            SmallStore other;
            other.head = takeOut(4);
            other.tail = other.head;
            other.head->next = nullptr;
            freeIn(other);
        }
        EXPECT_EQ(store.positionOf(slotOf(4, 2)), kNotFound);
        EXPECT_EQ(store.pageOf(slotOf(4, 2)), nullptr);
        EXPECT_EQ(onPage.valueHere(), nullptr);
        EXPECT_FALSE(onPage.isOnPage());
        expectMessage([&] { *onPage; }, kAccessError);
        store.removeAt(onPage);
        onPage.next();
        EXPECT_TRUE(store.isEnd(onPage));
        EXPECT_FALSE(alsoOnPage.nextNeighbour());
        kvdetail::stepBack(&store, alsoOnPage);
        EXPECT_EQ(alsoOnPage.page, nullptr);
        EXPECT_EQ(*elsewhere, 30);
        expectSound(store);
        fill(store, 20);
        expectSound(store);
        for (int i = 0; i < 8; ++i)
            removeIndex(store, 10);
        expectSound(store);
    }
};

TEST_F(KvTruckerGivenPageTest, IsNotReadOnceTheOtherStoreHasFreedAllPages) {
    expectReadsNothing([](SmallStore& other) { other.freeAllPages(); });
}

TEST_F(KvTruckerGivenPageTest, IsNotReadOnceTheOtherStoreIsGone) {
    expectReadsNothing([](SmallStore& /*other*/) {});
}

TEST_F(KvTruckerGivenPageTest, IsNotReadOnceRemovalsHaveEmptiedIt) {
    expectReadsNothing([](SmallStore& other) {
        while (other.head)
            removeIndex(other, 0);
    });
}

TEST_F(KvTruckerGivenPageTest, IsNotReadOnceTheOtherStoreHasTakenItsSlotsBack) {
    expectReadsNothing([](SmallStore& other) {
        while (other.head)
            other.undoAppend();
    });
}

TEST_F(KvTruckerGivenPageTest, PageThatComesBackIsThere) {
    const SmallStore::iterator onPage = store.iteratorAt(17);
    SmallStore other;
    other.head = takeOut(4);
    other.tail = other.head;
    SmallStore::Page* const next = std::exchange(other.head->next, nullptr);
    fill(other, 1);
    SmallStore::Page* const added = std::exchange(other.head->next, nullptr);
    SmallStore::Page* const back = std::exchange(other.head, added);
    pageAt(store, 3)->next = back;
    back->next = next;
    other.freeAllPages();
    EXPECT_EQ(*onPage, 17);
    expectSound(store);
}

// ---- pages at the addresses of freed pages

// Allocates the block of this size that was freed last. If there is none, takes a block from operator new.
template <class T>
class ReusingAllocator {
public:
    static void* allocate(std::size_t bytes) noexcept {
        std::vector<void*>& kept = sKept[bytes];
        if (kept.empty())
            return ::operator new(bytes, std::nothrow);
        void* const memory = kept.back();
        kept.pop_back();
        return memory;
    }

    static void deallocate(void* memory, std::size_t bytes) noexcept { sKept[bytes].push_back(memory); }

    static void giveBack() {
        for (const auto& [bytes, kept] : sKept) {
            for (void* memory : kept)
                ::operator delete(memory);
        }
        sKept = std::map<std::size_t, std::vector<void*>>();
    }

private:
    static inline std::map<std::size_t, std::vector<void*>> sKept;
};

class KvTruckerReuseTest : public kvtest::ContainerTest {
protected:
    using Store = KvTrucker<long, 64u, ReusingAllocator<long>>;

    void SetUp() override {
        ContainerTest::SetUp();
        for (long value = 0; value < 6; ++value)
            store.append(value);
        onFifth = store.iteratorAt(4);
        atEnd = store.end();
    }

    void TearDown() override {
        store.freeAllPages();
        ReusingAllocator<long>::giveBack();
        ContainerTest::TearDown();
    }

    // Frees the tail page, and makes a younger page at the same address, also with two elements. The
    // iterators `onFifth` and `atEnd` were made on the freed page.
    void replaceTail() {
        const Store::Page* const tail = store.tail;
        const Store::Slot* const slots = tail->slots;
        for (std::uint32_t i = 0; i < 2; ++i)
            store.removeSlot(store.tail->slots + i, store.tail, true);
        ASSERT_EQ(store.head, store.tail);
        store.append(40);
        store.append(50);
        ASSERT_EQ(store.tail, tail);
        ASSERT_EQ(store.tail->slots, slots);
    }

    Store store;
    Store::iterator onFifth{};
    Store::iterator atEnd{};
};

TEST_F(KvTruckerReuseTest, IteratorDoesNotComeBackToLifeOnTheYoungerPage) {
    replaceTail();
    EXPECT_FALSE(onFifth.isOnPage());
    EXPECT_EQ(onFifth.valueHere(), nullptr);
    EXPECT_FALSE(onFifth.nextNeighbour());
    expectMessage([&] { *onFifth; }, kAccessError);
    store.removeAt(onFifth);
    EXPECT_EQ(store.at(4), 40);
    onFifth.next();
    EXPECT_TRUE(store.isEnd(onFifth));
}

TEST_F(KvTruckerReuseTest, IteratorStaysDeadHoweverOftenThePageIsReplaced) {
    for (int round = 0; round < 5; ++round) {
        replaceTail();
        EXPECT_FALSE(onFifth.isOnPage());
        EXPECT_FALSE(store.isBehind(onFifth, Store::Mark{0, nullptr}));
    }
    kvdetail::stepBack(&store, onFifth);
    EXPECT_EQ(onFifth.page, nullptr);
    EXPECT_EQ(onFifth.position, kvtest::kBeforeFirst);
}

TEST_F(KvTruckerReuseTest, IteratorThatLookedForItsPageBeforeDoesNotComeBackToLife) {
    for (std::uint32_t i = 0; i < 4; ++i)
        store.removeSlot(store.head->slots + i, store.head, true);
    EXPECT_EQ(*onFifth, 4) << "its own page is there";
    store.removeSlot(store.tail->slots, store.tail, true);
    Store::Page* const tail = store.tail;
    store.removeSlot(store.tail->slots + 1, store.tail, true);
    ASSERT_EQ(store.head, nullptr);
    store.append(40);
    ASSERT_EQ(store.tail, tail);
    EXPECT_FALSE(onFifth.isOnPage());
}

TEST_F(KvTruckerReuseTest, IteratorsOfTheYoungerPageWork) {
    replaceTail();
    Store::iterator it = store.iteratorAt(4);
    replaceTail();
    EXPECT_FALSE(it.isOnPage());
    it = store.iteratorAt(3);
    it.next();
    EXPECT_EQ(*it, 40);
    store.removeSlot(store.head->slots, store.head, true);
    EXPECT_EQ(*it, 40);
    it.next();
    EXPECT_EQ(*it, 50);
}

TEST_F(KvTruckerReuseTest, IteratorsOfTheOlderPagesWork) {
    Store::iterator onFourth = store.iteratorAt(3);
    replaceTail();
    EXPECT_EQ(*onFourth, 3);
    onFourth.next();
    EXPECT_EQ(*onFourth, 40);
}

TEST_F(KvTruckerReuseTest, PageWithoutSlotsGivesNoBlockBack) {
    ReusingAllocator<long>::deallocate(std::exchange(store.tail->slots, nullptr), 64);
    store.tail->fillEnd = nullptr;
    store.freeAllPages();
    EXPECT_EQ(store.append(40)->value, 40);
    EXPECT_TRUE(invariants(store));
}

TEST_F(KvTruckerReuseTest, StoreAtTheAddressOfAnotherRevivesNoIterator) {
    alignas(Store) unsigned char memory[sizeof(Store)];
    auto* other = new (memory) Store;
    other->append(1);
    const Store::iterator it = other->iteratorAt(0);
    const Store::Page* const page = other->head;
    other->~Store();
    other = new (memory) Store;
    other->append(2);
    ASSERT_EQ(other->head, page);
    EXPECT_FALSE(it.isOnPage());
    EXPECT_EQ(it.valueHere(), nullptr);
    expectMessage([&] { *it; }, kAccessError);
    other->~Store();
}

} // namespace
