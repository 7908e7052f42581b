#include "examples/picker/window/SetsPanel.h"

#include "tests/examples/picker/window/WindowTest.h"

#include <QListWidget>
#include <QPushButton>

using namespace picker;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Set A has a and b, set B has b and c. A is current, and B is chosen in the list.
class SetsPanelTest : public kvtest::WindowTest {
protected:
    SetsPanelTest()
        : WindowTest("<line id='a' x1='20' y1='20' x2='80' y2='20'/>"
                     "<line id='b' x1='20' y1='40' x2='80' y2='40'/>"
                     "<line id='c' x1='20' y1='60' x2='80' y2='60'/>") {
        window.run("id a b");
        window.run("use B");
        window.run("id b c");
        window.run("use A");
        choose("B");
    }

    QListWidget& list() { return *window.findChild<QListWidget*>("sets"); }
    void choose(const QString& name) {
        for (int row = 0; row < list().count(); ++row) {
            if (list().item(row)->data(Qt::UserRole).toString() == name)
                list().setCurrentRow(row);
        }
    }
    void push(const QString& button) {
        QTest::mouseClick(window.findChild<QPushButton*>(button), Qt::LeftButton);
        settle();
    }
    void name(const QString& text) { window.findChild<QLineEdit*>("setName")->setText(text); }
    std::vector<std::string> rows() {
        std::vector<std::string> texts;
        for (int row = 0; row < list().count(); ++row)
            texts.push_back(list().item(row)->text().toStdString());
        return texts;
    }
    void expectHighlighted(const std::multiset<std::string>& names) {
        EXPECT_EQ(highlighted(), names);
        expectHighlightsOnScreen();
    }
};

} // namespace

TEST_F(SetsPanelTest, ListsTheSets) {
    EXPECT_THAT(rows(), ElementsAre("A: 2 items, current", "B: 2 items"));
}

TEST_F(SetsPanelTest, OnlyTheCurrentSetIsHighlighted) {
    expectHighlighted({"a", "b"});
    push("useSet");
    EXPECT_THAT(rows(), ElementsAre("A: 2 items", "B: 2 items, current"));
    expectHighlighted({"b", "c"});
}

TEST_F(SetsPanelTest, MakesUnions) {
    push("unite");
    EXPECT_THAT(set(), ElementsAre("a", "b", "c"));
    expectHighlighted({"a", "b", "c"});
}

TEST_F(SetsPanelTest, MakesIntersections) {
    push("intersect");
    EXPECT_THAT(set(), ElementsAre("b"));
    expectHighlighted({"b"});
    EXPECT_THAT(rows(), ElementsAre("A: 1 item, current", "B: 2 items"));
}

TEST_F(SetsPanelTest, MakesDifferences) {
    push("subtract");
    EXPECT_THAT(set(), ElementsAre("a"));
    expectHighlighted({"a"});
}

TEST_F(SetsPanelTest, UndoTakesAnIntersectionBack) {
    push("intersect");
    ASSERT_TRUE(window.run("undo"));
    EXPECT_THAT(set(), ElementsAre("a", "b"));
    expectHighlighted({"a", "b"});
}

TEST_F(SetsPanelTest, CopiesTheCurrentSet) {
    name("C");
    push("copySet");
    EXPECT_THAT(rows(), ElementsAre("A: 2 items, current", "B: 2 items", "C: 2 items"));
}

TEST_F(SetsPanelTest, BeginsANewSet) {
    name("C");
    push("useSet");
    EXPECT_THAT(set(), IsEmpty());
    expectHighlighted({});
}

TEST_F(SetsPanelTest, KeepsSavedSetsDark) {
    ASSERT_TRUE(window.run("save kept"));
    ASSERT_TRUE(window.run("clear"));
    expectHighlighted({});
    ASSERT_TRUE(window.run("recall kept"));
    EXPECT_THAT(set(), ElementsAre("a", "b"));
    expectHighlighted({"a", "b"});
}
