// Tests the highlights that commands turn on, in the entities and in the picture.
#include "examples/picker/Picture.h"

#include "examples/picker/Commands.h"

#include "tests/examples/picker/CommandTest.h"
#include "tests/examples/picker/Pictures.h"
#include "tests/examples/picker/Svg.h"

#include <gmock/gmock.h>

#include <set>
#include <stdexcept>
#include <string>

using namespace picker;
using kvtest::highlightsIn;
using kvtest::onlyPathDataIn;
using kvtest::sceneOf;
using testing::ElementsAre;

namespace {

class Highlighting : public kvtest::CommandTest {
protected:
    // The handles:
    //   1 drawing: 2 line, 3 reference to block s, 4 reference to block t
    //   5 block s: 6 rect
    //   7 block t: 8 reference to block s
    Highlighting()
        : CommandTest("<symbol id='s'><rect width='10' height='10'/></symbol>"
                      "<symbol id='t'><use href='#s' transform='scale(2)'/></symbol>"
                      "<line y1='80' y2='80' x2='10'/><use href='#s'/><use href='#t' x='50' y='50'/>") {}

    std::string picture() const { return pictureOf(session.drawing()); }
    std::string original() const { return session.drawing().source(); }

    // Returns "main path marker" for every item of a set, for example "3 3/6 1".
    std::multiset<std::string> itemsOf(const GxapSelectSet& set) const {
        const kvinmemory::Database& database = session.drawing().database();
        std::multiset<std::string> items;
        for (auto it = set.begin(); !it.isDone(); it.step()) {
            std::string path;
            for (const GxDbObjectId id : pathOf(*it.get()))
                path += (path.empty() ? "" : "/") + std::to_string(database.handleOf(id));
            items.insert(std::to_string(database.handleOf(it.mainEntId())) + " " + path + " " +
                         std::to_string(it.gsMarker()));
        }
        return items;
    }

    // Returns "main path marker" for every part that an item of a set or of a saved set highlights.
    std::set<std::string> partsHeld() const {
        std::set<std::string> parts;
        for (const auto& [name, set] : session.sets())
            addParts(set, parts);
        for (const auto& [name, words] : session.savedSets())
            addParts(session.saved(name), parts);
        return parts;
    }

    static std::set<std::string> partsIn(const std::string& picture) {
        const std::multiset<std::string> seen = highlightsIn(picture);
        return {seen.begin(), seen.end()};
    }

private:
    void addParts(const GxapSelectSet& set, std::set<std::string>& parts) const {
        const kvinmemory::Database& database = session.drawing().database();
        for (auto it = set.begin(); !it.isDone(); it.step()) {
            const KvVector<GxDbFullSubentPath*>* segments = it.highlightSegmentArray();
            for (int i = 0; segments && i < segments->logicalLength(); ++i) {
                const GxDbFullSubentPath& segment = *segments->at(i);
                std::string path;
                for (int k = 0; k < segment.objectIds().logicalLength(); ++k)
                    path +=
                        (k == 0 ? "" : "/") + std::to_string(database.handleOf(segment.objectIds().at(k)));
                parts.insert(std::to_string(database.handleOf(it.mainEntId())) + " " + path + " " +
                             std::to_string(segment.subentId().index));
            }
        }
    }
};

} // namespace

TEST_F(Highlighting, PictureOfNothingIsTheFile) {
    run("all");
    EXPECT_EQ(picture(), original());
}

TEST_F(Highlighting, PictureShowsPlainNestedAndTwiceNestedItems) {
    run("pick 5 80");
    run("pick 5 0");
    run("pick 60 70");
    EXPECT_EQ(run("highlight"), "the drawing shows 3 highlights\n");
    EXPECT_THAT(highlightsIn(picture()), ElementsAre("2 2 1", "3 3/6 1", "4 4/8/6 3"));
    EXPECT_EQ(highlightsIn(picture()), itemsOf(session.set()));
}

TEST_F(Highlighting, PictureIsTheFileWithOneGroupMore) {
    run("all");
    run("highlight");
    std::string text = picture();
    const std::size_t begin = text.find(R"(<g xmlns="http://www.w3.org/2000/svg" id="highlight")");
    const std::size_t end = text.find("</g>\n", begin);
    ASSERT_NE(begin, std::string::npos);
    text.erase(begin, end + 5 - begin);
    EXPECT_EQ(text, original());
}

TEST_F(Highlighting, PlainItemIsDrawnWhereItIs) {
    run("pick 5 80");
    run("highlight");
    EXPECT_EQ(onlyPathDataIn(picture()), "M0 80L10 80");
}

TEST_F(Highlighting, TwiceNestedItemIsDrawnByItsCompoundTransform) {
    run("id 4/8/6");
    run("highlight");
    EXPECT_EQ(onlyPathDataIn(picture()), "M50 50L70 50L70 70L50 70L50 50");
}

TEST_F(Highlighting, ReferenceIsDrawnWithAllThatItShows) {
    run("id 4");
    run("highlight");
    EXPECT_THAT(highlightsIn(picture()), ElementsAre("4 4 -1"));
    EXPECT_EQ(onlyPathDataIn(picture()), "M50 50L70 50L70 70L50 70L50 50");
}

TEST_F(Highlighting, UnhighlightGivesTheFileBack) {
    run("all");
    run("highlight");
    run("highlight-edge 60 70");
    EXPECT_NE(picture(), original());
    EXPECT_EQ(run("unhighlight"), "the drawing shows 0 highlights\n");
    EXPECT_EQ(picture(), original());
}

TEST_F(Highlighting, GoesByPosition) {
    run("all");
    run("highlight 0 2");
    EXPECT_THAT(highlightsIn(picture()), ElementsAre("2 2 -1", "4 4/8/6 -1"));
    run("unhighlight 0");
    EXPECT_THAT(highlightsIn(picture()), ElementsAre("4 4/8/6 -1"));
}

TEST_F(Highlighting, ChangesNothingWhereOneOfSeveralPositionsIsWrong) {
    run("all");
    EXPECT_THROW(run("highlight 0 3"), CommandError);
    EXPECT_EQ(picture(), original());
    run("highlight");
    EXPECT_THROW(run("unhighlight 0 3"), CommandError);
    EXPECT_EQ(highlightsIn(picture()).size(), 3u);
}

TEST_F(Highlighting, IsInTheEntitiesOncePerItem) {
    run("pick 5 80");
    run("highlight");
    run("highlight");
    const GxDbObjectId id = session.drawing().find("2");
    const auto* entity = dynamic_cast<const kvinmemory::Entity*>(session.drawing().database().entity(id));
    EXPECT_EQ(entity->highlights().size(), 1u);
}

TEST_F(Highlighting, ShowsWhatEntitiesWereToldAndNotWhatTheSetSays) {
    run("pick 5 80");
    const GxDbObjectId id = session.drawing().find("2");
    GxDbFullSubentPath path;
    path.objectIds().setLogicalLength(1);
    path.objectIds().at(0) = id;
    path.subentId().index = 7;
    session.drawing().database().entity(id)->highlight(path, false);
    EXPECT_THAT(highlightsIn(picture()), ElementsAre("2 2 7"));
}

TEST_F(Highlighting, SegmentIsDrawnAlone) {
    run("id 4/8/6");
    EXPECT_EQ(run("highlight-edge 60 70"), "of item 0; the drawing shows 1 highlight\n");
    EXPECT_THAT(highlightsIn(picture()), ElementsAre("4 4/8/6 3"));
    EXPECT_EQ(onlyPathDataIn(picture()), "M70 70L50 70");
}

TEST_F(Highlighting, SegmentsAddUpAndAreSeenOnce) {
    run("id 4/8/6");
    run("highlight-edge 60 70");
    run("highlight-edge 70 60");
    EXPECT_EQ(run("highlight-edge 70 60"), "of item 0; the drawing shows 2 highlights\n");
    EXPECT_EQ(session.set().getFirst()->highlightSegmentArray->logicalLength(), 2);
}

TEST_F(Highlighting, OfTheSamePartByTwoItemsIsSeenOnce) {
    run("unique off");
    run("id 2 2");
    EXPECT_EQ(run("highlight"), "the drawing shows 1 highlight\n");
    EXPECT_THAT(highlightsIn(picture()), ElementsAre("2 2 -1"));
    run("unhighlight 0");
    EXPECT_THAT(highlightsIn(picture()), ElementsAre("2 2 -1"));
}

TEST_F(Highlighting, StaysWhereASetIsReplacedByItself) {
    run("id 2");
    run("highlight");
    run("A = A");
    EXPECT_THAT(highlightsIn(picture()), ElementsAre("2 2 -1"));
}

TEST_F(Highlighting, OfASegmentThatIsNotThereDrawsNothing) {
    const GxDbObjectId id = session.drawing().find("2");
    for (const long segment : {0L, 2L}) {
        GxDbFullSubentPath path;
        path.objectIds().setLogicalLength(1);
        path.objectIds().at(0) = id;
        path.subentId().type = kEdgePart;
        path.subentId().index = segment;
        session.drawing().database().entity(id)->highlight(path, false);
        EXPECT_EQ(highlightsIn(picture()).size(), 1u);
        EXPECT_EQ(onlyPathDataIn(picture()), "");
        session.drawing().database().entity(id)->unhighlight(path, false);
    }
}

TEST_F(Highlighting, OutlinesOfAReferenceStartAnew) {
    session.load(sceneOf("<symbol id='s'><line x2='9'/><path d='M7 7M5 5L6 6'/><line x1='9' x2='8'/></symbol>"
                         "<use href='#s'/>"));
    run("id 2");
    run("highlight");
    EXPECT_EQ(onlyPathDataIn(picture()), "M0 0L9 0M5 5L6 6M9 0L8 0");
}

TEST_F(Highlighting, SegmentOfWhatIsNotInTheSetIsAnError) {
    EXPECT_THROW(run("highlight-edge 60 70"), CommandError);
    EXPECT_EQ(run("highlight-edge 30 30"), "nothing there; the drawing shows 0 highlights\n");
}

TEST_F(Highlighting, EdgesAreHighlightedAsSegments) {
    run("edge 60 70");
    run("edge 5 0");
    run("highlight");
    EXPECT_THAT(highlightsIn(picture()), ElementsAre("6 3/6 1", "6 4/8/6 3"));
    run("remove-edge 0 0");
    EXPECT_THAT(highlightsIn(picture()), ElementsAre("6 3/6 1"));
    run("remove-edge 0 0");
    EXPECT_EQ(picture(), original());
}

TEST_F(Highlighting, GoesWithTheItem) {
    for (const std::string edit : {"clear", "remove-at 0", "remove-id 2 3 4", "unique on", "A = A - B",
                                   "move type line C", "A = B", "recall nothing"}) {
        run("use B");
        run("clear");
        run("all");
        run("use N");
        run("save nothing");
        run("use A");
        run("A = A - A");
        run("unique off");
        run("id 2 2 3/6");
        run("highlight");
        run(edit);
        // The picture must show exactly the highlights of the remaining items.
        std::multiset<std::string> left;
        for (auto it = session.set().begin(); !it.isDone(); it.step()) {
            if (it.highlightSegmentArray())
                left.insert(std::to_string(session.drawing().database().handleOf(it.mainEntId())));
        }
        std::multiset<std::string> seen;
        for (const std::string& each : highlightsIn(picture()))
            seen.insert(each.substr(0, each.find(' ')));
        const std::set<std::string> leftOnce(left.begin(), left.end());
        EXPECT_EQ(std::set<std::string>(seen.begin(), seen.end()), leftOnce) << edit;
        run("unhighlight");
        EXPECT_EQ(picture(), original()) << edit;
    }
}

TEST_F(Highlighting, StaysForACopyThatKeepsTheItems) {
    run("id 2");
    run("highlight");
    run("copy B");
    run("clear");
    EXPECT_THAT(highlightsIn(picture()), ElementsAre("2 2 -1"));
    run("use B");
    run("unhighlight");
    EXPECT_EQ(picture(), original());
}

// An edit of one set must not end the highlights of other sets with the same item.
TEST_F(Highlighting, IsSeenAsLongAsAnySetHoldsIt) {
    for (const std::string edit : {"id 3",
                                   "remove-at 0",
                                   "unhighlight",
                                   "clear",
                                   "unique off",
                                   "edge 5 0",
                                   "highlight-edge 5 80",
                                   "A = A + C",
                                   "A = A - C",
                                   "A = C",
                                   "A = C + A",
                                   "C = A + N",
                                   "C = N + A",
                                   "B = B + C",
                                   "B = C - B",
                                   "B = A + B",
                                   "recall S",
                                   "move type line C",
                                   "copy type line C",
                                   "copy block s B",
                                   "remove-id 2",
                                   "drop S",
                                   "save S"}) {
        for (const std::string line : {"use N", "use B", "clear", "use C", "clear", "id 2 3", "use A",
                                       "clear", "id 2", "highlight", "save S", "B = A", edit.c_str()})
            run(line);
        EXPECT_EQ(partsIn(picture()), partsHeld()) << edit;
        for (const std::string line :
             {"unhighlight", "use B", "unhighlight", "use C", "unhighlight", "drop S"}) {
            if (line != "drop S" || session.savedSets().count("S") > 0)
                run(line);
            EXPECT_EQ(partsIn(picture()), partsHeld()) << edit << ", " << line;
        }
        EXPECT_EQ(picture(), original()) << edit;
    }
}

TEST(Picture, GroupStandsBeforeTheEndTagWhateverFollows) {
    Session session;
    session.load(parseSvg(
        "<svg xmlns='http://www.w3.org/2000/svg'><line x2='9'/></svg>\n<!-- </g></svg> -->\n<?a <b?>",
        "test.svg"));
    session.all();
    session.highlightAll();
    const std::string picture = pictureOf(session.drawing());
    EXPECT_THAT(highlightsIn(picture), ElementsAre("2 2 -1"));
    EXPECT_EQ(picture.substr(picture.find("</g>")), "</g>\n</svg>\n<!-- </g></svg> -->\n<?a <b?>");
}

// A declaration of a style sheet, or one that is inherited, must not hide the highlights.
TEST(Picture, HighlightsSetByThemselvesWhatTheyDependOn) {
    Session session;
    session.load(sceneOf("<line x2='9' visibility='visible'/>", "visibility='hidden' stroke-opacity='0'"));
    session.all();
    session.highlightAll();
    const std::string picture = pictureOf(session.drawing());
    for (const char* declaration : {"display:inline!important;", "visibility:visible!important;"}) {
        const std::size_t group = picture.find("id=\"highlight\"");
        EXPECT_LT(picture.find(declaration, group), picture.find("<path", group)) << declaration;
        EXPECT_NE(picture.find(declaration, picture.find("<path", group)), std::string::npos) << declaration;
    }
    for (const char* declaration : {"stroke-opacity:1!important;", "stroke-dasharray:none!important;",
                                    "transform:none!important;", "opacity:1!important;"})
        EXPECT_NE(picture.find(declaration, picture.find("data-main")), std::string::npos) << declaration;
}

TEST(Picture, OfAFileThatTakesNoMoreTextIsAnError) {
    const std::string text = "<?xml version='1.0' encoding='UTF-16LE'?>"
                             "<svg xmlns='http://www.w3.org/2000/svg'><line x2='9'/></svg>";
    std::string wide;
    for (const char c : text)
        wide += {c, '\0'};
    Session session;
    session.load(parseSvg(wide, "wide.svg"));
    session.all();
    EXPECT_EQ(pictureOf(session.drawing()), wide);
    session.highlightAll();
    EXPECT_THROW(pictureOf(session.drawing()), std::runtime_error);
}

// ---- files

namespace {

class Showing : public Highlighting {
protected:
    kvtest::WorkingDirectory directory{"picker_show"};
};

} // namespace

TEST_F(Showing, WritesThePictureAndItsPng) {
    const kvtest::StandInConverter converter;
    run("all");
    run("highlight");
    EXPECT_EQ(run("show to/it.svg"), "3 highlights in to/it.svg and to/it.png\n");
    EXPECT_EQ(kvtest::textOf("to/it.svg"), picture());
    EXPECT_EQ(kvtest::textOf("to/it.png"),
              "--keep-aspect-ratio --width 1400 --height 1400 --output to/it.png -- to/it.svg\n");
}

TEST_F(Showing, WritesThePictureAloneWithoutAConverterAndSaysSo) {
    const kvtest::ProgramDirectory empty;
    EXPECT_EQ(errorOf("show it.svg"), "it.svg is written, but no PNG: rsvg-convert is not installed "
                                      "(package librsvg2-bin)");
    EXPECT_EQ(kvtest::textOf("it.svg"), original());
}

TEST_F(Showing, SaysThatAConverterFailed) {
    const kvtest::StandInConverter converter;
    std::filesystem::create_directory("it.png");
    EXPECT_EQ(errorOf("show it.svg !"), "it.svg is written, but no PNG: rsvg-convert failed");
    EXPECT_EQ(kvtest::textOf("it.svg"), original());
}

TEST_F(Showing, NamesTheFileAfterTheDrawing) {
    const kvtest::StandInConverter converter;
    run("show");
    EXPECT_EQ(kvtest::textOf("test-highlight.svg"), original());
}

TEST_F(Showing, RefusesWhatItCannotOrMustNotWrite) {
    EXPECT_EQ(errorOf("show it.txt"), "'it.txt' is not the name of an .svg file; usage: show [FILE.svg] [!]");
    EXPECT_THAT(errorOf("show .svg"), testing::StartsWith("'.svg' is not the name of an .svg file"));
    std::ofstream("file") << "";
    EXPECT_EQ(errorOf("show file/it.svg"), "file/it.svg cannot be written");
    std::ofstream("plan.svg") << original();
    session.load("plan.svg");
    EXPECT_EQ(errorOf("show ./plan.svg"), "./plan.svg is the drawing itself");
    EXPECT_EQ(kvtest::textOf("plan.svg"), original());
}

TEST_F(Showing, OverwritesItsOwnPictures) {
    const kvtest::StandInConverter converter;
    run("all");
    run("show it.svg");
    run("highlight");
    EXPECT_EQ(errorOf("show it.svg"), "no error");
    run("unhighlight");
    EXPECT_EQ(errorOf("show it.svg"), "no error");
    session.load(sceneOf("<line x2='1'/>"));
    EXPECT_EQ(errorOf("show it.svg"), "no error");
    EXPECT_EQ(kvtest::textOf("it.svg"), original());
}

TEST_F(Showing, OverwritesPicturesOfAnotherSession) {
    const kvtest::StandInConverter converter;
    std::ofstream("same.svg") << original();
    EXPECT_EQ(errorOf("show same.svg"), "no error");
    run("all");
    run("highlight");
    std::ofstream("lit.svg") << picture();
    run("unhighlight");
    EXPECT_EQ(errorOf("show lit.svg"), "no error");
}

TEST_F(Showing, KeepsFilesOfOthersUnlessItIsTold) {
    const kvtest::StandInConverter converter;
    std::ofstream("it.svg") << "<svg/>";
    EXPECT_THAT(errorOf("show it.svg"), testing::StartsWith("it.svg is there already, and no picture of "));
    EXPECT_EQ(kvtest::textOf("it.svg"), "<svg/>");
    EXPECT_EQ(errorOf("show it.svg !"), "no error");
    EXPECT_EQ(kvtest::textOf("it.svg"), original());
}

TEST_F(Showing, KeepsPngsOfOthers) {
    const kvtest::StandInConverter converter;
    std::ofstream("it.png") << "mine";
    EXPECT_THAT(errorOf("show it.svg"), testing::StartsWith("it.png is there already"));
    EXPECT_EQ(kvtest::textOf("it.png"), "mine");
    EXPECT_FALSE(std::filesystem::exists("it.svg"));
}

TEST_F(Showing, MayOverwriteTheFileThatItNamesItself) {
    const kvtest::StandInConverter converter;
    std::ofstream("test-highlight.svg") << "<svg/>";
    EXPECT_EQ(errorOf("show !"), "no error");
    EXPECT_EQ(kvtest::textOf("test-highlight.svg"), original());
}
