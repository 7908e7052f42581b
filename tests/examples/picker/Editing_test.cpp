// Tests commands that edit the sets of a session.
#include "examples/picker/Commands.h"

#include "tests/examples/picker/CommandTest.h"
#include "tests/examples/picker/Svg.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

using namespace picker;
using kvtest::sceneOf;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class Editing : public kvtest::CommandTest {
protected:
    // The handles:
    //   1 drawing: 2 line, 3 and 4 references to block row
    //   5 block row: 6 and 7 references to block desk
    //   8 block desk: 9 rect
    // The desks are at (0, 0), (20, 0), (0, 40) and (20, 40).
    Editing()
        : CommandTest("<symbol id='desk'><rect width='10' height='10'/></symbol>"
                      "<symbol id='row'><use href='#desk'/><use href='#desk' x='20'/></symbol>"
                      "<line y1='80' y2='80' x2='10'/><use href='#row'/><use href='#row' y='40'/>") {}

    // Returns the path of each item of a set as handles, for example "3/6/9".
    std::vector<std::string> itemsOf(const std::string& name) const {
        std::vector<std::string> items;
        for (auto it = session.set(name).begin(); !it.isDone(); it.step()) {
            std::string text;
            for (const GxDbObjectId id : pathOf(*it.get()))
                text += (text.empty() ? "" : "/") + std::to_string(session.drawing().database().handleOf(id));
            items.push_back(text);
        }
        return items;
    }
};

} // namespace

// ---- expressions

TEST_F(Editing, CopyByExpressionShares) {
    run("all");
    EXPECT_EQ(run("B = A"), "set B has 5 items\n");
    EXPECT_EQ(session.set("B").sharedData, session.set("A").sharedData);
}

TEST_F(Editing, UnionHasTheItemsOfBothOnce) {
    run("id 2 3/6/9");
    run("use B");
    run("id 3/6/9 4/6/9");
    EXPECT_EQ(run("C = A + B"), "set C has 3 items\n");
    EXPECT_THAT(itemsOf("C"), ElementsAre("2", "3/6/9", "4/6/9"));
    EXPECT_THAT(itemsOf("A"), ElementsAre("2", "3/6/9"));
}

TEST_F(Editing, UnionMayBeEitherOperand) {
    run("id 2");
    run("use B");
    run("id 3/6/9");
    run("C = B");
    run("B = A + B");
    EXPECT_THAT(itemsOf("B"), ElementsAre("2", "3/6/9"));
    run("C = C + A");
    EXPECT_THAT(itemsOf("C"), ElementsAre("3/6/9", "2"));
}

TEST_F(Editing, DifferenceLeavesWhatTheOtherHasNot) {
    run("id 2 3/6/9 4/6/9");
    run("use B");
    run("id 3/6/9");
    run("C = A - B");
    EXPECT_THAT(itemsOf("C"), ElementsAre("2", "4/6/9"));
    EXPECT_THAT(itemsOf("A"), ElementsAre("2", "3/6/9", "4/6/9"));
}

TEST_F(Editing, DifferenceMayBeEitherOperand) {
    run("id 2 3/6/9");
    run("use B");
    run("id 3/6/9");
    run("B = A - B");
    EXPECT_THAT(itemsOf("B"), ElementsAre("2"));
    run("A = A - B");
    EXPECT_THAT(itemsOf("A"), ElementsAre("3/6/9"));
    run("A = A - A");
    EXPECT_THAT(itemsOf("A"), ElementsAre());
}

TEST_F(Editing, ExpressionsSayWhatIsWrong) {
    EXPECT_EQ(errorOf("B = X"), "there is no set X");
    EXPECT_EQ(errorOf("B = A + X"), "there is no set X");
    EXPECT_THAT(errorOf("B = A * A"), HasSubstr("'*' is neither + nor -; usage: NAME = SET"));
    EXPECT_THAT(errorOf("B = A +"), HasSubstr("no expression"));
    EXPECT_EQ(session.sets().size(), 1u);
}

// ---- transfers

TEST_F(Editing, CopyOfAFilterAddsAndKeeps) {
    run("all");
    EXPECT_EQ(run("copy type line B"), "1 item copied, 1 new there; set B has 1 item, set A has 5 items\n");
    EXPECT_EQ(run("copy box -1 -1 31 11 B"),
              "2 items copied, 2 new there; set B has 3 items, set A has 5 items\n");
    EXPECT_THAT(itemsOf("B"), ElementsAre("2", "3/6/9", "3/7/9"));
}

TEST_F(Editing, MoveTakesTheItemsOut) {
    run("all");
    run("move block row B");
    EXPECT_THAT(itemsOf("A"), ElementsAre("2"));
    EXPECT_THAT(itemsOf("B"), ElementsAre("3/6/9", "3/7/9", "4/6/9", "4/7/9"));
}

TEST_F(Editing, MoveOfWhatTheOtherHasTakesItOutAllTheSame) {
    run("all");
    run("copy B");
    EXPECT_EQ(run("move type line B"), "1 item moved, 0 new there; set B has 5 items, set A has 4 items\n");
}

TEST_F(Editing, FilterThatMatchesNothingLeavesTheSetShared) {
    run("all");
    run("copy B");
    run("move type circle C");
    EXPECT_EQ(session.set("A").sharedData, session.set("B").sharedData);
}

TEST_F(Editing, TransferTakesABoxByAnyTwoCorners) {
    run("all");
    EXPECT_THAT(run("copy box 31 11 -1 -1 B"), HasSubstr("2 items copied"));
}

TEST_F(Editing, TransfersSayWhatIsWrong) {
    run("all");
    EXPECT_EQ(errorOf("move B"), "a filter and a set are needed; usage: move FILTER SET; "
                                 "FILTER is type TYPE, block BLOCK or box X1 Y1 X2 Y2");
    EXPECT_THAT(errorOf("move colour red B"), HasSubstr("'colour' is no filter; usage: move FILTER SET; F"));
    EXPECT_THAT(errorOf("move type line"), HasSubstr("a word is missing"));
    EXPECT_THAT(errorOf("move type a b B"), HasSubstr("'b' is too much"));
    EXPECT_THAT(errorOf("copy box 1 2 3 B"), HasSubstr("a number is missing"));
    EXPECT_THAT(errorOf("copy box"), HasSubstr("a filter needs more words"));
    EXPECT_EQ(errorOf("move type desk B"), "'desk' is no type of entity, such as line or path");
    EXPECT_EQ(errorOf("copy block \"\" B"), "there is no block ''; blocks lists them");
    EXPECT_EQ(errorOf("copy block line B"), "there is no block 'line'; blocks lists them");
    EXPECT_THAT(errorOf("move type line A"), HasSubstr("set A is the current one already"));
    EXPECT_EQ(session.sets().size(), 1u);
    EXPECT_EQ(itemsOf("A").size(), 5u);
}

// ---- removal

TEST_F(Editing, RemovalByPointTakesThePlacedEntity) {
    run("all");
    EXPECT_EQ(run("remove-pick 20 5"), "1 item taken out; set A has 4 items\n");
    EXPECT_THAT(itemsOf("A"), ElementsAre("2", "3/6/9", "4/6/9", "4/7/9"));
    EXPECT_EQ(run("remove-pick 70 70"), "0 items taken out; set A has 4 items\n");
}

TEST_F(Editing, RemovalByPointTakesEverySegmentOfTheEntity) {
    run("pick 5 0");
    run("pick 10 5");
    run("window -1 -1 31 11");
    EXPECT_EQ(run("remove-pick 5 10"), "3 items taken out; set A has 1 item\n");
    EXPECT_THAT(itemsOf("A"), ElementsAre("3/7/9"));
}

TEST_F(Editing, RemovalByBoxTakesWhatIsWhollyInside) {
    run("all");
    run("remove-box -1 39 31 51");
    EXPECT_THAT(itemsOf("A"), ElementsAre("2", "3/6/9", "3/7/9"));
}

TEST_F(Editing, RemovalByIdTakesAllUnderAMainId) {
    run("all");
    EXPECT_EQ(run("remove-id 3"), "2 items taken out; set A has 3 items\n");
    EXPECT_THAT(itemsOf("A"), ElementsAre("2", "4/6/9", "4/7/9"));
}

TEST_F(Editing, RemovalTakesNothingWhereOneOfSeveralIdsIsWrong) {
    run("all");
    EXPECT_EQ(errorOf("remove-id 2 nobody"), "nothing in the drawing has the id or name 'nobody'");
    EXPECT_EQ(errorOf("remove-id 3/"), "nothing in the drawing has the id or name ''");
    EXPECT_EQ(itemsOf("A").size(), 5u);
}

TEST_F(Editing, RemovalByPathTakesOnePlace) {
    run("all");
    run("remove-id 3/7/9 2");
    EXPECT_THAT(itemsOf("A"), ElementsAre("3/6/9", "4/6/9", "4/7/9"));
}

// Both items of the set have the same main id, sub id and marker. Only their paths differ.
TEST_F(Editing, RemovalByPositionTakesThatVeryItem) {
    run("id 3/6/9 3/7/9");
    EXPECT_EQ(run("remove-at 1"), "1 item taken out; set A has 1 item\n");
    EXPECT_THAT(itemsOf("A"), ElementsAre("3/6/9"));
    EXPECT_EQ(errorOf("remove-at 1"), "set A has no item 1");
}

// A row of many desks. All its items have the same main id, sub id and marker.
class EditingALongRow : public kvtest::CommandTest {
protected:
    static constexpr int kDesks = 100;

    EditingALongRow() : CommandTest(drawing()) {}

    static std::string drawing() {
        std::string desks;
        for (int i = 0; i < kDesks; ++i)
            desks += "<use href='#desk' x='" + std::to_string(20 * i) + "'/>";
        return "<symbol id='desk'><rect width='10' height='10'/></symbol><symbol id='row'>" + desks +
               "</symbol><use href='#row'/>";
    }
};

// The first removal makes the library hash the keys of the items.
TEST_F(EditingALongRow, RemovalByPositionTakesThatVeryItemEachTime) {
    run("all");
    for (const unsigned left : {99u, 98u, 97u}) {
        const std::vector<GxDbObjectId> doomed = pathOf(*session.set().getAt(70));
        EXPECT_EQ(session.removeAt(70), 1u);
        EXPECT_EQ(itemCount(session.set()), left);
        for (auto it = session.set().begin(); !it.isDone(); it.step())
            EXPECT_NE(pathOf(*it.get()), doomed);
    }
}

TEST_F(Editing, RemovalLeavesACopyAlone) {
    run("all");
    run("copy B");
    run("remove-id 3");
    EXPECT_EQ(itemsOf("B").size(), 5u);
    for (auto it = session.set("B").begin(); !it.isDone(); it.step())
        EXPECT_EQ(it.gsMarker(), -1);
}

TEST_F(Editing, RemovedItemsCanBePickedAgain) {
    run("all");
    run("remove-id 3/6/9");
    EXPECT_THAT(run("id 3/6/9"), HasSubstr("1 added"));
}

// ---- unique, contains, intersects

TEST_F(Editing, UniqueOffTakesItemsAgain) {
    EXPECT_EQ(run("unique"), "set A refuses items that it has\n");
    run("id 2");
    EXPECT_EQ(run("unique off"), "set A takes items again that it has\n");
    run("id 2");
    EXPECT_THAT(itemsOf("A"), ElementsAre("2", "2"));
}

TEST_F(Editing, UniqueOnKeepsOneItemPerMainId) {
    run("unique off");
    run("all");
    EXPECT_EQ(run("unique on"),
              "set A refuses items that it has; 2 items under the same main id as others taken out\n");
    EXPECT_THAT(itemsOf("A"), ElementsAre("2", "3/6/9", "4/6/9"));
    EXPECT_THAT(errorOf("unique maybe"), HasSubstr("neither on nor off"));
}

TEST_F(Editing, ContainsAndIntersectsCompareItems) {
    run("id 2 3/6/9");
    run("use B");
    run("id 2");
    run("use A");
    EXPECT_EQ(run("contains B"), "set A contains all of set B\n");
    EXPECT_EQ(run("intersects B"), "set A has items in common with set B\n");
    run("use B");
    EXPECT_EQ(run("contains A"), "set B does not contain all of set A\n");
    run("use C");
    EXPECT_EQ(run("intersects A"), "set C has no items in common with set A\n");
    EXPECT_EQ(errorOf("contains X"), "there is no set X");
}

// ---- edges

TEST_F(Editing, EdgesAreSegmentsInOneItemOfTheEntity) {
    EXPECT_EQ(run("edge 5 0"), "edge added; set A has 1 item\n");
    EXPECT_EQ(run("edge 30 45"), "edge added; set A has 1 item\n");
    EXPECT_EQ(run("edges"), "#  entity  edge  segment  path\n"
                            "0  9 rect     0        1  3 > 6 > 9\n"
                            "0  9 rect     1        2  4 > 7 > 9\n");
}

TEST_F(Editing, EdgeIsTakenOnce) {
    run("edge 5 0");
    EXPECT_EQ(run("edge 5 0"), "already among the edges; set A has 1 item\n");
    EXPECT_EQ(run("edge 70 70"), "nothing there; set A has 1 item\n");
}

TEST_F(Editing, EdgesItemIsMarkedAsTheLibraryMarksIt) {
    run("edge 5 80");
    const selected_entity* record = session.set().getFirst();
    EXPECT_TRUE(record->hasSubselPaths);
    EXPECT_EQ(record->selectedEntityInfo->word0, 6u);
}

TEST_F(Editing, EntityThatIsInTheSetOtherwiseTakesNoEdges) {
    run("id 2");
    EXPECT_EQ(errorOf("edge 5 80"), "2 line is in the set already, as an item without edges");
    EXPECT_EQ(run("edges"), "set A has no edges\n");
}

TEST_F(Editing, LastEdgeTakesTheItemWithIt) {
    run("edge 5 0");
    run("edge 10 5");
    EXPECT_EQ(run("remove-edge 0 0"), "edge taken out; set A has 1 item\n");
    EXPECT_THAT(run("edges"), HasSubstr("0  9 rect     0        2  3 > 6 > 9\n"));
    EXPECT_EQ(errorOf("remove-edge 0 1"), "item 0 has no edge 1");
    EXPECT_EQ(run("remove-edge 0 0"), "edge taken out; set A has 0 items\n");
    EXPECT_EQ(errorOf("remove-edge 0 0"), "set A has no item 0");
}

TEST_F(Editing, EdgesGoWithTheDrawing) {
    const long before = kvinmemory::livePaths();
    run("edge 5 0");
    run("edge 10 5");
    run("remove-edge 0 0");
    EXPECT_GT(kvinmemory::livePaths(), before);
    session.load(sceneOf("<line x2='1'/>"));
    EXPECT_EQ(kvinmemory::livePaths(), before);
}

TEST_F(Editing, CopiesKeepTheirEdges) {
    run("edge 5 0");
    run("copy B");
    run("remove-edge 0 0");
    run("use B");
    EXPECT_THAT(run("edges"), HasSubstr("0  9 rect     0        1  3 > 6 > 9\n"));
}
