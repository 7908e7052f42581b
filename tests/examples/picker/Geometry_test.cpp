#include "examples/picker/Geometry.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace picker;

namespace {

void expectPoint(Point actual, Point expected) {
    EXPECT_NEAR(actual.x, expected.x, 1e-12);
    EXPECT_NEAR(actual.y, expected.y, 1e-12);
}

} // namespace

TEST(Box, NewOneIsEmptyAndMeetsNothing) {
    const Box empty;
    EXPECT_TRUE(empty.isEmpty());
    EXPECT_FALSE(empty.contains({0, 0}));
    EXPECT_FALSE(empty.overlaps(Box::around({0, 0}, 1e300)));
}

TEST(Box, BetweenTakesCornersInAnyOrder) {
    const Box box = Box::between({5, -1}, {2, 3});
    EXPECT_EQ(box.low, (Point{2, -1}));
    EXPECT_EQ(box.high, (Point{5, 3}));
}

TEST(Box, OwnsItsBorder) {
    const Box box = Box::between({0, 0}, {2, 1});
    EXPECT_TRUE(box.contains({2, 1}));
    EXPECT_FALSE(box.contains({2.001, 1}));
    EXPECT_TRUE(box.overlaps(Box::between({2, 1}, {3, 3})));
    EXPECT_FALSE(box.overlaps(Box::between({2.001, 0}, {3, 3})));
}

TEST(Box, AddingAnEmptyOneChangesNothing) {
    Box box = Box::between({0, 0}, {2, 1});
    box.add(Box());
    EXPECT_EQ(box.low, (Point{0, 0}));
    EXPECT_EQ(box.high, (Point{2, 1}));
}

TEST(Affine, RotationTurnsTheXAxisTowardsTheYAxis) {
    expectPoint(Affine::rotation(90)(Point{2, 0}), {0, 2});
}

TEST(Affine, SkewsShiftAlongTheOtherAxis) {
    expectPoint(Affine::skewX(45)(Point{1, 3}), {4, 3});
    expectPoint(Affine::skewY(45)(Point{1, 3}), {1, 4});
}

TEST(Affine, ProductAppliesTheRightOneFirst) {
    const Affine moveThenDouble = Affine::scaling(2, 2) * Affine::translation(1, 0);
    expectPoint(moveThenDouble(Point{3, 5}), {8, 10});
}

TEST(Affine, InverseUndoes) {
    const Affine map = Affine::translation(7, -3) * Affine::rotation(33) * Affine::scaling(2, -0.5);
    const std::optional<Affine> back = map.inverse();
    ASSERT_TRUE(back);
    expectPoint((*back)(map(Point{11, 13})), {11, 13});
}

TEST(Affine, FlatMapHasNoInverse) {
    EXPECT_FALSE(Affine::scaling(0, 1).inverse());
    EXPECT_FALSE((Affine{1, 2, 2, 4, 0, 0}.inverse()));
    EXPECT_FALSE(Affine::scaling(1e-200, 1e-200).inverse());
}

TEST(Affine, MappedBoxSurroundsAllCorners) {
    const Box mapped = Affine::rotation(45)(Box::between({0, 0}, {1, 1}));
    expectPoint(mapped.low, {-std::sqrt(0.5), 0});
    expectPoint(mapped.high, {std::sqrt(0.5), std::sqrt(2.0)});
}

TEST(Affine, EmptyBoxStaysEmpty) {
    EXPECT_TRUE(Affine::translation(1, 1)(Box()).isEmpty());
}

TEST(Distance, IsToTheFootWithinTheLine) {
    EXPECT_DOUBLE_EQ(distance({5, 3}, {0, 0}, {10, 0}), 3);
}

TEST(Distance, IsToTheEndBeyondIt) {
    EXPECT_DOUBLE_EQ(distance({13, 4}, {0, 0}, {10, 0}), 5);
    EXPECT_DOUBLE_EQ(distance({-3, 4}, {0, 0}, {10, 0}), 5);
}

TEST(Distance, OfALineWithoutLengthIsToItsPoint) {
    EXPECT_DOUBLE_EQ(distance({3, 4}, {0, 0}, {0, 0}), 5);
}

TEST(Touches, LineWithAnEndInside) {
    EXPECT_TRUE(touches(Box::between({0, 0}, {2, 2}), {1, 1}, {9, 9}));
}

TEST(Touches, LineThatPassesThrough) {
    EXPECT_TRUE(touches(Box::between({0, 0}, {2, 2}), {-1, 1}, {3, 1.5}));
}

TEST(Touches, LineThatCutsTheCornerOnlyIfItReachesIt) {
    const Box box = Box::between({0, 0}, {2, 2});
    EXPECT_TRUE(touches(box, {0, 4}, {4, 0}));
    EXPECT_FALSE(touches(box, {0, 4.01}, {4.01, 0}));
}

TEST(Touches, NotALineBesideTheBox) {
    EXPECT_FALSE(touches(Box::between({0, 0}, {2, 2}), {3, -1}, {3, 5}));
}

TEST(CrossingOfLines, GivesTheShareOfTheFirst) {
    const std::optional<double> met = crossing({0, 0}, {10, 0}, {4, -1}, {4, 1});
    ASSERT_TRUE(met);
    EXPECT_DOUBLE_EQ(*met, 0.4);
}

TEST(CrossingOfLines, NothingWhenTheOtherEndsBefore) {
    EXPECT_FALSE(crossing({0, 0}, {10, 0}, {4, 1}, {4, 0.1}));
    EXPECT_FALSE(crossing({0, 0}, {10, 0}, {11, -1}, {11, 1}));
}

TEST(CrossingOfLines, TouchingEndsMeet) {
    EXPECT_EQ(crossing({0, 0}, {10, 0}, {10, 0}, {12, 5}), 1);
    EXPECT_EQ(crossing({0, 0}, {10, 0}, {5, 0}, {5, 3}), 0.5);
}

TEST(CrossingOfLines, OverlapMeetsAtItsFirstPoint) {
    EXPECT_EQ(crossing({0, 0}, {10, 0}, {8, 0}, {2, 0}), 0.2);
    EXPECT_EQ(crossing({0, 0}, {10, 0}, {-3, 0}, {2, 0}), 0);
    EXPECT_FALSE(crossing({0, 0}, {10, 0}, {11, 0}, {12, 0}));
}

TEST(CrossingOfLines, ParallelsDoNotMeet) {
    EXPECT_FALSE(crossing({0, 0}, {10, 0}, {0, 1}, {10, 1}));
}

TEST(CrossingOfLines, SinglePointsMeetWhatTheyLieOn) {
    EXPECT_EQ(crossing({0, 0}, {10, 0}, {5, 0}, {5, 0}), 0.5);
    EXPECT_FALSE(crossing({0, 0}, {10, 0}, {5, 1}, {5, 1}));
    EXPECT_EQ(crossing({5, 0}, {5, 0}, {0, 0}, {10, 0}), 0);
    EXPECT_FALSE(crossing({5, 1}, {5, 1}, {0, 0}, {10, 0}));
    EXPECT_EQ(crossing({5, 1}, {5, 1}, {5, 1}, {5, 1}), 0);
}

TEST(CrossingOfLines, FenceThroughAJointMeetsOneOfBothSides) {
    // Two lines meet at the joint: one from `left`, one to `right`. Thirds have no exact binary form. So a
    // fence through the joint may pass beside the joint by a rounding error.
    const Point joint{1.0 / 3, 2.0 / 3};
    const Point left{0, 0.9};
    const Point right{1, 0.1};
    int passages = 0;
    for (int i = 1; i < 200; ++i) {
        const Point away{std::cos(i * 0.1), std::sin(i * 0.1)};
        // If `left` and `right` are on the same side of the fence, the fence only touches the joint. Rounding
        // may then make the fence miss both lines.
        if (cross(away, left - joint) * cross(away, right - joint) > 0)
            continue;
        ++passages;
        const Point from = joint - away;
        const Point to = joint + 0.7 * away;
        EXPECT_TRUE(crossing(left, joint, from, to) || crossing(joint, right, from, to)) << i;
    }
    EXPECT_GT(passages, 100);
}
