// Random operations on a store with small pages and on a model of it. The model keeps each page as a vector
// of optional values.
#include "base/KvTrucker.h"

#include "tests/base/ContainerTest.h"
#include "tests/base/Invariants.h"
#include "tests/base/SmallStore.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <random>
#include <vector>

namespace {

using kvtest::kNotFound;
using kvtest::SmallStore;

constexpr std::size_t kPageSlots = static_cast<std::size_t>(kvtest::kSmallPageSlots);

// The slots of a page before `fillEnd`, in order. A free slot has no value.
using ModelPage = std::vector<std::optional<long>>;

struct Place {
    std::size_t page;
    std::size_t slot;
};

std::size_t liveIn(const ModelPage& page) {
    return static_cast<std::size_t>(
        std::count_if(page.begin(), page.end(), [](const auto& slot) { return slot.has_value(); }));
}

class Model {
public:
    void append(long value) {
        if (pages.empty() || pages.back().size() == kPageSlots)
            pages.emplace_back();
        pages.back().emplace_back(value);
    }

    void remove(std::size_t index, bool freeEmptyPage) {
        const Place place = placeOf(index);
        ModelPage& page = pages[place.page];
        page[place.slot].reset();
        if (liveIn(page) != 0)
            return;
        if (freeEmptyPage)
            pages.erase(pages.begin() + static_cast<std::ptrdiff_t>(place.page));
        else if (place.page + 1 == pages.size())
            page.clear();
    }

    Place placeOf(std::size_t index) const {
        for (std::size_t p = 0; p < pages.size(); ++p) {
            for (std::size_t s = 0; s < pages[p].size(); ++s) {
                if (pages[p][s] && index-- == 0)
                    return {p, s};
            }
        }
        return {pages.size(), 0};
    }

    std::vector<long> values() const {
        std::vector<long> found;
        for (const ModelPage& page : pages) {
            for (const auto& slot : page) {
                if (slot)
                    found.push_back(*slot);
            }
        }
        return found;
    }

    std::vector<ModelPage> pages;
};

class KvTruckerModelTest : public kvtest::ContainerTest, public ::testing::WithParamInterface<unsigned> {
protected:
    void TearDown() override {
        store.freeAllPages();
        model = Model();
        ContainerTest::TearDown();
    }

    std::size_t below(std::size_t bound) {
        return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random);
    }

    void appendOne() {
        store.append(nextValue);
        model.append(nextValue);
        ++nextValue;
    }

    SmallStore::Slot* slotOf(std::size_t index) const { return store.elementAt(static_cast<int>(index)); }

    void removeThroughIterator(std::size_t index) {
        const std::vector<long> values = model.values();
        SmallStore::iterator it = store.iteratorAt(static_cast<int>(index));
        const std::size_t pagesBefore = kvtest::pageCount(store);
        model.remove(index, true);
        store.removeAt(it);
        if (kvtest::pageCount(store) == pagesBefore) {
            EXPECT_EQ(it.slot->free, 1);
        } else if (index == 0) {
            EXPECT_EQ(it.position, kvtest::kBeforeFirst);
        } else {
            EXPECT_EQ(*it, values[index - 1]);
        }
    }

    void removeSlot(std::size_t index, bool freeEmptyPage) {
        SmallStore::Page* page = nullptr;
        SmallStore::Slot* slot = store.elementAt(static_cast<int>(index), &page);
        store.removeSlot(slot, page, freeEmptyPage);
        model.remove(index, freeEmptyPage);
    }

    void step() {
        const std::size_t live = model.values().size();
        const std::size_t choice = below(100);
        // Sixty steps that mostly append alternate with sixty steps that mostly remove. So the store grows,
        // and also becomes empty.
        const bool growing = (stepNumber++ / 60) % 2 == 0;
        if (live == 0 || choice < (growing ? 65u : 25u))
            appendOne();
        else if (choice < 75)
            removeThroughIterator(below(live));
        else if (choice < 87)
            removeSlot(below(live), true);
        else if (choice < 99)
            removeSlot(below(live), false);
        else
            clear();
    }

    void clear() {
        store.freeAllPages();
        model.pages.clear();
    }

    void expectSamePages() const {
        ASSERT_EQ(kvtest::pageCount(store), model.pages.size());
        const SmallStore::Page* page = store.head;
        for (const ModelPage& expected : model.pages) {
            ASSERT_EQ(page->fillEnd - page->slots, static_cast<std::ptrdiff_t>(expected.size()));
            for (std::size_t s = 0; s < expected.size(); ++s) {
                ASSERT_EQ(page->slots[s].free == 0, expected[s].has_value());
                if (expected[s]) {
                    ASSERT_EQ(page->slots[s].value, *expected[s]);
                }
            }
            page = page->next;
        }
    }

    void expectSameLookups() const {
        const std::vector<long> values = model.values();
        for (std::size_t i = 0; i < values.size(); ++i) {
            SmallStore::Page* page = nullptr;
            unsigned indexInPage = 0;
            const SmallStore::Slot* slot = store.elementAt(static_cast<int>(i), &page, &indexInPage);
            const Place place = model.placeOf(i);
            ASSERT_EQ(page, kvtest::pageAt(store, static_cast<int>(place.page)));
            ASSERT_EQ(slot, page->slots + place.slot);
            ASSERT_EQ(store.positionOf(slot), i);
            ASSERT_EQ(store.at(static_cast<int>(i)), values[i]);
        }
        ASSERT_EQ(store.elementAt(static_cast<int>(values.size())), nullptr);
    }

    void expectSameWalks() const {
        const std::vector<long> values = model.values();
        SmallStore::iterator it = kvtest::beforeFirst(store);
        it.next();
        if (store.head) {
            ASSERT_EQ(kvtest::walkFrom(store, it), values);
        }
        for (std::size_t i = 0; i < values.size(); i += 3) {
            const std::vector<long> rest(values.begin() + static_cast<std::ptrdiff_t>(i), values.end());
            ASSERT_EQ(kvtest::walkFrom(store, store.iteratorAt(static_cast<int>(i))), rest);
        }
    }

    void expectFreedSlotsAreNotFound() const {
        for (const SmallStore::Page* page = store.head; page; page = page->next) {
            for (const SmallStore::Slot* slot = page->slots; slot < page->fillEnd; ++slot) {
                if (slot->free == 1) {
                    ASSERT_EQ(store.positionOf(slot), kNotFound);
                }
            }
        }
    }

    SmallStore store;
    Model model;
    std::mt19937 random{GetParam()};
    long nextValue = 0;
    int stepNumber = 0;
};

TEST_P(KvTruckerModelTest, StoreAgreesWithItsModelAfterEveryStep) {
    SCOPED_TRACE(::testing::Message() << "seed " << GetParam());
    for (int i = 0; i < 600; ++i) {
        SCOPED_TRACE(::testing::Message() << "step " << i);
        step();
        ASSERT_TRUE(kvtest::invariants(store));
        ASSERT_NO_FATAL_FAILURE(expectSamePages());
        ASSERT_NO_FATAL_FAILURE(expectSameLookups());
        ASSERT_NO_FATAL_FAILURE(expectSameWalks());
        ASSERT_NO_FATAL_FAILURE(expectFreedSlotsAreNotFound());
        ASSERT_FALSE(HasFailure());
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, KvTruckerModelTest, ::testing::Values(1u, 2u, 3u, 5u, 8u, 13u));

} // namespace
