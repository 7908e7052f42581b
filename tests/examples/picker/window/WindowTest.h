// The fixture of tests in a real window: mouse and keys in the coordinates of the drawing, the set, the
// highlights, and what is on the screen.
#pragma once

#include "examples/picker/window/Canvas.h"
#include "examples/picker/window/Colours.h"
#include "examples/picker/window/CommandBar.h"
#include "examples/picker/window/LongWork.h"
#include "examples/picker/window/MainWindow.h"

#include "tests/examples/picker/Svg.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QGuiApplication>
#include <QImage>
#include <QLineEdit>
#include <QPixmap>
#include <QScreen>
#include <QTableView>
#include <QTest>
#include <QWindow>

#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

namespace kvtest {

// Returns whether two colours look alike. Lines are smoothed, so few pixels have exactly a colour.
inline bool isLike(QRgb seen, const QColor& colour) {
    constexpr int kTolerance = 40;
    return std::abs(qRed(seen) - colour.red()) < kTolerance &&
           std::abs(qGreen(seen) - colour.green()) < kTolerance &&
           std::abs(qBlue(seen) - colour.blue()) < kTolerance;
}

class WindowTest : public testing::Test {
protected:
    // Shows a drawing of these elements, 100 by 100 units.
    explicit WindowTest(const std::string& elements) {
        window.resize(1000, 800);
        window.show();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(&window));
        load(elements);
    }

    ~WindowTest() override { std::filesystem::remove(mFile); }

    void load(const std::string& elements) {
        std::ofstream(mFile) << "<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 100 100'>" << elements
                             << "</svg>";
        EXPECT_TRUE(window.run("load " + mFile));
        settle();
    }

    // Waits until everything is painted.
    void settle() {
        EXPECT_TRUE(QTest::qWaitFor(
            [this] { return !window.work().isRunning() && window.canvas().isPainted(); }, 60'000));
        QTest::qWait(30);
    }

    // ---- mouse and keys

    QPoint pixelInWindow(picker::Point p) const {
        return window.canvas().mapTo(&window, window.canvas().camera().toPixels(p).toPoint());
    }
    void moveTo(picker::Point p) { QTest::mouseMove(window.windowHandle(), pixelInWindow(p)); }
    void press(picker::Point p, Qt::MouseButton button = Qt::LeftButton, Qt::KeyboardModifiers keys = {}) {
        QTest::mousePress(window.windowHandle(), button, keys, pixelInWindow(p));
    }
    void release(picker::Point p, Qt::MouseButton button = Qt::LeftButton, Qt::KeyboardModifiers keys = {}) {
        QTest::mouseRelease(window.windowHandle(), button, keys, pixelInWindow(p));
        settle();
    }
    void click(picker::Point p, Qt::KeyboardModifiers keys = {}) {
        moveTo(p);
        press(p, Qt::LeftButton, keys);
        release(p, Qt::LeftButton, keys);
    }
    void drag(picker::Point from, picker::Point to, Qt::KeyboardModifiers keys = {}) {
        moveTo(from);
        press(from, Qt::LeftButton, keys);
        moveTo(picker::interpolated(from, to, 0.5));
        moveTo(to);
        release(to, Qt::LeftButton, keys);
    }
    void key(Qt::Key key, Qt::KeyboardModifiers keys = {}) {
        QTest::keyClick(&window.canvas(), key, keys);
        settle();
    }
    void fence(const std::vector<picker::Point>& chain, Qt::KeyboardModifiers keys = {}) {
        key(Qt::Key_F);
        for (const picker::Point p : chain)
            click(p);
        key(Qt::Key_Return, keys);
    }
    void type(const QString& line) {
        QTest::keyClicks(&window.commands().field(), line);
        QTest::keyClick(&window.commands().field(), Qt::Key_Return);
        settle();
    }

    // ---- the set and the highlights

    std::string textOf(const std::vector<GxDbObjectId>& path) const {
        std::string text;
        for (const GxDbObjectId id : path) {
            const std::string_view name = database().nameOf(id);
            text += (text.empty() ? "" : "/") +
                    (name.empty() ? std::to_string(database().handleOf(id)) : std::string(name));
        }
        return text;
    }

    // Returns the paths of the items in their order, by the names of the elements.
    std::vector<std::string> set() {
        std::vector<std::string> paths;
        const GxapSelectSet& current = window.workbench().session().set();
        for (GxapSelectSet::ConstIterator it = current.begin(); !it.isDone(); it.step())
            paths.push_back(textOf(picker::pathOf(*it.get())));
        return paths;
    }

    // Returns the paths that the entities themselves highlight, as often as they do.
    std::multiset<std::string> highlighted() const {
        std::multiset<std::string> paths;
        for (std::size_t i = 0; i < database().size(); ++i) {
            const auto* entity =
                dynamic_cast<const kvinmemory::Entity*>(database().entity(database().idAt(i)));
            if (!entity)
                continue;
            for (const kvinmemory::Entity::Highlight& highlight : entity->highlights())
                paths.insert(textOf({highlight.path.ids.begin(), highlight.path.ids.end()}));
        }
        return paths;
    }

    const kvinmemory::Database& database() const { return drawing().database(); }
    const picker::Drawing& drawing() const { return *window.workbench().drawing(); }

    // ---- the screen

    // Returns what the display shows of the drawing.
    QImage screenshot() const {
        const QPoint corner = window.canvas().mapToGlobal(QPoint(0, 0));
        const QSize size = window.canvas().size();
        return window.screen()
            ->grabWindow(0, corner.x(), corner.y(), size.width(), size.height())
            .toImage()
            .convertToFormat(QImage::Format_RGB32);
    }

    // Returns whether a pixel at the point, or one next to it, has the colour.
    bool shows(const QImage& image, picker::Point p, const QColor& colour) const {
        const QPoint pixel = window.canvas().camera().toPixels(p).toPoint();
        for (int y = pixel.y() - 1; y <= pixel.y() + 1; ++y) {
            for (int x = pixel.x() - 1; x <= pixel.x() + 1; ++x) {
                if (image.rect().contains(x, y) && isLike(image.pixel(x, y), colour))
                    return true;
            }
        }
        return false;
    }
    bool shows(picker::Point p, const QColor& colour) {
        settle();
        return shows(screenshot(), p, colour);
    }

    // Returns whether a line of the drawing passes the point. A line of one pixel may be spread over two.
    bool showsLine(picker::Point p) {
        settle();
        const QImage image = screenshot();
        const QPoint pixel = window.canvas().camera().toPixels(p).toPoint();
        int brightest = 0;
        for (int y = pixel.y() - 1; y <= pixel.y() + 1; ++y) {
            for (int x = pixel.x() - 1; x <= pixel.x() + 1; ++x)
                brightest = std::max(brightest, qGray(image.pixel(x, y)));
        }
        return brightest > qGray(picker::colours::kGround.rgb()) + 50;
    }

    // Expects that the entities of the set are highlighted on the screen, and nothing else.
    void expectHighlightsOnScreen();

    mutable picker::MainWindow window;

private:
    const std::string mFile =
        (std::filesystem::temp_directory_path() / ("picker_window" + std::to_string(getpid()) + ".svg"))
            .string();
};

// The distance from a pixel to the nearest outline of the set, in pixels.
inline double pixelsToSet(const picker::MainWindow& window, const GxapSelectSet& set,
                          const picker::Drawing& drawing, picker::Point p) {
    double nearest = 1e9;
    for (GxapSelectSet::ConstIterator it = set.begin(); !it.isDone(); it.step()) {
        const auto placed = picker::placedAt(drawing, picker::pathOf(*it.get()));
        const auto found = picker::nearestSegment(placed->content->curve->outline(), placed->placement, p);
        if (found)
            nearest = std::min(nearest, found->distance);
    }
    return nearest * const_cast<picker::MainWindow&>(window).canvas().camera().scale();
}

inline void WindowTest::expectHighlightsOnScreen() {
    moveTo({-1, -1}); // so that nothing is pre-highlighted
    settle();
    const QImage image = screenshot();
    const GxapSelectSet& current = window.workbench().session().set();
    const picker::Camera& camera = window.canvas().camera();
    int astray = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (!isLike(image.pixel(x, y), picker::colours::kHighlight))
                continue;
            const picker::Point p = camera.toDrawing({x + 0.5, y + 0.5});
            astray += pixelsToSet(window, current, drawing(), p) > 3 ? 1 : 0;
        }
    }
    EXPECT_EQ(astray, 0) << "pixels are highlighted away from the set";
    for (GxapSelectSet::ConstIterator it = current.begin(); !it.isDone(); it.step()) {
        const auto placed = picker::placedAt(drawing(), picker::pathOf(*it.get()));
        const picker::Outline& outline = placed->content->curve->outline();
        const picker::Outline::Segment first = outline.segments().front();
        const picker::Point middle = placed->placement(
            picker::interpolated(outline.points()[first.first], outline.points()[first.first + 1], 0.5));
        EXPECT_TRUE(shows(image, middle, picker::colours::kHighlight)) << "item " << it.index;
    }
}

} // namespace kvtest
