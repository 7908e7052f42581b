// Finds what a pick of the user means: the entities under a point, in a box or along a fence, as they are
// placed.
#pragma once

#include "examples/picker/Drawing.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <stdexcept>
#include <vector>

namespace picker {

// One entity as it is placed.
struct Pick {
    std::vector<GxDbObjectId>
        path;           // from the outermost reference to the entity; the entity alone if it is in none
    Affine placement;   // from the entity's coordinates to the drawing's: all the references' together
    long gsMarker = -1; // number from 1 of the segment that was met; -1: the entity as a whole
    std::optional<Crossing> crossing; // of a fence

    bool isNested() const { return path.size() > 1; }
};

class PickError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class Picker {
public:
    // Called in drawing order; the pick is the picker's and lasts for the call.
    using Found = std::function<void(const Pick&)>;

    // A block placed in blocks many times over can show more than any machine holds; a pick that looks at
    // more than this many placed entities and references is a PickError.
    static constexpr std::size_t kMostExamined = 5'000'000;

    explicit Picker(const Drawing& drawing) : mDrawing(drawing) {}

    // The entity nearest to the point, not further away than the aperture; of equally near ones the one drawn
    // last.
    std::optional<Pick> nearest(Point p, double aperture);
    // Entities that lie in the box with all their points.
    void window(const Box& box, const Found& found);
    // Entities with any point in the box.
    void crossing(const Box& box, const Found& found);
    // Entities that the chain of points meets, each with the first meeting along the entity.
    void fence(const std::vector<Point>& fence, const Found& found);
    void all(const Found& found);
    // Everything that one placed reference shows; the paths start behind the reference. The placement is that
    // of the block in which the reference is.
    void allIn(const BlockReference& reference, const Affine& placement, const Found& found);

    // How many placed entities and references the last pick had to look at.
    std::size_t examined() const { return mExamined; }

private:
    // Areas in the drawing that a pick is about, each by the corners of a convex shape.
    using Region = std::vector<std::vector<Point>>;

    class Walk;

    // Calls visitor(curve, pick) for every placed curve that the walk comes to; the pick names the whole
    // entity.
    template <class Visit>
    void visit(Walk& walk, Visit visitor);
    // The same for every one near the region, or without one for all.
    template <class Visit>
    void visitPlaced(const Region* region, Visit visitor);

    const Drawing& mDrawing;
    std::size_t mExamined = 0;
};

} // namespace picker
