#include "examples/picker/Commands.h"

#include "tests/examples/picker/CommandTest.h"

#include <gmock/gmock.h>

#include <set>
#include <sstream>

using namespace picker;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class CommandLine : public kvtest::CommandTest {
protected:
    // The handles:
    //   1 drawing: 2 line, 3 reference to block desk
    //   4 block desk: 5 rect, 6 line
    CommandLine()
        : CommandTest(
              "<symbol id='desk'><rect width='10' height='10'/><line x1='20' x2='20' y2='10'/></symbol>"
              "<line id='wall' y1='80' y2='80' x2='10'/><use href='#desk'/><text/>") {}
};

} // namespace

TEST(WordsOf, ArePartedByBlanks) {
    EXPECT_THAT(wordsOf("  pick 1\t2 "), ElementsAre("pick", "1", "2"));
    EXPECT_THAT(wordsOf(""), ElementsAre());
}

TEST(WordsOf, QuotesKeepBlanks) {
    EXPECT_THAT(wordsOf("load \"my plan.svg\" \"\""), ElementsAre("load", "my plan.svg", ""));
    EXPECT_THROW(wordsOf("load \"plan"), CommandError);
}

TEST(WordsOf, CommentsHaveNone) {
    EXPECT_THAT(wordsOf("  # pick 1 2"), ElementsAre());
    EXPECT_THAT(wordsOf("pick 1 2 # a wall \"here"), ElementsAre("pick", "1", "2"));
    EXPECT_THAT(wordsOf("echo \"#1\" a#b #c"), ElementsAre("echo", "#1", "a#b"));
}

TEST(CommandTable, NamesAreUniqueAndExplained) {
    std::set<std::string> names;
    for (const Command& command : commands()) {
        EXPECT_TRUE(names.insert(command.name).second) << command.name;
        EXPECT_STRNE(command.help, "") << command.name;
    }
}

TEST_F(CommandLine, PickSaysWhatWasAdded) {
    EXPECT_EQ(run("pick 5 81"), "1 found: 1 added, 0 already in the set; set A has 1 item\n");
}

TEST_F(CommandLine, PickSaysWhatTheSetRefused) {
    run("pick 5 81");
    EXPECT_EQ(run("pick 5,79"), "1 found: 0 added, 1 already in the set; set A has 1 item\n");
}

TEST_F(CommandLine, PickSaysThatNothingIsThere) {
    EXPECT_EQ(run("pick 50 50"), "nothing there; set A still has 0 items\n");
}

TEST_F(CommandLine, PickTakesAnApertureOfItsOwn) {
    EXPECT_THAT(run("pick 5 70 5"), HasSubstr("nothing there"));
    EXPECT_THAT(run("pick 5 70 10"), HasSubstr("1 added"));
}

TEST_F(CommandLine, ApertureStays) {
    EXPECT_EQ(run("aperture"), "point picks reach 3 units far\n");
    run("aperture 10");
    EXPECT_THAT(run("pick 5 70"), HasSubstr("1 added"));
}

TEST_F(CommandLine, BoxesAndFencesAddTheirKind) {
    EXPECT_THAT(run("window -1 -1 11 11"), HasSubstr("1 found: 1 added"));
    EXPECT_THAT(run("crossing 5 -1 25 1"), HasSubstr("2 found: 1 added, 1 already"));
    EXPECT_THAT(run("fence 5 -1 5 90"), HasSubstr("2 found: 2 added"));
}

TEST_F(CommandLine, AllAddsEveryPlacedEntity) {
    EXPECT_THAT(run("all"), HasSubstr("3 found: 3 added"));
}

TEST_F(CommandLine, IdTakesHandlesNamesAndPaths) {
    EXPECT_THAT(run("id 2 wall 3/5 3"), HasSubstr("4 found: 3 added, 1 already"));
}

TEST_F(CommandLine, IdSaysWhatIsWrong) {
    EXPECT_THAT(errorOf("id"), HasSubstr("an id is missing"));
    EXPECT_THAT(errorOf("id nobody"), HasSubstr("nothing in the drawing has the id or name 'nobody'"));
    EXPECT_EQ(errorOf("id 5"), "5 rect is not in the drawing itself");
    EXPECT_EQ(errorOf("id 3/2"), "2 line is not in 3 desk");
    EXPECT_EQ(errorOf("id \"\""), "nothing in the drawing has the id or name ''");
    EXPECT_EQ(errorOf("id 3/"), "nothing in the drawing has the id or name ''");
}

TEST_F(CommandLine, IdAddsNothingWhereOneOfSeveralIsWrong) {
    errorOf("id 2 nobody");
    errorOf("id 2 5");
    EXPECT_EQ(itemCount(session.set()), 0u);
}

TEST_F(CommandLine, ListShowsEveryField) {
    run("pick 5 80");
    run("pick 10 5");
    run("window 19 -1 21 11");
    run("fence 19 4 21 4");
    EXPECT_EQ(run("list"), "#  main id  sub id  marker  nested path  fence crossing\n"
                           "0  2 line   -            1  -            -\n"
                           "1  3 desk   5 rect       2  3 > 5        -\n"
                           "2  3 desk   6 line       -  3 > 6        -\n"
                           "3  3 desk   6 line       1  3 > 6        segment 0 at 0.400\n");
}

TEST_F(CommandLine, ListGoesOnWhereItIsTold) {
    run("all");
    EXPECT_THAT(run("list 1 1"), HasSubstr("\n1  3 desk"));
    EXPECT_THAT(run("list 1 1"), HasSubstr("... 1 more: list 2\n"));
    EXPECT_THAT(run("list 2"), testing::Not(HasSubstr("more")));
}

TEST_F(CommandLine, ListStartsAtAnItemAndHasOne) {
    run("all");
    EXPECT_EQ(errorOf("list 3"), "set A has 3 items, counted from 0");
    EXPECT_EQ(errorOf("list 0 0"), "a list has at least one item; usage: list [FIRST [COUNT]]");
}

TEST_F(CommandLine, ListOfAnEmptySetSaysSo) {
    EXPECT_EQ(run("list"), "set A is empty\n");
}

TEST_F(CommandLine, ItemShowsPathAndTransform) {
    run("pick 10 5");
    EXPECT_EQ(run("item 0"), "item 0: main id 3 desk, sub id 5 rect, marker 2, placed by [1 0 0; 0 1 0]\n"
                             "  path 3 desk > 5 rect, fence crossing -\n"
                             "  resolved to entity 3, marker 2; ids that open: 3 > 5\n");
    EXPECT_EQ(errorOf("item 1"), "set A has 1 item, counted from 0");
}

TEST_F(CommandLine, ItemThatIsNotNestedHasNothingToResolve) {
    run("id 2");
    EXPECT_EQ(run("item 0"), "item 0: main id 2 line, sub id -, marker -, placed as drawn\n"
                             "  path -, fence crossing -\n");
}

TEST_F(CommandLine, CountTellsItemsAndMainIds) {
    run("all");
    EXPECT_EQ(run("count"), "set A: 3 items under 2 main ids\n");
}

TEST_F(CommandLine, HasAsksForTheMainId) {
    EXPECT_EQ(run("has 3"), "set A does not have 3 desk\n");
    run("pick 10 5");
    EXPECT_EQ(run("has 3"), "set A has 3 desk\n");
    EXPECT_EQ(run("has 5"), "set A does not have 5 rect\n");
}

TEST_F(CommandLine, ClearEmptiesTheSet) {
    run("all");
    EXPECT_EQ(run("clear"), "set A is empty\n");
    EXPECT_EQ(run("count"), "set A: 0 items under 0 main ids\n");
}

TEST_F(CommandLine, CopyAndUseHandleSeveralSets) {
    run("all");
    EXPECT_EQ(run("copy B"), "set B is a copy of set A: 3 items\n");
    EXPECT_EQ(run("use"), "set  items  shares its data with\nA *      3  B\nB        3  A\n");
    EXPECT_EQ(run("use B"), "set B is the current one: 3 items\n");
    run("clear");
    EXPECT_EQ(run("use"), "set  items  shares its data with\nA        3  -\nB *      0  -\n");
}

TEST_F(CommandLine, NamesOfSetsArePlain) {
    EXPECT_THAT(errorOf("use a+b"), HasSubstr("letters, digits and _"));
    EXPECT_THAT(errorOf("copy \"\""), HasSubstr("letters, digits and _"));
    EXPECT_THAT(errorOf("copy"), HasSubstr("usage: copy [FILTER] SET"));
}

TEST_F(CommandLine, InfoTellsWhatIsThereAndWhatIsNot) {
    EXPECT_EQ(run("info"),
              "test.svg, 100 x 100: 3 entities placed, 1 plain, the others by 1 reference to 1 block\n"
              "not drawn: 1 text (line 1)\n");
}

TEST_F(CommandLine, InfoNamesSomeKindsOfWhatIsNotThere) {
    std::string elements;
    for (int i = 0; i < 15; ++i)
        elements += "<unknown" + std::to_string(i) + "/>";
    session.load(kvtest::sceneOf(elements + "<" + std::string(500, 'x') + "/>"));
    EXPECT_THAT(run("info"), testing::EndsWith("1 unknown11 (line 1), and 4 kinds more\n"));
}

TEST_F(CommandLine, BlocksListsEachBlock) {
    EXPECT_EQ(run("blocks"), "block          own entities  references  entities shown  size\n"
                             "(the drawing)             1           1               3  20 x 80\n"
                             "desk                      2           0               2  20 x 10\n");
}

TEST_F(CommandLine, EchoPrintsItsWords) {
    EXPECT_EQ(run("echo one  two"), "one two\n");
    EXPECT_EQ(run("echo"), "\n");
}

TEST_F(CommandLine, HelpHasALinePerCommandUnderTheTitleOfItsGroup) {
    std::istringstream lines(run("help"));
    std::string line;
    for (const CommandGroup& group : commandGroups()) {
        std::getline(lines, line);
        EXPECT_EQ(line, std::string(group.title) + ":");
        bool hasFilter = false;
        for (const Command& command : group.commands) {
            std::getline(lines, line);
            EXPECT_THAT(line, testing::EndsWith(std::string(" ") + command.help));
            EXPECT_LE(line.size(), 80u) << line;
            hasFilter = hasFilter || line.find("FILTER") != std::string::npos;
        }
        if (hasFilter) {
            std::getline(lines, line);
            EXPECT_EQ(line, "FILTER is type TYPE, block BLOCK or box X1 Y1 X2 Y2, and asks about main ids");
        }
        std::getline(lines, line);
        EXPECT_EQ(line, "");
    }
    EXPECT_FALSE(std::getline(lines, line));
}

TEST_F(CommandLine, HelpExplainsOneCommand) {
    EXPECT_EQ(run("help fence"),
              "fence X1 Y1 X2 Y2 [X Y]...    add the entities that a chain of lines crosses\n");
    EXPECT_EQ(run("help ="), "NAME = SET [+|- SET]          a copy, the union or the difference of sets\n");
    EXPECT_THAT(run("help move"), HasSubstr("\nFILTER is type TYPE"));
    EXPECT_THAT(errorOf("help nobody"), HasSubstr("unknown command 'nobody'"));
}

TEST_F(CommandLine, QuitFinishes) {
    run("count");
    EXPECT_FALSE(isFinished);
    run("quit");
    EXPECT_TRUE(isFinished);
}

TEST_F(CommandLine, ExitIsQuitAndAQuestionMarkIsHelp) {
    EXPECT_EQ(run("? fence"), run("help fence"));
    run("exit");
    EXPECT_TRUE(isFinished);
}

TEST_F(CommandLine, ExpressionsNeedNoBlanks) {
    run("id 2");
    EXPECT_EQ(run("B=A"), "set B has 1 item\n");
    EXPECT_EQ(run("C=A-B"), "set C has 0 items\n");
    EXPECT_EQ(run("D =A+ B"), "set D has 1 item\n");
    EXPECT_THAT(errorOf("B=A*A"), HasSubstr("there is no set A*A"));
    EXPECT_THAT(errorOf("B = A A"), HasSubstr("no expression"));
    EXPECT_THAT(errorOf("="), HasSubstr("no expression"));
}

TEST_F(CommandLine, EchoMayPrintAnExpression) {
    EXPECT_EQ(run("echo = a"), "= a\n");
    EXPECT_EQ(run("echo a=b"), "a=b\n");
}

TEST(CommandsWithoutADrawing, SayOnlyThatThereIsNone) {
    Session session;
    for (const std::string line :
         {"highlight", "show", "edges", "edge 1 2", "move block b B", "remove-id 2"}) {
        std::ostringstream out;
        Console console{session, out, 100};
        EXPECT_THROW(runCommand(console, wordsOf(line)), CommandError) << line;
        EXPECT_EQ(out.str(), "") << line;
    }
}

TEST_F(CommandLine, ErrorsNameTheWordAndTheUsage) {
    EXPECT_EQ(errorOf("jump"), "unknown command 'jump'; help lists them");
    EXPECT_EQ(errorOf("pick 1 b"), "'b' is not a number; usage: pick X Y [APERTURE]");
    EXPECT_THAT(errorOf("pick 1"), HasSubstr("a number is missing"));
    EXPECT_THAT(errorOf("pick 1 2 3 4"), HasSubstr("too many numbers"));
    EXPECT_THAT(errorOf("pick 1 nan"), HasSubstr("'nan' is not a number"));
    EXPECT_THAT(errorOf("pick 1 2 -3"), HasSubstr("cannot be negative"));
    EXPECT_THAT(errorOf("fence 1 2 3 4 5"), HasSubstr("the last point has no Y"));
    EXPECT_THAT(errorOf("list -1"), HasSubstr("'-1' is not a position"));
    EXPECT_THAT(errorOf("list 0.5"), HasSubstr("'0.5' is not a position"));
    EXPECT_THAT(errorOf("item 1e18"), HasSubstr("is not a position"));
    EXPECT_THAT(errorOf("all of it"), HasSubstr("'of' is too much"));
    EXPECT_EQ(itemCount(session.set()), 0u);
}

TEST_F(CommandLine, NoWordsDoNothing) {
    EXPECT_EQ(run(""), "");
    EXPECT_EQ(run("# pick 5 80"), "");
}
