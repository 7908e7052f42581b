// Picks with mouse and keys: the set, what the entities highlight, and the pixels on the screen.
#include "tests/examples/picker/window/WindowTest.h"

#include <QItemSelectionModel>

#include <algorithm>
#include <random>

using namespace picker;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

constexpr Qt::KeyboardModifiers kShift = Qt::ShiftModifier;
constexpr Qt::KeyboardModifiers kControl = Qt::ControlModifier;

// Three bars above each other, at y = 20, 40 and 60, and a block with a bar at y = 80.
class MainWindowTest : public kvtest::WindowTest {
protected:
    MainWindowTest()
        : WindowTest("<line id='a' x1='20' y1='20' x2='80' y2='20'/>"
                     "<line id='b' x1='20' y1='40' x2='80' y2='40'/>"
                     "<polyline id='c' points='20,60 50,60 80,60'/>"
                     "<defs><g id='block'><line id='d' x1='20' y1='0' x2='80' y2='0'/></g></defs>"
                     "<use id='r' href='#block' y='80'/>") {}

    // Expects that the items of the set are told to their entities, once each, and seen on the screen.
    void expectShown() {
        const std::vector<std::string> items = set();
        EXPECT_EQ(highlighted(), std::multiset<std::string>(items.begin(), items.end()));
        EXPECT_EQ(window.highlights().size(), items.size());
        expectHighlightsOnScreen();
    }

    // Shortcuts reach the window that has the keyboard's focus.
    void pressUndo() {
        window.activateWindow();
        EXPECT_TRUE(QTest::qWaitForWindowActive(&window));
        QTest::keyClick(window.windowHandle(), Qt::Key_Z, kControl);
        settle();
    }

    std::vector<int> chosenRows() {
        std::vector<int> rows;
        for (const QModelIndex& index : window.table().selectionModel()->selectedRows())
            rows.push_back(index.row());
        return rows;
    }
};

} // namespace

TEST_F(MainWindowTest, ClickPicksWhatIsUnderTheMouse) {
    click({30, 40});
    EXPECT_THAT(set(), ElementsAre("b"));
    expectShown();
    click({30, 20});
    EXPECT_THAT(set(), ElementsAre("b", "a"));
    expectShown();
}

TEST_F(MainWindowTest, ClickReachesAsFarAsTheAperture) {
    const double pixel = 1 / window.canvas().camera().scale();
    click({30, 40 + 8 * pixel});
    EXPECT_THAT(set(), IsEmpty());
    click({30, 40 + 5 * pixel});
    EXPECT_THAT(set(), ElementsAre("b"));
}

TEST_F(MainWindowTest, ClickOnTheGroundChangesNothing) {
    click({30, 40});
    click({30, 50});
    EXPECT_THAT(set(), ElementsAre("b"));
    expectShown();
}

TEST_F(MainWindowTest, ClickFindsWhatIsInABlock) {
    click({30, 80});
    EXPECT_THAT(set(), ElementsAre("r/d"));
    expectShown();
}

TEST_F(MainWindowTest, ClickAddsTheSegmentAsMarker) {
    click({70, 60});
    EXPECT_EQ(window.workbench().session().set().begin().gsMarker(), 2);
}

TEST_F(MainWindowTest, ClickPicksWhatTabHasLedTo) {
    load("<line id='below' x1='20' y1='20' x2='80' y2='20'/><line id='above' x1='20' y1='20' x2='80' "
         "y2='20'/>");
    moveTo({30, 20});
    key(Qt::Key_Tab);
    press({30, 20});
    release({30, 20});
    EXPECT_THAT(set(), ElementsAre("below"));
    click({40, 20});
    EXPECT_THAT(set(), ElementsAre("below", "above"));
}

TEST_F(MainWindowTest, DraggingToTheRightPicksWhatIsWhollyInside) {
    drag({10, 10}, {90, 50});
    EXPECT_THAT(set(), ElementsAre("a", "b"));
    expectShown();
    drag({10, 50}, {60, 70});
    EXPECT_THAT(set(), ElementsAre("a", "b"));
}

TEST_F(MainWindowTest, DraggingToTheLeftPicksWhatIsTouched) {
    drag({60, 70}, {40, 30});
    EXPECT_THAT(set(), ElementsAre("b", "c"));
    expectShown();
}

TEST_F(MainWindowTest, BoxesOfTheTwoKindsLookDifferent) {
    moveTo({10, 10});
    press({10, 10});
    moveTo({60, 30});
    const QImage window1 = screenshot();
    key(Qt::Key_Escape);
    release({60, 30});
    moveTo({60, 10});
    press({60, 10});
    moveTo({10, 30});
    const QImage crossing = screenshot();
    key(Qt::Key_Escape);
    release({10, 30});
    const auto count = [](const QImage& image, const QColor& colour) {
        int pixels = 0;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x)
                pixels += kvtest::isLike(image.pixel(x, y), colour) ? 1 : 0;
        }
        return pixels;
    };
    EXPECT_GT(count(window1, colours::kWindow), 100);
    EXPECT_EQ(count(window1, colours::kCrossing), 0);
    EXPECT_GT(count(crossing, colours::kCrossing), 50);
    EXPECT_LT(count(crossing, colours::kCrossing), count(window1, colours::kWindow)) << "a dashed border";
    EXPECT_EQ(count(crossing, colours::kWindow), 0);
    EXPECT_THAT(set(), IsEmpty());
}

TEST_F(MainWindowTest, FencePicksWhatItCrosses) {
    fence({{30, 10}, {30, 45}, {60, 50}, {60, 90}});
    EXPECT_THAT(set(), ElementsAre("a", "b", "c", "r/d"));
    SelFenceIntersectInfo crossing{};
    const GxapSelectSet::ConstIterator c = window.workbench().session().set().iteratorAt(2);
    ASSERT_TRUE(c.selectedEntityInfo()->getSelFenceResultInfo(crossing));
    EXPECT_EQ(crossing.index, 1);
    EXPECT_NEAR(crossing.param, 1. / 3, 0.02);
    expectShown();
}

TEST_F(MainWindowTest, RightClickEndsAFence) {
    key(Qt::Key_F);
    click({30, 10});
    click({30, 30});
    press({35, 35}, Qt::RightButton);
    release({35, 35}, Qt::RightButton);
    EXPECT_THAT(set(), ElementsAre("a"));
}

TEST_F(MainWindowTest, EscGivesUpAFence) {
    key(Qt::Key_F);
    click({30, 10});
    click({30, 30});
    key(Qt::Key_Escape);
    EXPECT_THAT(set(), IsEmpty());
    click({30, 20});
    EXPECT_THAT(set(), ElementsAre("a")) << "clicks pick again";
}

TEST_F(MainWindowTest, ShiftTakesOut) {
    ASSERT_TRUE(window.run("all"));
    click({30, 40}, kShift);
    EXPECT_THAT(set(), ElementsAre("a", "c", "r/d"));
    expectShown();
    drag({10, 10}, {90, 30}, kShift);
    EXPECT_THAT(set(), ElementsAre("c", "r/d"));
    drag({60, 70}, {40, 50}, kShift);
    EXPECT_THAT(set(), ElementsAre("r/d"));
    expectShown();
    fence({{30, 70}, {30, 90}}, kShift);
    EXPECT_THAT(set(), IsEmpty());
    expectShown();
}

TEST_F(MainWindowTest, ControlToggles) {
    click({30, 40}, kControl);
    EXPECT_THAT(set(), ElementsAre("b"));
    click({70, 40}, kControl);
    EXPECT_THAT(set(), IsEmpty());
    expectShown();
    click({30, 60});
    drag({10, 30}, {90, 90}, kControl);
    EXPECT_THAT(set(), ElementsAre("b", "r/d"));
    expectShown();
    drag({60, 70}, {40, 30}, kControl);
    EXPECT_THAT(set(), ElementsAre("r/d", "c"));
    fence({{30, 50}, {30, 90}}, kControl);
    EXPECT_THAT(set(), IsEmpty());
    expectShown();
}

TEST_F(MainWindowTest, EscClearsTheSet) {
    ASSERT_TRUE(window.run("all"));
    key(Qt::Key_Escape);
    EXPECT_THAT(set(), IsEmpty());
    expectShown();
}

TEST_F(MainWindowTest, EscGivesUpABoxAndKeepsTheSet) {
    click({30, 40});
    moveTo({10, 10});
    press({10, 10});
    moveTo({90, 90});
    key(Qt::Key_Escape);
    release({90, 90});
    EXPECT_THAT(set(), ElementsAre("b"));
}

// ---- the table

TEST_F(MainWindowTest, TableHasTheItemsInTheOrderOfThePicks) {
    click({30, 60});
    click({30, 20});
    click({30, 80});
    const QAbstractItemModel& rows = *window.table().model();
    ASSERT_EQ(rows.rowCount(), 3);
    EXPECT_EQ(rows.index(0, 1).data().toString().toStdString(), drawing().label(database().findByName("c")));
    EXPECT_EQ(rows.index(1, 1).data().toString().toStdString(), drawing().label(database().findByName("a")));
    EXPECT_EQ(rows.index(2, 2).data().toString().toStdString(), drawing().label(database().findByName("d")));
}

TEST_F(MainWindowTest, ChoosingARowMarksTheEntityInTheDrawing) {
    ASSERT_TRUE(window.run("all"));
    moveTo({5, 5});
    QTest::mouseClick(window.table().viewport(), Qt::LeftButton, {},
                      window.table().visualRect(window.table().model()->index(1, 1)).center());
    EXPECT_TRUE(shows({30, 40}, colours::kMarked));
    EXPECT_FALSE(shows({30, 20}, colours::kMarked));
}

TEST_F(MainWindowTest, ClickOnAnEntityChoosesItsRow) {
    ASSERT_TRUE(window.run("all"));
    click({30, 60});
    EXPECT_THAT(chosenRows(), ElementsAre(2));
    click({30, 80});
    EXPECT_THAT(chosenRows(), ElementsAre(3));
}

TEST_F(MainWindowTest, DoubleClickOnARowShowsTheEntityLarge) {
    ASSERT_TRUE(window.run("all"));
    const double scale = window.canvas().camera().scale();
    Q_EMIT window.table().doubleClicked(window.table().model()->index(0, 0));
    settle();
    EXPECT_NE(window.canvas().camera().scale(), scale);
    const QPointF middle = window.canvas().camera().toPixels(Point{50, 20});
    EXPECT_LT((middle - QRectF(window.canvas().rect()).center()).manhattanLength(), 2);
}

// ---- undo

TEST_F(MainWindowTest, UndoAndRedoGoThroughTheEdits) {
    click({30, 40});
    drag({60, 30}, {40, 10});
    click({30, 40}, kControl);
    ASSERT_THAT(set(), ElementsAre("a"));
    pressUndo();
    EXPECT_THAT(set(), ElementsAre("b", "a"));
    expectShown();
    pressUndo();
    EXPECT_THAT(set(), ElementsAre("b"));
    expectShown();
    pressUndo();
    EXPECT_THAT(set(), IsEmpty());
    expectShown();
    ASSERT_TRUE(window.run("redo"));
    ASSERT_TRUE(window.run("redo"));
    EXPECT_THAT(set(), ElementsAre("b", "a"));
    expectShown();
}

TEST_F(MainWindowTest, WhatIsToggledAtOnceIsUndoneAtOnce) {
    click({30, 40});
    drag({10, 10}, {90, 90}, kControl);
    ASSERT_THAT(set(), ElementsAre("a", "c", "r/d"));
    ASSERT_TRUE(window.run("undo"));
    EXPECT_THAT(set(), ElementsAre("b"));
    expectShown();
}

// ---- anything

// The items that a sequence of random picks leaves, by the rules of picks alone.
TEST_F(MainWindowTest, RandomPicksLeaveWhatTheRulesSay) {
    std::mt19937 random(20260611);
    const auto number = [&](int from, int to) {
        return std::uniform_int_distribution<int>(from, to)(random);
    };
    std::string elements;
    for (int i = 0; i < 25; ++i) {
        const int x = number(5, 85);
        const int y = number(5, 85);
        elements += "<line x1='" + std::to_string(x) + "' y1='" + std::to_string(y) + "' x2='" +
                    std::to_string(x + number(1, 10)) + "' y2='" + std::to_string(y + number(1, 10)) + "'/>";
    }
    load("<g id='g'>" + elements + "</g><use href='#g' transform='translate(100,0) scale(-1,1)'/>");
    std::vector<std::string> expected;
    for (int i = 0; i < 60; ++i) {
        const Point from{double(number(2, 98)), double(number(2, 98))};
        const Point to{double(number(2, 98)), double(number(2, 98))};
        if (std::abs(from.x - to.x) < 2)
            continue;
        // The mouse stands on whole pixels.
        const Camera& camera = window.canvas().camera();
        const Box box = Box::between(camera.roundedToDrawing(camera.toPixels(from).toPoint()),
                                     camera.roundedToDrawing(camera.toPixels(to).toPoint()));
        std::vector<std::string> found;
        const auto note = [&](const Pick& pick) { found.push_back(textOf(pick.path)); };
        if (to.x >= from.x)
            Picker(drawing()).window(box, note);
        else
            Picker(drawing()).crossing(box, note);
        const int change = number(0, 3);
        const std::vector<std::string> before = expected;
        for (const std::string& path : found) {
            const bool isHeld = std::count(before.begin(), before.end(), path) > 0;
            if (isHeld && change >= 2)
                expected.erase(std::find(expected.begin(), expected.end(), path));
            if (!isHeld && change != 2)
                expected.push_back(path);
        }
        drag(from, to, change == 2 ? kShift : change == 3 ? kControl : Qt::KeyboardModifiers());
        ASSERT_EQ(set(), expected) << "pick " << i;
    }
    expectShown();
}
