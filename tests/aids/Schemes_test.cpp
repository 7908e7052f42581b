#include "aids/Schemes.h"

#include "tests/aids/AidsTest.h"

#include <gtest/gtest.h>

namespace {

using kv::Applied;
using kv::Scheme;
using kvtest::edit;
using kvtest::invariants;
using kvtest::Items;
using kvtest::items;
using kvtest::owners;
using kvtest::record;
using kvtest::SetOf;
using kvtest::Unique;

Items cameIn(const Applied& applied) {
    Items came;
    for (const selected_entity* item : applied.came)
        came.push_back(kvtest::itemOf(*item));
    return came;
}

Items wentIn(const Applied& applied) {
    Items went;
    for (const kv::Record& item : applied.went)
        went.push_back(kvtest::itemOf(*item));
    return went;
}

// Expects that no removed record is left.
class Schemes : public kvtest::EditTest {
protected:
    void TearDown() override {
        EXPECT_EQ(leftRecords({}), 0U);
        kvtest::EditTest::TearDown();
    }
};

const Items kHeld{{1}, {2, 3, 4}, {5}};
const Items kPicked{{5}, {6}, {1}};

TEST_F(Schemes, ReplaceLeavesThePickedItemsOnly) {
    SetOf s(kHeld);
    const SetOf picked(kPicked);
    const selected_entity* const stays = record(s.set, 2);
    const Applied applied = kv::apply(s.set, Scheme::kReplace, picked.set);
    EXPECT_EQ(items(s.set), (Items{{1}, {5}, {6}}));
    EXPECT_EQ(cameIn(applied), (Items{{6}}));
    EXPECT_EQ(wentIn(applied), (Items{{2, 3, 4}}));
    EXPECT_EQ(record(s.set, 1), stays) << "an item that stays keeps its record";
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(Schemes, AddTakesTheItemsThatTheSetLacks) {
    SetOf s(kHeld);
    const SetOf picked(kPicked);
    const Applied applied = kv::apply(s.set, Scheme::kAdd, picked.set);
    EXPECT_EQ(items(s.set), (Items{{1}, {2, 3, 4}, {5}, {6}}));
    EXPECT_EQ(cameIn(applied), (Items{{6}}));
    EXPECT_TRUE(applied.went.empty());
    EXPECT_EQ(applied.came.front(), record(s.set, 3));
}

TEST_F(Schemes, RemoveTakesThePickedItemsOut) {
    SetOf s(kHeld);
    const SetOf picked(kPicked);
    const Applied applied = kv::apply(s.set, Scheme::kRemove, picked.set);
    EXPECT_EQ(items(s.set), (Items{{2, 3, 4}}));
    EXPECT_EQ(wentIn(applied), (Items{{1}, {5}})) << "in the order of the set";
    EXPECT_TRUE(applied.came.empty());
    EXPECT_TRUE(invariants(s.set));
}

TEST_F(Schemes, ToggleExchangesThePickedItems) {
    SetOf s(kHeld);
    const SetOf picked(kPicked);
    const Applied applied = kv::apply(s.set, Scheme::kToggle, picked.set);
    EXPECT_EQ(items(s.set), (Items{{2, 3, 4}, {6}}));
    EXPECT_EQ(wentIn(applied), (Items{{1}, {5}}));
    EXPECT_EQ(cameIn(applied), (Items{{6}}));
    const Applied back = kv::apply(s.set, Scheme::kToggle, picked.set);
    EXPECT_EQ(items(s.set), (Items{{2, 3, 4}, {5}, {1}}));
    EXPECT_EQ(wentIn(back), (Items{{6}}));
}

TEST_F(Schemes, CompareAllFiveKeys) {
    SetOf s{{1, 2, 3, {4}, 1.5}, {1, 2, 3, {4}, 2.5}, {1, 2, 3, {5}, 1.5}, {1, 2, 0, {4}, 1.5}};
    const SetOf picked{{1, 2, 3, {4}, 2.5}, {1, 2, -1, {4}, 1.5}};
    const Applied applied = kv::apply(s.set, Scheme::kRemove, picked.set);
    EXPECT_EQ(wentIn(applied), (Items{{1, 2, 3, {4}, 2.5}, {1, 2, 0, {4}, 1.5}}));
}

TEST_F(Schemes, TakeEmptyPicksAndSetsWithoutData) {
    SetOf s(kHeld);
    GxapSelectSet none;
    none.releaseData();
    EXPECT_TRUE(kv::apply(s.set, Scheme::kToggle, none).isEmpty());
    EXPECT_TRUE(kv::apply(s.set, Scheme::kRemove, GxapSelectSet()).isEmpty());
    EXPECT_EQ(wentIn(kv::apply(s.set, Scheme::kReplace, none)), kHeld);
    const SetOf picked(kPicked);
    EXPECT_EQ(cameIn(kv::apply(none, Scheme::kToggle, picked.set)), kPicked);
    EXPECT_EQ(items(none), kPicked);
}

TEST_F(Schemes, TakeTheSetItselfAsThePicks) {
    SetOf s(kHeld);
    EXPECT_TRUE(kv::apply(s.set, Scheme::kAdd, s.set).isEmpty());
    EXPECT_TRUE(kv::apply(s.set, Scheme::kReplace, s.set).isEmpty());
    EXPECT_EQ(wentIn(kv::apply(s.set, Scheme::kToggle, s.set)), kHeld);
    EXPECT_TRUE(items(s.set).empty());
}

TEST_F(Schemes, LeaveSharedDataToTheOthers) {
    for (const Scheme scheme : {Scheme::kReplace, Scheme::kAdd, Scheme::kRemove, Scheme::kToggle}) {
        SetOf s(kHeld);
        const GxapSelectSet sharer(s.set);
        const SetOf picked(kPicked);
        EXPECT_FALSE(kv::apply(s.set, scheme, picked.set).isEmpty());
        EXPECT_EQ(items(sharer), kHeld);
        EXPECT_TRUE(invariants(s.set));
    }
}

TEST_F(Schemes, LeaveSharedDataSharedIfNothingChanges) {
    SetOf s(kHeld);
    const GxapSelectSet sharer(s.set);
    const SetOf held(kHeld);
    const SetOf others{{8}, {9}};
    EXPECT_TRUE(kv::apply(s.set, Scheme::kAdd, held.set).isEmpty());
    EXPECT_TRUE(kv::apply(s.set, Scheme::kReplace, held.set).isEmpty());
    EXPECT_TRUE(kv::apply(s.set, Scheme::kRemove, others.set).isEmpty());
    EXPECT_EQ(owners(s.set), 2U);
}

TEST_F(Schemes, RemoveEveryEqualItemOfASetThatIsNotUnique) {
    SetOf s(Items{{1}, {2}, {1}}, Unique::kOff);
    const SetOf picked{{1}};
    EXPECT_EQ(wentIn(kv::apply(s.set, Scheme::kRemove, picked.set)), (Items{{1}, {1}}));
}

TEST_F(Schemes, ReplaceKeepsAsManyEqualItemsAsWerePicked) {
    SetOf s(Items{{1}, {2}, {1}, {1}}, Unique::kOff);
    const SetOf picked(Items{{1}, {1}}, Unique::kOff);
    EXPECT_EQ(wentIn(kv::apply(s.set, Scheme::kReplace, picked.set)), (Items{{2}, {1}}));
    EXPECT_EQ(items(s.set), (Items{{1}, {1}}));
}

} // namespace
