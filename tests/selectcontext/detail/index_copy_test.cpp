#include "selectcontext/IndexCopy.h"

#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/selectcontext/support/IndexTestSupport.h"
#include "tests/selectcontext/support/SetTestSupport.h"
#include "tests/support/AllocationFailure.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <iterator>
#include <memory>
#include <utility>

namespace {

using kvdetail::DataMap;
using kvdetail::Store;
using kvtest::ascending;
using kvtest::fillStore;
using kvtest::id;
using kvtest::isIndexed;
using kvtest::Numbers;
using kvtest::shuffled;

class IndexCopyTest : public kvtest::SetTest {
protected:
    void TearDown() override {
        original.reset();
        copy.reset();
        SetTest::TearDown();
    }

    // An original with its index, and a copy without.
    void prepare(const Numbers& numbers) {
        original = kvdetail::makeData();
        fillStore(*original, numbers);
        kvdetail::indexRecords(*original);
        copyOf(numbers);
    }

    void copyOf(const Numbers& numbers) {
        copy = kvdetail::makeData();
        fillStore(*copy, numbers);
    }

    // The first item of this id.
    void removeFromOriginal(unsigned long number) {
        Store& store = *original->entities;
        const auto entry = index().find(id(number));
        Store::Slot* const slot = kvdetail::slotAt(entry->second);
        const std::unique_ptr<selected_entity> removed(slot->value);
        index().erase(entry);
        store.removeSlot(slot, store.pageOf(slot), true);
    }

    void expectCopied() {
        EXPECT_TRUE(kvdetail::copyIndex(*original, *copy));
        EXPECT_TRUE(isIndexed(*copy));
    }

    void expectRefused() {
        EXPECT_FALSE(kvdetail::copyIndex(*original, *copy));
        EXPECT_TRUE(copy->dataMap.empty());
        kvdetail::indexRecords(*copy);
        EXPECT_TRUE(isIndexed(*copy));
    }

    DataMap& index() { return original->dataMap; }
    unsigned long& addressOf(unsigned long number) { return index().find(id(number))->second; }

    std::unique_ptr<kvdetail::SSetData> original;
    std::unique_ptr<kvdetail::SSetData> copy;
};

TEST_F(IndexCopyTest, StoreWithoutPagesIsRefused) {
    prepare({});
    expectRefused();
}

TEST_F(IndexCopyTest, IdsInAnyOrder) {
    for (const std::size_t count : {1u, 2u, 100u, 3000u}) {
        prepare(ascending(count));
        expectCopied();
        prepare(shuffled(count, 3));
        expectCopied();
    }
}

TEST_F(IndexCopyTest, FullPageIsCopiedAndTwoPagesAreRefused) {
    prepare(shuffled(Store::kSlotsPerPage, 4));
    expectCopied();
    prepare(ascending(Store::kSlotsPerPage + 1));
    expectRefused();
}

TEST_F(IndexCopyTest, EqualIdsStayInStoreOrder) {
    Numbers numbers = shuffled(3000, 5);
    for (unsigned long& n : numbers)
        n = n % 97 + 1;
    prepare(numbers);
    expectCopied();
}

TEST_F(IndexCopyTest, OriginalIsAsItWas) {
    prepare(shuffled(300, 6));
    expectCopied();
    EXPECT_TRUE(isIndexed(*original));
}

TEST_F(IndexCopyTest, HoleInFrontOfARecordIsRefused) {
    prepare(ascending(100));
    removeFromOriginal(51);
    Numbers numbers = ascending(100);
    numbers.erase(numbers.begin() + 50);
    copyOf(numbers);
    expectRefused();
}

TEST_F(IndexCopyTest, HoleInFrontOfOneOfEqualIdsIsRefused) {
    prepare({7, 7, 7});
    removeFromOriginal(7);
    copyOf({7, 7});
    expectRefused();
}

TEST_F(IndexCopyTest, HoleBehindAllRecordsIsNone) {
    prepare(ascending(100));
    removeFromOriginal(100);
    copyOf(ascending(99));
    expectCopied();
}

TEST_F(IndexCopyTest, OriginalOfMorePagesIsRefused) {
    prepare(ascending(Store::kSlotsPerPage));
    fillStore(*original, {9000});
    expectRefused();
}

TEST_F(IndexCopyTest, MissingEntryIsRefused) {
    prepare(ascending(100));
    index().erase(id(51));
    expectRefused();
}

TEST_F(IndexCopyTest, EntryTooManyIsRefused) {
    prepare(ascending(100));
    index().emplace(id(51), addressOf(51));
    expectRefused();
}

TEST_F(IndexCopyTest, TwoEntriesOfOneRecordInPlaceOfAnotherOfTheIdAreRefused) {
    prepare({1, 2, 2, 3});
    const auto first = index().find(id(2));
    std::next(first)->second = first->second;
    expectRefused();
}

TEST_F(IndexCopyTest, TwoEntriesOfOneRecordInPlaceOfAnotherIdAreRefused) {
    prepare(ascending(100));
    index().erase(id(51));
    index().emplace(id(52), addressOf(52));
    expectRefused();
}

TEST_F(IndexCopyTest, EntriesThatLeadToEachOthersRecordsAreRefused) {
    prepare(ascending(100));
    std::swap(addressOf(17), addressOf(18));
    expectRefused();
}

TEST_F(IndexCopyTest, EntriesOfOneIdInAnotherOrderAreRefused) {
    prepare({1, 2, 2, 3});
    const auto first = index().find(id(2));
    std::swap(first->second, std::next(first)->second);
    expectRefused();
}

TEST_F(IndexCopyTest, EntryThatLeadsToNoUsedSlotIsRefused) {
    prepare(ascending(100));
    const unsigned long good = addressOf(17);
    const unsigned long behindTheLast = kvdetail::slotAddress(original->entities->tail->fillEnd);
    const unsigned long inTheCopy = kvdetail::slotAddress(copy->entities->elementAt(16));
    for (const unsigned long bad : {0ul, good + 1, behindTheLast, inTheCopy}) {
        addressOf(17) = bad;
        expectRefused();
        kvdetail::clearIndex(*copy);
    }
    addressOf(17) = good;
    expectCopied();
}

TEST_F(IndexCopyTest, RecordOfAnotherIdIsRefused) {
    prepare(ascending(100));
    copy->entities->at(16)->mainEntId = id(900);
    expectRefused();
}

// Which of them comes first shows in the store only.
TEST_F(IndexCopyTest, DistinctStubsOfOneObjectAreRefused) {
    kvinmemory::makeEqual(id(3), id(4));
    prepare(ascending(100));
    expectRefused();
    prepare({1, 4, 3, 5});
    expectRefused();
}

TEST_F(IndexCopyTest, IsWorthItUpToAFullPage) {
    prepare({1});
    original->entityCount = Store::kSlotsPerPage;
    EXPECT_EQ(kvdetail::isWorthCopyingIndex(*original), kvdetail::kHasIndexCopy);
    ++original->entityCount;
    EXPECT_FALSE(kvdetail::isWorthCopyingIndex(*original));
}

TEST_F(IndexCopyTest, CopiesOrFailsWithNothingLost) {
    kvtest::forEachAllocationFailure([&](kvtest::FailurePoint& point) {
        prepare(shuffled(100, 7));
        const kvtest::Outcome outcome = point.run([&] { kvdetail::copyIndex(*original, *copy); });
        EXPECT_EQ(outcome.failed, outcome.injected);
        EXPECT_TRUE(isIndexed(*original));
        expectCopied();
        original.reset();
        copy.reset();
    });
}

} // namespace
