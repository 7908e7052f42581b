// Makes the screenshots of the README: picker-screenshots DRAWING.svg DIRECTORY
#include "examples/picker/window/Canvas.h"
#include "examples/picker/window/CommandBar.h"
#include "examples/picker/window/MainWindow.h"

#include <QApplication>
#include <QLineEdit>
#include <QPixmap>
#include <QScreen>
#include <QTableView>
#include <QTest>
#include <QWindow>

#include <cstdio>
#include <string>

namespace picker {
namespace {

class Screenshots {
public:
    Screenshots(const std::string& drawing, QString directory) : mDirectory(std::move(directory)) {
        mWindow.resize(1280, 800);
        mWindow.move(0, 0);
        mWindow.show();
        (void)QTest::qWaitForWindowExposed(&mWindow);
        mIsComplete = mWindow.run("load " + drawing);
        settle();
    }

    // A window, a click and a fence have filled the set. The mouse points at a monitor in blocks.
    void takeSelection() {
        drag({505, 315}, {700, 480});
        click({898, 120});
        key(Qt::Key_F);
        click({1130, 260});
        click({1130, 350});
        key(Qt::Key_Return);
        mWindow.table().selectRow(2);
        moveTo({178, 166});
        save("picker-selection.png");
    }

    // A crossing is being dragged over an enlarged part, with a second set in the list.
    void takeCrossing() {
        mWindow.run("copy desks");
        mWindow.run("use B");
        mWindow.canvas().showBox(Box::between({60, 60}, {620, 420}));
        settle();
        click({178, 166});
        moveTo({520, 390});
        press({520, 390});
        moveTo({400, 300});
        moveTo({310, 130});
        save("picker-crossing.png");
    }

    bool isComplete() const { return mIsComplete; }

private:
    void settle() {
        (void)QTest::qWaitFor([this] { return mWindow.canvas().isPainted(); }, 30'000);
        QTest::qWait(50);
    }
    QPoint pixelInWindow(Point p) {
        return mWindow.canvas().mapTo(&mWindow, mWindow.canvas().camera().toPixels(p).toPoint());
    }
    void moveTo(Point p) { QTest::mouseMove(mWindow.windowHandle(), pixelInWindow(p)); }
    void press(Point p) { QTest::mousePress(mWindow.windowHandle(), Qt::LeftButton, {}, pixelInWindow(p)); }
    void release(Point p) {
        QTest::mouseRelease(mWindow.windowHandle(), Qt::LeftButton, {}, pixelInWindow(p));
    }
    void click(Point p) {
        moveTo(p);
        press(p);
        release(p);
        settle();
    }
    void drag(Point from, Point to) {
        moveTo(from);
        press(from);
        moveTo(to);
        release(to);
        settle();
    }
    void key(Qt::Key key) {
        QTest::keyClick(&mWindow.canvas(), key);
        settle();
    }

    void save(const QString& name) {
        settle();
        const QRect window = mWindow.geometry();
        const QPixmap picture =
            mWindow.screen()->grabWindow(0, window.x(), window.y(), window.width(), window.height());
        mIsComplete = picture.save(mDirectory + "/" + name) && mIsComplete;
    }

    MainWindow mWindow;
    QString mDirectory;
    bool mIsComplete = false;
};

} // namespace
} // namespace picker

int main(int argc, char** argv) {
    const QApplication application(argc, argv);
    if (argc != 3) {
        (void)std::fputs("usage: picker-screenshots DRAWING.svg DIRECTORY\n", stderr);
        return 2;
    }
    picker::Screenshots screenshots(argv[1], argv[2]);
    screenshots.takeSelection();
    screenshots.takeCrossing();
    return screenshots.isComplete() ? 0 : 1;
}
