#include "examples/picker/BoxTree.h"

#include <algorithm>
#include <cmath>

namespace picker {
namespace {

// Returns the middle of `low` and `high`, or 0 if their sum is not finite. The boxes are sorted by their
// middles.
double middle(double low, double high) {
    const double sum = low + high;
    return std::isfinite(sum) ? sum / 2 : 0;
}

} // namespace

BoxTree::BoxTree(const std::vector<Box>& boxes) {
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        if (!boxes[i].isEmpty())
            mNodes.push_back({boxes[i], static_cast<std::uint32_t>(i), kLeaf});
    }
    sortIntoTiles(mNodes);
    std::uint32_t levelBegin = 0;
    std::uint32_t levelEnd = static_cast<std::uint32_t>(mNodes.size());
    while (levelEnd - levelBegin > 1) {
        for (std::uint32_t first = levelBegin; first < levelEnd; first += kFanout)
            mNodes.push_back(parentOf(first, std::min(first + kFanout, levelEnd)));
        levelBegin = levelEnd;
        levelEnd = static_cast<std::uint32_t>(mNodes.size());
    }
}

// Sorts the nodes from left to right into vertical slices, and the nodes of each slice from low to high.
// Every kFanout neighbours then make a tile. There are about as many slices as tiles in a slice.
void BoxTree::sortIntoTiles(std::vector<Node>& nodes) {
    const auto byX = [](const Node& a, const Node& b) {
        return middle(a.box.low.x, a.box.high.x) < middle(b.box.low.x, b.box.high.x);
    };
    const auto byY = [](const Node& a, const Node& b) {
        return middle(a.box.low.y, a.box.high.y) < middle(b.box.low.y, b.box.high.y);
    };
    std::sort(nodes.begin(), nodes.end(), byX);
    const double tiles = std::ceil(static_cast<double>(nodes.size()) / kFanout);
    const std::size_t slice = kFanout * static_cast<std::size_t>(std::ceil(std::sqrt(tiles)));
    for (std::size_t begin = 0; begin < nodes.size(); begin += slice) {
        const std::size_t end = std::min(begin + slice, nodes.size());
        std::sort(nodes.begin() + static_cast<std::ptrdiff_t>(begin),
                  nodes.begin() + static_cast<std::ptrdiff_t>(end), byY);
    }
}

BoxTree::Node BoxTree::parentOf(std::uint32_t first, std::uint32_t last) const {
    Box box;
    for (std::uint32_t child = first; child < last; ++child)
        box.add(mNodes[child].box);
    return {box, first, last};
}

} // namespace picker
