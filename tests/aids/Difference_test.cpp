#include "aids/Inspect.h"

#include "tests/aids/AidsTest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using kvtest::cloneOf;
using kvtest::edit;
using kvtest::giveSegments;
using kvtest::Items;
using kvtest::record;
using kvtest::Sentences;
using kvtest::SetOf;
using kvtest::Unique;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Difference : public kvtest::SetTest {
protected:
    static Sentences between(const GxapSelectSet& a, const GxapSelectSet& b) {
        return kv::difference(a, b, kvtest::textOfNumber);
    }
};

TEST_F(Difference, IsNothingForSetsThatShareTheirData) {
    const SetOf s{{1}};
    EXPECT_THAT(between(s.set, GxapSelectSet(s.set)), IsEmpty());
}

TEST_F(Difference, IsNothingForACopyOfTheData) {
    SetOf s{{1, 2, 3, {4, 5}, 6.5}, {7}, {8}};
    giveSegments(*record(s.set, 1), 2);
    EXPECT_THAT(between(s.set, *cloneOf(s.set)), IsEmpty());
}

TEST_F(Difference, IsNothingBetweenAnEmptySetAndOneWithoutData) {
    GxapSelectSet none;
    none.releaseData();
    EXPECT_THAT(between(GxapSelectSet(), none), IsEmpty());
}

TEST_F(Difference, NamesItemsThatOneSetLacks) {
    const SetOf a{{1}, {2, 3, 4}, {5}};
    const SetOf b{{1}, {5}, {6}};
    EXPECT_THAT(between(a.set, b.set),
                ElementsAre("The second set lacks item 1 of the first: #2, sub #3, marker 4.",
                            "The first set lacks item 2 of the second: #6."));
}

TEST_F(Difference, NamesTheFewestItemsThatHaveMoved) {
    const SetOf a{{1}, {2}, {3}, {4}};
    const SetOf b{{2}, {3}, {4}, {1}};
    EXPECT_THAT(between(a.set, b.set),
                ElementsAre("Item 0 of the first set, #1, has moved: it is item 3 of the second."));
}

TEST_F(Difference, NamesNoItemAsMovedBecauseOthersAreMissing) {
    const SetOf a{{1}, {2}, {3}};
    const SetOf b{{3}};
    EXPECT_EQ(between(a.set, b.set).size(), 2U);
}

TEST_F(Difference, NamesTheFlags) {
    const SetOf a{{1}};
    SetOf b(Items{{1}}, Unique::kOff);
    edit(b.set).setSelectByNestedMode(true);
    EXPECT_THAT(between(a.set, b.set), ElementsAre("`unique` is true in the first set only.",
                                                   "`selectByNestedMode` is true in the second set only."));
}

TEST_F(Difference, NamesTheFieldsThatChanged) {
    SetOf a{{1}, {2, 0, 0}};
    SetOf b{{1, 0, -1, {}, 2.5}, {2}};
    kvtest::append(record(b.set, 0)->hlVpArray, 3);
    giveSegments(*record(b.set, 0), 1);
    EXPECT_THAT(
        between(a.set, b.set),
        ElementsAre(
            "Item 0 of the first set, #1, has viewports 3 in the second, not none.",
            "Item 0 of the first set, #1, has highlight segments #1:0:0 in the second, not none.",
            "Item 0 of the first set, #1, has block transform 1 0 0 2.5 0 1 0 0 0 0 1 0 0 0 0 1 in the "
            "second, not none.",
            "Item 1 of the first set, #2, marker 0, has marker -1 in the second, not 0."));
}

TEST_F(Difference, MatchesEqualItemsByTheirOtherFieldsFirst) {
    const SetOf a{{1, 2, 3, {7}, 1.5}, {1, 2, 3, {7}, 2.5}};
    const SetOf b{{1, 2, 3, {7}, 2.5}};
    EXPECT_THAT(between(a.set, b.set),
                ElementsAre("The second set lacks item 0 of the first: #1, sub #2, marker 3, path #7."));
}

TEST_F(Difference, CountsEqualItems) {
    const SetOf a(Items{{1}, {1}, {1}}, Unique::kOff);
    const SetOf b(Items{{1}, {1}}, Unique::kOff);
    EXPECT_THAT(between(a.set, b.set), ElementsAre("The second set lacks item 2 of the first: #1."));
}

TEST_F(Difference, TellsIdsApartThatHaveTheSameText) {
    const SetOf a{{1}};
    const SetOf b{{2}};
    EXPECT_EQ(kv::difference(a.set, b.set, [](const GxDbObjectId&) { return "wall"; }).size(), 2U);
}

} // namespace
