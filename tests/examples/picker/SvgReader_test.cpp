#include "examples/picker/SvgReader.h"

#include "tests/examples/picker/Svg.h"

#include <gmock/gmock.h>

using namespace picker;
using kvtest::sceneOf;
using testing::HasSubstr;

namespace {

const Shape& shapeAt(const Scene& scene, std::size_t i, std::size_t block = 0) {
    return std::get<Shape>(scene.blocks.at(block).contents.at(i));
}

const Insert& insertAt(const Scene& scene, std::size_t i, std::size_t block = 0) {
    return std::get<Insert>(scene.blocks.at(block).contents.at(i));
}

void expectBox(const Box& box, Point low, Point high) {
    EXPECT_NEAR(box.low.x, low.x, 1e-9);
    EXPECT_NEAR(box.low.y, low.y, 1e-9);
    EXPECT_NEAR(box.high.x, high.x, 1e-9);
    EXPECT_NEAR(box.high.y, high.y, 1e-9);
}

// The drawing must have one insert, of a block with one shape. Returns the box of the placed shape.
Box placedBox(const Scene& scene) {
    return insertAt(scene, 0).placement(shapeAt(scene, 0, 1).outline.box());
}

std::string errorOf(const std::string& text) {
    try {
        parseSvg(text, "plan.svg");
    } catch (const DrawingError& error) {
        return error.what();
    }
    return "no error";
}

std::vector<std::string> omissionsOf(const Scene& scene) {
    std::vector<std::string> texts;
    for (const Omission& omission : scene.omissions)
        texts.push_back(std::to_string(omission.count) + " " + omission.what);
    return texts;
}

} // namespace

// ---- shapes

TEST(SvgReader, ReadsEveryKindOfShape) {
    const Scene scene = sceneOf("<line x1='1' y1='2' x2='3' y2='4'/>"
                                "<polyline points='0,0 1,0 1,1'/>"
                                "<polygon points='0,0 1,0 1,1'/>"
                                "<rect x='1' y='2' width='3' height='4'/>"
                                "<circle cx='5' cy='5' r='2'/>"
                                "<ellipse cx='5' cy='5' rx='2' ry='1'/>"
                                "<path d='M0 0 L1 0 Q2 2 3 0'/>");
    const std::vector<std::pair<std::string, std::size_t>> expected{
        {"line", 1},   {"polyline", 2}, {"polygon", 3}, {"rect", 4},
        {"circle", 1}, {"ellipse", 1},  {"path", 2}};
    ASSERT_EQ(scene.blocks.at(0).contents.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(shapeAt(scene, i).type, expected[i].first);
        EXPECT_EQ(shapeAt(scene, i).outline.segments().size(), expected[i].second) << expected[i].first;
    }
    EXPECT_TRUE(scene.omissions.empty());
}

TEST(SvgReader, PlacesShapesByTheirAttributes) {
    const Scene scene =
        sceneOf("<rect x='1' y='2' width='3' height='4'/><ellipse cx='5' cy='6' rx='2' ry='1'/>");
    expectBox(shapeAt(scene, 0).outline.box(), {1, 2}, {4, 6});
    EXPECT_NEAR(shapeAt(scene, 1).outline.box().low.x, 3, 0.01);
    EXPECT_NEAR(shapeAt(scene, 1).outline.box().high.y, 7, 0.01);
}

TEST(SvgReader, OneCornerRadiusStandsForBoth) {
    const Scene scene =
        sceneOf("<rect width='30' height='40' rx='5'/><rect width='30' height='40' ry='5' rx='auto'/>");
    EXPECT_EQ(shapeAt(scene, 0).outline.segments().size(), 8u);
    EXPECT_EQ(shapeAt(scene, 1).outline.segments().size(), 8u);
}

TEST(SvgReader, TakesPercentagesOfTheViewBox) {
    const Scene scene = sceneOf("<rect x='10%' y='10%' width='50%' height='50%'/>", "viewBox='0 0 200 100'");
    expectBox(shapeAt(scene, 0).outline.box(), {20, 10}, {120, 60});
}

TEST(SvgReader, KeepsTheNameOfAShape) {
    EXPECT_EQ(shapeAt(sceneOf("<line id='north' x2='1'/>"), 0).name, "north");
}

TEST(SvgReader, NamesCannotCarryControlCharactersToATerminal) {
    EXPECT_EQ(shapeAt(sceneOf("<line id='a&#27;[2Jb' x2='1'/>"), 0).name, "a?[2Jb");
}

TEST(SvgReader, ShapesWithoutAnyLineAreNone) {
    const Scene scene =
        sceneOf("<path d=''/><path/><circle r='0'/><rect width='0' height='3'/><polyline points='1,1'/>");
    EXPECT_TRUE(scene.blocks[0].contents.empty());
    EXPECT_TRUE(scene.omissions.empty());
}

// ---- groups, transforms, styles

TEST(SvgReader, AppliesTheTransformsOfGroupsFromTheOutermostIn) {
    const Scene scene =
        sceneOf("<g transform='translate(10 20)'><a><g transform='scale(2)'>"
                "<rect x='1' y='1' width='1' height='1' transform='translate(1 0)'/></g></a></g>");
    expectBox(shapeAt(scene, 0).outline.box(), {14, 22}, {16, 24});
}

TEST(SvgReader, LeavesOutWhatIsNotDisplayed) {
    const Scene scene =
        sceneOf("<g display='none'><line x2='1'/></g><line x2='1' style='fill:red; display : none'/>"
                "<line x2='1' display='none' style='display:inline'/>");
    EXPECT_EQ(scene.blocks[0].contents.size(), 1u);
    EXPECT_TRUE(scene.omissions.empty());
}

TEST(SvgReader, VisibilityIsInheritedAndCanBeTakenBack) {
    const Scene scene =
        sceneOf("<g visibility='hidden'><line x2='1'/><line x2='2' style='visibility:visible'/></g>");
    ASSERT_EQ(scene.blocks[0].contents.size(), 1u);
    EXPECT_EQ(shapeAt(scene, 0).outline.box().high.x, 2);
}

TEST(SvgReader, NestedViewportsFitTheirViewBox) {
    const Scene scene = sceneOf("<svg x='10' y='20' width='40' height='20' viewBox='0 0 10 10'>"
                                "<rect width='50%' height='10'/></svg>");
    expectBox(shapeAt(scene, 0).outline.box(), {20, 20}, {30, 40});
}

TEST(SvgReader, ViewBoxesFitAsTheirAspectRatioSays) {
    const struct {
        const char* ratio;
        Point low, high;
    } cases[] = {{"none", {0, 0}, {40, 20}},
                 {"xMinYMin", {0, 0}, {20, 20}},
                 {"xMaxYMid meet", {20, 0}, {40, 20}},
                 {"xMidYMin slice", {0, 0}, {40, 40}},
                 {"xMidYMax slice", {0, -20}, {40, 20}}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.ratio);
        const Scene scene =
            sceneOf(std::string("<svg width='40' height='20' viewBox='0 0 10 10' preserveAspectRatio='") +
                    each.ratio + "'><rect width='10' height='10'/></svg>");
        expectBox(shapeAt(scene, 0).outline.box(), each.low, each.high);
    }
}

TEST(SvgReader, SwitchShowsItsFirstPlainChild) {
    const Scene scene = sceneOf(
        "<switch><foreignObject requiredExtensions='x'/><g><line x2='1'/></g><line x2='2'/></switch>");
    ASSERT_EQ(scene.blocks[0].contents.size(), 1u);
    EXPECT_EQ(shapeAt(scene, 0).outline.box().high.x, 1);
    EXPECT_TRUE(scene.omissions.empty());
}

TEST(SvgReader, ReadsPrefixedElements) {
    const Scene scene = parseSvg("<s:svg xmlns:s='http://www.w3.org/2000/svg'><s:line x2='5'/></s:svg>", "x");
    EXPECT_EQ(shapeAt(scene, 0).type, "line");
}

// ---- blocks

TEST(SvgReader, DefinitionsAreNotPlacedByThemselves) {
    const Scene scene = sceneOf("<defs><line x2='1'/></defs><symbol id='s'><line x2='1'/></symbol>");
    EXPECT_EQ(scene.blocks.size(), 1u);
    EXPECT_TRUE(scene.blocks[0].contents.empty());
}

TEST(SvgReader, UseInsertsASymbolAtItsPlace) {
    const Scene scene =
        sceneOf("<symbol id='s'><rect width='2' height='2'/></symbol>"
                "<g transform='scale(2)'><use href='#s' x='10' y='20' transform='translate(1 0)'/></g>");
    ASSERT_EQ(scene.blocks.size(), 2u);
    EXPECT_EQ(scene.blocks[1].name, "s");
    expectBox(placedBox(scene), {22, 40}, {26, 44});
}

TEST(SvgReader, OlderLinksWorkToo) {
    const Scene scene = sceneOf("<symbol id='s'><line x2='1'/></symbol><use xlink:href='#s'/>");
    EXPECT_EQ(scene.blocks.size(), 2u);
}

TEST(SvgReader, ABlockExistsOnceHoweverOftenItIsUsed) {
    const Scene scene =
        sceneOf("<symbol id='s'><line x2='1'/></symbol><use href='#s'/><use href='#s' x='5'/>");
    ASSERT_EQ(scene.blocks.size(), 2u);
    EXPECT_EQ(insertAt(scene, 0).block, 1u);
    EXPECT_EQ(insertAt(scene, 1).block, 1u);
    EXPECT_EQ(scene.blocks[1].contents.size(), 1u);
}

TEST(SvgReader, AGroupCanBeDrawnAndUsed) {
    const Scene scene =
        sceneOf("<g id='g' transform='translate(5 0)'><line x2='1'/></g><use href='#g' y='3'/>");
    EXPECT_EQ(shapeAt(scene, 0).type, "line");
    // The group's own transform is part of the block.
    expectBox(insertAt(scene, 1).placement(shapeAt(scene, 0, 1).outline.box()), {5, 3}, {6, 3});
}

TEST(SvgReader, AShapeCanBeUsed) {
    const Scene scene = sceneOf("<defs><path id='p' d='M0 0h1'/></defs><use href='#p' x='2'/>");
    expectBox(placedBox(scene), {2, 0}, {3, 0});
}

TEST(SvgReader, TransformsAroundADefinitionDoNotApplyToItsUses) {
    const Scene scene =
        sceneOf("<defs transform='scale(9)'><g transform='scale(9)'><line id='l' x2='1'/></g></defs>"
                "<use href='#l'/>");
    expectBox(placedBox(scene), {0, 0}, {1, 0});
}

TEST(SvgReader, UseGivesASymbolItsSize) {
    const Scene scene =
        sceneOf("<symbol id='s' viewBox='10 10 10 10'><rect x='10' y='10' width='10' height='10'/></symbol>"
                "<use href='#s' x='5' width='20' height='40'/>");
    expectBox(placedBox(scene), {5, 10}, {25, 30});
}

TEST(SvgReader, SymbolWithoutASizeFillsTheViewport) {
    const Scene scene =
        sceneOf("<symbol id='s' viewBox='0 0 10 10'><rect width='10' height='10'/></symbol><use href='#s'/>");
    expectBox(placedBox(scene), {0, 0}, {100, 100});
}

TEST(SvgReader, BlocksContainBlocks) {
    const Scene scene = sceneOf("<g id='a'><line x2='1'/></g><symbol id='b'><use href='#a'/></symbol>"
                                "<symbol id='c'><use href='#b'/></symbol><use href='#c'/>");
    // The reader finds the blocks in this order: the drawing, c, b, a.
    ASSERT_EQ(scene.blocks.size(), 4u);
    EXPECT_EQ(scene.blocks[3].name, "a");
    EXPECT_EQ(scene.innermostFirst, (std::vector<std::size_t>{3, 2, 1, 0}));
}

TEST(SvgReader, ACircleOfUsesIsCutAndCounted) {
    const Scene scene = sceneOf("<g id='a'><line x2='1'/><use href='#b'/></g><g id='b'><use href='#a'/></g>");
    EXPECT_THAT(omissionsOf(scene), testing::ElementsAre("1 use inside itself"));
    EXPECT_EQ(scene.blocks.size(), 3u);
}

TEST(SvgReader, UseOfTheWholeDrawingIsACircle) {
    const Scene scene = sceneOf("<line x2='1'/><use href='#all'/>", "id='all'");
    EXPECT_THAT(omissionsOf(scene), testing::ElementsAre("1 use inside itself"));
    EXPECT_EQ(scene.blocks[0].contents.size(), 1u);
}

TEST(SvgReader, NestingHasNoLimit) {
    constexpr int kDepth = 20'000;
    std::string groups;
    for (int i = 0; i < kDepth; ++i)
        groups += "<g>";
    groups += "<line x2='1'/>";
    for (int i = 0; i < kDepth; ++i)
        groups += "</g>";
    EXPECT_EQ(sceneOf(groups).blocks[0].contents.size(), 1u);

    std::string uses = "<g id='n0'><line x2='1'/></g>";
    for (int i = 1; i <= kDepth; ++i)
        uses +=
            "<symbol id='n" + std::to_string(i) + "'><use href='#n" + std::to_string(i - 1) + "'/></symbol>";
    uses += "<use href='#n" + std::to_string(kDepth) + "'/>";
    EXPECT_EQ(sceneOf(uses).blocks.size(), kDepth + 2u);
}

// ---- what elements take from those around them, also through a use

TEST(SvgReader, UsedDrawingKeepsItsOwnPlace) {
    const Scene scene = sceneOf("<defs><svg id='s' x='7' y='8' width='10' height='10'>"
                                "<rect width='10' height='10'/></svg></defs><use href='#s' x='20' y='30'/>");
    expectBox(placedBox(scene), {27, 38}, {37, 48});
}

TEST(SvgReader, UsedSymbolKeepsItsOwnPlace) {
    const Scene scene = sceneOf("<symbol id='s' x='7' y='8'><rect width='10' height='10'/></symbol>"
                                "<use href='#s' x='20' y='30'/>");
    expectBox(placedBox(scene), {27, 38}, {37, 48});
}

TEST(SvgReader, PercentagesInAUsedShapeReferToTheViewportOfTheUse) {
    const Scene scene = sceneOf("<defs><rect id='r' width='50%' height='50%'/></defs>"
                                "<svg width='40' height='20'><use href='#r'/></svg><use href='#r'/>");
    ASSERT_EQ(scene.blocks.size(), 3u);
    expectBox(shapeAt(scene, 0, insertAt(scene, 0).block).outline.box(), {0, 0}, {20, 10});
    expectBox(shapeAt(scene, 0, insertAt(scene, 1).block).outline.box(), {0, 0}, {50, 50});
}

TEST(SvgReader, PercentagesInAUsedSymbolReferToTheSizeOfTheUse) {
    const Scene scene = sceneOf("<symbol id='s'><rect width='50%' height='50%'/></symbol>"
                                "<use href='#s' width='40' height='20'/>");
    expectBox(placedBox(scene), {0, 0}, {20, 10});
}

TEST(SvgReader, PercentagesOfAViewBoxNeedNoFurtherBlock) {
    const Scene scene = sceneOf("<symbol id='s' viewBox='0 0 10 10'><rect width='50%' height='50%'/></symbol>"
                                "<svg width='40' height='20'><use href='#s' width='5' height='5'/></svg>"
                                "<use href='#s' width='9' height='9'/>");
    EXPECT_EQ(scene.blocks.size(), 2u);
}

TEST(SvgReader, BlocksWithoutPercentagesAreSharedByAllViewports) {
    const Scene scene = sceneOf("<defs><rect id='r' width='5' height='5'/></defs>"
                                "<svg width='40' height='20'><use href='#r'/></svg><use href='#r'/>");
    EXPECT_EQ(scene.blocks.size(), 2u);
}

TEST(SvgReader, ADrawingThatShrinksInsideItselfIsCut) {
    const Scene scene = sceneOf("<svg id='s' width='50%' height='50%'><line x2='100%'/>"
                                "<use href='#s'/><use href='#s'/></svg>");
    EXPECT_FALSE(scene.blocks[0].contents.empty());
    EXPECT_EQ(scene.omissions.at(0).what, "use inside itself");
    EXPECT_LE(scene.blocks.size(), 3u);
}

TEST(SvgReader, VisibilityOfTheWholeDrawingIsInherited) {
    const Scene scene = sceneOf("<line x2='1'/><line x2='2' visibility='visible'/>", "visibility='hidden'");
    ASSERT_EQ(scene.blocks[0].contents.size(), 1u);
    EXPECT_EQ(shapeAt(scene, 0).outline.box().high.x, 2);
}

TEST(SvgReader, VisibilityOfAUsedSymbolIsInherited) {
    const Scene scene =
        sceneOf("<symbol id='s' visibility='hidden'><line x2='1'/><line x2='2' visibility='visible'/>"
                "</symbol><use href='#s'/>");
    ASSERT_EQ(scene.blocks[1].contents.size(), 1u);
    EXPECT_EQ(shapeAt(scene, 0, 1).outline.box().high.x, 2);
}

TEST(SvgReader, VisibleChildrenOfAHiddenUseAreDrawn) {
    const Scene scene = sceneOf("<defs><g id='g'><line x2='1'/><line x2='2' visibility='visible'/></g></defs>"
                                "<use href='#g' visibility='hidden'/><use href='#g'/>");
    ASSERT_EQ(scene.blocks.size(), 3u);
    EXPECT_EQ(scene.blocks[insertAt(scene, 0).block].contents.size(), 1u);
    EXPECT_EQ(scene.blocks[insertAt(scene, 1).block].contents.size(), 2u);
}

TEST(SvgReader, AHiddenUseOfWhatIsNotVisibleIsNone) {
    const Scene scene = sceneOf("<defs><line id='l' x2='1'/></defs><use href='#l' visibility='hidden'/>");
    EXPECT_TRUE(scene.blocks[0].contents.empty());
    EXPECT_EQ(scene.blocks.size(), 1u);
}

TEST(SvgReader, AUsedDrawingThatIsNotDisplayedShowsNothing) {
    const Scene scene =
        sceneOf("<defs><svg id='s' display='none'><line x2='1'/></svg></defs><use href='#s'/>");
    EXPECT_TRUE(scene.blocks.at(1).contents.empty());
}

TEST(SvgReader, ADrawingThatIsNotDisplayedHasNothing) {
    EXPECT_TRUE(sceneOf("<line x2='1'/>", "display='none'").blocks[0].contents.empty());
}

TEST(SvgReader, AUsedSymbolIsDisplayed) {
    const Scene scene = sceneOf("<symbol id='s' display='none'><line x2='1'/></symbol><use href='#s'/>");
    EXPECT_EQ(scene.blocks.at(1).contents.size(), 1u);
}

TEST(SvgReader, AUseOrViewportWithoutWidthOrHeightIsNone) {
    const Scene scene = sceneOf("<symbol id='s'><line x2='1'/></symbol><use href='#s' width='0'/>"
                                "<use href='#s' height='0' width='5'/><svg width='0'><line x2='1'/></svg>");
    EXPECT_TRUE(scene.blocks[0].contents.empty());
    EXPECT_TRUE(scene.omissions.empty());
}

// ---- styles

TEST(SvgReader, TransformsInStylesCount) {
    const Scene scene = sceneOf("<line x2='1' style='transform: translate(3px, 4px) scale(2)'/>");
    expectBox(shapeAt(scene, 0).outline.box(), {3, 4}, {5, 4});
}

TEST(SvgReader, TransformsInStylesReplaceTheAttribute) {
    const Scene scene = sceneOf("<line x2='1' style='transform:none' transform='scale(9)'/>");
    expectBox(shapeAt(scene, 0).outline.box(), {0, 0}, {1, 0});
}

TEST(SvgReader, PlacesAndSizesInStylesCount) {
    const Scene scene = sceneOf("<rect width='1' height='1' style='x:3px;y:4px;width:10%'/>"
                                "<defs><line id='l' x2='1'/></defs><use href='#l' style='x: 5px' x='9'/>");
    expectBox(shapeAt(scene, 0).outline.box(), {3, 4}, {13, 5});
    EXPECT_EQ(insertAt(scene, 1).placement.e, 5);
}

TEST(SvgReader, CommentsInStylesHideNothing) {
    EXPECT_TRUE(
        sceneOf("<line x2='1' style='/* ; */fill:red;/*a*/display:none'/>").blocks[0].contents.empty());
    EXPECT_EQ(sceneOf("<line x2='1' style='/*display:none*/'/>").blocks[0].contents.size(), 1u);
}

TEST(SvgReader, CountsAPathInAStyle) {
    const Scene scene = sceneOf("<path d='M0 0h1' style='d:path(\"M0 0h5\")'/>");
    EXPECT_THAT(omissionsOf(scene), testing::ElementsAre("1 path in a style"));
}

TEST(SvgReader, CountsStyleSheetsThatSayWhatIsDrawn) {
    const Scene scene = sceneOf("<style>g{display:none} line{fill:red}</style><style>a{fill:red}</style>"
                                "<style><![CDATA[@import 'x.css';]]></style>");
    EXPECT_THAT(omissionsOf(scene),
                testing::ElementsAre("1 style sheet with display", "1 style sheet with @import"));
}

TEST(SvgReader, CountsStyleSheetsOfOtherFiles) {
    const Scene scene = parseSvg("<?xml-stylesheet href='a.css'?><svg><line x2='1'/></svg>", "x");
    EXPECT_THAT(omissionsOf(scene), testing::ElementsAre("1 style sheet of another file"));
}

TEST(SvgReader, CountsATransformOfTheWholeDrawing) {
    EXPECT_THAT(omissionsOf(sceneOf("<line x2='1'/>", "transform='scale(2)'")),
                testing::ElementsAre("1 transform of the whole drawing"));
}

// ---- names and entities of XML

TEST(SvgReader, ElementsOfOtherNamespacesAreNotDrawn) {
    const Scene scene = sceneOf("<line xmlns='urn:other' x2='1'/><g xmlns='urn:other'><line x2='2'/></g>"
                                "<x:line xmlns:x='urn:other' x2='3'/><line x2='4'/>");
    ASSERT_EQ(scene.blocks[0].contents.size(), 1u);
    EXPECT_EQ(shapeAt(scene, 0).outline.box().high.x, 4);
    EXPECT_TRUE(scene.omissions.empty());
}

TEST(SvgReader, PrefixesMayBeDeclaredAnywhere) {
    const Scene scene = sceneOf("<p:line xmlns:p='http://www.w3.org/2000/svg' x2='1'/>"
                                "<g xmlns:p='urn:other'><p:line x2='2'/></g><p:line x2='3'/>");
    ASSERT_EQ(scene.blocks[0].contents.size(), 1u);
    EXPECT_EQ(shapeAt(scene, 0).outline.box().high.x, 1);
}

TEST(SvgReader, LinksMayHaveAnyPrefixOfTheirNamespace) {
    const Scene scene = sceneOf("<defs><line id='l' x2='1'/></defs>"
                                "<use xmlns:k='http://www.w3.org/1999/xlink' k:href='#l'/>"
                                "<use xmlns:n='urn:other' n:href='#l'/>");
    EXPECT_EQ(scene.blocks[0].contents.size(), 1u);
    EXPECT_THAT(omissionsOf(scene), testing::ElementsAre("1 use of a missing element"));
}

TEST(SvgReader, EntitiesOfTheFileAreReplacedInAttributes) {
    const Scene scene =
        parseSvg("<!DOCTYPE svg [ <!-- <!ENTITY st 'none'> --> <!ENTITY ns \"http://www.w3.org/2000/svg\">"
                 "<!ENTITY n '9'><!ENTITY n '1'><!ENTITY st 'display:inline;width:&n;px'> ]>"
                 "<svg xmlns='&ns;'><rect style='&st;' width='1' height='1'/><rect id='a&amp;&x;b'/></svg>",
                 "x");
    ASSERT_EQ(scene.blocks[0].contents.size(), 1u);
    EXPECT_EQ(shapeAt(scene, 0).outline.box().high.x, 9);
}

TEST(SvgReader, RefusesEntitiesThatStandForThemselvesOrForTooMuch) {
    EXPECT_THAT(errorOf("<!DOCTYPE svg [<!ENTITY a '&a;'>]><svg id='&a;'/>"),
                HasSubstr("entities stand for"));
    std::string entities = "<!ENTITY e0 'lol'>";
    for (int i = 1; i < 15; ++i) {
        const std::string before = "&e" + std::to_string(i - 1) + ";";
        entities += "<!ENTITY e" + std::to_string(i) + " '";
        for (int k = 0; k < 10; ++k)
            entities += before;
        entities += "'>";
    }
    EXPECT_THAT(errorOf("<!DOCTYPE svg [" + entities + "]><svg id='&e14;'/>"),
                HasSubstr("entities stand for"));
}

// ---- what is not drawn

TEST(SvgReader, CountsElementsItCannotDraw) {
    const Scene scene =
        sceneOf("<text>one</text>\n<image/>\n<text><tspan>two</tspan></text><title/><metadata/>"
                "<x:foreign xmlns:x='urn:x'><line/></x:foreign>");
    EXPECT_THAT(omissionsOf(scene), testing::ElementsAre("2 text", "1 image"));
    EXPECT_EQ(scene.omissions[1].firstLine, 2u);
}

TEST(SvgReader, CountsUsesOfWhatIsNotThere) {
    const Scene scene = sceneOf("<use href='#nobody'/><use href='other.svg#x'/><use/>");
    EXPECT_THAT(omissionsOf(scene), testing::ElementsAre("3 use of a missing element"));
}

TEST(SvgReader, CountsEffectsItDoesNotHonour) {
    const Scene scene =
        sceneOf("<line x2='1' clip-path='url(#c)'/><line x2='1' style='marker-end:url(#m)' mask='none'/>");
    EXPECT_THAT(omissionsOf(scene), testing::ElementsAre("1 clip-path", "1 marker-end"));
    EXPECT_EQ(scene.blocks[0].contents.size(), 2u);
}

TEST(SvgReader, DrawsBrokenShapesUpToTheErrorAndCountsThem) {
    const Scene scene =
        sceneOf("<path d='M0 0 L5 0 L?'/><polyline points='0,0 1,1 2'/><rect width='x' height='1'/>"
                "<circle r='-1'/><path d='M0 0 L5 0'/>");
    EXPECT_THAT(omissionsOf(scene), testing::ElementsAre("1 broken path", "1 broken polyline",
                                                         "1 broken rect", "1 broken circle"));
    EXPECT_EQ(scene.blocks[0].contents.size(), 3u);
}

TEST(SvgReader, DoesNotDrawElementsWithABrokenTransform) {
    const Scene scene = sceneOf("<g transform='spin(3)'><line x2='1'/></g>");
    EXPECT_THAT(omissionsOf(scene), testing::ElementsAre("1 g with a broken transform"));
    EXPECT_TRUE(scene.blocks[0].contents.empty());
}

TEST(SvgReader, DoesNotDrawBeyondAllNumbers) {
    const Scene scene = sceneOf("<g transform='scale(1e300)'><line x2='1e300'/></g>");
    EXPECT_THAT(omissionsOf(scene), testing::ElementsAre("1 broken line"));
    EXPECT_TRUE(scene.blocks[0].contents.empty());
}

// ---- the page

TEST(SvgReader, PageIsTheViewBox) {
    expectBox(sceneOf("", "width='50' height='50' viewBox='-10 -20 200 100'").page, {-10, -20}, {190, 80});
}

TEST(SvgReader, PageWithoutAViewBoxIsTheSize) {
    expectBox(sceneOf("", "width='2in' height='50'").page, {0, 0}, {192, 50});
}

// ---- broken files

TEST(SvgReader, SaysWhereAFileIsBroken) {
    EXPECT_EQ(errorOf("<svg>\n  <g>\n    <rect></g>\n</svg>"), "plan.svg:3:13: Start-end tags mismatch");
}

TEST(SvgReader, RefusesTextThatIsNoXml) {
    EXPECT_THAT(errorOf("just text"), HasSubstr("plan.svg:1:"));
    EXPECT_THAT(errorOf(""), HasSubstr("plan.svg:1:1: "));
    EXPECT_THAT(errorOf("<svg"), HasSubstr("plan.svg:1:"));
}

TEST(SvgReader, RefusesOtherDocuments) {
    EXPECT_EQ(errorOf("<?xml version='1.0'?>\n <html/>"),
              "plan.svg:2:2: the drawing starts with <html>, not with <svg>");
    EXPECT_THAT(errorOf("<x:svg xmlns:x='urn:other'/>"), HasSubstr("starts with <x:svg>"));
}

TEST(SvgReader, RefusesCompressedFiles) {
    EXPECT_THAT(errorOf("\x1f\x8b\x08"), HasSubstr("plan.svg:1:1: the file is compressed"));
}

TEST(SvgReader, NamesTheFileThatCannotBeRead) {
    try {
        readSvg("/no/such/plan.svg");
        FAIL() << "no error";
    } catch (const DrawingError& error) {
        EXPECT_THAT(error.what(), HasSubstr("/no/such/plan.svg: cannot be read: "));
    }
    EXPECT_THROW(readSvg("/"), DrawingError);
}

// ---- limits

TEST(SvgReader, RefusesInputWithoutAnEnd) {
    DrawingLimits limits;
    limits.bytes = 1'000'000;
    try {
        readSvg("/dev/zero", nullptr, limits);
        FAIL() << "no error";
    } catch (const DrawingError& error) {
        EXPECT_STREQ(error.what(), "/dev/zero: has more than 1000000 bytes");
    }
}

TEST(SvgReader, RefusesDrawingsWithTooManyEntities) {
    // Every level shows the one before it in two viewports, so each needs twice as many blocks.
    std::string elements = "<defs><rect id='n0' width='50%' height='50%'/></defs>";
    for (int i = 1; i <= 40; ++i) {
        const std::string use = "<use href='#n" + std::to_string(i - 1) + "'/>";
        elements += "<defs><g id='n" + std::to_string(i) + "'><svg width='90%' height='50%'>" + use +
                    "</svg><svg width='80%' height='50%'>" + use + "</svg></g></defs>";
    }
    DrawingLimits limits;
    limits.contents = 10'000;
    const std::string text =
        "<svg xmlns='http://www.w3.org/2000/svg'>" + elements + "<use href='#n40'/></svg>";
    try {
        parseSvg(text, "deep.svg", nullptr, limits);
        FAIL() << "no error";
    } catch (const DrawingError& error) {
        EXPECT_STREQ(error.what(), "deep.svg: the drawing has more than 10000 entities and references");
    }
}
