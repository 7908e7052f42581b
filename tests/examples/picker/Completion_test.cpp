#include "examples/picker/Completion.h"

#include "tests/examples/picker/CommandTest.h"
#include "tests/examples/picker/Pictures.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

using namespace picker;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

namespace {

class Completing : public kvtest::CommandTest {
protected:
    // The handles:
    //   1 drawing: 2 line "wall", 3 reference to block desk
    //   4 block desk: 5 rect, 6 line "leg"
    Completing()
        : CommandTest("<symbol id='desk'><rect width='10' height='10'/><line id='leg' x2='9'/></symbol>"
                      "<line id='wall' x2='10'/><use href='#desk'/>") {}

    std::vector<std::string> words(const std::string& line) const {
        return completionOf(session, line).words;
    }

    const kvtest::WorkingDirectory directory{"picker_completion"};
};

} // namespace

TEST_F(Completing, FirstWordsAreCommands) {
    EXPECT_THAT(words("hi"), ElementsAre("highlight", "highlight-edge"));
    EXPECT_THAT(words(""), Contains("pick"));
    EXPECT_THAT(words("help rec"), ElementsAre("recall"));
}

TEST_F(Completing, TellsWhereTheWordBegins) {
    EXPECT_EQ(completionOf(session, "  hi").begin, 2u);
    EXPECT_EQ(completionOf(session, "help rec").begin, 5u);
    EXPECT_EQ(completionOf(session, "help ").begin, 5u);
    EXPECT_EQ(completionOf(session, "load \"a b").begin, 5u);
}

TEST_F(Completing, FilesMayHaveBlanks) {
    std::ofstream("my plan.svg") << "";
    std::ofstream("my.svg") << "";
    EXPECT_THAT(words("load m"), ElementsAre("\"my plan.svg\"", "my.svg"));
    EXPECT_THAT(words("load \"my "), ElementsAre("\"my plan.svg\""));
    EXPECT_THAT(words("show \"my.s"), ElementsAre("\"my.svg\""));
}

TEST_F(Completing, DirectoriesGoOn) {
    std::filesystem::create_directories("my plans/old");
    std::ofstream("my plans/a.svg") << "";
    EXPECT_THAT(words("load my"), ElementsAre("\"my plans/"));
    EXPECT_THAT(words("load \"my plans/"), ElementsAre("\"my plans/a.svg\"", "\"my plans/old/"));
    EXPECT_THAT(words("load no/such/"), ElementsAre());
}

TEST_F(Completing, HiddenFilesAreCompletedWhereTheyAreMeant) {
    std::ofstream(".hidden.svg") << "";
    EXPECT_THAT(words("load "), Not(Contains(".hidden.svg")));
    EXPECT_THAT(words("load ."), Contains(".hidden.svg"));
}

TEST_F(Completing, WorkingSetsAreMeantByUseAndExpressions) {
    run("use Chairs");
    run("save Saved");
    EXPECT_THAT(words("use "), ElementsAre("A", "Chairs"));
    EXPECT_THAT(words("contains C"), ElementsAre("Chairs"));
    EXPECT_THAT(words("B = A + C"), ElementsAre("Chairs"));
}

TEST_F(Completing, SavedSetsAreMeantByRecallAndLoad) {
    run("save desks");
    EXPECT_THAT(words("recall "), ElementsAre("desks"));
    EXPECT_THAT(words("drop d"), ElementsAre("desks"));
    EXPECT_THAT(words("load de"), ElementsAre("desks"));
}

TEST_F(Completing, IdsAreNamesOrHandles) {
    EXPECT_THAT(words("id "), ElementsAre("3", "wall"));
    EXPECT_THAT(words("remove-id wall 3/"), ElementsAre("3/5", "3/leg"));
    EXPECT_THAT(words("has w"), ElementsAre("wall"));
    EXPECT_THAT(words("id wall/"), ElementsAre());
}

TEST_F(Completing, FiltersAreFollowedByWhatTheyTakeAndASet) {
    EXPECT_THAT(words("move "), ElementsAre("A", "block", "box", "type"));
    EXPECT_THAT(words("move type p"), ElementsAre("path", "polygon", "polyline"));
    EXPECT_THAT(words("copy block "), ElementsAre("desk"));
    EXPECT_THAT(words("copy block desk "), ElementsAre("A"));
}

TEST_F(Completing, WordsOfUniqueAreOnAndOff) {
    EXPECT_THAT(words("unique o"), ElementsAre("off", "on"));
}

TEST_F(Completing, NothingIsOfferedWhereANumberIsMeant) {
    EXPECT_THAT(words("pick "), ElementsAre());
    EXPECT_THAT(words("list "), ElementsAre());
    EXPECT_THAT(words("jump "), ElementsAre());
    EXPECT_THAT(words("clear "), ElementsAre());
}

TEST(CompletionWithoutADrawing, OffersNoIds) {
    const Session session;
    EXPECT_TRUE(completionOf(session, "id ").words.empty());
    EXPECT_TRUE(completionOf(session, "copy block ").words.empty());
}
