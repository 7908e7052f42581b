// Finds the placed entities that the user picks: under a point, in a box or along a fence.
#pragma once

#include "examples/picker/Drawing.h"
#include "examples/picker/Interrupt.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <stdexcept>
#include <vector>

namespace picker {

// An entity that a pick finds, at one of the places where the drawing shows the entity.
struct Pick {
    // The ids of the references, outermost first, and then that of the entity. A single id if the entity is
    // in no block.
    std::vector<GxDbObjectId> path;
    Affine placement;                 // maps the entity's coordinates to those of the drawing
    long gsMarker = -1;               // the segment that was met, counted from 1; -1: the whole entity
    std::optional<Crossing> crossing; // where the fence first meets the entity

    bool isNested() const { return path.size() > 1; }
};

class PickError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class Picker {
public:
    // A function that a pick calls for each entity, in drawing order. The Pick belongs to the picker and is
    // valid only during the call.
    using Found = std::function<void(const Pick&)>;

    // The largest number of placed entities and references that a pick may examine. A pick that would examine
    // more throws PickError. Such a limit is needed: blocks in blocks can show more entities than any machine
    // can process.
    static constexpr std::size_t kMostExamined = 5'000'000;

    // The largest number of ids in the paths of all entities that a pick finds. A chain of nested blocks with
    // an entity on each level would otherwise take memory by the square of its depth.
    static constexpr std::size_t kMostPathIds = 20'000'000;

    // If `interrupt` is not null, picks check it, and throw Cancelled if it says so.
    explicit Picker(const Drawing& drawing, Interrupt* interrupt = nullptr)
        : mDrawing(drawing), mInterrupt(interrupt) {}

    // Returns the entity nearest to the point, if it is within the aperture. If several entities are equally
    // near, returns the one that was drawn last.
    std::optional<Pick> nearest(Point p, double aperture);
    // Finds the entities that have all their points in the box.
    void window(const Box& box, const Found& found);
    // Finds the entities that have any point in the box.
    void crossing(const Box& box, const Found& found);
    // Finds the entities that the chain of lines meets. Pick::crossing is the first crossing along the
    // entity.
    void fence(const std::vector<Point>& fence, const Found& found);
    void all(const Found& found);
    // Finds every entity that one placed reference shows. `placement` is the placement of the block that
    // contains the reference. The paths do not include the reference.
    void allIn(const BlockReference& reference, const Affine& placement, const Found& found);

    // Returns how many placed entities and references the last pick examined.
    std::size_t examined() const { return mExamined; }

private:
    // The areas of the drawing that a pick examines. Each area is a convex shape, given by its corners.
    using Region = std::vector<std::vector<Point>>;

    class Walk;

    // Calls visitor(curve, pick) for every placed curve of the walk. The pick has no marker and no crossing
    // yet.
    template <class Visit>
    void visit(Walk& walk, Visit visitor);
    // Calls visitor(curve, pick) for every placed curve near the region, or for all if `region` is null.
    template <class Visit>
    void visitPlaced(const Region* region, Visit visitor);

    // Calls found(pick), and counts the ids of its path.
    void report(const Pick& pick, const Found& found);

    const Drawing& mDrawing;
    Interrupt* mInterrupt;
    std::size_t mExamined = 0;
    std::size_t mPathIds = 0;
};

} // namespace picker
