#include "base/detail/PageIndex.h"

#include "tests/base/ContainerTest.h"
#include "tests/base/Invariants.h"
#include "tests/base/SmallStore.h"
#include "tests/support/AllocationFailure.h"
#include "tests/support/NewTracking.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace {

using kvdetail::PageIndex;

using kvtest::fill;
using kvtest::invariants;
using kvtest::kNotFound;
using kvtest::kSmallPageSlots;
using kvtest::pageAt;
using kvtest::SmallStore;
using kvtest::valuesOf;
using kvtest::walkFrom;
using ::testing::ElementsAreArray;

// ---- the index by itself

constexpr unsigned kBytes = 64;

struct TestPage {
    TestPage* next;
    std::uint32_t liveCount;
    unsigned char* slots;
    std::uint32_t number;
};
using Index = PageIndex<TestPage, kBytes>;

// A chain of pages whose blocks lie in one piece of memory. Most blocks are not aligned to kBytes, and
// so touch two regions of the index.
class PageIndexTest : public kvtest::ContainerTest {
protected:
    void TearDown() override {
        index.clear();
        pages = std::vector<std::unique_ptr<TestPage>>();
        memory = std::vector<unsigned char>();
        ContainerTest::TearDown();
    }

    void link(std::size_t count) {
        memory.resize((2 * count + 2) * kBytes);
        pages.reserve(count);
        for (std::size_t i = 0; i < count; ++i) {
            pages.push_back(std::make_unique<TestPage>(
                TestPage{nullptr, 0, memory.data() + 2 * i * kBytes + i % kBytes, 0}));
            if (i > 0)
                pages[i - 1]->next = pages[i].get();
            index.append(pages[i].get(), i > 0 ? pages[i - 1].get() : nullptr, pages.front().get());
        }
    }

    void unlink(std::size_t i) {
        const std::unique_ptr<TestPage> gone = std::move(pages[i]);
        if (i > 0)
            pages[i - 1]->next = gone->next;
        pages.erase(pages.begin() + static_cast<std::ptrdiff_t>(i));
        index.remove(gone.get(), pages.empty() ? nullptr : pages.front().get());
    }

    ::testing::AssertionResult findsAll() const {
        for (std::size_t i = 0; i < pages.size(); ++i) {
            for (const unsigned at : {0u, 1u, kBytes - 1}) {
                if (index.find(pages[i]->slots + at) != pages[i].get())
                    return ::testing::AssertionFailure()
                           << "byte " << at << " of page " << i << " is not found";
            }
            if (index.find(pages[i]->slots + kBytes) == pages[i].get())
                return ::testing::AssertionFailure() << "page " << i << " is found behind its block";
            if (index.pages()[i] != pages[i].get() || pages[i]->number != i)
                return ::testing::AssertionFailure() << "page " << i << " is at another place";
        }
        return index.pages().size() == pages.size() ? ::testing::AssertionSuccess()
                                                    : ::testing::AssertionFailure() << "a page too many";
    }

    std::vector<unsigned char> memory;
    std::vector<std::unique_ptr<TestPage>> pages;
    Index index;
};

TEST_F(PageIndexTest, ChainOfThreePagesIsNotIndexed) {
    link(3);
    EXPECT_FALSE(index.isInUse());
    EXPECT_EQ(index.find(pages[1]->slots), nullptr);
}

TEST_F(PageIndexTest, FourthPageBringsAllFourIn) {
    link(4);
    EXPECT_TRUE(index.isInUse());
    EXPECT_TRUE(findsAll());
}

TEST_F(PageIndexTest, EveryPageOfManyIsFoundByEachOfItsBytes) {
    link(300);
    EXPECT_TRUE(findsAll());
}

TEST_F(PageIndexTest, AddressesElsewhereAreNotFound) {
    link(20);
    const unsigned char elsewhere = 0;
    EXPECT_EQ(index.find(&elsewhere), nullptr);
    EXPECT_EQ(index.find(nullptr), nullptr);
    EXPECT_EQ(index.find(reinterpret_cast<const void*>(~std::uintptr_t{0})), nullptr);
}

TEST_F(PageIndexTest, PagesThatAreUnlinkedAreGoneAndTheOthersMoveUp) {
    link(40);
    for (const std::size_t i : {std::size_t{0}, std::size_t{17}, std::size_t{37}, std::size_t{20}}) {
        const unsigned char* const slots = pages[i]->slots;
        unlink(i);
        EXPECT_EQ(index.find(slots), nullptr);
        ASSERT_TRUE(findsAll());
    }
}

TEST_F(PageIndexTest, UnlinkingAllPagesLeavesAnIndexThatIsNotInUse) {
    link(6);
    while (!pages.empty())
        unlink(pages.size() / 2);
    EXPECT_FALSE(index.isInUse());
    link(6);
    EXPECT_TRUE(findsAll());
}

TEST_F(PageIndexTest, ClearedIndexGivesItsMemoryBack) {
    const long before = kvtest::liveNewBlocks();
    Index other;
    link(10);
    const long linked = kvtest::liveNewBlocks();
    index.clear();
    EXPECT_LT(kvtest::liveNewBlocks(), linked);
    EXPECT_FALSE(index.isInUse());
    EXPECT_GT(linked, before);
}

TEST_F(PageIndexTest, PageTakenOutAndFreedByTheCallerIsNotReadAgain) {
    link(8);
    const unsigned char* const slots = pages[3]->slots;
    pages[2]->next = pages[3]->next;
    pages.erase(pages.begin() + 3);
    EXPECT_EQ(index.find(slots), nullptr);
    EXPECT_EQ(index.find(pages[2]->slots), pages[2].get());
    unlink(5);
    EXPECT_FALSE(index.isInUse()) << "the chain is not the one that it knows";
}

TEST_F(PageIndexTest, UnlinkingAPageThatItDoesNotKnowEndsTheIndex) {
    link(5);
    TestPage stranger{nullptr, 0, memory.data(), 2};
    index.remove(&stranger, pages.front().get());
    EXPECT_FALSE(index.isInUse());
    EXPECT_EQ(index.find(pages[1]->slots), nullptr);
}

TEST_F(PageIndexTest, UnlinkingAPageWithANumberBeyondItsPagesEndsTheIndex) {
    link(4);
    TestPage stranger{nullptr, 0, memory.data(), 4};
    index.remove(&stranger, pages.front().get());
    EXPECT_FALSE(index.isInUse());
}

TEST_F(PageIndexTest, ChainThatHasGrownByHandIsNotTheOneItKnows) {
    link(4);
    TestPage stranger{nullptr, 0, memory.data(), 0};
    EXPECT_TRUE(index.verify(pages.front().get(), 1));
    pages.back()->next = &stranger;
    EXPECT_FALSE(index.verify(pages.front().get(), 2));
}

// ---- the counts of an index

// Pages with four elements each, and two pages that the index does not know: one with the number of a page of
// the index, and one with the first number beyond them. The array of pages is full. So the address sanitizer
// sees a read behind the last one.
class PageCountsTest : public PageIndexTest {
protected:
    static constexpr std::uint32_t kPages = 32;

    void SetUp() override {
        PageIndexTest::SetUp();
        link(kPages);
        for (const auto& page : pages)
            page->liveCount = 4;
        index.rebuild(pages.front().get());
        ASSERT_EQ(index.pages().capacity(), kPages);
    }

    TestPage known{nullptr, 4, nullptr, 7};
    TestPage beyond{nullptr, 4, nullptr, kPages};
};

TEST_F(PageCountsTest, PageIsFoundByThePositionOfEachOfItsElements) {
    for (std::uint32_t i = 0; i < 4 * kPages; ++i) {
        const auto [page, number] = index.pageWith(i);
        ASSERT_EQ(page, pages[i / 4].get());
        ASSERT_EQ(number, i % 4);
    }
    EXPECT_EQ(index.pageWith(4 * kPages).first, nullptr);
}

TEST_F(PageCountsTest, ChangesOfUnknownPagesAreNotCounted) {
    for (const TestPage* page : {&known, &beyond})
        index.noteCount(page, 1);
    for (std::uint32_t i = 0; i <= kPages; ++i)
        EXPECT_EQ(index.countBefore(i), 4 * i);
}

TEST_F(PageCountsTest, UnknownPagesAreNotCounted) {
    EXPECT_TRUE(index.isCounted(pages[7].get()));
    EXPECT_FALSE(index.isCounted(&known));
    EXPECT_FALSE(index.isCounted(&beyond));
}

TEST_F(PageCountsTest, PagesBehindABrokenLinkAreNotCounted) {
    pages[6]->next = pages[8].get();
    EXPECT_TRUE(index.isCounted(pages[6].get()));
    EXPECT_FALSE(index.isCounted(pages[7].get()));
    EXPECT_FALSE(index.isCounted(pages[8].get()));
    EXPECT_EQ(index.pageWith(27).first, pages[6].get());
    EXPECT_EQ(index.pageWith(28).first, nullptr);
}

TEST_F(PageCountsTest, PageThatCountsOtherwiseThanNotedIsNotCounted) {
    pages[7]->liveCount = 3;
    EXPECT_FALSE(index.isCounted(pages[7].get()));
    EXPECT_EQ(index.pageWith(28).first, nullptr);
    index.noteCount(pages[7].get(), -1);
    EXPECT_TRUE(index.isCounted(pages[7].get()));
}

// ---- the store on top of it

// A store of ten pages. A test may unlink pages from it.
class IndexedStoreTest : public kvtest::ContainerTest {
protected:
    static constexpr int kPages = 10;

    void SetUp() override {
        ContainerTest::SetUp();
        slots = fill(store, kPages * static_cast<int>(kSmallPageSlots));
        expectSound(); // from now on, look-ups by address trust the page index
    }

    void TearDown() override {
        store.freeAllPages();
        for (SmallStore::Page* page : taken)
            freeByHand(page);
        taken = std::vector<SmallStore::Page*>();
        slots = std::vector<SmallStore::Slot*>();
        ContainerTest::TearDown();
    }

    static void freeByHand(SmallStore::Page* page) {
        KvTkDefaultAllocator<long>::deallocate(page->slots, 64);
        KvTkDefaultAllocator<long>::deallocate(page, sizeof(SmallStore::Page));
    }

    // Unlinks a page from the chain. TearDown() frees the page.
    void takeOut(int ordinal) {
        SmallStore::Page* const before = pageAt(store, ordinal - 1);
        taken.push_back(before->next);
        before->next = before->next->next;
    }

    // Expects that look-ups by position, look-ups by address, and a walk find the occupied slots of the
    // pages.
    void expectSound() {
        const std::vector<long> values = valuesOf(store);
        for (std::size_t i = 0; i < values.size(); ++i) {
            SmallStore::Slot* const slot = store.elementAt(static_cast<int>(i));
            ASSERT_NE(slot, nullptr) << i;
            ASSERT_EQ(slot->value, values[i]) << i;
            ASSERT_EQ(store.positionOf(slot), i);
        }
        EXPECT_EQ(store.elementAt(static_cast<int>(values.size())), nullptr);
        EXPECT_THAT(walkFrom(store, store.iteratorAt(0)), ElementsAreArray(values));
        EXPECT_TRUE(invariants(store));
    }

    SmallStore store;
    std::vector<SmallStore::Slot*> slots;
    std::vector<SmallStore::Page*> taken;
};

TEST_F(IndexedStoreTest, RemovalsLowerThePositionsInAllLaterPages) {
    // With more than kCheckedLinks pages, positions come from the tree.
    for (long value = 100; value < 200; ++value)
        slots.push_back(store.append(value));
    for (const std::size_t i : {1u, 6u, 7u, 70u})
        store.removeSlot(slots[i], store.pageOf(slots[i]), true);
    EXPECT_EQ(store.positionOf(slots[50]), 47u);
    EXPECT_EQ(store.positionOf(slots[139]), 135u);
    EXPECT_EQ(store.occupiedSlots(), 136u);
    expectSound();
}

TEST_F(IndexedStoreTest, PageTakenOutByHandIsNoPageOfTheStore) {
    takeOut(4);
    EXPECT_EQ(store.pageOf(slots[16]), nullptr);
    EXPECT_EQ(store.positionOf(slots[16]), kNotFound);
    expectSound();
}

TEST_F(IndexedStoreTest, StoreGrowsAndShrinksAroundAPageTakenOutByHand) {
    takeOut(4);
    for (std::size_t i = 20; i < 24; ++i)
        store.removeSlot(slots[i], store.pageOf(slots[i]), true);
    expectSound();
    for (long value = 100; value < 200; ++value)
        store.append(value);
    expectSound();
}

TEST_F(IndexedStoreTest, StoreGrowsAroundAPageTakenOutByHand) {
    takeOut(7);
    for (long value = 100; value < 300; ++value)
        store.append(value);
    expectSound();
}

TEST_F(IndexedStoreTest, IteratorOnAPageTakenOutByHandIsOnNoPageOnceAnotherWasFreed) {
    const SmallStore::iterator it = store.iteratorAt(17);
    takeOut(4);
    for (std::size_t i = 0; i < 4; ++i)
        store.removeSlot(slots[i], store.head, true);
    EXPECT_FALSE(it.isOnPage());
}

TEST_F(IndexedStoreTest, PageTakenOutByHandIsFreedOnceTheStoreHasFreedAnother) {
    takeOut(4);
    for (std::size_t i = 0; i < 4; ++i)
        store.removeSlot(slots[i], store.head, true);
    freeByHand(taken.back());
    taken.pop_back();
    expectSound();
}

TEST_F(IndexedStoreTest, TailTakenOutAndFreedByHandIsNotReadAgain) {
    SmallStore::Page* const gone = store.tail;
    store.tail = pageAt(store, kPages - 2);
    store.tail->next = nullptr;
    freeByHand(gone);
    for (long value = 100; value < 120; ++value)
        store.append(value);
    expectSound();
}

TEST_F(IndexedStoreTest, StoreEmptiedByHandStartsAnew) {
    while (SmallStore::Page* const page = store.head) {
        store.head = page->next;
        freeByHand(page);
    }
    store.tail = nullptr;
    for (long value = 100; value < 200; ++value)
        store.append(value);
    expectSound();
}

TEST_F(IndexedStoreTest, PageLinkedInByHandIsCountedWhereItStands) {
    SmallStore other;
    fill(other, 3);
    SmallStore::Page* const page = std::exchange(other.head, nullptr);
    other.tail = nullptr;
    page->next = pageAt(store, 2)->next;
    pageAt(store, 2)->next = page;
    EXPECT_EQ(store.elementAt(12), page->slots);
    EXPECT_EQ(store.elementAt(15), slots[12]);
    EXPECT_EQ(store.pageOf(page->slots), page);
    EXPECT_EQ(store.positionOf(slots[39]), 42u);
    EXPECT_EQ(store.pageBefore(pageAt(store, 4)), page);
}

TEST_F(IndexedStoreTest, StoresThatSwapTheirChainsFindThePagesTheyHave) {
    SmallStore other;
    const auto others = fill(other, 24);
    std::swap(store.head, other.head);
    std::swap(store.tail, other.tail);
    EXPECT_EQ(store.pageOf(slots[5]), nullptr);
    EXPECT_EQ(store.positionOf(others[13]), 13u);
    EXPECT_EQ(other.positionOf(slots[31]), 31u);
    EXPECT_EQ(other.positionOf(others[13]), kNotFound);
    expectSound();
}

TEST_F(IndexedStoreTest, ChainFreedByHandLeavesAStoreThatStartsAnew) {
    for (SmallStore::Page* page = store.head; page;) {
        SmallStore::Page* const next = page->next;
        freeByHand(page);
        page = next;
    }
    store.head = nullptr;
    store.tail = nullptr;
    EXPECT_EQ(store.elementAt(0), nullptr);
    EXPECT_EQ(store.pageOf(slots[9]), nullptr);
    fill(store, 30);
    expectSound();
}

TEST_F(IndexedStoreTest, PageWithAnotherBlockIsFoundByIt) {
    SmallStore::Page* const page = pageAt(store, 5);
    SmallStore::Slot* const former = page->slots;
    auto* const block = static_cast<SmallStore::Slot*>(KvTkDefaultAllocator<long>::allocate(64));
    std::uninitialized_copy_n(former, kSmallPageSlots, block);
    page->slots = block;
    page->fillEnd = block + kSmallPageSlots;
    EXPECT_EQ(store.pageOf(block + 2), page);
    EXPECT_EQ(store.pageOf(former + 2), nullptr);
    KvTkDefaultAllocator<long>::deallocate(former, 64);
    expectSound();
}

TEST_F(IndexedStoreTest, StoreWithoutMemoryForItsIndexDoesWithout) {
    kvtest::forEachAllocationFailure([](kvtest::FailurePoint& point) {
        SmallStore filled;
        std::vector<SmallStore::Slot*> added;
        added.reserve(200);
        point.run([&] {
            for (long value = 0; value < 200; ++value)
                added.push_back(filled.append(value));
        });
        EXPECT_TRUE(invariants(filled));
        for (std::size_t i = 0; i < added.size(); ++i) {
            ASSERT_EQ(filled.positionOf(added[i]), i);
            ASSERT_EQ(filled.elementAt(static_cast<int>(i)), added[i]);
        }
    });
}

} // namespace
