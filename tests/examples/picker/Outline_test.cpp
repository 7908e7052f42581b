#include "examples/picker/Outline.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace picker;

namespace {

Outline square() {
    return rectangleOutline(Box::between({0, 0}, {10, 10}), 0, 0);
}

// Measures the middle and the end of each chord. Returns the largest distance of these points from the
// circle.
double worstRadiusError(const Outline& outline, Point centre, double radius) {
    double worst = 0;
    for (std::size_t i = 1; i < outline.points().size(); ++i) {
        const Point middle = interpolated(outline.points()[i - 1], outline.points()[i], 0.5);
        worst = std::max(worst, std::abs(length(middle - centre) - radius));
        worst = std::max(worst, std::abs(length(outline.points()[i] - centre) - radius));
    }
    return worst;
}

} // namespace

TEST(Outline, EachLineIsASegment) {
    Outline outline;
    outline.moveTo({0, 0});
    outline.lineTo({1, 0});
    outline.lineTo({1, 1});
    EXPECT_EQ(outline.segments().size(), 2u);
    EXPECT_EQ(outline.points().size(), 3u);
}

TEST(Outline, CloseDrawsTheMissingLineOnly) {
    Outline outline;
    outline.moveTo({0, 0});
    outline.lineTo({1, 0});
    outline.lineTo({1, 1});
    outline.close();
    EXPECT_EQ(outline.segments().size(), 3u);
    outline.close();
    EXPECT_EQ(outline.segments().size(), 3u);
}

TEST(Outline, DrawingGoesOnFromWhereItWasClosed) {
    Outline outline;
    outline.moveTo({0, 0});
    outline.lineTo({1, 0});
    outline.lineTo({1, 1});
    outline.close();
    outline.lineTo({-1, 0});
    const Outline::Segment last = outline.segments().back();
    EXPECT_EQ(outline.points()[last.first], (Point{0, 0}));
    EXPECT_EQ(outline.points()[last.last], (Point{-1, 0}));
}

TEST(Outline, SubpathsAreNotJoined) {
    Outline outline;
    outline.moveTo({0, 0});
    outline.lineTo({1, 0});
    outline.moveTo({0, 5});
    outline.lineTo({1, 5});
    EXPECT_EQ(outline.segments().size(), 2u);
    EXPECT_EQ(outline.points().size(), 4u);
    EXPECT_FALSE(touches(outline, Affine(), Box::between({-1, 1}, {2, 4})));
}

TEST(Outline, MoveAloneDrawsNothing) {
    Outline outline;
    outline.moveTo({3, 3});
    outline.close();
    EXPECT_TRUE(outline.isEmpty());
    EXPECT_TRUE(outline.box().isEmpty());
}

TEST(Outline, CubicIsOneSegmentWithinTheTolerance) {
    Outline outline;
    outline.moveTo({0, 0});
    outline.cubicTo({0, 100}, {100, 100}, {100, 0});
    ASSERT_EQ(outline.segments().size(), 1u);
    // The highest point of the curve is (50, 75). The chords may be off the curve by a thousandth of the
    // diagonal of the box around the control points.
    const double tolerance = 0.001 * std::hypot(100, 100);
    EXPECT_NEAR(outline.box().high.y, 75, tolerance);
    EXPECT_LT(nearestSegment(outline, Affine(), {50, 75})->distance, tolerance);
    const double t = 0.3, s = 0.7;
    const Point onCurve{3 * s * t * t * 100 + t * t * t * 100, 3 * s * s * t * 100 + 3 * s * t * t * 100};
    EXPECT_LT(nearestSegment(outline, Affine(), onCurve)->distance, tolerance);
}

TEST(Outline, QuadraticPassesItsMiddle) {
    Outline outline;
    outline.moveTo({0, 0});
    outline.quadraticTo({50, 100}, {100, 0});
    EXPECT_LT(nearestSegment(outline, Affine(), {50, 50})->distance, 0.001 * std::hypot(100, 100));
}

TEST(Outline, StraightCurveIsOneChord) {
    Outline outline;
    outline.moveTo({0, 0});
    outline.cubicTo({10, 0}, {20, 0}, {30, 0});
    EXPECT_EQ(outline.points().size(), 2u);
}

TEST(Outline, CurveOfOnePointIsOneChord) {
    Outline outline;
    outline.moveTo({1, 1});
    outline.cubicTo({1, 1}, {1, 1}, {1, 1});
    EXPECT_EQ(outline.points().size(), 2u);
}

TEST(Outline, EllipseIsOneClosedSegmentWithinTheTolerance) {
    Outline outline;
    outline.ellipse({5, 6}, 100, 100);
    ASSERT_EQ(outline.segments().size(), 1u);
    EXPECT_EQ(outline.points().front(), (Point{105, 6}));
    EXPECT_EQ(outline.points().back(), outline.points().front());
    EXPECT_LT(worstRadiusError(outline, {5, 6}, 100), 0.1 + 1e-9);
    EXPECT_LT(outline.points().size(), 100u);
}

TEST(Outline, ArcOfAQuarterCircleGoesTheShortWay) {
    Outline outline;
    outline.moveTo({0, 80});
    outline.arcTo({80, 80}, 0, false, false, {80, 0});
    EXPECT_LT(worstRadiusError(outline, {0, 0}, 80), 0.08 + 1e-9);
    EXPECT_TRUE(isWhollyInside(outline, Affine(), Box::between({-0.001, -0.001}, {80.001, 80.001})));
    EXPECT_LT(nearestSegment(outline, Affine(), {80 * std::sqrt(0.5), 80 * std::sqrt(0.5)})->distance, 0.1);
}

TEST(Outline, ArcFlagsChooseAmongTheFourArcs) {
    // Two circles with radius 10 pass through (0, 0) and (10, 0). Their centres are (5, 8.66) and (5, -8.66).
    const struct {
        bool large, sweep;
        double middleY;
    } arcs[] = {{false, true, 8.6602540378 - 10},
                {false, false, 10 - 8.6602540378},
                {true, true, -8.6602540378 - 10},
                {true, false, 8.6602540378 + 10}};
    for (const auto& arc : arcs) {
        Outline outline;
        outline.moveTo({0, 0});
        outline.arcTo({10, 10}, 0, arc.large, arc.sweep, {10, 0});
        EXPECT_LT(nearestSegment(outline, Affine(), {5, arc.middleY})->distance, 0.011)
            << arc.large << arc.sweep;
    }
}

TEST(Outline, ArcWithRadiiThatAreTooSmallIsEnlarged) {
    Outline outline;
    outline.moveTo({0, 0});
    outline.arcTo({1, 1}, 0, false, true, {20, 0});
    EXPECT_LT(worstRadiusError(outline, {10, 0}, 10), 0.011);
}

TEST(Outline, ArcTurnsItsEllipse) {
    Outline outline;
    outline.moveTo({0, -20});
    outline.arcTo({20, 5}, 90, false, true, {0, 20});
    EXPECT_NEAR(outline.box().high.x, 5, 0.02);
}

TEST(Outline, ArcWithoutRadiusIsALine) {
    Outline outline;
    outline.moveTo({0, 0});
    outline.arcTo({0, 5}, 0, false, true, {10, 0});
    EXPECT_EQ(outline.points().size(), 2u);
}

TEST(Outline, ArcToWhereThePenIsDrawsNothing) {
    Outline outline;
    outline.moveTo({1, 1});
    outline.arcTo({5, 5}, 0, true, true, {1, 1});
    EXPECT_TRUE(outline.isEmpty());
}

TEST(Outline, NegativeRadiiCountAsPositive) {
    Outline outline;
    outline.moveTo({0, 0});
    outline.arcTo({-10, -10}, 0, false, true, {20, 0});
    EXPECT_LT(worstRadiusError(outline, {10, 0}, 10), 0.011);
}

TEST(Outline, TransformMovesAllPoints) {
    const Outline moved = square().transformed(Affine::translation(5, 7));
    EXPECT_EQ(moved.box().low, (Point{5, 7}));
    EXPECT_EQ(moved.box().high, (Point{15, 17}));
}

TEST(RectangleOutline, HasFourSidesInDrawingOrder) {
    const Outline outline = square();
    ASSERT_EQ(outline.segments().size(), 4u);
    EXPECT_EQ(nearestSegment(outline, Affine(), {5, -1})->segment, 0);
    EXPECT_EQ(nearestSegment(outline, Affine(), {11, 5})->segment, 1);
    EXPECT_EQ(nearestSegment(outline, Affine(), {5, 11})->segment, 2);
    EXPECT_EQ(nearestSegment(outline, Affine(), {-1, 5})->segment, 3);
}

TEST(RectangleOutline, RoundedHasCornersBetweenTheSides) {
    const Outline outline = rectangleOutline(Box::between({0, 0}, {10, 10}), 2, 2);
    EXPECT_EQ(outline.segments().size(), 8u);
    EXPECT_GT(nearestSegment(outline, Affine(), {0, 0})->distance, 0.8);
}

TEST(RectangleOutline, RadiiEndAtHalfTheSides) {
    const Outline outline = rectangleOutline(Box::between({0, 0}, {20, 10}), 50, 50);
    EXPECT_EQ(outline.segments().size(), 4u);
    EXPECT_TRUE(isWhollyInside(outline, Affine(), Box::between({0, 0}, {20, 10})));
}

TEST(NearestSegment, IsSeenThroughThePlacement) {
    const Affine placement = Affine::translation(100, 0) * Affine::scaling(2, 3);
    const std::optional<NearestSegment> near = nearestSegment(square(), placement, {110, 33});
    ASSERT_TRUE(near);
    EXPECT_EQ(near->segment, 2);
    EXPECT_DOUBLE_EQ(near->distance, 3);
}

TEST(NearestSegment, OfAnEmptyOutlineIsNothing) {
    EXPECT_FALSE(nearestSegment(Outline(), Affine(), {0, 0}));
}

TEST(WhollyInside, NeedsEveryPoint) {
    EXPECT_TRUE(isWhollyInside(square(), Affine(), Box::between({0, 0}, {10, 10})));
    EXPECT_FALSE(isWhollyInside(square(), Affine(), Box::between({0, 0}, {10, 9.99})));
}

TEST(TouchesOutline, SeesLinesNotTheirInside) {
    EXPECT_TRUE(touches(square(), Affine(), Box::between({9, 4}, {12, 6})));
    EXPECT_FALSE(touches(square(), Affine(), Box::between({4, 4}, {6, 6})));
}

TEST(EarliestCrossing, IsTheLowestSegmentThenTheLowestParameter) {
    const std::optional<Crossing> met =
        earliestCrossing(square(), Affine(), {{7, 20}, {7, -5}, {3, -5}, {3, 20}});
    ASSERT_TRUE(met);
    EXPECT_EQ(met->segment, 0);
    EXPECT_DOUBLE_EQ(met->parameter, 0.3);
}

TEST(EarliestCrossing, OfALaterSegmentOnlyIfThereIsNoEarlierOne) {
    const std::optional<Crossing> met = earliestCrossing(square(), Affine(), {{15, 2}, {5, 2}});
    ASSERT_TRUE(met);
    EXPECT_EQ(met->segment, 1);
    EXPECT_DOUBLE_EQ(met->parameter, 0.2);
}

TEST(EarliestCrossing, ParameterGoesByLengthAlongACurve) {
    Outline circle;
    circle.ellipse({0, 0}, 10, 10);
    const std::optional<Crossing> met = earliestCrossing(circle, Affine(), {{0, 5}, {0, 15}});
    ASSERT_TRUE(met);
    EXPECT_EQ(met->segment, 0);
    EXPECT_NEAR(met->parameter, 0.25, 1e-3);
}

TEST(EarliestCrossing, IsMeasuredWhereTheOutlineIsPlaced) {
    const Affine placement = Affine::rotation(90);
    const std::optional<Crossing> met = earliestCrossing(square(), placement, {{-5, 1}, {5, 1}});
    ASSERT_TRUE(met);
    EXPECT_EQ(met->segment, 0);
    EXPECT_NEAR(met->parameter, 0.1, 1e-12);
}

TEST(EarliestCrossing, NothingWithoutAMeeting) {
    EXPECT_FALSE(earliestCrossing(square(), Affine(), {{4, 4}, {6, 6}}));
}
