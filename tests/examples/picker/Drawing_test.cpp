#include "examples/picker/Drawing.h"

#include "tests/examples/picker/Svg.h"

#include <gtest/gtest.h>

#include <limits>

using namespace picker;
using kvtest::sceneOf;

TEST(Drawing, HoldsEachBlockOnceInTheDatabase) {
    const Drawing drawing(
        sceneOf("<symbol id='s'><line x2='1'/><line x2='2'/></symbol><use href='#s'/><use href='#s'/>"));
    // The database has two definitions, two references and two lines.
    EXPECT_EQ(drawing.database().size(), 6u);
    EXPECT_EQ(drawing.model().contents().size(), 2u);
    EXPECT_EQ(&drawing.model().contents()[0].reference->block(),
              &drawing.model().contents()[1].reference->block());
}

TEST(Drawing, CountsWhatIsPlacedThroughAllLevels) {
    const Drawing drawing(sceneOf(
        "<g id='a'><line x2='1'/><line x2='2'/></g><symbol id='b'><use href='#a'/><use href='#a'/></symbol>"
        "<use href='#b'/><use href='#b'/><use href='#b'/>"));
    EXPECT_EQ(drawing.model().curveCount(), 2u + 3 * 2 * 2);
}

TEST(Drawing, CountDoesNotOverflow) {
    std::string elements = "<g id='b0'><line x2='1'/></g>";
    for (int i = 1; i <= 80; ++i) {
        const std::string use = "<use href='#b" + std::to_string(i - 1) + "'/>";
        elements += "<symbol id='b" + std::to_string(i) + "'>" + use + use + "</symbol>";
    }
    const Drawing drawing(sceneOf(elements + "<use href='#b80'/>"));
    EXPECT_EQ(drawing.model().curveCount(), std::numeric_limits<std::uint64_t>::max());
}

TEST(Drawing, IdsAscendInDrawingOrder) {
    const Drawing drawing(sceneOf("<line x2='1'/><line x2='2'/><line x2='3'/>"));
    const auto& contents = drawing.model().contents();
    EXPECT_TRUE(contents[0].id < contents[1].id);
    EXPECT_TRUE(contents[1].id < contents[2].id);
}

TEST(Drawing, FindsByHandleAndByName) {
    const Drawing drawing(sceneOf("<line x2='1'/><line id='wall' x2='2'/>"));
    const GxDbObjectId wall = drawing.model().contents()[1].id;
    EXPECT_EQ(drawing.find("wall"), wall);
    EXPECT_EQ(drawing.find(std::to_string(drawing.database().handleOf(wall))), wall);
    EXPECT_TRUE(drawing.find("999").isNull());
    EXPECT_TRUE(drawing.find("door").isNull());
    EXPECT_TRUE(drawing.find("").isNull());
}

TEST(Drawing, LabelsCurvesByKindAndReferencesByBlock) {
    const Drawing drawing(
        sceneOf("<symbol id='desk'><line x2='1'/></symbol><circle r='1'/><use href='#desk'/>"));
    EXPECT_EQ(drawing.label(drawing.model().contents()[0].id), "2 circle");
    EXPECT_EQ(drawing.label(drawing.model().contents()[1].id), "3 desk");
}

TEST(Drawing, TellsCurvesFromReferences) {
    const Drawing drawing(sceneOf("<g id='g'><line x2='1'/></g><use href='#g'/>"));
    const GxDbObjectId line = drawing.model().contents()[0].id;
    const GxDbObjectId use = drawing.model().contents()[1].id;
    EXPECT_NE(drawing.curve(line), nullptr);
    EXPECT_EQ(drawing.reference(line), nullptr);
    EXPECT_NE(drawing.reference(use), nullptr);
    EXPECT_EQ(drawing.curve(use), nullptr);
}

TEST(Drawing, EntitiesOpenInTheDatabase) {
    const Drawing drawing(sceneOf("<line x2='1'/>"));
    GxDbObjectPointerBase<GxDbEntity> entity;
    EXPECT_EQ(entity.open(drawing.model().contents()[0].id, GxDb::kForRead), eOk);
    EXPECT_EQ(entity.mObject, drawing.curve(drawing.model().contents()[0].id));
}

TEST(BlockDefinition, FindsItsContentsOnly) {
    const Drawing drawing(sceneOf("<g id='g'><line x2='1'/></g><use href='#g'/>"));
    const BlockDefinition::Content& use = drawing.model().contents()[1];
    const GxDbObjectId inside = use.reference->block().contents()[0].id;
    EXPECT_EQ(drawing.model().find(use.id), &use);
    EXPECT_EQ(drawing.model().find(inside), nullptr);
    EXPECT_NE(use.reference->block().find(inside), nullptr);
    EXPECT_EQ(drawing.model().find(GxDbObjectId()), nullptr);
}

TEST(BlockDefinition, BoxSurroundsPlacedContents) {
    const Drawing drawing(
        sceneOf("<g id='g'><rect width='2' height='2'/></g><use href='#g' x='50' y='-5'/>"));
    EXPECT_EQ(drawing.model().box().low, (Point{0, -5}));
    EXPECT_EQ(drawing.model().box().high, (Point{52, 2}));
}
