// Tests sets whose fields a caller has changed: index, count, store, pages and slots. The hints that the
// library keeps must not change any result.
#include "tests/selectcontext/support/EditTestSupport.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

namespace {

using kvtest::appendIds;
using kvtest::edit;
using kvtest::id;
using kvtest::invariants;
using kvtest::kPageSlots;
using kvtest::SSetData;
using kvtest::Store;
using DataMap = SSetData::DataMap;

class ShortcutsTampering : public kvtest::EditTest {
protected:
    static constexpr unsigned long kCount = 200;

    // Looks up id(first), id(first + 1), ... After so many look-ups, the set has a hash of ids.
    static void lookUpMuch(const GxapSelectSet& set, unsigned long first, unsigned long count) {
        for (unsigned long n = first; n < first + count; ++n)
            static_cast<void>(set.findInMap(id(n)));
    }

    static void fillAndLookUp(GxapSelectSet& set, unsigned long first = 1) {
        appendIds(set, first, kCount);
        lookUpMuch(set, first, kCount);
    }

    // Looks up id(0) to id(1000). Expects to find the first index entry of each id, and nothing for an id
    // without an entry.
    static void expectFindsWhatTheIndexHas(const GxapSelectSet& set) {
        const DataMap& map = set.sharedData->dataMap;
        for (unsigned long n = 0; n <= 1000; ++n) {
            const auto entry = map.lower_bound(id(n));
            const bool isHeld = entry != map.end() && entry->first == id(n);
            ASSERT_EQ(set.findInMap(id(n)), isHeld ? entry : map.end()) << n;
        }
    }

    static DataMap& mapOf(GxapSelectSet& set) { return set.sharedData->dataMap; }
};

// ---- the index

TEST_F(ShortcutsTampering, EntryErasedByTheCallerIsNotFound) {
    GxapSelectSet set;
    fillAndLookUp(set);
    mapOf(set).erase(id(17));
    expectFindsWhatTheIndexHas(set);
}

TEST_F(ShortcutsTampering, EntryErasedAndOneOfAnotherIdInserted) {
    GxapSelectSet set;
    fillAndLookUp(set);
    const unsigned long slot = mapOf(set).lower_bound(id(17))->second;
    mapOf(set).erase(id(17));
    mapOf(set).emplace(id(900), slot);
    expectFindsWhatTheIndexHas(set);
}

TEST_F(ShortcutsTampering, EntryErasedAndInsertedAgain) {
    GxapSelectSet set;
    fillAndLookUp(set);
    const unsigned long slot = mapOf(set).lower_bound(id(17))->second;
    mapOf(set).erase(id(17));
    mapOf(set).emplace(id(17), slot);
    expectFindsWhatTheIndexHas(set);
    EXPECT_EQ(set.find(id(17)), 16);
    EXPECT_TRUE(invariants(set));
}

TEST_F(ShortcutsTampering, IndexOfTheCallersOwnIsSearched) {
    GxapSelectSet set;
    appendIds(set, 1, kCount);
    DataMap own;
    own.insert(mapOf(set).begin(), mapOf(set).end());
    mapOf(set) = std::move(own);
    lookUpMuch(set, 1, kCount);
    expectFindsWhatTheIndexHas(set);
    edit(set).append(id(900), GxDbObjectId());
    EXPECT_TRUE(edit(set).remove(id(17)));
    expectFindsWhatTheIndexHas(set);
    EXPECT_TRUE(invariants(set));
}

// The two maps have the same number of entries. So the assignment keeps the nodes of the old map and gives
// them new ids.
TEST_F(ShortcutsTampering, IndexAssignedFromAnotherOfItsSize) {
    GxapSelectSet set;
    fillAndLookUp(set);
    DataMap shifted;
    for (const auto& entry : mapOf(set))
        shifted.emplace(entry.first == id(1) ? id(900) : entry.first, entry.second);
    mapOf(set) = shifted;
    expectFindsWhatTheIndexHas(set);
    for (unsigned long n = 2; n <= kCount; ++n)
        EXPECT_TRUE(edit(set).remove(id(n)));
    expectFindsWhatTheIndexHas(set);
    edit(set).append(id(17), GxDbObjectId());
    expectFindsWhatTheIndexHas(set);
}

// Each assignment moves ids to other nodes. An id may keep its node, but another entry of that id may then
// come first.
TEST_F(ShortcutsTampering, IndexAssignedWithAnIdThatIsThereTwice) {
    GxapSelectSet set;
    fillAndLookUp(set);
    for (unsigned long n = 2; n <= kCount; ++n) {
        DataMap twice;
        for (const auto& entry : mapOf(set)) {
            if (twice.count(entry.first) == 0)
                twice.emplace_hint(twice.end(), entry);
        }
        while (twice.size() >= kCount)
            twice.erase(std::prev(twice.end()));
        twice.emplace_hint(twice.lower_bound(id(n)), id(n), 0);
        mapOf(set) = twice;
        ASSERT_EQ(set.findInMap(id(n)), mapOf(set).lower_bound(id(n))) << n;
    }
}

TEST_F(ShortcutsTampering, EntryGivenAnotherIdInFrontOfTheHolderOfThatId) {
    GxapSelectSet set;
    fillAndLookUp(set);
    auto node = mapOf(set).extract(mapOf(set).lower_bound(id(17)));
    node.key() = id(50);
    mapOf(set).insert(mapOf(set).lower_bound(id(50)), std::move(node));
    expectFindsWhatTheIndexHas(set);
    lookUpMuch(set, 1, kCount);
    expectFindsWhatTheIndexHas(set);
}

TEST_F(ShortcutsTampering, RecordAndEntryGivenAnotherIdTogether) {
    GxapSelectSet set;
    fillAndLookUp(set);
    kvtest::record(set, 16)->mainEntId = id(50);
    auto node = mapOf(set).extract(mapOf(set).lower_bound(id(17)));
    node.key() = id(50);
    mapOf(set).insert(mapOf(set).lower_bound(id(50)), std::move(node));
    EXPECT_EQ(set.find(id(50)), 16);
    EXPECT_EQ(set.find(id(17)), -1);
    EXPECT_TRUE(edit(set).remove(id(50)));
    EXPECT_EQ(set.sharedData->entityCount, kCount - 2);
    expectFindsWhatTheIndexHas(set);
    EXPECT_TRUE(invariants(set));
}

TEST_F(ShortcutsTampering, FirstOfEqualIdsMovedBehindTheOthers) {
    GxapSelectSet set;
    fillAndLookUp(set);
    edit(set).append(id(17), id(5));
    auto node = mapOf(set).extract(mapOf(set).lower_bound(id(17)));
    mapOf(set).insert(std::move(node));
    expectFindsWhatTheIndexHas(set);
    EXPECT_EQ(set.find(id(17)), static_cast<int>(kCount));
}

TEST_F(ShortcutsTampering, ExtractedNodeIsNotFoundThoughItExists) {
    GxapSelectSet set;
    fillAndLookUp(set);
    auto node = mapOf(set).extract(mapOf(set).lower_bound(id(17)));
    expectFindsWhatTheIndexHas(set);
    mapOf(set).emplace(id(900), node.mapped());
    expectFindsWhatTheIndexHas(set);
    lookUpMuch(set, 1, kCount);
    expectFindsWhatTheIndexHas(set);
    mapOf(set).erase(id(900));
    mapOf(set).insert(std::move(node));
    expectFindsWhatTheIndexHas(set);
    EXPECT_TRUE(invariants(set));
}

TEST_F(ShortcutsTampering, NodeThatOutlivesItsSet) {
    DataMap::node_type node;
    {
        GxapSelectSet set;
        fillAndLookUp(set);
        node = mapOf(set).extract(mapOf(set).begin());
    }
    EXPECT_EQ(node.key(), id(1));
}

TEST_F(ShortcutsTampering, IndexClearedByTheCallerAndMadeAnew) {
    GxapSelectSet set;
    fillAndLookUp(set);
    mapOf(set).clear();
    expectFindsWhatTheIndexHas(set);
    edit(set).append(id(17), GxDbObjectId());
    expectFindsWhatTheIndexHas(set);
    edit(set).updateDataMap();
    expectFindsWhatTheIndexHas(set);
    EXPECT_TRUE(invariants(set));
}

TEST_F(ShortcutsTampering, IndexesSwappedBetweenTwoSets) {
    GxapSelectSet one;
    GxapSelectSet other;
    fillAndLookUp(one, 1);
    fillAndLookUp(other, 101);
    mapOf(one).swap(mapOf(other));
    expectFindsWhatTheIndexHas(one);
    expectFindsWhatTheIndexHas(other);
    lookUpMuch(one, 1, 2 * kCount);
    expectFindsWhatTheIndexHas(one);
    EXPECT_EQ(one.find(id(250)), -1) << "its slot is the other set's";
    mapOf(one).swap(mapOf(other));
    expectFindsWhatTheIndexHas(one);
    EXPECT_TRUE(invariants(one));
    EXPECT_TRUE(invariants(other));
}

// `next` is filled like `gone`. `set` may have made a hash for the entries of `gone`, and must not use that
// hash for the entries of `next`.
TEST_F(ShortcutsTampering, IndexesSwappedToAndFroWithSetsThatAreGone) {
    GxapSelectSet set;
    appendIds(set, 1, kCount);
    for (int round = 0; round < 3; ++round) {
        {
            GxapSelectSet gone;
            appendIds(gone, 501, kCount);
            mapOf(set).swap(mapOf(gone));
            lookUpMuch(set, 501, kCount);
            mapOf(set).swap(mapOf(gone));
        }
        GxapSelectSet next;
        appendIds(next, 501, kCount);
        mapOf(set).swap(mapOf(next));
        expectFindsWhatTheIndexHas(set);
        mapOf(set).swap(mapOf(next));
        expectFindsWhatTheIndexHas(set);
    }
}

TEST_F(ShortcutsTampering, IndexMergedIntoAMapOfItsAllocator) {
    GxapSelectSet set;
    appendIds(set, 1, kCount);
    DataMap& map = mapOf(set);
    DataMap own(map.get_allocator());
    own.emplace(id(17), map.find(id(18))->second);
    lookUpMuch(set, 1, kCount);
    own.merge(map);
    map.swap(own);
    expectFindsWhatTheIndexHas(set);
}

TEST_F(ShortcutsTampering, SetGoesOnWithTheIndexOfOneThatIsGone) {
    for (const unsigned long count : {0ul, 3ul, kCount}) {
        GxapSelectSet set;
        fillAndLookUp(set);
        {
            GxapSelectSet gone;
            appendIds(gone, 1, count);
            mapOf(set).swap(mapOf(gone));
        }
        expectFindsWhatTheIndexHas(set);
        edit(set).updateDataMap();
        EXPECT_TRUE(invariants(set));
        appendIds(set, 500, kCount);
        lookUpMuch(set, 500, kCount);
        expectFindsWhatTheIndexHas(set);
        edit(set).setUnique(false);
        edit(set).setUnique(true);
        EXPECT_TRUE(invariants(set));
        edit(set).clear();
        appendIds(set, 1, kCount);
        EXPECT_TRUE(invariants(set));
    }
}

TEST_F(ShortcutsTampering, CallersMapOutlivesTheSetThatItsNodesComeFrom) {
    for (const unsigned long count : {0ul, 3ul, kCount}) {
        DataMap mine;
        {
            GxapSelectSet set;
            appendIds(set, 1, count);
            mine.swap(mapOf(set));
            EXPECT_TRUE(mapOf(set).empty());
        }
        EXPECT_EQ(mine.size(), count);
        mine.clear();
        for (unsigned long n = 1; n <= kCount; ++n)
            mine.emplace(id(n), n);
        EXPECT_EQ(mine.size(), kCount);
    }
}

TEST_F(ShortcutsTampering, MapMovedOutOfASetAndAnotherMovedIn) {
    GxapSelectSet set;
    fillAndLookUp(set);
    DataMap mine(std::move(mapOf(set)));
    mapOf(set).clear();
    edit(set).append(id(700), GxDbObjectId());
    expectFindsWhatTheIndexHas(set);
    edit(set).remove(id(700));
    mapOf(set) = std::move(mine);
    expectFindsWhatTheIndexHas(set);
    EXPECT_TRUE(invariants(set));
    mapOf(set) = DataMap(mapOf(set));
    expectFindsWhatTheIndexHas(set);
    lookUpMuch(set, 1, kCount);
    appendIds(set, 300, kCount);
    EXPECT_TRUE(invariants(set));
    edit(set).clear();
    EXPECT_TRUE(mapOf(set).empty());
}

TEST_F(ShortcutsTampering, ClearingTakesNoNodeThatTheCallerHolds) {
    GxapSelectSet set;
    fillAndLookUp(set);
    auto node = mapOf(set).extract(mapOf(set).lower_bound(id(17)));
    edit(set).clear();
    EXPECT_EQ(node.key(), id(17));
    appendIds(set, 300, kCount);
    EXPECT_EQ(node.key(), id(17));
    EXPECT_TRUE(invariants(set));
}

TEST_F(ShortcutsTampering, EntriesMovedBetweenMapsOfOneAllocator) {
    GxapSelectSet set;
    fillAndLookUp(set);
    DataMap mine(mapOf(set).get_allocator());
    mine.merge(mapOf(set));
    expectFindsWhatTheIndexHas(set);
    EXPECT_EQ(mine.size(), kCount);
    appendIds(set, 600, 10);
    edit(set).clear();
    EXPECT_EQ(mine.count(id(200)), 1u);
    mapOf(set).merge(mine);
    EXPECT_TRUE(mine.empty());
    appendIds(set, 700, 1);
    expectFindsWhatTheIndexHas(set);
}

// ---- count, store and pages

TEST_F(ShortcutsTampering, CopyHasTheIndexOfItsRecordsWhateverTheOriginalsHolds) {
    const std::function<void(DataMap&)> changes[] = {
        [](DataMap& map) { map.erase(id(17)); },
        [](DataMap& map) { map.find(id(17))->second = map.find(id(18))->second; },
        [](DataMap& map) { std::swap(map.find(id(17))->second, map.find(id(18))->second); },
        [](DataMap& map) { map.clear(); },
        [](DataMap& map) { map.emplace(id(900), map.begin()->second); },
    };
    for (const auto& change : changes) {
        GxapSelectSet set;
        appendIds(set, 1, kCount);
        change(mapOf(set));
        GxapSelectSet copy(set);
        edit(copy).writeData();
        EXPECT_TRUE(invariants(copy));
        expectFindsWhatTheIndexHas(copy);
        edit(set).updateDataMap();
    }
}

TEST_F(ShortcutsTampering, CountSetToZeroHidesEveryItem) {
    GxapSelectSet set;
    fillAndLookUp(set);
    set.sharedData->entityCount = 0;
    EXPECT_EQ(set.findInMap(id(17)), mapOf(set).end());
    set.sharedData->entityCount = kCount;
    expectFindsWhatTheIndexHas(set);
}

TEST_F(ShortcutsTampering, StoresSwappedBetweenTwoSets) {
    GxapSelectSet one;
    GxapSelectSet other;
    fillAndLookUp(one, 1);
    fillAndLookUp(other, 101);
    std::swap(one.sharedData->entities, other.sharedData->entities);
    expectFindsWhatTheIndexHas(one);
    EXPECT_EQ(one.find(id(17)), -1) << "its entry leads to no slot of the store";
    edit(one).updateDataMap();
    edit(other).updateDataMap();
    expectFindsWhatTheIndexHas(one);
    EXPECT_EQ(one.find(id(101)), 0);
    EXPECT_TRUE(invariants(one));
    EXPECT_TRUE(invariants(other));
}

// Has a set of six pages. SetUp() looks up 2000 items of the first page.
class PagesTampering : public ShortcutsTampering {
protected:
    static constexpr unsigned long kMany = 6ul * kPageSlots;

    void SetUp() override {
        ShortcutsTampering::SetUp();
        set = std::make_unique<GxapSelectSet>();
        appendIds(*set, 1, kMany);
        lookUpMuch(*set, 1, 2000);
    }

    void TearDown() override {
        set.reset();
        mLoose = std::vector<std::unique_ptr<selected_entity>>();
        ShortcutsTampering::TearDown();
    }

    Store& store() const { return *set->sharedData->entities; }

    Store::Page* page(unsigned ordinal) const {
        Store::Page* p = store().head;
        for (; ordinal > 0; --ordinal)
            p = p->next;
        return p;
    }

    // Leaves the records of the page to the test, which deletes them at the end.
    void keepRecords(const Store::Page& from) {
        for (const Store::Slot* slot = from.slots; slot < from.fillEnd; ++slot) {
            if (!slot->free)
                mLoose.emplace_back(slot->value);
        }
    }

    std::unique_ptr<GxapSelectSet> set;

private:
    std::vector<std::unique_ptr<selected_entity>> mLoose;
};

TEST_F(PagesTampering, EntriesOfAPageThatWasFreedLeadNowhere) {
    keepRecords(*page(2));
    Store::Page* const emptied = page(2);
    Store::Slot* const slots = emptied->slots;
    for (unsigned i = 0; i < kPageSlots; ++i)
        store().removeSlot(slots + i, emptied, true);
    set->sharedData->entityCount -= kPageSlots;
    const unsigned long gone = 2ul * kPageSlots + 10;
    EXPECT_NE(set->findInMap(id(gone)), set->sharedData->dataMap.end()) << "reads no record";
    EXPECT_EQ(set->find(id(gone)), -1);
    EXPECT_EQ(set->findInMap(id(gone), GxDbObjectId()), set->sharedData->dataMap.end());
    EXPECT_EQ(set->find(id(5ul * kPageSlots)), static_cast<int>(4 * kPageSlots - 1));
    edit(*set).updateDataMap();
    EXPECT_TRUE(invariants(*set));
}

TEST_F(PagesTampering, EntriesOfAStoreThatWasEmptiedLeadNowhere) {
    for (unsigned i = 0; i < 6; ++i)
        keepRecords(*page(i));
    store().freeAllPages();
    EXPECT_EQ(set->find(id(5)), -1);
    EXPECT_EQ(set->find(id(kMany - 5), GxDbObjectId()), -1);
    set->sharedData->entityCount = 0;
    set->sharedData->dataMap.clear();
    appendIds(*set, 1, 5);
    EXPECT_TRUE(invariants(*set));
}

TEST_F(PagesTampering, EntriesOfAPageThatWasTakenOutByHandLeadNowhere) {
    Store::Page* const gone = page(3);
    keepRecords(*gone);
    page(2)->next = gone->next;
    set->sharedData->entityCount -= kPageSlots;
    EXPECT_EQ(set->find(id(3ul * kPageSlots + 10)), -1);
    EXPECT_EQ(set->find(id(4ul * kPageSlots + 10)), static_cast<int>(3 * kPageSlots + 9));
    EXPECT_EQ(set->getAt(3 * kPageSlots)->mainEntId, id(4ul * kPageSlots + 1));
    edit(*set).updateDataMap();
    EXPECT_TRUE(invariants(*set));
    set.reset();
    KvTkDefaultAllocator<selected_entity*>::deallocate(gone->slots, 65536);
    KvTkDefaultAllocator<selected_entity*>::deallocate(gone, sizeof(Store::Page));
}

TEST_F(PagesTampering, PagesThatChangePlacesAreCountedWhereTheyStand) {
    Store::Page* const second = page(1);
    Store::Page* const third = page(2);
    store().head->next = third;
    second->next = third->next;
    third->next = second;
    EXPECT_EQ(set->getAt(kPageSlots)->mainEntId, id(2ul * kPageSlots + 1));
    EXPECT_EQ(set->find(id(2ul * kPageSlots + 1)), static_cast<int>(kPageSlots));
    EXPECT_EQ(set->find(id(kPageSlots + 1)), static_cast<int>(2 * kPageSlots));
    EXPECT_EQ(set->find(id(3ul * kPageSlots + 1)), static_cast<int>(3 * kPageSlots));
}

TEST_F(PagesTampering, SlotsFreedByHandAreCountedOut) {
    Store::Page* const first = store().head;
    for (const unsigned i : {5u, 600u}) {
        std::unique_ptr<selected_entity> record(first->slots[i].value);
        first->slots[i].free = 1;
        --first->liveCount;
        --set->sharedData->entityCount;
    }
    EXPECT_EQ(set->find(id(601)), -1) << "its slot is free";
    EXPECT_EQ(set->find(id(1000)), 997);
    EXPECT_EQ(set->getAt(997)->mainEntId, id(1000));
    edit(*set).updateDataMap();
    EXPECT_TRUE(invariants(*set));
}

// Moving a record within a page does not change the count of the page. The library trusts a bitmap that has
// the same count. So positions may be wrong until updateDataMap() drops the bitmaps.
TEST_F(PagesTampering, SlotsMovedByHandAreSeenOnceTheIndexIsUpdated) {
    kvtest::takeOutIds(*set, kPageSlots + 1000, 50);
    kvtest::takeOutIds(*set, 3ul * kPageSlots + 500, 700);
    EXPECT_EQ(set->find(id(kMany)), static_cast<int>(kMany - 751));
    const auto move = [this](unsigned ordinal, unsigned from, unsigned to) {
        Store::Slot* const slots = page(ordinal)->slots;
        ASSERT_TRUE(!slots[from].free && slots[to].free);
        slots[to] = slots[from];
        slots[from].free = 1;
    };
    for (unsigned i = 0; i < 50; ++i)
        move(1, i, 999 + i);
    for (unsigned i = 0; i < 300; ++i)
        move(3, 4095 - 2 * i, 499 + i);
    edit(*set).updateDataMap();
    EXPECT_TRUE(invariants(*set));

    const std::vector<unsigned long> ids = kvtest::mainIds(*set);
    ASSERT_EQ(ids.size(), kMany - 750);
    const GxapSelectSet::ConstIterator it = set->begin();
    for (std::size_t i = 0; i < ids.size(); ++i, it.step()) {
        const int position = static_cast<int>(i);
        ASSERT_EQ(kvtest::at(it), ids[i]) << i;
        if (i % 7 != 0)
            continue;
        ASSERT_EQ(set->find(id(ids[i])), position);
        ASSERT_EQ(set->getAt(position)->mainEntId, id(ids[i])) << i;
    }
    EXPECT_TRUE(it.isDone());
}

TEST_F(PagesTampering, SlotsMovedByHandAreRemovedOnceTheIndexIsUpdated) {
    kvtest::takeOutIds(*set, kPageSlots + 1000, 50);
    Store::Slot* const slots = page(1)->slots;
    for (unsigned i = 0; i < 50; ++i) {
        slots[999 + i] = slots[i];
        slots[i].free = 1;
    }
    edit(*set).updateDataMap();
    kvtest::takeOutIds(*set, kPageSlots + 20, 2000);
    EXPECT_EQ(set->find(id(2ul * kPageSlots + 1)), static_cast<int>(2 * kPageSlots - 50 - 1950));
    EXPECT_EQ(set->find(id(kPageSlots + 1)), static_cast<int>(kPageSlots));
    EXPECT_TRUE(invariants(*set));
}

} // namespace
