// Tests what undo, redo, previous and invert do to the sets of a session, and what failed edits leave.
#include "examples/picker/Commands.h"
#include "examples/picker/Picture.h"

#include "tests/examples/picker/CommandTest.h"
#include "tests/examples/picker/Pictures.h"

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

using namespace picker;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class EditHistory : public kvtest::CommandTest {
protected:
    // The handles:
    //   1 drawing: 2 and 3 line, 4 reference to block desk
    //   5 block desk: 6 rect, 7 line
    EditHistory()
        : CommandTest("<symbol id='desk'><rect width='10' height='10'/><line x1='20' x2='20' y2='10'/>"
                      "</symbol><line y1='80' y2='80' x2='10'/><line y1='90' y2='90' x2='10'/>"
                      "<use href='#desk'/>") {}

    std::vector<std::string> items(const std::string& name = "A") const {
        std::vector<std::string> found;
        for (auto it = session.set(name).begin(); !it.isDone(); it.step()) {
            std::string text;
            for (const GxDbObjectId id : pathOf(*it.get()))
                text += (text.empty() ? "" : "/") + std::to_string(session.drawing().database().handleOf(id));
            found.push_back(text);
        }
        return found;
    }

    std::size_t shown() const { return highlightCount(session.drawing()); }
};

} // namespace

// ---- undo and redo

TEST_F(EditHistory, UndoTakesTheLastEditBack) {
    run("id 2");
    run("id 3");
    EXPECT_EQ(run("undo"), "taken back; set A has 1 item\n");
    EXPECT_THAT(items(), ElementsAre("2"));
    run("undo");
    EXPECT_THAT(items(), ElementsAre());
}

TEST_F(EditHistory, RedoDoesItAgain) {
    run("id 2");
    run("id 3");
    run("undo");
    run("undo");
    EXPECT_EQ(run("redo"), "done again; set A has 1 item\n");
    run("redo");
    EXPECT_THAT(items(), ElementsAre("2", "3"));
}

TEST_F(EditHistory, SeveralEditsAsOneAreTakenBackTogether) {
    run("id 2");
    session.asOneEdit([&] {
        run("id 3");
        run("remove-id 2");
    });
    EXPECT_THAT(items(), ElementsAre("3"));
    run("undo");
    EXPECT_THAT(items(), ElementsAre("2"));
    run("redo");
    EXPECT_THAT(items(), ElementsAre("3"));
}

TEST_F(EditHistory, SeveralEditsAsOneAddNothingIfTheLastFails) {
    run("id 2");
    const auto edits = [&] {
        run("id 3");
        run("id 999");
    };
    EXPECT_THROW(session.asOneEdit(edits), CommandError);
    EXPECT_THAT(items(), ElementsAre("2"));
    run("undo");
    EXPECT_THAT(items(), ElementsAre()) << "the next edits are edits of their own again";
}

TEST_F(EditHistory, UndoWithoutAnEditIsAnError) {
    EXPECT_EQ(errorOf("undo"), "set A has no edit to take back");
    run("id 2");
    EXPECT_EQ(errorOf("redo"), "set A has no edit to do again");
}

TEST_F(EditHistory, EveryEditCanBeUndone) {
    for (const std::string edit : {"pick 5 80",
                                   "window -1 79 11 81",
                                   "crossing 5 79 6 81",
                                   "fence 5 79 5 81",
                                   "all",
                                   "id 2",
                                   "invert",
                                   "clear",
                                   "remove-pick 5 90",
                                   "remove-box -1 89 11 91",
                                   "remove-crossing 5 89 6 91",
                                   "remove-fence 5 89 5 91",
                                   "remove-id 3",
                                   "remove-at 0",
                                   "unique on",
                                   "edge 5 0",
                                   "A = B",
                                   "A = A + B",
                                   "A = A - C",
                                   "move type line D",
                                   "recall S",
                                   "highlight",
                                   "highlight-edge 5 90"}) {
        run("use C");
        run("clear");
        run("id 3");
        run("use B");
        run("clear");
        run("id 4");
        run("save S");
        run("use A");
        run("clear");
        run("unique off");
        run("id 3 3");
        const GxapSelectSet before = session.set();
        run(edit);
        ASSERT_NE(session.set().sharedData, before.sharedData) << edit;
        run("undo");
        EXPECT_EQ(session.set().sharedData, before.sharedData) << edit;
    }
}

TEST_F(EditHistory, AnEditEndsWhatCouldBeDoneAgain) {
    run("id 2");
    run("undo");
    run("id 3");
    EXPECT_EQ(session.redos(), 0u);
    EXPECT_EQ(session.undos(), 1u);
}

TEST_F(EditHistory, ARefusedPickIsNoEdit) {
    run("id 2");
    run("undo");
    run("id 3");
    run("undo");
    run("pick 50 50");
    EXPECT_EQ(session.redos(), 1u);
}

TEST_F(EditHistory, EverySetHasItsOwn) {
    run("id 2");
    run("use B");
    EXPECT_EQ(errorOf("undo"), "set B has no edit to take back");
    EXPECT_THAT(items("A"), ElementsAre("2"));
}

TEST_F(EditHistory, GoesWithTheDrawing) {
    run("id 2");
    session.load(kvtest::sceneOf("<line x2='1'/>"));
    EXPECT_EQ(session.undos(), 0u);
    EXPECT_THROW(run("previous"), CommandError);
}

TEST_F(EditHistory, HighlightsFollow) {
    run("id 2 3");
    run("highlight");
    EXPECT_EQ(shown(), 2u);
    run("remove-id 2");
    EXPECT_EQ(shown(), 1u);
    run("undo");
    EXPECT_EQ(shown(), 2u);
    run("undo");
    EXPECT_EQ(shown(), 0u);
    run("redo");
    EXPECT_EQ(shown(), 2u);
}

TEST_F(EditHistory, ClearKeepsWhetherDuplicatesAreTaken) {
    run("unique off");
    run("id 2");
    run("clear");
    EXPECT_EQ(run("unique"), "set A takes items again that it has\n");
}

// ---- previous and invert

TEST_F(EditHistory, PreviousBringsBackWhatWasCleared) {
    run("id 2 3");
    run("highlight 0");
    run("clear");
    EXPECT_EQ(run("previous"), "2 found: 2 added, 0 already in the set; set A has 2 items\n");
    EXPECT_EQ(shown(), 1u);
}

TEST_F(EditHistory, PreviousAddsToWhatIsThere) {
    run("id 2 3");
    run("clear");
    run("clear");
    run("id 4 3");
    EXPECT_EQ(run("previous"), "2 found: 1 added, 1 already in the set; set A has 3 items\n");
    EXPECT_THAT(items(), ElementsAre("4", "3", "2"));
}

TEST_F(EditHistory, PreviousWithoutAClearedSetIsAnError) {
    EXPECT_EQ(errorOf("previous"), "no set was cleared");
}

TEST_F(EditHistory, InvertTakesAllOthers) {
    run("pick 5 80");
    run("id 4/6");
    EXPECT_EQ(run("invert"), "inverted; set A has 2 items\n");
    EXPECT_THAT(items(), ElementsAre("3", "4/7"));
    run("invert");
    EXPECT_THAT(items(), ElementsAre("2", "4/6"));
}

TEST_F(EditHistory, AReferenceStandsForAllThatItShows) {
    run("id 4");
    run("invert");
    EXPECT_THAT(items(), ElementsAre("2", "3"));
}

TEST_F(EditHistory, AnEdgeStandsForItsEntityInItsPlace) {
    run("edge 5 0");
    run("invert");
    EXPECT_THAT(items(), ElementsAre("2", "3", "4/7"));
}

// ---- removal

TEST_F(EditHistory, RemovalByCrossingTakesWhatTheBoxTouches) {
    run("all");
    EXPECT_EQ(run("remove-crossing 5 79 6 81"), "1 item taken out; set A has 3 items\n");
    EXPECT_THAT(items(), ElementsAre("3", "4/6", "4/7"));
}

TEST_F(EditHistory, RemovalByFenceTakesWhatItCrosses) {
    run("all");
    EXPECT_EQ(run("remove-fence 5 79 5 95"), "2 items taken out; set A has 2 items\n");
    EXPECT_THAT(items(), ElementsAre("4/6", "4/7"));
    EXPECT_THAT(errorOf("remove-fence 1 2 3 4 5"), HasSubstr("the last point has no Y"));
}

// ---- edits that fail

TEST_F(EditHistory, ACancelledPickAddsNothing) {
    run("id 2");
    std::string crowd = "<symbol id='s'>";
    for (int i = 0; i < 100; ++i)
        crowd += "<line x2='1'/>";
    crowd += "</symbol><symbol id='t'>";
    for (int i = 0; i < 100; ++i)
        crowd += "<use href='#s'/>";
    session.load(kvtest::sceneOf(crowd + "</symbol><line x2='5'/><use href='#t'/>"));
    run("id 2");
    session.interrupt().reset();
    session.interrupt().setProgress([&](std::size_t) {
        EXPECT_GT(itemCount(session.set()), 1u); // the pick was on its way
        session.interrupt().request();
    });
    EXPECT_THROW(session.all(), Cancelled);
    EXPECT_THAT(items(), ElementsAre("2"));
    EXPECT_EQ(session.undos(), 1u);
}

TEST_F(EditHistory, PicksOfDeepChainsAreLimitedByTheirPaths) {
    std::string blocks = "<symbol id='n0'><line x2='1'/></symbol>";
    for (int i = 1; i <= 7000; ++i)
        blocks += "<symbol id='n" + std::to_string(i) + "'><line x2='1'/><use href='#n" +
                  std::to_string(i - 1) + "'/></symbol>";
    const Drawing drawing(kvtest::sceneOf(blocks + "<use href='#n7000'/>"));
    std::size_t found = 0;
    EXPECT_THROW(Picker(drawing).all([&](const Pick&) { ++found; }), PickError);
    EXPECT_GT(found, 5000u);
}

TEST_F(EditHistory, APickWithoutMemoryAddsNothing) {
    run("id 2");
    run("highlight");
    bool isDone = false;
    for (int call = 1; !isDone && call < 1000; ++call) {
        kvinmemory::failMalloc(call, kvinmemory::FailureMode::Once);
        try {
            session.all();
            isDone = true;
        } catch (KvException* exception) {
            const std::unique_ptr<KvException> owned(exception);
        } catch (const std::bad_alloc&) {}
        kvinmemory::resetAll();
        if (!isDone) {
            EXPECT_THAT(items(), ElementsAre("2")) << call;
        }
    }
    EXPECT_TRUE(isDone);
    EXPECT_EQ(itemCount(session.set()), 4u);
    EXPECT_EQ(shown(), 1u);
}
