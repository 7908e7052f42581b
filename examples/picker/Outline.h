// The lines of one drawn entity: a sequence of segments, each a straight line, an arc or a curve.
//
// Curves are kept as chains of chords. The distance between a chord and its curve is at most a thousandth of
// the curve's size. The size is the larger radius of an arc, or the diagonal of the box around a Bezier
// curve's control points. The limit is relative to the size. So a curve looks equally smooth after any
// enlargement.
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
        std::uint32_t first; // index of the first point
        std::uint32_t last;  // index of the last point; the next segment may begin with this point
    };

    // moveTo() only moves the pen, and must come before the first segment. lineTo(), quadraticTo() and
    // cubicTo() append one segment from the pen to `p`, and leave the pen there.
    void moveTo(Point p);
    void lineTo(Point p);
    void quadraticTo(Point control, Point p);
    void cubicTo(Point control, Point secondControl, Point p);
    // Appends SVG's elliptical arc. `rotation` turns the ellipse, in degrees. `large` and `sweep` choose one
    // of the four arcs between the pen and `p`. Appends a line if a radius is 0, and nothing if `p` is the
    // pen.
    void arcTo(Point radii, double rotation, bool large, bool sweep, Point p);
    // Appends a full ellipse as one segment, which begins at the rightmost point of the ellipse.
    void ellipse(Point centre, double radiusX, double radiusY);
    // Appends a line back to the last moveTo(), unless the pen is already there.
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
    std::uint32_t mFirst = 0; // first point of the segment that is being drawn
};

// Makes the outline of a rectangle with four sides. If both radii are greater than 0, an arc follows each
// side. A side whose length is 0 is left out.
Outline rectangleOutline(const Box& box, double radiusX, double radiusY);

struct NearestSegment {
    int segment;
    double distance;
};
struct Crossing {
    int segment;      // counted from 0
    double parameter; // 0..1 along the segment, by length
};

// All functions below apply to the outline after `placement` has mapped it.
std::optional<NearestSegment> nearestSegment(const Outline& outline, const Affine& placement, Point p);
bool isWhollyInside(const Outline& outline, const Affine& placement, const Box& box);
bool touches(const Outline& outline, const Affine& placement, const Box& box);
// Returns the first point along the outline where the fence, a chain of points, meets the outline.
std::optional<Crossing> earliestCrossing(const Outline& outline, const Affine& placement,
                                         const std::vector<Point>& fence);

} // namespace picker
