// Work that takes long: it is shown, and ends when the user wants it to.
#include "tests/examples/picker/window/WindowTest.h"

#include <QPushButton>
#include <QTimer>

#include <chrono>
#include <thread>

using namespace picker;
using testing::ElementsAre;

namespace {

using Clock = std::chrono::steady_clock;

// Blocks of ten blocks each, five levels deep, and three of them: 300,000 bars, which no machine picks at
// once.
std::string manyBars() {
    std::string text = "<defs><line id='bar' x1='1' y1='1' x2='9' y2='1'/>";
    std::string inner = "bar";
    for (int level = 0; level < 5; ++level) {
        const std::string name = "level" + std::to_string(level);
        text += "<g id='" + name + "'>";
        for (int i = 0; i < 10; ++i)
            text += "<use href='#" + inner + "' y='" + std::to_string(i * 1e-3) + "'/>";
        text += "</g>";
        inner = name;
    }
    text += "</defs><line id='a' x1='20' y1='80' x2='80' y2='80'/>";
    for (int i = 0; i < 3; ++i)
        text += "<use href='#" + inner + "' x='10' y='" + std::to_string(10 + i) + "'/>";
    return text;
}

class LongWorkTest : public kvtest::WindowTest {
protected:
    LongWorkTest() : WindowTest(manyBars()) {}

    // Calls the function when the window shows that it is working.
    void whenItIsShown(const std::function<void()>& act) {
        auto* timer = new QTimer(&window);
        QObject::connect(timer, &QTimer::timeout, &window, [this, timer, act] {
            if (!window.work().isVisible())
                return;
            timer->deleteLater();
            timer->stop();
            act();
        });
        timer->start(10);
    }
};

} // namespace

TEST_F(LongWorkTest, CancelLeavesTheSetAsItWas) {
    click({30, 80});
    ASSERT_THAT(set(), ElementsAre("a"));
    bool wasShown = false;
    whenItIsShown([&] {
        wasShown = true;
        QTest::mouseClick(window.findChild<QPushButton*>("cancel"), Qt::LeftButton);
    });
    EXPECT_FALSE(window.run("all"));
    EXPECT_TRUE(wasShown);
    EXPECT_THAT(set(), ElementsAre("a"));
    EXPECT_EQ(highlighted(), std::multiset<std::string>{"a"});
    EXPECT_FALSE(window.work().isVisible());
    click({30, 80}, Qt::ControlModifier);
    EXPECT_THAT(set(), testing::IsEmpty()) << "the next command runs as ever";
}

TEST_F(LongWorkTest, TheWindowLivesMeanwhileAndRefusesOtherCommands) {
    bool ranOther = true;
    bool painted = false;
    whenItIsShown([&] {
        ranOther = window.run("clear");
        QTest::mouseClick(window.windowHandle(), Qt::LeftButton, {}, pixelInWindow({30, 80}));
        QTest::keyClick(&window.canvas(), Qt::Key_Escape);
        painted = !screenshot().isNull();
        window.work().cancel();
    });
    EXPECT_FALSE(window.run("all"));
    EXPECT_FALSE(ranOther);
    EXPECT_TRUE(painted);
}

TEST_F(LongWorkTest, CancelledLoadingLeavesTheDrawing) {
    const Drawing* const before = &drawing();
    whenItIsShown([&] { window.work().cancel(); });
    const std::string file = testing::TempDir() + "picker_long.svg";
    {
        std::ofstream out(file);
        out << "<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 100 100'>";
        for (int i = 0; i < 300'000; ++i)
            out << "<path d='M0 0C1 2 3 4 5 6'/>";
        out << "</svg>";
    }
    EXPECT_FALSE(window.run("load " + file));
    std::filesystem::remove(file);
    EXPECT_EQ(&drawing(), before);
    click({30, 80});
    EXPECT_THAT(set(), ElementsAre("a"));
}

TEST_F(LongWorkTest, ClosingTheWindowEndsTheWorkFirst) {
    bool closed = true;
    whenItIsShown([&] { closed = window.close(); });
    EXPECT_FALSE(window.run("all"));
    EXPECT_FALSE(closed);
    EXPECT_TRUE(window.close());
}
