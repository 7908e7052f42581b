// Plane geometry of the drawing: points, boxes, transforms and straight lines. A line always has two end
// points.
#pragma once

#include <limits>
#include <optional>

namespace picker {

struct Point {
    double x = 0;
    double y = 0;
};

inline Point operator+(Point a, Point b) {
    return {a.x + b.x, a.y + b.y};
}
inline Point operator-(Point a, Point b) {
    return {a.x - b.x, a.y - b.y};
}
inline Point operator*(double scale, Point p) {
    return {scale * p.x, scale * p.y};
}
inline bool operator==(Point a, Point b) {
    return a.x == b.x && a.y == b.y;
}
inline bool operator!=(Point a, Point b) {
    return !(a == b);
}

double dot(Point a, Point b);
double cross(Point a, Point b);
double length(Point p);
Point interpolated(Point from, Point to, double parameter);

// An axis-parallel box that includes its borders. A new box is empty: it contains and overlaps nothing.
struct Box {
    Point low{std::numeric_limits<double>::infinity(), std::numeric_limits<double>::infinity()};
    Point high{-std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()};

    static Box around(Point centre, double halfSize);
    static Box between(Point corner, Point opposite);

    void add(Point p);
    void add(const Box& other);
    bool isEmpty() const;
    bool contains(Point p) const;
    bool overlaps(const Box& other) const;
};

// An affine map with the six numbers of SVG's matrix(): x' = a x + c y + e, y' = b x + d y + f.
struct Affine {
    double a = 1, b = 0, c = 0, d = 1, e = 0, f = 0;

    static Affine translation(double x, double y) { return {1, 0, 0, 1, x, y}; }
    static Affine scaling(double x, double y) { return {x, 0, 0, y, 0, 0}; }
    static Affine rotation(double degrees);
    static Affine skewX(double degrees);
    static Affine skewY(double degrees);

    Point operator()(Point p) const { return {a * p.x + c * p.y + e, b * p.x + d * p.y + f}; }
    Box operator()(const Box& box) const; // returns the box around the mapped box

    // Returns nothing if the determinant is 0, too close to 0, or not finite. A map with the determinant 0
    // flattens the plane.
    std::optional<Affine> inverse() const;
};

// Returns the map that applies `inner` first, then `outer`.
Affine operator*(const Affine& outer, const Affine& inner);

// Returns the distance from `p` to the nearest point of the line.
double distance(Point p, Point from, Point to);

// Returns whether any point of a line is in the box or on its border.
bool touches(const Box& box, Point from, Point to);

// Returns where the first line meets the other line, as a parameter from 0 (`from`) to 1 (`to`). Returns
// nothing if the lines do not meet. Lines that only touch meet. If the lines overlap, returns their first
// common point.
std::optional<double> crossing(Point from, Point to, Point otherFrom, Point otherTo);

} // namespace picker
