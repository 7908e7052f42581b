#include "examples/picker/SvgValues.h"

#include <gtest/gtest.h>

using namespace picker;

namespace {

std::size_t segmentsOf(std::string_view path) {
    Outline outline;
    EXPECT_TRUE(drawPathData(path, outline)) << path;
    return outline.segments().size();
}

Point endOf(std::string_view path) {
    Outline outline;
    EXPECT_TRUE(drawPathData(path, outline)) << path;
    return outline.pen();
}

} // namespace

TEST(ValueScanner, ReadsNumbersWithoutBlanksBetweenThem) {
    ValueScanner scanner("1.5.25-3+4e1,7");
    for (const double expected : {1.5, 0.25, -3.0, 40.0, 7.0})
        EXPECT_EQ(scanner.number(), expected);
    EXPECT_TRUE(scanner.atEnd());
}

TEST(ValueScanner, RefusesWhatIsNoDecimalNumber) {
    for (const char* text : {"", "x", "inf", "nan", "-inf", "1e999", "--1", "+-1", ",,1", ".", "-"})
        EXPECT_FALSE(ValueScanner(text).number()) << text;
}

TEST(ValueScanner, LeavesItsPlaceWhereThereIsNoNumber) {
    ValueScanner scanner(" , x");
    EXPECT_FALSE(scanner.number());
    EXPECT_EQ(scanner.rest(), " , x");
}

TEST(ValueScanner, FlagsNeedNoSeparators) {
    ValueScanner scanner("01 5");
    EXPECT_EQ(scanner.flag(), false);
    EXPECT_EQ(scanner.flag(), true);
    EXPECT_EQ(scanner.flag(), std::nullopt);
    EXPECT_EQ(scanner.number(), 5);
}

TEST(ParseLength, KnowsUnits) {
    EXPECT_EQ(parseLength("12", 0), 12);
    EXPECT_EQ(parseLength(" 12px ", 0), 12);
    EXPECT_EQ(parseLength("1in", 0), 96);
    EXPECT_DOUBLE_EQ(*parseLength("25.4mm", 0), 96);
    EXPECT_DOUBLE_EQ(*parseLength("72pt", 0), 96);
    EXPECT_EQ(parseLength("2em", 0), 32);
}

TEST(ParseLength, TakesPercentOfTheWhole) {
    EXPECT_EQ(parseLength("25%", 200), 50);
}

TEST(ParseLength, RefusesOtherText) {
    for (const char* text : {"", "abc", "12 apples", "12px 3", "12%%"})
        EXPECT_FALSE(parseLength(text, 100)) << text;
}

TEST(ParseTransform, OfNothingIsTheIdentity) {
    EXPECT_EQ(parseTransform("").value()(Point{3, 4}), (Point{3, 4}));
}

TEST(ParseTransform, AppliesTheLastOneFirst) {
    const std::optional<Affine> map = parseTransform("translate(10,20) scale(2)");
    ASSERT_TRUE(map);
    EXPECT_EQ((*map)(Point{1, 1}), (Point{12, 22}));
}

TEST(ParseTransform, KnowsEveryFunction) {
    EXPECT_EQ(parseTransform("matrix(1 2 3 4 5 6)").value()(Point{1, 1}), (Point{9, 12}));
    EXPECT_EQ(parseTransform("translate(5)").value()(Point{1, 1}), (Point{6, 1}));
    EXPECT_EQ(parseTransform("scale(2 3)").value()(Point{1, 1}), (Point{2, 3}));
    EXPECT_NEAR(parseTransform("rotate(90)").value()(Point{1, 0}).y, 1, 1e-12);
    EXPECT_NEAR(parseTransform("rotate(90 1 1)").value()(Point{2, 1}).x, 1, 1e-12);
    EXPECT_NEAR(parseTransform("skewX(45)").value()(Point{0, 1}).x, 1, 1e-12);
    EXPECT_NEAR(parseTransform("skewY(45)").value()(Point{1, 0}).y, 1, 1e-12);
}

TEST(ParseTransform, RefusesMalformedOnes) {
    for (const char* text :
         {"scale", "scale(", "scale()", "scale(1 2 3)", "grow(2)", "scale(2) x", "rotate(1 2)"})
        EXPECT_FALSE(parseTransform(text)) << text;
}

TEST(PathData, LinesOfAllKinds) {
    EXPECT_EQ(endOf("M1 2L3 4"), (Point{3, 4}));
    EXPECT_EQ(endOf("M1 2l3 4"), (Point{4, 6}));
    EXPECT_EQ(endOf("M1 2H9"), (Point{9, 2}));
    EXPECT_EQ(endOf("M1 2h9"), (Point{10, 2}));
    EXPECT_EQ(endOf("M1 2V9"), (Point{1, 9}));
    EXPECT_EQ(endOf("M1 2v9"), (Point{1, 11}));
    EXPECT_EQ(endOf("M1 2 l1 0 Z"), (Point{1, 2}));
}

TEST(PathData, PairsBehindAMoveAreLines) {
    EXPECT_EQ(segmentsOf("M0 0 1 0 1 1"), 2u);
    EXPECT_EQ(endOf("m1 1 1 0 1 1"), (Point{3, 2}));
}

TEST(PathData, ArgumentSetsRepeatTheirCommand) {
    EXPECT_EQ(segmentsOf("M0 0 H1 2 3"), 3u);
    EXPECT_EQ(segmentsOf("M0 0 C1 1 2 2 3 3 4 4 5 5 6 6"), 2u);
}

TEST(PathData, RelativeMoveStartsAtThePen) {
    EXPECT_EQ(endOf("M10 10 h5 m1 1 h1"), (Point{17, 11}));
}

TEST(PathData, MoveBehindACloseStartsAtTheSubpathsStart) {
    EXPECT_EQ(endOf("M10 10 h5 v5 z m1 1"), (Point{11, 11}));
}

TEST(PathData, SmoothCubicMirrorsTheControl) {
    Outline smooth, plain;
    ASSERT_TRUE(drawPathData("M0 0 C0 10 10 10 10 0 S20 -10 20 0", smooth));
    ASSERT_TRUE(drawPathData("M0 0 C0 10 10 10 10 0 C10 -10 20 -10 20 0", plain));
    EXPECT_EQ(smooth.points(), plain.points());
}

TEST(PathData, SmoothCubicBehindOtherSegmentsStartsAtThePen) {
    Outline smooth, plain;
    ASSERT_TRUE(drawPathData("M0 0 L10 0 s10 -10 10 0", smooth));
    ASSERT_TRUE(drawPathData("M0 0 L10 0 C10 0 20 -10 20 0", plain));
    EXPECT_EQ(smooth.points(), plain.points());
}

TEST(PathData, SmoothQuadraticsMirrorAgainAndAgain) {
    Outline smooth, plain;
    ASSERT_TRUE(drawPathData("M0 0 Q5 10 10 0 T20 0 30 0", smooth));
    ASSERT_TRUE(drawPathData("M0 0 Q5 10 10 0 Q15 -10 20 0 Q25 10 30 0", plain));
    EXPECT_EQ(smooth.points(), plain.points());
}

TEST(PathData, SmoothQuadraticDoesNotMirrorACubicsControl) {
    Outline smooth, plain;
    ASSERT_TRUE(drawPathData("M0 0 C0 10 10 10 10 0 T20 0", smooth));
    ASSERT_TRUE(drawPathData("M0 0 C0 10 10 10 10 0 Q10 0 20 0", plain));
    EXPECT_EQ(smooth.points(), plain.points());
}

TEST(PathData, ArcFlagsMayStickTogether) {
    EXPECT_EQ(segmentsOf("M0 0a5 5 0 0110 0"), 1u);
    EXPECT_EQ(endOf("M0 0a5 5 0 0110 0"), (Point{10, 0}));
}

TEST(PathData, IsDrawnUpToAnError) {
    for (const char* text :
         {"M0 0 L5 0 L6", "M0 0 L5 0 X", "M0 0 L5 0 L a b", "M0 0 L5 0 Z 5 5", "M0 0 L5 0 6"}) {
        Outline outline;
        EXPECT_FALSE(drawPathData(text, outline)) << text;
        ASSERT_GE(outline.points().size(), 2u) << text;
        EXPECT_EQ(outline.points()[1], (Point{5, 0})) << text;
    }
}

TEST(PathData, HasToStartWithAMove) {
    Outline outline;
    EXPECT_FALSE(drawPathData("L5 5", outline));
    EXPECT_FALSE(drawPathData("5 5", outline));
    EXPECT_TRUE(outline.isEmpty());
}

TEST(PathData, OfNothingIsSound) {
    Outline outline;
    EXPECT_TRUE(drawPathData("", outline));
    EXPECT_TRUE(drawPathData("  ", outline));
}

TEST(Points, AreJoinedByLines) {
    Outline outline;
    EXPECT_TRUE(drawPoints("0,0 10,0 10-5", outline));
    EXPECT_EQ(outline.segments().size(), 2u);
    EXPECT_EQ(outline.pen(), (Point{10, -5}));
}

TEST(Points, OddNumberIsAnErrorBehindTheWholePairs) {
    Outline outline;
    EXPECT_FALSE(drawPoints("0,0 10,0 10", outline));
    EXPECT_EQ(outline.segments().size(), 1u);
}

TEST(ParseStyleTransform, KnowsUnits) {
    const std::optional<Affine> map = parseStyleTransform("translate(1in, 2px) rotate(0.25turn)");
    ASSERT_TRUE(map);
    EXPECT_NEAR(map->e, 96, 1e-9);
    EXPECT_NEAR(map->f, 2, 1e-9);
    EXPECT_NEAR(map->b, 1, 1e-9);
}

TEST(ParseStyleTransform, KnowsTheFunctionsOfStyles) {
    EXPECT_EQ(parseStyleTransform("translateX(3px)")->e, 3);
    EXPECT_EQ(parseStyleTransform("translateY(3px)")->f, 3);
    EXPECT_EQ(parseStyleTransform("scaleX(3)")->a, 3);
    EXPECT_EQ(parseStyleTransform("scaleY(3)")->d, 3);
    EXPECT_NEAR(parseStyleTransform("skew(45deg, 0)")->c, 1, 1e-9);
    EXPECT_NEAR(parseStyleTransform("skew(0rad, 45deg)")->b, 1, 1e-9);
}

TEST(ParseStyleTransform, NoneIsNoTransform) {
    EXPECT_EQ(parseStyleTransform("none")->a, 1);
}

TEST(ParseStyleTransform, RefusesWhatThePlaneDoesNotHave) {
    for (const char* text : {"translate(10%)", "translate3d(1px,2px,3px)", "rotate(1deg 2 3)", "spin(1)",
                             "translate(1zz)", "inherit"})
        EXPECT_FALSE(parseStyleTransform(text)) << text;
}
