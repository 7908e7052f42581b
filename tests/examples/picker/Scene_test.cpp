#include "examples/picker/Scene.h"

#include <gtest/gtest.h>

using namespace picker;

namespace {

Insert insertOf(std::size_t block) {
    Insert insert;
    insert.block = block;
    insert.line = 7;
    return insert;
}

// Returns a scene in which block i inserts the blocks in inserts[i].
Scene sceneOf(const std::vector<std::vector<std::size_t>>& inserts) {
    Scene scene;
    for (const std::vector<std::size_t>& blocks : inserts) {
        scene.blocks.emplace_back();
        for (const std::size_t block : blocks)
            scene.blocks.back().contents.push_back(insertOf(block));
    }
    return scene;
}

} // namespace

TEST(Scene, CountsOmissionsByNameAndKeepsTheFirstLine) {
    Scene scene;
    scene.omit("text", 3);
    scene.omit("image", 5);
    scene.omit("text", 9);
    ASSERT_EQ(scene.omissions.size(), 2u);
    EXPECT_EQ(scene.omissions[0].what, "text");
    EXPECT_EQ(scene.omissions[0].count, 2u);
    EXPECT_EQ(scene.omissions[0].firstLine, 3u);
}

TEST(Scene, OrdersBlocksBehindWhatTheyInsert) {
    Scene scene = sceneOf({{2, 1}, {2}, {}});
    scene.untangle();
    EXPECT_EQ(scene.innermostFirst, (std::vector<std::size_t>{2, 1, 0}));
    EXPECT_TRUE(scene.omissions.empty());
}

TEST(Scene, CutsABlockOutOfItself) {
    Scene scene = sceneOf({{1}, {1, 2}, {}});
    scene.untangle();
    ASSERT_EQ(scene.blocks[1].contents.size(), 1u);
    EXPECT_EQ(std::get<Insert>(scene.blocks[1].contents[0]).block, 2u);
    ASSERT_EQ(scene.omissions.size(), 1u);
    EXPECT_EQ(scene.omissions[0].firstLine, 7u);
}

TEST(Scene, CutsALongCircleOnce) {
    Scene scene = sceneOf({{1}, {2}, {3}, {1}});
    scene.untangle();
    EXPECT_TRUE(scene.blocks[3].contents.empty());
    EXPECT_EQ(scene.blocks[1].contents.size(), 1u);
    EXPECT_EQ(scene.innermostFirst, (std::vector<std::size_t>{3, 2, 1, 0}));
}

TEST(Scene, PlacingABlockTwiceIsNoCircle) {
    Scene scene = sceneOf({{1, 1, 2}, {2, 2}, {}});
    scene.untangle();
    EXPECT_TRUE(scene.omissions.empty());
    EXPECT_EQ(scene.blocks[0].contents.size(), 3u);
}

TEST(Scene, UntanglesAHundredThousandLevels) {
    std::vector<std::vector<std::size_t>> inserts;
    for (std::size_t i = 0; i < 100'000; ++i)
        inserts.push_back({i + 1});
    inserts.push_back({0});
    Scene scene = sceneOf(inserts);
    scene.untangle();
    EXPECT_EQ(scene.innermostFirst.front(), 100'000u);
    EXPECT_EQ(scene.omissions.size(), 1u);
}

TEST(Scene, CutsManyInsertsOfABlockOutOfItself) {
    Scene scene = sceneOf({std::vector<std::size_t>(400'000, 0)});
    scene.untangle();
    EXPECT_TRUE(scene.blocks[0].contents.empty());
    EXPECT_EQ(scene.omissions.at(0).count, 400'000u);
}

TEST(Scene, CountsManyKindsOfOmissions) {
    Scene scene;
    for (int round = 0; round < 2; ++round) {
        for (std::size_t i = 0; i < 200'000; ++i)
            scene.omit(std::to_string(i), i);
    }
    EXPECT_EQ(scene.omissions.size(), 200'000u);
    EXPECT_EQ(scene.omissions.back().count, 2u);
}
