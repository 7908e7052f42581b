#include "examples/picker/window/Camera.h"

#include <gtest/gtest.h>

using picker::Box;
using picker::Camera;
using picker::Point;

namespace {

constexpr double kTolerance = 1e-9;

void expectNear(Point a, Point b) {
    EXPECT_NEAR(a.x, b.x, kTolerance);
    EXPECT_NEAR(a.y, b.y, kTolerance);
}

Camera showing(const Box& box, QSize window) {
    Camera camera;
    camera.showAll(box, window);
    return camera;
}

} // namespace

TEST(Camera, ShowsTheWholeBoxInTheMiddle) {
    const Camera camera = showing(Box::between({10, 20}, {110, 70}), {400, 400});
    EXPECT_EQ(camera.toPixels(Point{60, 45}), QPointF(200, 200));
    EXPECT_LT(camera.toPixels(Point{110, 45}).x(), 400);
    EXPECT_GT(camera.toPixels(Point{110, 45}).x(), 380);
}

TEST(Camera, ConvertsPixelsBack) {
    const Camera camera = showing(Box::between({-3, -4}, {5, 6}), {640, 480});
    expectNear(camera.toDrawing(camera.toPixels(Point{1.25, -2.5})), {1.25, -2.5});
    expectNear(camera.toPixels()(Point{1, 2}),
               {camera.toPixels(Point{1, 2}).x(), camera.toPixels(Point{1, 2}).y()});
}

TEST(Camera, RoundsPointsToTheHundredthOfAPixel) {
    Camera camera;
    camera.zoomAround({0, 0}, 3); // three pixels for a unit
    EXPECT_EQ(camera.roundedToDrawing({100, 200}), (Point{33.333, 66.667}));
    camera.zoomAround({0, 0}, 1e-3);
    EXPECT_EQ(camera.roundedToDrawing({100, 200}), (Point{33333, 66667}));
}

TEST(Camera, KeepsWhatIsUnderTheMouseWhenItZooms) {
    Camera camera = showing(Box::between({0, 0}, {100, 100}), {400, 300});
    const QPointF mouse(77, 210);
    const Point before = camera.toDrawing(mouse);
    const double scale = camera.scale();
    camera.zoomAround(mouse, 3);
    EXPECT_DOUBLE_EQ(camera.scale(), 3 * scale);
    expectNear(camera.toDrawing(mouse), before);
}

TEST(Camera, MovesTheDrawingWithTheMouseWhenItPans) {
    Camera camera = showing(Box::between({0, 0}, {100, 100}), {400, 300});
    const QPointF before = camera.toPixels(Point{50, 50});
    camera.pan({12, -7});
    EXPECT_EQ(camera.toPixels(Point{50, 50}), before + QPointF(12, -7));
}

TEST(Camera, StaysAsItIsIfThereIsNothingToShow) {
    Camera camera = showing(Box::between({0, 0}, {100, 100}), {400, 300});
    const Camera before = camera;
    camera.showAll(Box(), {400, 300});
    EXPECT_EQ(camera, before);
}

TEST(Camera, ShowsASinglePoint) {
    const Camera camera = showing(Box::between({7, 8}, {7, 8}), {400, 300});
    EXPECT_EQ(camera.toPixels(Point{7, 8}), QPointF(200, 150));
}

TEST(Camera, NeverZoomsBeyondWhatNumbersCanShow) {
    Camera camera;
    for (int i = 0; i < 1000; ++i)
        camera.zoomAround({10, 10}, 10);
    EXPECT_LE(camera.scale(), 1e9);
    for (int i = 0; i < 1000; ++i)
        camera.zoomAround({10, 10}, 0.1);
    EXPECT_GE(camera.scale(), 1e-9);
}
