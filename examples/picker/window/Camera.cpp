#include "examples/picker/window/Camera.h"

#include <algorithm>
#include <cmath>

namespace picker {
namespace {

constexpr double kMargin = 0.95; // the share of the window that a whole drawing takes
// Doubles have about 16 digits. Within these limits, pixels and units can be converted without a visible
// error.
constexpr double kLeastScale = 1e-9;
constexpr double kMostScale = 1e9;

// Returns a length by which one can divide. A drawing may be a single point or a line.
double extent(double low, double high) {
    const double size = high - low;
    return std::isfinite(size) && size > 0 ? size : 1;
}

} // namespace

Affine Camera::toPixels() const {
    return Affine::translation(mOrigin.x, mOrigin.y) * Affine::scaling(mScale, mScale);
}

QPointF Camera::toPixels(Point p) const {
    const Point pixel = mOrigin + mScale * p;
    return {pixel.x, pixel.y};
}

Point Camera::toDrawing(QPointF pixel) const {
    return 1 / mScale * (Point{pixel.x(), pixel.y()} - mOrigin);
}

Point Camera::roundedToDrawing(QPointF pixel) const {
    const Point p = toDrawing(pixel);
    return {rounded(p.x), rounded(p.y)};
}

double Camera::rounded(double length) const {
    constexpr double kPartsOfPixel = 100;
    const double places = std::max(std::ceil(std::log10(kPartsOfPixel * mScale)), 0.0);
    const double perUnit = std::pow(10, places);
    return std::round(length * perUnit) / perUnit;
}

void Camera::showAll(const Box& box, QSize window) {
    if (box.isEmpty() || window.isEmpty())
        return;
    const double x = window.width() / extent(box.low.x, box.high.x);
    const double y = window.height() / extent(box.low.y, box.high.y);
    mScale = std::clamp(kMargin * std::min(x, y), kLeastScale, kMostScale);
    const Point centre{window.width() / 2.0, window.height() / 2.0};
    mOrigin = centre - mScale * interpolated(box.low, box.high, 0.5);
}

void Camera::zoomAround(QPointF pixel, double factor) {
    const Point fixed = toDrawing(pixel);
    mScale = std::clamp(mScale * factor, kLeastScale, kMostScale);
    mOrigin = Point{pixel.x(), pixel.y()} - mScale * fixed;
}

void Camera::pan(QPointF pixels) {
    mOrigin = mOrigin + Point{pixels.x(), pixels.y()};
}

} // namespace picker
