#include "aids/Reclaim.h"

#include "aids/Inspect.h"
#include "tests/aids/AidsTest.h"
#include "tests/selectcontext/subselection/SubselectionTest.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using kvtest::edit;
using kvtest::id;
using kvtest::invariants;
using kvtest::Item;
using kvtest::Items;
using kvtest::items;
using kvtest::kNoId;
using kvtest::owners;
using kvtest::record;
using kvtest::SetOf;
using kvtest::Unique;

Items itemsOf(const kv::Records& records) {
    Items found;
    for (const kv::Record& each : records)
        found.push_back(kvtest::itemOf(*each));
    return found;
}

// Expects that no removed record is left when a test has dropped what it took.
class Take : public kvtest::EditTest {
protected:
    void TearDown() override {
        EXPECT_EQ(leftRecords({}), 0U);
        kvtest::EditTest::TearDown();
    }
};

const Items kMixed{{1}, {2, 3, 4}, {2, 5}, {1, 6}, {7}};

TEST_F(Take, GivesTheRecordsOfAMainIdInTheOrderOfTheSet) {
    SetOf s(kMixed);
    EXPECT_EQ(itemsOf(kv::take(s.set, id(2))), (Items{{2, 3, 4}, {2, 5}}));
    EXPECT_EQ(items(s.set), (Items{{1}, {1, 6}, {7}}));
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(Take, GivesTheRecordsOfAMainAndASubId) {
    SetOf s(kMixed);
    EXPECT_EQ(itemsOf(kv::take(s.set, id(2), id(5))), (Items{{2, 5}}));
    EXPECT_EQ(items(s.set).size(), 4U);
}

TEST_F(Take, GivesTheRecordOfThreeKeys) {
    SetOf s(kMixed);
    EXPECT_EQ(itemsOf(kv::take(s.set, id(2), id(3), 4)), (Items{{2, 3, 4}}));
    EXPECT_EQ(items(s.set).size(), 4U);
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(Take, GivesNothingForKeysThatTheSetLacks) {
    SetOf s(kMixed);
    const GxapSelectSet sharer(s.set);
    GxapSelectSet none;
    none.releaseData();
    EXPECT_TRUE(kv::take(s.set, id(9)).empty());
    EXPECT_TRUE(kv::take(s.set, kNoId).empty());
    EXPECT_TRUE(kv::take(s.set, id(2), id(9)).empty());
    EXPECT_TRUE(kv::take(s.set, id(2), id(3), 9).empty());
    EXPECT_TRUE(kv::take(none, id(1)).empty());
    EXPECT_EQ(owners(s.set), 2U) << "shared data stays shared";
}

TEST_F(Take, MayBeGivenAnIdOfTheItemItself) {
    SetOf s(kMixed);
    EXPECT_EQ(kv::take(s.set, record(s.set, 1)->mainEntId).size(), 2U);
    EXPECT_EQ(items(s.set).size(), 3U);
}

TEST_F(Take, LeavesSharedDataToTheOthers) {
    SetOf s(kMixed);
    const GxapSelectSet sharer(s.set);
    EXPECT_EQ(kv::take(s.set, id(2)).size(), 2U);
    EXPECT_EQ(items(sharer), kMixed);
    EXPECT_EQ(items(s.set).size(), 3U);
}

TEST_F(Take, AtAPositionGivesTheVeryItemThere) {
    SetOf s{{1, 2, 3, {4}}, {1, 2, 3, {5}}};
    const GxapSelectSet sharer(s.set);
    const kv::Record taken = kv::takeAt(s.set, 1);
    ASSERT_NE(taken, nullptr);
    EXPECT_EQ(kvtest::itemOf(*taken), (Item{1, 2, 3, {5}}));
    EXPECT_EQ(items(s.set), (Items{{1, 2, 3, {4}}}));
    EXPECT_EQ(kv::takeAt(s.set, 1), nullptr);
    EXPECT_EQ(kv::takeAt(s.set, -1), nullptr);
}

TEST_F(Take, ExactlyGivesTheRecordOfAnIterator) {
    SetOf s{{1, 2, 3, {4}}, {1, 2, 3, {5}}};
    auto it = s.set.iteratorAt(1);
    const kv::Record taken = kv::takeExactly(s.set, it);
    ASSERT_NE(taken, nullptr);
    EXPECT_EQ(kvtest::itemOf(*taken), (Item{1, 2, 3, {5}}));
    EXPECT_EQ(kv::takeExactly(s.set, it)->nestedEntFullPath.logicalLength(), 1) << "the item before";
    EXPECT_EQ(kv::takeExactly(s.set, it), nullptr);
}

TEST_F(Take, IfGivesTheDoomedItemsAndNoOthers) {
    SetOf s{{1, 2, 3, {4}}, {1, 2, 3, {5}}, {6}, {1, 2, 3, {7}}};
    const GxapSelectSet sharer(s.set);
    const auto isDoomed = [](const selected_entity& item) {
        const Item keys = kvtest::itemOf(item);
        return keys.path[0] == 5 || keys.path[0] == 7;
    };
    EXPECT_EQ(itemsOf(kv::takeIf(s.set, isDoomed)), (Items{{1, 2, 3, {5}}, {1, 2, 3, {7}}}));
    EXPECT_EQ(items(s.set), (Items{{1, 2, 3, {4}}, {6}}));
    EXPECT_EQ(items(sharer).size(), 4U);
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(Take, IfWorksOnSetsOfSeveralPages) {
    SetOf s(kvtest::plainItems(1, 3 * kvtest::kPageSlots));
    const auto isInTheMiddle = [](const selected_entity& item) {
        return kvtest::numberOf(item.mainEntId) / kvtest::kPageSlots == 1;
    };
    EXPECT_EQ(kv::takeIf(s.set, isInTheMiddle).size(), kvtest::kPageSlots);
    EXPECT_EQ(kvtest::count(s.set), 2 * kvtest::kPageSlots);
    EXPECT_TRUE(invariants(s.set));
    EXPECT_EQ(s.set.find(id(3 * kvtest::kPageSlots)), static_cast<int>(2 * kvtest::kPageSlots - 1));
}

TEST_F(Take, IfTakesTheEntriesOfItemsWhoseMainIdHasChanged) {
    SetOf s{{1}, {2}, {3}};
    record(s.set, 1)->mainEntId = id(9);
    EXPECT_EQ(kv::takeIf(s.set, [](const selected_entity& item) { return item.mainEntId == id(9); }).size(),
              1U);
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(Take, IfLeavesSharedDataSharedWithoutADoomedItem) {
    SetOf s(kMixed);
    const GxapSelectSet sharer(s.set);
    EXPECT_TRUE(kv::takeIf(s.set, [](const selected_entity&) { return false; }).empty());
    EXPECT_EQ(owners(s.set), 2U);
}

TEST_F(Take, IfRemovesNothingIfTheQuestionThrowsOrEdits) {
    SetOf s(kMixed);
    const auto throws = [](const selected_entity& item) -> bool {
        if (item.mainEntId == id(7))
            throw std::runtime_error("no answer");
        return true;
    };
    EXPECT_THROW(kv::takeIf(s.set, throws), std::runtime_error);
    EXPECT_EQ(items(s.set), kMixed);
    const auto edits = [&s](const selected_entity&) {
        edit(s.set).append(id(99), kNoId);
        return true;
    };
    EXPECT_TRUE(kv::takeIf(s.set, edits).empty());
    EXPECT_EQ(items(s.set).size(), kMixed.size() + 1);
}

TEST_F(Take, MinusGivesTheItemsOfTheOtherSet) {
    SetOf s(kMixed);
    const SetOf other{{2, 5}, {1}, {8}};
    EXPECT_EQ(itemsOf(kv::takeMinus(s.set, other.set)), (Items{{1}, {2, 5}}));
    EXPECT_EQ(items(s.set), (Items{{2, 3, 4}, {1, 6}, {7}}));
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(Take, MinusItselfGivesEveryItem) {
    SetOf s(kMixed);
    EXPECT_EQ(itemsOf(kv::takeMinus(s.set, s.set)), kMixed);
    EXPECT_TRUE(items(s.set).empty());
}

TEST_F(Take, MinusACopyGivesEveryItem) {
    SetOf s(kMixed);
    const GxapSelectSet copy(s.set);
    EXPECT_EQ(itemsOf(kv::takeMinus(s.set, copy)), kMixed);
    EXPECT_EQ(items(copy), kMixed);
}

TEST_F(Take, MinusNothingGivesNothing) {
    SetOf s(kMixed);
    const GxapSelectSet sharer(s.set);
    GxapSelectSet none;
    none.releaseData();
    EXPECT_TRUE(kv::takeMinus(s.set, GxapSelectSet()).empty());
    EXPECT_TRUE(kv::takeMinus(s.set, none).empty());
    EXPECT_TRUE(kv::takeMinus(none, s.set).empty());
    EXPECT_EQ(owners(s.set), 2U);
}

TEST_F(Take, SetUniqueGivesTheLaterItemsOfEachMainId) {
    SetOf s(Items{{1}, {2}, {1, 3}, {2}}, Unique::kOff);
    EXPECT_EQ(itemsOf(kv::takeSetUnique(s.set, true)), (Items{{1, 3}, {2}}));
    EXPECT_EQ(items(s.set), (Items{{1}, {2}}));
    EXPECT_TRUE(s.data().unique);
    EXPECT_TRUE(kv::takeSetUnique(s.set, false).empty());
    EXPECT_FALSE(s.data().unique);
}

TEST_F(Take, SetUniqueGivesNothingIfTheFlagIsAsWanted) {
    SetOf s(kMixed);
    const GxapSelectSet sharer(s.set);
    EXPECT_TRUE(kv::takeSetUnique(s.set, true).empty());
    EXPECT_EQ(owners(s.set), 2U);
}

// ---- SubselectionPaths

class OwnedSubselection : public kvtest::SubselectionTest {
protected:
    // Returns the part indices of the sub-selection of an item.
    static std::vector<std::int64_t> partsOf(const GxapSelectSet& set, std::size_t position) {
        return kvtest::indicesOf(*record(set, position)->subselPathArray);
    }
};

TEST_F(OwnedSubselection, MakesAnItemThatHasThePath) {
    kv::SubselectionPaths paths;
    GxapSelectSet set;
    EXPECT_TRUE(paths.add(set, part(first, 5)));
    EXPECT_EQ(kvtest::count(set), 1U);
    EXPECT_EQ(partsOf(set, 0), (std::vector<std::int64_t>{5}));
    EXPECT_EQ(record(set, 0)->selectedEntityInfo->word0, kv::kSubselectionWord);
    EXPECT_EQ(set.findSubentPathSubsel(first, part(first, 5)), 0);
    EXPECT_EQ(paths.size(), 1U);
}

TEST_F(OwnedSubselection, AddsToTheItemThatTheSetHas) {
    kv::SubselectionPaths paths;
    GxapSelectSet set;
    paths.add(set, part(first, 5));
    const GxapSelectSet copy(set);
    EXPECT_TRUE(paths.add(set, part(first, 6)));
    EXPECT_EQ(partsOf(set, 0), (std::vector<std::int64_t>{5, 6}));
    EXPECT_EQ(partsOf(copy, 0), (std::vector<std::int64_t>{5}));
}

TEST_F(OwnedSubselection, RefusesPathsAndItemsThatTakeNone) {
    kv::SubselectionPaths paths;
    GxapSelectSet set;
    edit(set).append(first, kNoId);
    const GxapSelectSet sharer(set);
    EXPECT_FALSE(paths.add(set, part(first, 5))) << "an item without a sub-selection";
    EXPECT_FALSE(paths.add(set, kvtest::subentPath({})));
    EXPECT_FALSE(paths.add(set, part(database.addInvalid(), 5)));
    EXPECT_EQ(paths.size(), 0U);
    EXPECT_EQ(owners(set), 2U);
}

TEST_F(OwnedSubselection, RemovesAPathAndTheItemWithItsLastOne) {
    kv::SubselectionPaths paths;
    GxapSelectSet set;
    paths.add(set, part(first, 5));
    paths.add(set, part(first, 6));
    kv::SubselectionPaths::Removed removed = kv::SubselectionPaths::remove(set, part(first, 5));
    EXPECT_TRUE(removed.isRemoved);
    EXPECT_EQ(removed.item, nullptr);
    EXPECT_EQ(partsOf(set, 0), (std::vector<std::int64_t>{6}));
    removed = kv::SubselectionPaths::removeAt(set, 0, 0);
    EXPECT_TRUE(removed.isRemoved);
    ASSERT_NE(removed.item, nullptr);
    EXPECT_EQ(removed.item->mainEntId, first);
    EXPECT_EQ(kvtest::count(set), 0U);
    EXPECT_EQ(paths.size(), 2U) << "the copies exist until somebody says so";
}

TEST_F(OwnedSubselection, RemovesNothingForAPathThatIsNotThere) {
    kv::SubselectionPaths paths;
    GxapSelectSet set;
    paths.add(set, part(first, 5));
    const GxapSelectSet sharer(set);
    EXPECT_FALSE(kv::SubselectionPaths::remove(set, part(first, 6)).isRemoved);
    EXPECT_FALSE(kv::SubselectionPaths::remove(set, part(second, 5)).isRemoved);
    EXPECT_FALSE(kv::SubselectionPaths::removeAt(set, 0, 1).isRemoved) << "the library would throw";
    EXPECT_FALSE(kv::SubselectionPaths::removeAt(set, 0, -1).isRemoved);
    EXPECT_FALSE(kv::SubselectionPaths::removeAt(set, 1, 0).isRemoved);
    EXPECT_EQ(owners(set), 2U);
}

TEST_F(OwnedSubselection, RemovesTheVeryItemInSharedData) {
    kv::SubselectionPaths paths;
    GxapSelectSet set;
    edit(set).append(second, kNoId);
    paths.add(set, part(first, 5));
    const GxapSelectSet sharer(set);
    EXPECT_NE(kv::SubselectionPaths::removeAt(set, 1, 0).item, nullptr);
    EXPECT_EQ(kvtest::count(set), 1U);
    EXPECT_EQ(partsOf(sharer, 1), (std::vector<std::int64_t>{5}));
}

TEST_F(OwnedSubselection, DestroysThePathsThatNoSetUses) {
    kv::SubselectionPaths paths;
    GxapSelectSet set;
    paths.add(set, part(first, 5));
    paths.add(set, part(first, 6));
    const GxapSelectSet copy(set);
    kv::SubselectionPaths::remove(set, part(first, 5));
    const long before = kvinmemory::livePaths();
    EXPECT_EQ(paths.destroyUnused({&set, nullptr, &copy}), 0U);
    EXPECT_EQ(paths.destroyUnused({&set}), 1U);
    EXPECT_EQ(kvinmemory::livePaths(), before - 1);
    EXPECT_EQ(paths.size(), 1U);
    EXPECT_EQ(partsOf(set, 0), (std::vector<std::int64_t>{6}));
}

TEST_F(OwnedSubselection, DestroysAllPathsAtItsEnd) {
    const long before = kvinmemory::livePaths();
    {
        kv::SubselectionPaths paths;
        GxapSelectSet set;
        paths.add(set, part(first, 5));
        EXPECT_GT(kvinmemory::livePaths(), before);
    }
    EXPECT_EQ(kvinmemory::livePaths(), before);
}

} // namespace
