#include "examples/picker/BoxTree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

using namespace picker;

namespace {

std::vector<std::size_t> found(const BoxTree& tree, const Box& region) {
    std::vector<std::size_t> indices;
    tree.visitOverlapping(region, [&](std::size_t index) { indices.push_back(index); });
    std::sort(indices.begin(), indices.end());
    return indices;
}

std::vector<std::size_t> foundByLooking(const std::vector<Box>& boxes, const Box& region) {
    std::vector<std::size_t> indices;
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        if (boxes[i].overlaps(region))
            indices.push_back(i);
    }
    return indices;
}

} // namespace

TEST(BoxTree, OfNothingFindsNothing) {
    EXPECT_TRUE(found(BoxTree(), Box::around({0, 0}, 1e9)).empty());
    EXPECT_TRUE(found(BoxTree(std::vector<Box>()), Box::around({0, 0}, 1e9)).empty());
}

TEST(BoxTree, FindsWhatASearchThroughAllFinds) {
    std::mt19937 random(20240607);
    std::uniform_real_distribution<double> place(0, 1000);
    std::uniform_real_distribution<double> size(0, 30);
    for (const std::size_t count : {1u, 2u, 16u, 17u, 255u, 257u, 4000u}) {
        std::vector<Box> boxes;
        for (std::size_t i = 0; i < count; ++i)
            boxes.push_back(Box::around({place(random), place(random)}, size(random)));
        const BoxTree tree(boxes);
        for (int query = 0; query < 50; ++query) {
            const Box region = Box::around({place(random), place(random)}, size(random));
            EXPECT_EQ(found(tree, region), foundByLooking(boxes, region)) << count;
        }
    }
}

TEST(BoxTree, NeverFindsEmptyBoxes) {
    const BoxTree tree({Box(), Box::around({0, 0}, 1), Box()});
    EXPECT_EQ(found(tree, Box::around({0, 0}, 1e9)), std::vector<std::size_t>{1});
}

TEST(BoxTree, ToleratesEndlessBoxes) {
    const double endless = std::numeric_limits<double>::infinity();
    const BoxTree tree({Box::between({-endless, 0}, {endless, 1}), Box::around({5, 5}, 1)});
    EXPECT_EQ(found(tree, Box::around({100, 0.5}, 1)), std::vector<std::size_t>{0});
}
