#include "examples/picker/Picker.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace picker {
namespace {

// Enlarges a box a little. A point on the border of the box must count as inside even if rounding has moved
// the point outside.
Box withRounding(Box box) {
    constexpr double kShare = 1e-9;
    const double x = kShare * (std::abs(box.low.x) + std::abs(box.high.x));
    const double y = kShare * (std::abs(box.low.y) + std::abs(box.high.y));
    box.low = box.low - Point{x, y};
    box.high = box.high + Point{x, y};
    return box;
}

std::vector<Point> cornersOf(const Box& box) {
    return {box.low, {box.high.x, box.low.y}, box.high, {box.low.x, box.high.y}};
}

Box boxAround(const std::vector<Point>& corners, const Affine& transform) {
    Box box;
    for (const Point corner : corners)
        box.add(transform(corner));
    return withRounding(box);
}

} // namespace

// Visits the placed entities, also those inside references. A stack replaces recursion, so references may be
// nested to any depth.
class Picker::Walk {
public:
    Walk(const BlockDefinition& block, const Affine& placement, const Region* region, Interrupt* interrupt)
        : mRegion(region), mInterrupt(interrupt), mPlacements{placement} {
        push(block);
    }

    // Advances to the next placed curve. Returns null at the end.
    const Curve* next(Pick& pick) {
        while (!mSteps.empty()) {
            const Step step = mSteps.back();
            mSteps.pop_back();
            countStep();
            pick.path.resize(step.depth);
            mPlacements.resize(step.depth + 1);
            const BlockDefinition::Content& content = step.block->contents()[step.index];
            pick.path.push_back(content.id);
            if (content.curve) {
                pick.placement = mPlacements.back();
                return content.curve;
            }
            mPlacements.push_back(mPlacements.back() * content.reference->placement());
            push(content.reference->block());
        }
        return nullptr;
    }

    std::size_t examined() const { return mExamined; }

private:
    struct Step {
        const BlockDefinition* block;
        std::uint32_t index; // of the content in the block
        std::uint32_t depth; // number of references around the content
    };

    void countStep() {
        if (mInterrupt)
            mInterrupt->check();
        if (++mExamined > kMostExamined)
            throw PickError("more than " + std::to_string(kMostExamined) + " entities; pick a smaller part");
    }

    // Pushes the contents that may meet the region. The content that comes first in drawing order is on top
    // of the stack.
    void push(const BlockDefinition& block) {
        const std::size_t bottom = mSteps.size();
        const auto depth = static_cast<std::uint32_t>(mPlacements.size() - 1);
        const auto pushContent = [&](std::size_t index) {
            mSteps.push_back({&block, static_cast<std::uint32_t>(index), depth});
        };
        // Without a region, pushes all contents. Does the same if the placement has no inverse: such a
        // placement flattens the block into a line or a point.
        const std::optional<Affine> toBlock = mRegion ? mPlacements.back().inverse() : std::nullopt;
        if (!toBlock) {
            for (std::size_t i = block.contents().size(); i > 0; --i)
                pushContent(i - 1);
            return;
        }
        for (const std::vector<Point>& corners : *mRegion)
            block.tree().visitOverlapping(boxAround(corners, *toBlock), pushContent);
        const auto begin = mSteps.begin() + static_cast<std::ptrdiff_t>(bottom);
        std::sort(begin, mSteps.end(), [](const Step& a, const Step& b) { return a.index > b.index; });
        const auto isSame = [](const Step& a, const Step& b) { return a.index == b.index; };
        mSteps.erase(std::unique(begin, mSteps.end(), isSame), mSteps.end());
    }

    const Region* mRegion;
    Interrupt* mInterrupt;
    std::vector<Step> mSteps;
    std::vector<Affine> mPlacements; // at each depth, the placement of the current block
    std::size_t mExamined = 0;
};

template <class Visit>
void Picker::visit(Walk& walk, Visit visitor) {
    Pick pick;
    mPathIds = 0;
    while (const Curve* curve = walk.next(pick)) {
        visitor(*curve, pick);
        pick.gsMarker = -1;
        pick.crossing.reset();
    }
    mExamined = walk.examined();
}

template <class Visit>
void Picker::visitPlaced(const Region* region, Visit visitor) {
    Walk walk(mDrawing.model(), Affine(), region, mInterrupt);
    visit(walk, visitor);
}

void Picker::report(const Pick& pick, const Found& found) {
    mPathIds += pick.path.size();
    if (mPathIds > kMostPathIds)
        throw PickError("more than " + std::to_string(kMostPathIds) +
                        " ids in the paths of blocks in blocks; pick a smaller part");
    found(pick);
}

std::optional<Pick> Picker::nearest(Point p, double aperture) {
    const Region region{cornersOf(Box::around(p, aperture))};
    std::optional<Pick> best;
    double bestDistance = aperture;
    visitPlaced(&region, [&](const Curve& curve, const Pick& pick) {
        const std::optional<NearestSegment> near = nearestSegment(curve.outline(), pick.placement, p);
        if (!near || !(near->distance <= bestDistance))
            return;
        best = pick;
        best->gsMarker = near->segment + 1;
        bestDistance = near->distance;
    });
    return best;
}

void Picker::window(const Box& box, const Found& found) {
    const Region region{cornersOf(box)};
    const Box inside = withRounding(box);
    visitPlaced(&region, [&](const Curve& curve, const Pick& pick) {
        if (isWhollyInside(curve.outline(), pick.placement, inside))
            report(pick, found);
    });
}

void Picker::crossing(const Box& box, const Found& found) {
    const Region region{cornersOf(box)};
    const Box inside = withRounding(box);
    visitPlaced(&region, [&](const Curve& curve, const Pick& pick) {
        if (touches(curve.outline(), pick.placement, inside))
            report(pick, found);
    });
}

void Picker::fence(const std::vector<Point>& fence, const Found& found) {
    Region region;
    for (std::size_t i = 1; i < fence.size(); ++i)
        region.push_back({fence[i - 1], fence[i]});
    visitPlaced(&region, [&](const Curve& curve, Pick& pick) {
        pick.crossing = earliestCrossing(curve.outline(), pick.placement, fence);
        if (!pick.crossing)
            return;
        pick.gsMarker = pick.crossing->segment + 1;
        report(pick, found);
    });
}

void Picker::all(const Found& found) {
    visitPlaced(nullptr, [&](const Curve&, const Pick& pick) { report(pick, found); });
}

void Picker::allIn(const BlockReference& reference, const Affine& placement, const Found& found) {
    Walk walk(reference.block(), placement * reference.placement(), nullptr, mInterrupt);
    visit(walk, [&](const Curve&, const Pick& pick) { found(pick); });
}

} // namespace picker
