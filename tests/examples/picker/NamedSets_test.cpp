#include "examples/picker/Commands.h"

#include "tests/examples/picker/CommandTest.h"
#include "tests/examples/picker/Svg.h"

#include <gmock/gmock.h>

#include <memory>

using namespace picker;
using kvtest::sceneOf;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

class NamedSets : public kvtest::CommandTest {
protected:
    NamedSets() : CommandTest("<line x2='10'/><line y1='20' y2='20' x2='10'/>") {}

    static const GxapSelectSetList& list() { return *GxapSelectSetListManager::getInstance()->list; }
};

} // namespace

TEST_F(NamedSets, SavingHandsTheSetToTheListAndTellsItsWords) {
    run("all");
    EXPECT_THAT(run("save both"), MatchesRegex("saved as both, known as 0x[0-9a-f]+ [0-9]+: 2 items\n"));
    ASSERT_EQ(list().sets.size(), 1u);
    const SetWords& words = session.savedSets().at("both");
    EXPECT_EQ(words[0], reinterpret_cast<long>(list().sets.front()));
    EXPECT_EQ(list().sets.front()->sharedData, session.set().sharedData);
}

TEST_F(NamedSets, AreListedWithTheirWordsAndItems) {
    EXPECT_EQ(run("sets"), "no set was saved\n");
    run("all");
    run("save both");
    EXPECT_THAT(run("sets"),
                MatchesRegex("saved as  items  known as\nboth          2  0x[0-9a-f]+ [0-9]+\n"));
}

TEST_F(NamedSets, RecallFindsTheSetByItsWords) {
    run("all");
    run("save both");
    run("clear");
    EXPECT_EQ(run("recall both"), "set A is what was saved as both: 2 items\n");
    EXPECT_EQ(itemCount(session.set()), 2u);
    EXPECT_EQ(errorOf("recall none"), "no set was saved as none");
}

TEST_F(NamedSets, LoadTakesASavedNameBeforeAFile) {
    run("all");
    run("save both");
    run("clear");
    EXPECT_EQ(run("load both"), "set A is what was saved as both: 2 items\n");
    EXPECT_EQ(itemCount(session.set()), 2u);
    EXPECT_THROW(run("load neither"), DrawingError);
    EXPECT_EQ(itemCount(session.set()), 2u);
}

TEST_F(NamedSets, HaveAName) {
    EXPECT_THAT(errorOf("save \"\""), StartsWith("a name is missing"));
    EXPECT_THAT(errorOf("save a b"), StartsWith("'b' is too much"));
    EXPECT_TRUE(list().sets.empty());
}

TEST_F(NamedSets, StayAsTheyWereSaved) {
    run("id 2");
    run("save one");
    run("all");
    run("recall one");
    EXPECT_EQ(itemCount(session.set()), 1u);
}

TEST_F(NamedSets, SavingAgainReplaces) {
    run("id 2");
    run("save it");
    run("all");
    run("save it");
    EXPECT_EQ(list().sets.size(), 1u);
    EXPECT_EQ(itemCount(session.saved("it")), 2u);
}

TEST_F(NamedSets, DropDeletes) {
    run("all");
    run("save both");
    EXPECT_EQ(run("drop both"), "both is dropped\n");
    EXPECT_TRUE(list().sets.empty());
    EXPECT_EQ(errorOf("drop both"), "no set was saved as both");
}

TEST_F(NamedSets, GoWithTheDrawing) {
    run("all");
    run("save both");
    session.load(sceneOf("<line x2='1'/>"));
    EXPECT_EQ(run("sets"), "no set was saved\n");
    EXPECT_EQ(GxapSelectSetListManager::s_smartPtrSSList, nullptr);
}

TEST(NamedSetsOfASession, GoWithTheSession) {
    auto session = std::make_unique<Session>();
    session->load(sceneOf("<line x2='10'/>"));
    session->save("none");
    ASSERT_NE(GxapSelectSetListManager::s_smartPtrSSList, nullptr);
    session.reset();
    EXPECT_EQ(GxapSelectSetListManager::s_smartPtrSSList, nullptr);
}
