// The lines of one drawn entity: a sequence of segments, each a straight line, an arc or a curve.
//
// Curves are kept as chains of chords. A chord strays from its curve by at most a thousandth of the curve's
// size (the larger radius of an arc, the diagonal of a Bezier curve's control polygon), so an outline is as
// good after any enlargement as before.
#pragma once

#include "examples/picker/Geometry.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace picker {

class Outline {
public:
    struct Segment {
        std::uint32_t first; // its chain of points, both ends included; neighbours share a point
        std::uint32_t last;
    };

    // Drawing. Each of the ...To calls appends one segment; the first one needs a moveTo before it.
    void moveTo(Point p);
    void lineTo(Point p);
    void quadraticTo(Point control, Point p);
    void cubicTo(Point control, Point secondControl, Point p);
    // SVG's elliptical arc: radii, rotation of the ellipse in degrees, which of the four arcs.
    void arcTo(Point radii, double rotation, bool large, bool sweep, Point p);
    // A full ellipse as one segment, from its rightmost point on.
    void ellipse(Point centre, double radiusX, double radiusY);
    // A line back to the last moveTo, unless the pen is there already.
    void close();

    bool isEmpty() const { return mSegments.empty(); }
    bool isFinite() const;
    Point pen() const { return mPen; }
    Box box() const;
    Outline transformed(const Affine& transform) const;

    const std::vector<Point>& points() const { return mPoints; }
    const std::vector<Segment>& segments() const { return mSegments; }

private:
    void begin();
    void end(Point p);

    std::vector<Point> mPoints;
    std::vector<Segment> mSegments;
    Point mStart;
    Point mPen;
    bool mPenIsLastPoint = false;
    std::uint32_t mFirst = 0; // of the segment that is being drawn
};

// The four sides, and between them the four corners where they are rounded.
Outline rectangleOutline(const Box& box, double radiusX, double radiusY);

struct NearestSegment {
    int segment;
    double distance;
};
struct Crossing {
    int segment;      // counted from 0
    double parameter; // 0..1 along the segment, by length
};

// The questions of the picks, about an outline seen through a transform.
std::optional<NearestSegment> nearestSegment(const Outline& outline, const Affine& placement, Point p);
bool isWhollyInside(const Outline& outline, const Affine& placement, const Box& box);
bool touches(const Outline& outline, const Affine& placement, const Box& box);
// The first point along the outline where the fence, a chain of points, meets it.
std::optional<Crossing> earliestCrossing(const Outline& outline, const Affine& placement,
                                         const std::vector<Point>& fence);

} // namespace picker
