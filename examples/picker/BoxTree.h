// Finds the boxes that overlap a region without looking at every box. The boxes must not change.
//
// A packed R-tree. The boxes are sorted once, so that neighbours are close to each other. Every kFanout
// neighbours of a level get a parent, whose box is around their boxes. The top level is one root.
#pragma once

#include "examples/picker/Geometry.h"

#include <cstdint>
#include <vector>

namespace picker {

class BoxTree {
public:
    BoxTree() = default;
    // Takes O(n log n) time for n boxes. visitOverlapping() never finds an empty box.
    explicit BoxTree(const std::vector<Box>& boxes);

    // Calls found(index) for each box that overlaps the region, in any order. The index is that of the box in
    // the vector that was passed to the constructor.
    template <class Found>
    void visitOverlapping(const Box& region, Found found) const {
        if (!mNodes.empty())
            visit(mNodes.size() - 1, region, found);
    }

private:
    static constexpr std::uint32_t kFanout = 16;

    struct Node {
        Box box;
        std::uint32_t first; // index of the first child; in a leaf, the index of the box
        std::uint32_t last;  // index after the last child; in a leaf, kLeaf
    };
    static constexpr std::uint32_t kLeaf = 0;

    static void sortIntoTiles(std::vector<Node>& nodes);
    Node parentOf(std::uint32_t first, std::uint32_t last) const;

    template <class Found>
    void visit(std::size_t at, const Box& region, Found& found) const {
        const Node& node = mNodes[at];
        if (!node.box.overlaps(region))
            return;
        if (node.last == kLeaf) {
            found(node.first);
            return;
        }
        for (std::uint32_t child = node.first; child < node.last; ++child)
            visit(child, region, found);
    }

    std::vector<Node> mNodes; // the leaves, then each level above them; the root is last
};

} // namespace picker
