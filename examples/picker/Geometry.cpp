#include "examples/picker/Geometry.h"

#include <algorithm>
#include <cmath>

namespace picker {
namespace {

double radians(double degrees) {
    return degrees * 3.14159265358979323846 / 180;
}

// Returns the first point of this line that the other line covers, as a parameter from 0 (`from`) to 1
// (`to`). All four points must be on one straight line. Each line may be a single point.
std::optional<double> overlap(Point from, Point to, Point otherFrom, Point otherTo) {
    const Point along = to - from;
    const double square = dot(along, along);
    if (square == 0) {
        const bool met = Box::between(otherFrom, otherTo).contains(from);
        return met ? std::optional<double>(0) : std::nullopt;
    }
    const double first = dot(otherFrom - from, along) / square;
    const double second = dot(otherTo - from, along) / square;
    const double begin = std::max(0.0, std::min(first, second));
    const double end = std::min(1.0, std::max(first, second));
    return begin <= end ? std::optional<double>(begin) : std::nullopt;
}

bool sameSide(double a, double b) {
    return (a > 0 && b > 0) || (a < 0 && b < 0);
}

} // namespace

double dot(Point a, Point b) {
    return a.x * b.x + a.y * b.y;
}

double cross(Point a, Point b) {
    return a.x * b.y - a.y * b.x;
}

double length(Point p) {
    return std::hypot(p.x, p.y);
}

Point interpolated(Point from, Point to, double parameter) {
    return from + parameter * (to - from);
}

Box Box::around(Point centre, double halfSize) {
    return between({centre.x - halfSize, centre.y - halfSize}, {centre.x + halfSize, centre.y + halfSize});
}

Box Box::between(Point corner, Point opposite) {
    Box box;
    box.add(corner);
    box.add(opposite);
    return box;
}

void Box::add(Point p) {
    low = {std::min(low.x, p.x), std::min(low.y, p.y)};
    high = {std::max(high.x, p.x), std::max(high.y, p.y)};
}

void Box::add(const Box& other) {
    if (other.isEmpty())
        return;
    add(other.low);
    add(other.high);
}

bool Box::isEmpty() const {
    return !(low.x <= high.x && low.y <= high.y);
}

bool Box::contains(Point p) const {
    return low.x <= p.x && p.x <= high.x && low.y <= p.y && p.y <= high.y;
}

bool Box::overlaps(const Box& other) const {
    return low.x <= other.high.x && other.low.x <= high.x && low.y <= other.high.y && other.low.y <= high.y;
}

Affine Affine::rotation(double degrees) {
    const double angle = radians(degrees);
    return {std::cos(angle), std::sin(angle), -std::sin(angle), std::cos(angle), 0, 0};
}

Affine Affine::skewX(double degrees) {
    return {1, 0, std::tan(radians(degrees)), 1, 0, 0};
}

Affine Affine::skewY(double degrees) {
    return {1, std::tan(radians(degrees)), 0, 1, 0, 0};
}

Box Affine::operator()(const Box& box) const {
    Box mapped;
    if (box.isEmpty())
        return mapped;
    mapped.add((*this)(box.low));
    mapped.add((*this)(Point{box.high.x, box.low.y}));
    mapped.add((*this)(box.high));
    mapped.add((*this)(Point{box.low.x, box.high.y}));
    return mapped;
}

std::optional<Affine> Affine::inverse() const {
    const double determinant = a * d - b * c;
    if (determinant == 0 || !std::isfinite(determinant) || !std::isfinite(1 / determinant))
        return std::nullopt;
    const double s = 1 / determinant;
    return Affine{s * d, -s * b, -s * c, s * a, s * (c * f - d * e), s * (b * e - a * f)};
}

Affine operator*(const Affine& outer, const Affine& inner) {
    return {outer.a * inner.a + outer.c * inner.b,           outer.b * inner.a + outer.d * inner.b,
            outer.a * inner.c + outer.c * inner.d,           outer.b * inner.c + outer.d * inner.d,
            outer.a * inner.e + outer.c * inner.f + outer.e, outer.b * inner.e + outer.d * inner.f + outer.f};
}

double distance(Point p, Point from, Point to) {
    const Point along = to - from;
    const double square = dot(along, along);
    const double parameter = square == 0 ? 0 : std::clamp(dot(p - from, along) / square, 0.0, 1.0);
    return length(p - interpolated(from, to, parameter));
}

bool touches(const Box& box, Point from, Point to) {
    if (box.contains(from) || box.contains(to))
        return true;
    if (!box.overlaps(Box::between(from, to)))
        return false;
    // Here, `box` and the box around the line overlap. So the line misses `box` only if all four corners of
    // `box` are on one side of the line.
    const Point along = to - from;
    const double first = cross(along, box.low - from);
    return !(sameSide(first, cross(along, Point{box.high.x, box.low.y} - from)) &&
             sameSide(first, cross(along, box.high - from)) &&
             sameSide(first, cross(along, Point{box.low.x, box.high.y} - from)));
}

std::optional<double> crossing(Point from, Point to, Point otherFrom, Point otherTo) {
    // A line through a corner of an outline should not miss both lines of the corner. A side is computed only
    // from an end point and the other line, so both calls get the same side for the corner. If the two lines
    // leave the corner to different sides of the other line, at least one of them passes this test, whatever
    // the rounding.
    const Point other = otherTo - otherFrom;
    const double sideFrom = cross(other, from - otherFrom);
    const double sideTo = cross(other, to - otherFrom);
    if (sameSide(sideFrom, sideTo))
        return std::nullopt;
    const Point along = to - from;
    const double sideOtherFrom = cross(along, otherFrom - from);
    const double sideOtherTo = cross(along, otherTo - from);
    if (sameSide(sideOtherFrom, sideOtherTo))
        return std::nullopt;
    if (sideFrom == 0 && sideTo == 0) {
        // Either both lines are parts of one straight line, or the other line is a single point beside this
        // line. If the other line is such a point, sideOtherFrom and sideOtherTo are not 0.
        const bool oneLine = sideOtherFrom == 0 && sideOtherTo == 0;
        return oneLine ? overlap(from, to, otherFrom, otherTo) : std::nullopt;
    }
    return std::clamp(sideFrom / (sideFrom - sideTo), 0.0, 1.0);
}

} // namespace picker
