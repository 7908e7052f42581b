// What the user has shown with the mouse, and what is to happen with the entities there.
#pragma once

#include "examples/picker/Geometry.h"

#include <cstddef>
#include <vector>

namespace picker {

struct Area {
    enum class Kind {
        point,    // the nearest entity, or one of those behind it
        window,   // the entities that are wholly in a box
        crossing, // the entities that a box touches
        fence     // the entities that a chain of lines crosses
    };

    Kind kind = Kind::point;
    std::vector<Point> points; // the point, two opposite corners, or the chain
    double aperture = 0;       // of a point
    std::size_t nth = 0;       // of a point: how many nearer entities are passed over

    Box box() const { return Box::between(points.front(), points.back()); }
};

enum class Change {
    add,
    remove,
    toggle // take out what the set has, and add the rest
};

} // namespace picker
