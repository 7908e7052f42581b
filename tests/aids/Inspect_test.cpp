#include "aids/Inspect.h"

#include "tests/aids/AidsTest.h"
#include "tests/selectcontext/support/DrawingTestSupport.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

using kv::IteratorState;
using kv::removeExactly;
using kv::whyDone;
using kvtest::appendIds;
using kvtest::edit;
using kvtest::Filled;
using kvtest::id;
using kvtest::invariants;
using kvtest::isRegistered;
using kvtest::Items;
using kvtest::items;
using kvtest::kNoId;
using kvtest::kPageSlots;
using kvtest::record;
using kvtest::registrations;
using kvtest::SetOf;
using kvtest::takeOutIds;
using kvtest::Unique;

using ConstIterator = GxapSelectSet::ConstIterator;

// ---- whyDone()

using WhyDone = kvtest::SetTest;

TEST_F(WhyDone, SaysThatAnIteratorIsOnAnItem) {
    const Filled filled(2);
    EXPECT_EQ(whyDone(filled.set.begin()), IteratorState::kOnItem);
}

TEST_F(WhyDone, SaysThatAnIteratorIsAtTheEnd) {
    const Filled filled(2);
    EXPECT_EQ(whyDone(filled.set.end()), IteratorState::kAtEnd);
    const GxapSelectSet empty;
    EXPECT_EQ(whyDone(empty.begin()), IteratorState::kAtEnd);
}

TEST_F(WhyDone, SaysThatAnIteratorIsBeforeTheFirstItem) {
    Filled filled(2 * kPageSlots);
    const auto first = filled.set.begin();
    auto second = filled.set.iteratorAt(1);
    takeOutIds(filled.set, 1, kPageSlots);
    auto before = filled.set.end();
    ASSERT_TRUE(second.getPrevIterator(before));
    EXPECT_EQ(whyDone(before), IteratorState::kBeforeFirst);
}

TEST_F(WhyDone, SaysThatAnIteratorIsOutside) {
    const Filled filled(2);
    EXPECT_EQ(whyDone(ConstIterator(&filled.set, 5)), IteratorState::kOutside);
}

TEST_F(WhyDone, SaysThatTheItemWasRemoved) {
    Filled filled(2);
    const auto first = filled.set.begin();
    takeOutIds(filled.set, 1, 1);
    EXPECT_EQ(whyDone(first), IteratorState::kOnRemovedItem);
}

TEST_F(WhyDone, SaysThatThePageWasReleased) {
    Filled filled(kPageSlots + 1);
    const auto first = filled.set.begin();
    takeOutIds(filled.set, 1, kPageSlots);
    EXPECT_EQ(whyDone(first), IteratorState::kOnReleasedPage);
}

TEST_F(WhyDone, SaysThatAnIteratorIsDisabled) {
    Filled filled(2);
    auto first = filled.set.begin();
    filled.set.createData();
    EXPECT_EQ(whyDone(first), IteratorState::kDisabled);
}

TEST_F(WhyDone, SaysThatTheSetHasOtherData) {
    Filled filled(2);
    auto first = filled.set.begin();
    filled.set.removeIterator(&first); // so it is not disabled
    const GxapSelectSet holder(filled.set);
    filled.set.createData();
    EXPECT_EQ(whyDone(first), IteratorState::kOnOtherStore);
}

TEST_F(WhyDone, SaysThatTheSetHasNoData) {
    Filled filled(2);
    auto first = filled.set.begin();
    filled.set.releaseData();
    EXPECT_EQ(whyDone(first), IteratorState::kSetHasNoData);
}

TEST_F(WhyDone, SaysThatTheSetIsGone) {
    auto filled = std::make_unique<Filled>(2);
    const auto first = filled->set.begin();
    filled.reset();
    EXPECT_EQ(whyDone(first), IteratorState::kSetIsGone);
    EXPECT_EQ(whyDone(ConstIterator(nullptr, 0)), IteratorState::kSetIsGone);
}

TEST_F(WhyDone, HasATextForEachState) {
    EXPECT_STREQ(kv::textOf(IteratorState::kOnItem), "on an item");
    EXPECT_STREQ(kv::textOf(IteratorState::kSetIsGone), "of a set that is gone");
    EXPECT_STREQ(kv::textOf(static_cast<IteratorState>(99)), "in an unknown state");
}

// ---- staleItems()

class StaleItems : public kvtest::DrawingTest {
protected:
    void SetUp() override {
        kvtest::DrawingTest::SetUp();
        wall = drawing().addEntity("wall");
        desk = drawing().addEntity("desk");
        door = drawing().addEntity("door");
    }

    GxDbObjectId wall;
    GxDbObjectId desk;
    GxDbObjectId door;
};

TEST_F(StaleItems, AreThoseWhoseMainIdDoesNotOpen) {
    GxapSelectSet set;
    edit(set).append(wall, kNoId);
    edit(set).append(desk, kNoId);
    edit(set).append(door, kNoId);
    drawing().erase(desk);
    drawing().forceOpenStatus(door, static_cast<GxErrorStatus>(77));
    const auto stale = kv::staleItems(set);
    ASSERT_EQ(stale.size(), 2U);
    EXPECT_EQ(stale[0].position, 1);
    EXPECT_EQ(stale[0].mainEntId, desk);
    EXPECT_NE(stale[0].status, eOk);
    EXPECT_EQ(stale[1].position, 2);
    EXPECT_EQ(stale[1].status, 77);
}

TEST_F(StaleItems, AreNoneInASetWithoutData) {
    GxapSelectSet set;
    set.releaseData();
    EXPECT_TRUE(kv::staleItems(set).empty());
}

TEST_F(StaleItems, AreFoundByOpeningEachIdOnceAndOneAtATime) {
    GxapSelectSet set;
    edit(set).append(wall, kNoId);
    edit(set).append(desk, kNoId);
    edit(set).select(wall, kNoId, 5, nullptr, nullptr);
    EXPECT_TRUE(kv::staleItems(set).empty());
    EXPECT_EQ(calls(), (kvtest::Lines{"open wall", "close wall", "open desk", "close desk"}));
}

// ---- removeExactly()

// Removed records are left to the test, as by removeAt().
class RemoveExactly : public kvtest::EditTest {
protected:
    void TearDown() override {
        freeLeftRecords();
        kvtest::EditTest::TearDown();
    }

    static const Items kEqual;
};

// The markers are equal, and so are the other keys that remove() compares.
const Items RemoveExactly::kEqual{{1, 2, 3, {4}}, {9}, {1, 2, 3, {5}}, {1, 2, 3, {6}}};

TEST_F(RemoveExactly, RemovesTheItemAlsoIfAnEarlierOneHasTheSameKeys) {
    SetOf s(kEqual);
    selected_entity* const wanted = record(s.set, 2);
    auto it = s.set.iteratorAt(2);
    EXPECT_TRUE(removeExactly(s.set, it));
    EXPECT_EQ(items(s.set), (Items{{1, 2, 3, {4}}, {9}, {1, 2, 3, {6}}}));
    EXPECT_TRUE(invariants(s.set));
    EXPECT_EQ(kvtest::itemOf(*wanted), kEqual[2]) << "the record stays";
    delete wanted;
}

TEST_F(RemoveExactly, ReadsTheKeysAndDoesNotWriteThem) {
    SetOf s(kEqual);
    const selected_entity& other = *record(s.set, 0);
    auto it = s.set.iteratorAt(3);
    const auto* const block = other.nestedEntFullPath.data.block;
    EXPECT_TRUE(removeExactly(s.set, it));
    EXPECT_EQ(other.gsMarker, 3);
    EXPECT_EQ(other.nestedEntFullPath.data.block, block);
}

TEST_F(RemoveExactly, LetsTheIteratorGoOnWithTheItemBehind) {
    SetOf s(kEqual);
    auto it = s.set.iteratorAt(2);
    removeExactly(s.set, it);
    EXPECT_TRUE(it.step());
    EXPECT_EQ(it.index, 2);
    EXPECT_EQ(kvtest::itemOf(*it.get()), kEqual[3]);
}

TEST_F(RemoveExactly, LetsAWalkRemoveEveryItem) {
    SetOf s(kvtest::plainItems(1, 5));
    int removed = 0;
    for (auto it = s.set.begin(); !it.isDone(); it.step())
        removed += removeExactly(s.set, it) ? 1 : 0;
    EXPECT_EQ(removed, 5);
    EXPECT_TRUE(items(s.set).empty());
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(RemoveExactly, LetsAWalkRemoveEveryItemOfSeveralPages) {
    SetOf s(kvtest::plainItems(1, 2 * kPageSlots + 3));
    unsigned removed = 0;
    for (auto it = s.set.begin(); !it.isDone(); it.step())
        removed += removeExactly(s.set, it) ? 1U : 0U;
    EXPECT_EQ(removed, 2 * kPageSlots + 3);
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(RemoveExactly, LetsAWalkRemoveEverySecondItem) {
    SetOf s(kvtest::plainItems(1, 2 * kPageSlots));
    unsigned visited = 0;
    for (auto it = s.set.begin(); !it.isDone(); it.step()) {
        if (visited++ % 2 == 0)
            removeExactly(s.set, it);
    }
    EXPECT_EQ(visited, 2 * kPageSlots);
    EXPECT_EQ(items(s.set).size(), kPageSlots);
    EXPECT_EQ(items(s.set).front(), kvtest::Item{2});
}

TEST_F(RemoveExactly, GoesOnInItsOwnCopyOfSharedData) {
    SetOf s(kEqual);
    const GxapSelectSet sharer(s.set);
    auto it = s.set.iteratorAt(2);
    EXPECT_TRUE(removeExactly(s.set, it));
    EXPECT_EQ(items(sharer), kEqual);
    EXPECT_EQ(items(s.set), (Items{{1, 2, 3, {4}}, {9}, {1, 2, 3, {6}}}));
    EXPECT_TRUE(isRegistered(s.set, it));
    EXPECT_EQ(registrations(s.set), 1);
    EXPECT_TRUE(it.step());
    EXPECT_EQ(kvtest::itemOf(*it.get()), kEqual[3]);
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(RemoveExactly, RemovesAnItemThatTheIndexLacks) {
    SetOf s{{1, 2}, {1, 3}};
    edit(s.set).remove(id(1), id(2)); // erases all index entries of the main id
    auto it = s.set.begin();
    EXPECT_TRUE(removeExactly(s.set, it));
    EXPECT_TRUE(items(s.set).empty());
    EXPECT_TRUE(it.isDone());
}

TEST_F(RemoveExactly, RemovesAnItemWhoseMainIdACallerHasChanged) {
    SetOf s{{1}, {2}, {3}};
    record(s.set, 1)->mainEntId = id(7);
    auto it = s.set.iteratorAt(1);
    EXPECT_TRUE(removeExactly(s.set, it));
    EXPECT_EQ(items(s.set), (Items{{1}, {3}}));
    EXPECT_TRUE(invariants(s.set)) << "the entry of the old id is gone, too";
}

TEST_F(RemoveExactly, RefusesAnIteratorThatIsOnNoItemOfTheSet) {
    SetOf s{{1}, {2}};
    const SetOf other{{1}};
    auto end = s.set.end();
    auto stranger = other.set.begin();
    auto removed = s.set.begin();
    auto disabled = s.set.begin();
    disabled.disable();
    edit(s.set).remove(id(1));
    for (ConstIterator* it : {&end, &stranger, &removed, &disabled})
        EXPECT_FALSE(removeExactly(s.set, *it));
    EXPECT_EQ(items(s.set), Items{{2}});
    EXPECT_EQ(items(other.set), Items{{1}});
}

TEST_F(RemoveExactly, LeavesLongRunsFindable) {
    SetOf s(Items{}, Unique::kOff);
    for (long marker = 1; marker <= 200; ++marker)
        kvtest::select(s.set, {1, 2, marker});
    ASSERT_GE(s.set.find(id(1), id(2), 150L), 0); // makes the hash of the run
    auto it = s.set.iteratorAt(s.set.find(id(1), id(2), 150L));
    EXPECT_TRUE(removeExactly(s.set, it));
    EXPECT_EQ(s.set.find(id(1), id(2), 150L), -1);
    EXPECT_EQ(s.set.find(id(1), id(2), 151L), 149);
    kvtest::select(s.set, {1, 2, 150});
    EXPECT_EQ(s.set.find(id(1), id(2), 150L), 199);
}

// ---- makeInfo()

using MakeInfo = kvtest::SetTest;

TEST_F(MakeInfo, GivesAnInfoWithoutOptionalDataUnlessItIsAsked) {
    const kv::OwnedInfo info = kv::makeInfo();
    EXPECT_EQ(info->word0, 0U);
    EXPECT_EQ(info->halfWord, -1);
    EXPECT_EQ(info->presenceBits, 0U);
    EXPECT_EQ(info->pointArray.logicalLength(), 0);
}

TEST_F(MakeInfo, StoresEveryField) {
    kv::InfoFields fields;
    fields.word0 = 1;
    fields.word1 = 2;
    fields.halfWord = 3;
    fields.points = {{1, 2, 3}, {4, 5, 6}};
    fields.fence = kvtest::fence(7, 0.5);
    fields.transform = kvtest::matrixWith(8);
    const kv::OwnedInfo info = kv::makeInfo(fields);
    EXPECT_EQ(info->word0, 1U);
    EXPECT_EQ(info->word1, 2U);
    EXPECT_EQ(info->halfWord, 3);
    ASSERT_EQ(info->pointArray.logicalLength(), 2);
    EXPECT_EQ(kvtest::elementAt(info->pointArray, 1).y, 5);
    ASSERT_NE(info->getFenceInfoPtr(), nullptr);
    EXPECT_EQ(info->getFenceInfoPtr()->index, 7);
    ASSERT_NE(info->getBTRMatPtr(), nullptr);
    EXPECT_TRUE(kvtest::sameEntries(*info->getBTRMatPtr(), kvtest::matrixWith(8)));
}

TEST_F(MakeInfo, IsWhatSelectTakesOver) {
    GxapSelectSet set;
    kv::InfoFields fields;
    fields.word1 = 5;
    edit(set).select(id(1), kNoId, -1, kv::makeInfo(fields).release(), nullptr);
    EXPECT_EQ(record(set, 0)->selectedEntityInfo->word1, 5U);
}

} // namespace
