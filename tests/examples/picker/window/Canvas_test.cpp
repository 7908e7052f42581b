// What the window shows, and how the view moves.
#include "tests/examples/picker/window/WindowTest.h"

#include <QLabel>

using namespace picker;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

// Two lines cross at (50, 50). A block in a block shows a third one, from (10, 80) to (30, 80).
class CanvasTest : public kvtest::WindowTest {
protected:
    CanvasTest()
        : WindowTest("<line id='flat' x1='10' y1='50' x2='90' y2='50'/>"
                     "<line id='steep' x1='50' y1='10' x2='50' y2='90'/>"
                     "<defs><line id='bar' x1='0' y1='0' x2='20' y2='0'/>"
                     "<g id='inner'><use id='barInInner' href='#bar'/></g>"
                     "<g id='outer'><use id='innerInOuter' href='#inner' x='5'/></g></defs>"
                     "<use id='placed' href='#outer' x='5' y='80'/>") {}

    QString hoverText() { return window.findChild<QLabel*>("hover")->text(); }
    void wheel(Point p, int notches) {
        const QPoint pixel = window.canvas().camera().toPixels(p).toPoint();
        QWheelEvent event(pixel, window.canvas().mapToGlobal(pixel), {}, {0, 120 * notches}, Qt::NoButton,
                          Qt::NoModifier, Qt::NoScrollPhase, false);
        QCoreApplication::sendEvent(&window.canvas(), &event);
        settle();
    }
};

} // namespace

TEST_F(CanvasTest, ShowsTheLinesOfTheDrawing) {
    EXPECT_TRUE(showsLine({30, 50}));
    EXPECT_TRUE(showsLine({50, 20}));
    EXPECT_TRUE(showsLine({20, 80})) << "in blocks";
    EXPECT_FALSE(showsLine({30, 60}));
    EXPECT_TRUE(shows({30, 60}, colours::kGround));
}

TEST_F(CanvasTest, HighlightsInAdvanceWhatIsUnderTheMouse) {
    moveTo({30, 50});
    EXPECT_TRUE(shows({70, 50}, colours::kPreHighlight));
    EXPECT_FALSE(shows({50, 20}, colours::kPreHighlight));
    EXPECT_THAT(set(), IsEmpty());
    moveTo({30, 65});
    EXPECT_FALSE(shows({70, 50}, colours::kPreHighlight));
}

TEST_F(CanvasTest, SaysThePathOfBlocksUnderTheMouse) {
    moveTo({20, 80});
    EXPECT_THAT(hoverText().toStdString(), HasSubstr("outer > "));
    EXPECT_THAT(hoverText().toStdString(), HasSubstr("inner > "));
    EXPECT_THAT(hoverText().toStdString(), HasSubstr(" line, segment 1"));
    moveTo({30, 65});
    EXPECT_EQ(hoverText(), "");
}

TEST_F(CanvasTest, GoesThroughWhatLiesOnTopOfEachOther) {
    moveTo({50, 50});
    ASSERT_TRUE(window.canvas().candidate());
    const std::vector<GxDbObjectId> first = window.canvas().candidate()->path;
    key(Qt::Key_Tab);
    const std::vector<GxDbObjectId> second = window.canvas().candidate()->path;
    EXPECT_NE(first, second);
    EXPECT_THAT(hoverText().toStdString(), HasSubstr("2 of 2"));
    EXPECT_TRUE(shows({textOf(second) == "flat" ? 30.0 : 50.0, textOf(second) == "flat" ? 50.0 : 20.0},
                      colours::kPreHighlight));
    key(Qt::Key_Tab);
    EXPECT_EQ(window.canvas().candidate()->path, first);
    key(Qt::Key_Backtab, Qt::ShiftModifier);
    EXPECT_EQ(window.canvas().candidate()->path, second);
}

TEST_F(CanvasTest, ZoomsAroundTheMouse) {
    const Point mouse{70, 50};
    const QPointF before = window.canvas().camera().toPixels(mouse);
    const double scale = window.canvas().camera().scale();
    wheel(mouse, 3);
    EXPECT_GT(window.canvas().camera().scale(), 1.5 * scale);
    EXPECT_LT((window.canvas().camera().toPixels(mouse) - before).manhattanLength(), 2);
    EXPECT_TRUE(showsLine({60, 50}));
    wheel(mouse, -3);
    EXPECT_NEAR(window.canvas().camera().scale(), scale, 1e-9);
}

TEST_F(CanvasTest, PansWithTheMiddleButton) {
    const QPointF before = window.canvas().camera().toPixels(Point{50, 50});
    moveTo({50, 50});
    press({50, 50}, Qt::MiddleButton);
    const QPoint target = pixelInWindow({50, 50}) + QPoint(40, -25);
    QTest::mouseMove(window.windowHandle(), target);
    QTest::mouseRelease(window.windowHandle(), Qt::MiddleButton, {}, target);
    settle();
    EXPECT_EQ(window.canvas().camera().toPixels(Point{50, 50}), before + QPointF(40, -25));
    EXPECT_TRUE(showsLine({30, 50}));
    EXPECT_THAT(set(), IsEmpty());
}

TEST_F(CanvasTest, ShowsEverythingAfterADoubleClickOfTheMiddleButton) {
    const Camera all = window.canvas().camera();
    wheel({90, 90}, 12);
    ASSERT_NE(window.canvas().camera(), all);
    QTest::mouseDClick(window.windowHandle(), Qt::MiddleButton, {},
                       window.canvas().mapTo(&window, QPoint(20, 20)));
    settle();
    EXPECT_EQ(window.canvas().camera(), all);
}

TEST_F(CanvasTest, PaintsHighlightsInEveryView) {
    ASSERT_TRUE(window.run("id flat"));
    moveTo({30, 65});
    EXPECT_TRUE(shows({70, 50}, colours::kHighlight));
    wheel({70, 50}, 5);
    moveTo({66, 56});
    EXPECT_TRUE(shows({70, 50}, colours::kHighlight));
    expectHighlightsOnScreen();
}

TEST_F(CanvasTest, ShowsTheDrawingInANewSize) {
    ASSERT_TRUE(window.run("id flat"));
    window.resize(1100, 900);
    settle();
    moveTo({30, 65});
    EXPECT_TRUE(showsLine({50, 20}));
    expectHighlightsOnScreen();
}

TEST_F(CanvasTest, ShowsAnotherDrawing) {
    ASSERT_TRUE(window.run("all"));
    load("<line id='new' x1='10' y1='20' x2='90' y2='20'/>");
    EXPECT_THAT(highlighted(), IsEmpty());
    EXPECT_EQ(window.highlights().size(), 0u);
    EXPECT_TRUE(showsLine({70, 20}));
    EXPECT_FALSE(shows({70, 50}, colours::kHighlight));
    click({70, 20});
    EXPECT_THAT(set(), testing::ElementsAre("new"));
    expectHighlightsOnScreen();
}
