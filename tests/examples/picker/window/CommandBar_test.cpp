#include "tests/examples/picker/window/WindowTest.h"

#include <QPlainTextEdit>

using namespace picker;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

class CommandBarTest : public kvtest::WindowTest {
protected:
    CommandBarTest()
        : WindowTest("<line id='a' x1='20' y1='20' x2='80' y2='20'/>"
                     "<line id='b' x1='20' y1='40' x2='80' y2='40'/>") {}

    QLineEdit& field() { return window.commands().field(); }
    std::string said() { return window.findChild<QPlainTextEdit*>("said")->toPlainText().toStdString(); }
    void press(Qt::Key key) { QTest::keyClick(&field(), key); }
};

} // namespace

TEST_F(CommandBarTest, RunsWhatIsTyped) {
    type("window 10 10 90 30");
    EXPECT_THAT(set(), ElementsAre("a"));
    EXPECT_EQ(highlighted(), std::multiset<std::string>{"a"});
    expectHighlightsOnScreen();
    EXPECT_THAT(said(), HasSubstr("picker> window 10 10 90 30\n1 found"));
    EXPECT_EQ(field().text(), "");
}

TEST_F(CommandBarTest, SaysWhyACommandFails) {
    type("pick nowhere");
    EXPECT_THAT(said(), HasSubstr("'nowhere' is not a number"));
}

TEST_F(CommandBarTest, ShowsThePicksOfTheMouseAsCommands) {
    drag({10, 10}, {90, 30});
    EXPECT_THAT(said(), HasSubstr("picker> window "));
    const std::vector<std::string> first = set();
    type("clear");
    press(Qt::Key_Up);
    press(Qt::Key_Up);
    EXPECT_THAT(field().text().toStdString(), HasSubstr("window "));
    press(Qt::Key_Return);
    settle();
    EXPECT_EQ(set(), first);
}

TEST_F(CommandBarTest, CallsEarlierLinesBack) {
    type("count");
    type("list");
    press(Qt::Key_Up);
    EXPECT_EQ(field().text(), "list");
    press(Qt::Key_Up);
    EXPECT_EQ(field().text(), "count");
    press(Qt::Key_Down);
    EXPECT_EQ(field().text(), "list");
    press(Qt::Key_Down);
    EXPECT_EQ(field().text(), "");
}

TEST_F(CommandBarTest, CompletesTheOnlyWordThatFits) {
    QTest::keyClicks(&field(), "contai");
    press(Qt::Key_Tab);
    EXPECT_EQ(field().text(), "contains ");
}

TEST_F(CommandBarTest, CompletesAsFarAsItIsCertainAndListsTheRest) {
    QTest::keyClicks(&field(), "highl");
    press(Qt::Key_Tab);
    EXPECT_EQ(field().text(), "highlight");
    press(Qt::Key_Tab);
    EXPECT_EQ(field().text(), "highlight");
    EXPECT_THAT(said(), HasSubstr("highlight-edge"));
}

TEST_F(CommandBarTest, CompletesTheNamesOfSets) {
    type("copy walls");
    QTest::keyClicks(&field(), "use wa");
    press(Qt::Key_Tab);
    EXPECT_EQ(field().text(), "use walls ");
}

TEST_F(CommandBarTest, QuitClosesTheWindow) {
    type("quit");
    EXPECT_FALSE(window.isVisible());
}
