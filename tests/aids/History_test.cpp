#include "aids/History.h"

#include "tests/aids/AidsTest.h"

#include <gtest/gtest.h>

namespace {

using kv::History;
using kvtest::appendIds;
using kvtest::mainIds;
using kvtest::shareData;

using Numbers = std::vector<unsigned long>;

class Histories : public kvtest::SetTest {
protected:
    // Remembers the set, and appends id(n).
    static void append(History& history, GxapSelectSet& set, unsigned long n) {
        history.remember(set);
        appendIds(set, n, 1);
    }
};

TEST_F(Histories, BeginWithoutStates) {
    History history;
    GxapSelectSet set;
    EXPECT_EQ(history.previous(), nullptr);
    EXPECT_FALSE(history.undo(set));
    EXPECT_FALSE(history.redo(set));
}

TEST_F(Histories, UndoAndRedoEdits) {
    History history;
    GxapSelectSet set;
    append(history, set, 1);
    append(history, set, 2);
    EXPECT_TRUE(history.undo(set));
    EXPECT_EQ(mainIds(set), Numbers{1});
    EXPECT_TRUE(history.undo(set));
    EXPECT_EQ(mainIds(set), Numbers());
    EXPECT_FALSE(history.undo(set));
    EXPECT_TRUE(history.redo(set));
    EXPECT_TRUE(history.redo(set));
    EXPECT_EQ(mainIds(set), (Numbers{1, 2}));
    EXPECT_FALSE(history.redo(set));
    EXPECT_TRUE(history.undo(set));
    EXPECT_EQ(mainIds(set), Numbers{1});
}

TEST_F(Histories, GiveThePreviousState) {
    History history;
    GxapSelectSet set;
    append(history, set, 1);
    append(history, set, 2);
    ASSERT_NE(history.previous(), nullptr);
    EXPECT_EQ(mainIds(*history.previous()), Numbers{1});
    EXPECT_EQ(mainIds(set), (Numbers{1, 2}));
}

TEST_F(Histories, ShareTheDataOfTheirStates) {
    History history;
    GxapSelectSet set;
    appendIds(set, 1, 3);
    history.remember(set);
    EXPECT_TRUE(shareData(*history.previous(), set));
    appendIds(set, 4, 1);
    ASSERT_TRUE(history.undo(set));
    EXPECT_EQ(mainIds(set), kvtest::idRange(1, 3));
}

TEST_F(Histories, PassOverEditsThatChangedNothing) {
    History history;
    GxapSelectSet set;
    append(history, set, 1);
    history.remember(set);
    history.remember(set);
    EXPECT_EQ(history.undos(), 2U) << "a state is remembered once";
    EXPECT_TRUE(history.undo(set));
    EXPECT_EQ(mainIds(set), Numbers());
    EXPECT_EQ(history.undos(), 0U);
    EXPECT_TRUE(history.redo(set));
    EXPECT_EQ(mainIds(set), Numbers{1});
}

TEST_F(Histories, ForgetWhatCanBeRedoneAtTheNextEdit) {
    History history;
    GxapSelectSet set;
    append(history, set, 1);
    history.undo(set);
    append(history, set, 2);
    EXPECT_EQ(history.redos(), 0U);
    EXPECT_FALSE(history.redo(set));
    EXPECT_EQ(mainIds(set), Numbers{2});
}

TEST_F(Histories, ForgetTheOldestStateFirst) {
    History history(2);
    GxapSelectSet set;
    for (unsigned long n = 1; n <= 4; ++n)
        append(history, set, n);
    EXPECT_EQ(history.undos(), 2U);
    EXPECT_TRUE(history.undo(set));
    EXPECT_TRUE(history.undo(set));
    EXPECT_FALSE(history.undo(set));
    EXPECT_EQ(mainIds(set), (Numbers{1, 2}));
    EXPECT_EQ(history.redos(), 2U);
}

TEST_F(Histories, KeepAtLeastOneState) {
    History history(0);
    GxapSelectSet set;
    append(history, set, 1);
    EXPECT_TRUE(history.undo(set));
}

TEST_F(Histories, TakeSetsWithoutData) {
    History history;
    GxapSelectSet set;
    set.releaseData();
    append(history, set, 1);
    EXPECT_TRUE(history.undo(set));
    EXPECT_EQ(set.sharedData, nullptr);
    EXPECT_TRUE(history.redo(set));
    EXPECT_EQ(mainIds(set), Numbers{1});
}

TEST_F(Histories, AreEmptyAfterClear) {
    History history;
    GxapSelectSet set;
    append(history, set, 1);
    append(history, set, 2);
    history.undo(set);
    history.clear();
    EXPECT_EQ(history.undos() + history.redos(), 0U);
    EXPECT_EQ(kvtest::owners(set), 1U);
}

TEST_F(Histories, OutliveTheSet) {
    History history;
    {
        GxapSelectSet set;
        append(history, set, 1);
        append(history, set, 2);
    }
    EXPECT_EQ(mainIds(*history.previous()), Numbers{1});
}

} // namespace
