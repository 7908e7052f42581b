// Measures how long the window takes to answer: from an event of the mouse until the display has the picture.
//
// The drawing has 100,000 placed entities. Prints medians and 99th percentiles of the time that passes, and
// of the processor time of the program, which a busy machine does not change as much. Prints also the share
// of the events after which the drawing was painted: not every move of the mouse changes something.
// scripts/bench-frames runs it on a display of its own, where a program does the painting.
#include "examples/picker/window/Canvas.h"
#include "examples/picker/window/MainWindow.h"

#include <QApplication>
#include <QTest>
#include <QWheelEvent>
#include <QWindow>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include <ctime>
#include <unistd.h>

namespace picker {
namespace {

constexpr int kColumns = 100; // also the number of rows
constexpr double kCell = 20;
constexpr double kSide = kColumns * kCell;

// Ten thousand references to four blocks of ten entities each.
std::string drawingText() {
    std::string text = "<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 2000 2000'><defs>";
    for (int block = 0; block < 4; ++block) {
        text += "<g id='b" + std::to_string(block) +
                "'><rect x='2' y='2' width='14' height='12'/>"
                "<rect x='4' y='4' width='10' height='5' rx='2'/><circle cx='9' cy='12' r='2.5'/>"
                "<path d='M3 16C6 13 12 19 15 16'/><polyline points='2,2 9,8 16,2'/>";
        for (int line = 0; line < 5; ++line)
            text += "<line x1='" + std::to_string(3 + 2 * line) + "' y1='9' x2='" +
                    std::to_string(4 + 2 * line + block) + "' y2='11'/>";
        text += "</g>";
    }
    text += "</defs>";
    for (int row = 0; row < kColumns; ++row) {
        for (int column = 0; column < kColumns; ++column)
            text += "<use href='#b" + std::to_string((row + column) % 4) + "' x='" +
                    std::to_string(column * kCell) + "' y='" + std::to_string(row * kCell) + "'/>";
    }
    return text + "</svg>";
}

// Returns the processor time of all threads. It does not include that of the display.
double processorMilliseconds() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

double percentile(std::vector<double> samples, std::size_t percent) {
    std::sort(samples.begin(), samples.end());
    return samples[(samples.size() * percent + 99) / 100 - 1];
}

// Notes when a widget is painted.
class PaintWatch : public QObject {
public:
    explicit PaintWatch(QWidget& widget) { widget.installEventFilter(this); }

    int paints = 0;

protected:
    bool eventFilter(QObject*, QEvent* event) override {
        paints += event->type() == QEvent::Paint ? 1 : 0;
        return false;
    }
};

class Frames {
public:
    Frames() {
        mWindow.resize(1600, 1000);
        mWindow.show();
        (void)QTest::qWaitForWindowExposed(&mWindow);
        const std::string file =
            (std::filesystem::temp_directory_path() / ("frames" + std::to_string(getpid()) + ".svg"))
                .string();
        std::ofstream(file) << drawingText();
        mWindow.run("load " + file);
        std::filesystem::remove(file);
        settle();
    }

    void measureAll() {
        std::printf("%-54s %8s %8s %8s %8s %8s %8s\n", "milliseconds", "p50", "p99", "cpu p50", "cpu p99",
                    "target", "painted");
        measureMoves("mouse move, everything shown");
        measureClicks("click, into a set of up to 200 items");
        measure("window over 10,000 entities", 30, 200, [this](int i) {
            mWindow.run("clear");
            settle();
            return [this, i] { dragOverTenth(i % 10); };
        });
        measureMoves("mouse move, 10,000 items highlighted");
        measureClicks("click, into a set of 10,000 items");
        measure("window over 10,000 entities, taken out again (Shift)", 10, 200, [this](int) {
            mWindow.run("clear");
            dragOverTenth(0);
            settle();
            return [this] { dragOverTenth(0, Qt::ShiftModifier); };
        });
        measure("notch of the wheel, until a first picture", 30, 16, [this](int i) {
            settle();
            return [this, i] { wheel(i % 2 == 0 ? 1 : -1); };
        });
        measure("notch of the wheel, until the whole picture", 10, 0, [this](int i) {
            settle();
            return [this, i] {
                wheel(i % 2 == 0 ? 1 : -1);
                settle();
            };
        });
        mWindow.canvas().showBox(Box::between({500, 500}, {600, 560}));
        settle();
        measureMoves("mouse move, a hundredth of the drawing enlarged");
    }

private:
    using Clock = std::chrono::steady_clock;

    void settle() {
        (void)QTest::qWaitFor([this] { return mWindow.canvas().isPainted(); }, 60'000);
        finishFrame();
    }

    // Returns when the display has received everything.
    static void finishFrame() {
        QCoreApplication::processEvents();
        QGuiApplication::sync();
    }

    QPoint pixelInWindow(Point p) {
        return mWindow.canvas().mapTo(&mWindow, mWindow.canvas().camera().toPixels(p).toPoint());
    }

    // prepare(i) returns the event to be measured. There is no target if it is 0.
    void measure(const char* what, int count, int target,
                 const std::function<std::function<void()>(int)>& prepare) {
        std::vector<double> times;
        std::vector<double> processor;
        int painted = 0;
        for (int i = 0; i < count; ++i) {
            const std::function<void()> event = prepare(i);
            finishFrame();
            const int paintsBefore = mWatch.paints;
            const double processorBefore = processorMilliseconds();
            const Clock::time_point begin = Clock::now();
            event();
            finishFrame();
            times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - begin).count());
            processor.push_back(processorMilliseconds() - processorBefore);
            painted += mWatch.paints > paintsBefore ? 1 : 0;
        }
        std::printf("%-54s %8.1f %8.1f %8.1f %8.1f %8s %7d%%\n", what, percentile(times, 50),
                    percentile(times, 99), percentile(processor, 50), percentile(processor, 99),
                    target > 0 ? std::to_string(target).c_str() : "-", 100 * painted / count);
        std::fflush(stdout);
    }

    void measureMoves(const char* what) {
        measure(what, 1000, 16, [this](int i) {
            const QRect canvas = mWindow.canvas().rect();
            const QPoint pixel((i * 7) % canvas.width(), (i * 5) % canvas.height());
            return [this, pixel] {
                QTest::mouseMove(mWindow.windowHandle(), mWindow.canvas().mapTo(&mWindow, pixel));
            };
        });
    }

    void measureClicks(const char* what) {
        measure(what, 200, 200, [this](int i) {
            const Point corner{(i % 20) * 100 + 2.0, (i / 20) * 100 + 1002.0};
            const QPoint pixel = pixelInWindow(corner + Point{7, 0});
            QTest::mouseMove(mWindow.windowHandle(), pixel);
            return [this, pixel] { QTest::mouseClick(mWindow.windowHandle(), Qt::LeftButton, {}, pixel); };
        });
    }

    // Drags a window over ten rows of blocks.
    void dragOverTenth(int tenth, Qt::KeyboardModifiers keys = {}) {
        const double top = tenth * kSide / 10;
        const QPoint from = pixelInWindow({-1, top - 0.5});
        const QPoint to = pixelInWindow({kSide + 1, top + kSide / 10 - 0.5});
        QTest::mousePress(mWindow.windowHandle(), Qt::LeftButton, keys, from);
        QTest::mouseMove(mWindow.windowHandle(), to);
        QTest::mouseRelease(mWindow.windowHandle(), Qt::LeftButton, keys, to);
    }

    void wheel(int notches) {
        const QPoint pixel = mWindow.canvas().rect().center();
        QWheelEvent event(pixel, mWindow.canvas().mapToGlobal(pixel), {}, {0, 120 * notches}, Qt::NoButton,
                          Qt::NoModifier, Qt::NoScrollPhase, false);
        QCoreApplication::sendEvent(&mWindow.canvas(), &event);
    }

    MainWindow mWindow;
    PaintWatch mWatch{mWindow.canvas()};
};

} // namespace
} // namespace picker

int main(int argc, char** argv) {
    const QApplication application(argc, argv);
    picker::Frames().measureAll();
    return 0;
}
