#include "examples/picker/Picker.h"

#include "tests/examples/picker/Svg.h"

#include <gtest/gtest.h>

using namespace picker;
using kvtest::sceneOf;

namespace {

// A block with a square of side 10 at the origin, and a line beside the square.
const std::string kSquareBlock =
    "<symbol id='s'><rect width='10' height='10'/><line x1='20' x2='20' y2='10'/></symbol>";

// Collects picks. labels() returns a text for each pick: the labels along the path of the pick.
class Found {
public:
    explicit Found(const Drawing& drawing) : mDrawing(drawing) {}

    Picker::Found collector() {
        return [this](const Pick& pick) { picks.push_back(pick); };
    }
    std::vector<std::string> labels() const {
        std::vector<std::string> texts;
        for (const Pick& pick : picks) {
            std::string text;
            for (const GxDbObjectId id : pick.path)
                text += (text.empty() ? "" : " > ") + mDrawing.label(id);
            texts.push_back(text);
        }
        return texts;
    }
    std::vector<Pick> picks;

private:
    const Drawing& mDrawing;
};

using Labels = std::vector<std::string>;

} // namespace

// ---- by point

TEST(PickByPoint, FindsTheNearestWithinTheAperture) {
    const Drawing drawing(sceneOf("<line y1='0' y2='0' x2='10'/><line y1='4' y2='4' x2='10'/>"));
    Picker picker(drawing);
    const std::optional<Pick> pick = picker.nearest({5, 3}, 5);
    ASSERT_TRUE(pick);
    EXPECT_EQ(drawing.label(pick->path[0]), "3 line");
    EXPECT_FALSE(pick->isNested());
}

TEST(PickByPoint, ReachesAsFarAsTheApertureAndNotFurther) {
    const Drawing drawing(sceneOf("<line x2='10'/>"));
    Picker picker(drawing);
    EXPECT_TRUE(picker.nearest({5, 3}, 3));
    EXPECT_FALSE(picker.nearest({5, 3}, 2.999));
    // The end (10, 0) of the line is inside the square around the circle of the aperture, but outside the
    // circle.
    EXPECT_FALSE(picker.nearest({12.9, 2.9}, 3));
    EXPECT_TRUE(picker.nearest({5, 0}, 0));
}

TEST(PickByPoint, OfEquallyNearOnesTheLastDrawnIsOnTop) {
    const Drawing drawing(sceneOf("<line x2='10'/><line x2='10'/>"));
    EXPECT_EQ(drawing.label(Picker(drawing).nearest({5, 0}, 1)->path[0]), "3 line");
}

TEST(PickByPoint, MarkerIsTheNumberOfTheSegmentFromOne) {
    const Drawing drawing(sceneOf("<rect width='10' height='10'/>"));
    Picker picker(drawing);
    EXPECT_EQ(picker.nearest({5, 0}, 1)->gsMarker, 1);
    EXPECT_EQ(picker.nearest({10, 5}, 1)->gsMarker, 2);
    EXPECT_EQ(picker.nearest({5, 10}, 1)->gsMarker, 3);
    EXPECT_EQ(picker.nearest({0, 5}, 1)->gsMarker, 4);
}

TEST(PickByPoint, InABlockNamesTheWholePath) {
    const Drawing drawing(sceneOf(kSquareBlock + "<use href='#s' x='50' y='50'/>"));
    const std::optional<Pick> pick = Picker(drawing).nearest({60, 55}, 1);
    ASSERT_TRUE(pick);
    ASSERT_TRUE(pick->isNested());
    EXPECT_EQ(drawing.label(pick->path[0]), "2 s");
    EXPECT_EQ(drawing.label(pick->path[1]), "4 rect");
    EXPECT_EQ(pick->gsMarker, 2);
    EXPECT_EQ(pick->placement(Point{10, 5}), (Point{60, 55}));
}

TEST(PickByPoint, CompoundTransformGoesThroughAllReferences) {
    const Drawing drawing(sceneOf(kSquareBlock +
                                  "<symbol id='t'><use href='#s' transform='rotate(90)'/></symbol>"
                                  "<use href='#t' transform='translate(50 50) scale(2)'/>"));
    // The right side of the square is at x = 10. Block t turns the side to y = 10. The drawing places block t
    // doubled and moved by 50: y = 70.
    const std::optional<Pick> pick = Picker(drawing).nearest({40, 70}, 0.5);
    ASSERT_TRUE(pick);
    EXPECT_EQ(pick->path.size(), 3u);
    EXPECT_EQ(pick->gsMarker, 2);
    const Point placed = pick->placement(Point{10, 5});
    EXPECT_NEAR(placed.x, 40, 1e-9);
    EXPECT_NEAR(placed.y, 70, 1e-9);
}

TEST(PickByPoint, ApertureIsInUnitsOfTheDrawing) {
    const Drawing drawing(sceneOf("<g id='g' display='none'/><defs><line id='l' x2='1'/></defs><use "
                                  "href='#l' transform='scale(50 0.01)'/>"));
    EXPECT_TRUE(Picker(drawing).nearest({25, 2}, 2));
    EXPECT_FALSE(Picker(drawing).nearest({25, 2.1}, 2));
}

TEST(PickByPoint, FindsABlockThatIsSqueezedToALine) {
    const Drawing drawing(sceneOf(kSquareBlock + "<use href='#s' transform='translate(50 50) scale(1 0)'/>"));
    EXPECT_TRUE(Picker(drawing).nearest({55, 50.5}, 1));
    EXPECT_FALSE(Picker(drawing).nearest({55, 52}, 1));
}

TEST(PickByPoint, DoesNotLookAtEverything) {
    std::string elements;
    for (int i = 0; i < 10'000; ++i) {
        const std::string x = std::to_string(i % 100 * 10), y = std::to_string(i / 100 * 10);
        elements += "<rect x='" + x + "' y='" + y + "' width='5' height='5'/>";
    }
    const Drawing drawing(sceneOf(elements));
    Picker picker(drawing);
    EXPECT_TRUE(picker.nearest({502, 500}, 1));
    EXPECT_LE(picker.examined(), 4u);
}

// ---- by box

TEST(PickByWindow, TakesWhatIsWhollyInside) {
    const Drawing drawing(sceneOf(
        "<line x1='1' y1='1' x2='9' y2='9'/><line x1='1' y1='1' x2='11' y2='9'/><line x1='20' x2='30'/>"));
    Found found(drawing);
    Picker(drawing).window(Box::between({0, 0}, {10, 10}), found.collector());
    EXPECT_EQ(found.labels(), Labels{"2 line"});
}

TEST(PickByWindow, WhatTouchesTheBorderFromInsideIsInside) {
    // Tenths have no exact binary form. So the corners of the placed square may differ from those of the
    // window in the last digit.
    const Drawing drawing(
        sceneOf("<defs><rect id='r' width='3' height='3'/></defs>"
                "<use href='#r' transform='translate(0.1 0.2) scale(0.7) rotate(90) rotate(-90)'/>"));
    Found found(drawing);
    Picker(drawing).window(Box::between({0.1, 0.2}, {2.2, 2.3}), found.collector());
    EXPECT_EQ(found.picks.size(), 1u);
}

TEST(PickByWindow, NamesWholeEntities) {
    const Drawing drawing(sceneOf(kSquareBlock + "<use href='#s'/>"));
    Found found(drawing);
    Picker(drawing).window(Box::between({-1, -1}, {11, 11}), found.collector());
    EXPECT_EQ(found.labels(), Labels{"2 s > 4 rect"});
    EXPECT_EQ(found.picks[0].gsMarker, -1);
    EXPECT_FALSE(found.picks[0].crossing);
}

TEST(PickByWindow, SeesTurnedBlocksWhereTheyAre) {
    const Drawing drawing(
        sceneOf(kSquareBlock + "<use href='#s' transform='translate(50 50) rotate(180)'/>"));
    Found found(drawing);
    Picker(drawing).window(Box::between({39, 39}, {51, 51}), found.collector());
    EXPECT_EQ(found.labels(), Labels{"2 s > 4 rect"});
}

TEST(PickByCrossing, TakesWhatTheBoxTouches) {
    const Drawing drawing(sceneOf("<line x1='1' y1='1' x2='9' y2='9'/><line x1='1' y1='1' x2='11' y2='9'/>"
                                  "<line x1='-5' y1='5' x2='15' y2='5'/><line x1='20' x2='30'/>"));
    Found found(drawing);
    Picker(drawing).crossing(Box::between({0, 0}, {10, 10}), found.collector());
    EXPECT_EQ(found.labels(), (Labels{"2 line", "3 line", "4 line"}));
}

TEST(PickByCrossing, DoesNotTakeWhatOnlySurroundsTheBox) {
    const Drawing drawing(sceneOf("<rect width='100' height='100'/>"));
    Found found(drawing);
    Picker(drawing).crossing(Box::between({40, 40}, {60, 60}), found.collector());
    EXPECT_TRUE(found.picks.empty());
}

TEST(PickByCrossing, TellsPlacesOfOneBlockApart) {
    const Drawing drawing(
        sceneOf(kSquareBlock + "<use href='#s'/><use href='#s' y='30'/><use href='#s' y='60'/>"));
    Found found(drawing);
    Picker(drawing).crossing(Box::between({5, -5}, {6, 35}), found.collector());
    EXPECT_EQ(found.labels(), (Labels{"2 s > 6 rect", "3 s > 6 rect"}));
}

// ---- by fence

TEST(PickByFence, TakesWhatItCrossesWithTheFirstCrossing) {
    const Drawing drawing(sceneOf("<rect width='10' height='10'/><line x1='20' y1='0' x2='20' y2='10'/><line "
                                  "y1='50' y2='50' x2='9'/>"));
    Found found(drawing);
    Picker(drawing).fence({{-5, 5}, {30, 5}}, found.collector());
    ASSERT_EQ(found.labels(), (Labels{"2 rect", "3 line"}));
    // The fence crosses the left side of the rectangle (segment 3) before the right side (segment 1). But the
    // first crossing is the one that comes first along the rectangle.
    ASSERT_TRUE(found.picks[0].crossing);
    EXPECT_EQ(found.picks[0].crossing->segment, 1);
    EXPECT_DOUBLE_EQ(found.picks[0].crossing->parameter, 0.5);
    EXPECT_EQ(found.picks[0].gsMarker, 2);
    EXPECT_EQ(found.picks[1].crossing->segment, 0);
    EXPECT_EQ(found.picks[1].gsMarker, 1);
}

TEST(PickByFence, FollowsItsCorners) {
    const Drawing drawing(
        sceneOf("<line x1='12' y1='15' x2='13' y2='15'/><line x1='20' y1='15' x2='30' y2='15'/>"
                "<line x1='10' y1='-1' x2='10' y2='1'/>"));
    Found found(drawing);
    // Each part of the fence crosses one line. The straight way from its first to its last corner would cross
    // the first line.
    Picker(drawing).fence({{0, 0}, {25, 0}, {25, 30}}, found.collector());
    EXPECT_EQ(found.labels(), (Labels{"3 line", "4 line"}));
}

TEST(PickByFence, CrossesNestedEntitiesWhereTheyArePlaced) {
    const Drawing drawing(sceneOf(kSquareBlock + "<use href='#s' transform='translate(50 50) scale(2)'/>"));
    Found found(drawing);
    Picker(drawing).fence({{60, 40}, {60, 60}}, found.collector());
    ASSERT_EQ(found.labels(), Labels{"2 s > 4 rect"});
    EXPECT_EQ(found.picks[0].crossing->segment, 0);
    EXPECT_DOUBLE_EQ(found.picks[0].crossing->parameter, 0.5);
}

TEST(PickByFence, MeetsEachEntityOnceHoweverManyOfItsEdgesDo) {
    const Drawing drawing(sceneOf("<line x2='10'/>"));
    Found found(drawing);
    Picker(drawing).fence({{2, -1}, {2, 1}, {4, 1}, {4, -1}}, found.collector());
    ASSERT_EQ(found.picks.size(), 1u);
    EXPECT_DOUBLE_EQ(found.picks[0].crossing->parameter, 0.2);
}

// ---- all

TEST(PickAll, FindsEveryPlaceInDrawingOrder) {
    const Drawing drawing(sceneOf(kSquareBlock +
                                  "<line x2='1'/><symbol id='t'><use href='#s'/><line x2='9'/></symbol>"
                                  "<use href='#t'/><use href='#s'/>"));
    Found found(drawing);
    Picker(drawing).all(found.collector());
    EXPECT_EQ(found.labels(), (Labels{"2 line", "3 t > 6 s > 9 rect", "3 t > 6 s > 10 line", "3 t > 7 line",
                                      "4 s > 9 rect", "4 s > 10 line"}));
}

TEST(PickAll, GoesThroughThousandsOfLevels) {
    std::string elements = "<g id='n0'><line x2='1'/></g>";
    for (int i = 1; i <= 5000; ++i)
        elements += "<symbol id='n" + std::to_string(i) + "'><use href='#n" + std::to_string(i - 1) +
                    "' x='0.001'/></symbol>";
    const Drawing drawing(sceneOf("<defs>" + elements + "</defs><use href='#n5000'/>"));
    const std::optional<Pick> pick = Picker(drawing).nearest({5.5, 0}, 0.1);
    ASSERT_TRUE(pick);
    EXPECT_EQ(pick->path.size(), 5002u);
    EXPECT_NEAR(pick->placement.e, 5, 1e-9);
}

TEST(PickAll, RefusesWhatNoMachineHolds) {
    std::string elements = "<g id='b0'><line x2='1'/></g>";
    for (int i = 1; i <= 60; ++i) {
        const std::string use = "<use href='#b" + std::to_string(i - 1) + "'/>";
        elements += "<symbol id='b" + std::to_string(i) + "'>" + use + use + "</symbol>";
    }
    const Drawing drawing(sceneOf("<defs>" + elements + "</defs><use href='#b60'/>"));
    EXPECT_THROW(Picker(drawing).all([](const Pick&) {}), PickError);
}
