#include "examples/picker/Outline.h"

#include <algorithm>
#include <cmath>

namespace picker {
namespace {

constexpr double kTolerance = 0.001; // as a share of the curve's own size
constexpr double kPi = 3.14159265358979323846;

// Returns how many chords keep a Bezier curve within the tolerance (Wang's bound). `bend` is the largest
// second difference of the control points. `factor` is degree * (degree - 1) / 8.
int chordCount(double bend, double factor, const Box& controls) {
    const double size = length(controls.high - controls.low);
    if (!(size > 0) || !std::isfinite(size) || !std::isfinite(bend))
        return 1;
    return std::max(1, static_cast<int>(std::ceil(std::sqrt(factor * bend / (kTolerance * size)))));
}

int arcChordCount(double sweepAngle) {
    if (!std::isfinite(sweepAngle))
        return 1;
    const double step = 2 * std::acos(1 - kTolerance);
    return std::max(1, static_cast<int>(std::ceil(std::abs(sweepAngle) / step)));
}

double bend(Point a, Point b, Point c) {
    return length(a - 2 * b + c);
}

double angleOf(Point p) {
    return std::atan2(p.y, p.x);
}

// An elliptical arc: `frame` maps an arc of the unit circle to it. On the unit circle, the arc begins at the
// angle `start` and covers the angle `sweep`.
struct CentredArc {
    Affine frame;
    double start = 0;
    double sweep = 0;

    Point at(double parameter) const {
        const double angle = start + parameter * sweep;
        return frame(Point{std::cos(angle), std::sin(angle)});
    }

    void appendInnerPoints(std::vector<Point>& points) const {
        const int chords = arcChordCount(sweep);
        for (int i = 1; i < chords; ++i)
            points.push_back(at(static_cast<double>(i) / chords));
    }
};

// Computes centre and angles from the end points and flags of SVG. Enlarges the radii if the ellipse would be
// too small to reach both end points.
CentredArc centredArc(Point from, Point to, Point radii, double rotation, bool large, bool sweep) {
    const Affine turned = Affine::rotation(rotation);
    const Affine turnedBack = Affine::rotation(-rotation);
    const Point half = turnedBack(0.5 * (from - to));
    // `half` is half of the chord between the end points. Mapped to the unit circle, it must not be longer
    // than 1.
    const double reach = std::hypot(half.x / radii.x, half.y / radii.y);
    const double enlarged = std::max(1.0, reach);
    const double rx = radii.x * enlarged;
    const double ry = radii.y * enlarged;

    const Point unitHalf{half.x / rx, half.y / ry};
    const double square = std::min(1.0, dot(unitHalf, unitHalf));
    double toCentre = square > 0 ? std::sqrt(1 / square - 1) : 0;
    if (large == sweep)
        toCentre = -toCentre;
    const Point unitCentre{toCentre * unitHalf.y, -toCentre * unitHalf.x};

    CentredArc arc;
    const Point centre = turned(Point{rx * unitCentre.x, ry * unitCentre.y}) + 0.5 * (from + to);
    arc.frame = Affine::translation(centre.x, centre.y) * turned * Affine::scaling(rx, ry);
    arc.start = angleOf(unitHalf - unitCentre);
    arc.sweep = angleOf(Point{0, 0} - unitHalf - unitCentre) - arc.start;
    if (sweep && arc.sweep < 0)
        arc.sweep += 2 * kPi;
    if (!sweep && arc.sweep > 0)
        arc.sweep -= 2 * kPi;
    return arc;
}

// Calls visit(from, to) for every chord of a segment, in order, until a call returns false.
template <class Visit>
void visitChords(const Outline& outline, Outline::Segment segment, const Affine& placement, Visit visit) {
    Point from = placement(outline.points()[segment.first]);
    for (std::uint32_t i = segment.first + 1; i <= segment.last; ++i) {
        const Point to = placement(outline.points()[i]);
        if (!visit(from, to))
            return;
        from = to;
    }
}

std::optional<double> firstCrossing(Point from, Point to, const std::vector<Point>& fence) {
    std::optional<double> earliest;
    for (std::size_t i = 1; i < fence.size(); ++i) {
        const std::optional<double> met = crossing(from, to, fence[i - 1], fence[i]);
        if (met && (!earliest || *met < *earliest))
            earliest = met;
    }
    return earliest;
}

// Returns where the fence first meets the segment, as a parameter 0..1 along the segment by length.
std::optional<double> firstCrossing(const Outline& outline, Outline::Segment segment, const Affine& placement,
                                    const std::vector<Point>& fence) {
    std::optional<double> lengthToCrossing;
    double walked = 0;
    visitChords(outline, segment, placement, [&](Point from, Point to) {
        const double chord = length(to - from);
        if (!lengthToCrossing) {
            if (const std::optional<double> met = firstCrossing(from, to, fence))
                lengthToCrossing = walked + *met * chord;
        }
        walked += chord;
        return true;
    });
    if (!lengthToCrossing)
        return std::nullopt;
    return walked > 0 ? std::min(1.0, *lengthToCrossing / walked) : 0;
}

} // namespace

void Outline::moveTo(Point p) {
    mStart = p;
    mPen = p;
    mPenIsLastPoint = false;
}

void Outline::begin() {
    if (!mPenIsLastPoint)
        mPoints.push_back(mPen);
    mFirst = static_cast<std::uint32_t>(mPoints.size() - 1);
}

void Outline::end(Point p) {
    mPoints.push_back(p);
    mSegments.push_back({mFirst, static_cast<std::uint32_t>(mPoints.size() - 1)});
    mPen = p;
    mPenIsLastPoint = true;
}

void Outline::lineTo(Point p) {
    begin();
    end(p);
}

void Outline::quadraticTo(Point control, Point p) {
    const Point third = 1.0 / 3 * (mPen + 2 * control);
    cubicTo(third, 1.0 / 3 * (p + 2 * control), p);
}

void Outline::cubicTo(Point control, Point secondControl, Point p) {
    Box controls = Box::between(mPen, p);
    controls.add(control);
    controls.add(secondControl);
    const double largestBend = std::max(bend(mPen, control, secondControl), bend(control, secondControl, p));
    const int chords = chordCount(largestBend, 3 * 2 / 8.0, controls);
    const Point from = mPen;
    begin();
    for (int i = 1; i < chords; ++i) {
        const double t = static_cast<double>(i) / chords;
        const double s = 1 - t;
        mPoints.push_back(s * s * s * from + 3 * s * s * t * control + 3 * s * t * t * secondControl +
                          t * t * t * p);
    }
    end(p);
}

void Outline::arcTo(Point radii, double rotation, bool large, bool sweep, Point p) {
    if (p == mPen)
        return;
    if (radii.x == 0 || radii.y == 0) {
        lineTo(p);
        return;
    }
    const CentredArc arc =
        centredArc(mPen, p, {std::abs(radii.x), std::abs(radii.y)}, rotation, large, sweep);
    begin();
    arc.appendInnerPoints(mPoints);
    end(p);
}

void Outline::ellipse(Point centre, double radiusX, double radiusY) {
    CentredArc arc;
    arc.frame = Affine::translation(centre.x, centre.y) * Affine::scaling(radiusX, radiusY);
    arc.sweep = 2 * kPi;
    moveTo(arc.at(0));
    begin();
    arc.appendInnerPoints(mPoints);
    end(arc.at(0));
}

void Outline::close() {
    if (mPen != mStart)
        lineTo(mStart);
}

bool Outline::isFinite() const {
    return std::all_of(mPoints.begin(), mPoints.end(),
                       [](Point p) { return std::isfinite(p.x) && std::isfinite(p.y); });
}

Box Outline::box() const {
    Box box;
    for (const Point p : mPoints)
        box.add(p);
    return box;
}

Outline Outline::transformed(const Affine& transform) const {
    Outline result = *this;
    for (Point& p : result.mPoints)
        p = transform(p);
    result.mStart = transform(mStart);
    result.mPen = transform(mPen);
    return result;
}

Outline rectangleOutline(const Box& box, double radiusX, double radiusY) {
    const double rx = std::min(radiusX, (box.high.x - box.low.x) / 2);
    const double ry = std::min(radiusY, (box.high.y - box.low.y) / 2);
    const bool rounded = rx > 0 && ry > 0;
    const double cornerX = rounded ? rx : 0;
    const double cornerY = rounded ? ry : 0;
    Outline outline;
    const auto side = [&](Point from, Point to, Point corner) {
        if (from != to)
            outline.lineTo(to);
        if (rounded)
            outline.arcTo({rx, ry}, 0, false, true, corner);
    };
    const double left = box.low.x, right = box.high.x, top = box.low.y, bottom = box.high.y;
    outline.moveTo({left + cornerX, top});
    side({left + cornerX, top}, {right - cornerX, top}, {right, top + cornerY});
    side({right, top + cornerY}, {right, bottom - cornerY}, {right - cornerX, bottom});
    side({right - cornerX, bottom}, {left + cornerX, bottom}, {left, bottom - cornerY});
    side({left, bottom - cornerY}, {left, top + cornerY}, {left + cornerX, top});
    return outline;
}

std::optional<NearestSegment> nearestSegment(const Outline& outline, const Affine& placement, Point p) {
    std::optional<NearestSegment> nearest;
    for (std::size_t i = 0; i < outline.segments().size(); ++i) {
        visitChords(outline, outline.segments()[i], placement, [&](Point from, Point to) {
            const double away = distance(p, from, to);
            if (!nearest || away < nearest->distance)
                nearest = NearestSegment{static_cast<int>(i), away};
            return true;
        });
    }
    return nearest;
}

bool isWhollyInside(const Outline& outline, const Affine& placement, const Box& box) {
    return std::all_of(outline.points().begin(), outline.points().end(),
                       [&](Point p) { return box.contains(placement(p)); });
}

bool touches(const Outline& outline, const Affine& placement, const Box& box) {
    bool touched = false;
    for (const Outline::Segment segment : outline.segments()) {
        visitChords(outline, segment, placement, [&](Point from, Point to) {
            touched = touches(box, from, to);
            return !touched;
        });
        if (touched)
            return true;
    }
    return false;
}

std::optional<Crossing> earliestCrossing(const Outline& outline, const Affine& placement,
                                         const std::vector<Point>& fence) {
    for (std::size_t i = 0; i < outline.segments().size(); ++i) {
        if (const std::optional<double> met = firstCrossing(outline, outline.segments()[i], placement, fence))
            return Crossing{static_cast<int>(i), *met};
    }
    return std::nullopt;
}

} // namespace picker
