#include "examples/picker/window/Candidates.h"

#include "tests/examples/picker/Svg.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

using namespace picker;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<std::string> namesAt(const Drawing& drawing, Point p, double aperture) {
    std::vector<std::string> names;
    for (const Pick& pick : candidatesAt(drawing, p, aperture))
        names.emplace_back(drawing.database().nameOf(pick.path.back()));
    return names;
}

} // namespace

TEST(Candidates, ComeNearestFirst) {
    const Drawing drawing(kvtest::sceneOf("<line id='far' x1='0' y1='13' x2='100' y2='13'/>"
                                          "<line id='near' x1='0' y1='11' x2='100' y2='11'/>"
                                          "<line id='away' x1='0' y1='20' x2='100' y2='20'/>"));
    EXPECT_THAT(namesAt(drawing, {50, 10}, 5), ElementsAre("near", "far"));
}

TEST(Candidates, ComeLastDrawnFirstIfTheyAreEquallyNear) {
    const Drawing drawing(kvtest::sceneOf("<line id='below' x1='0' y1='10' x2='100' y2='10'/>"
                                          "<line id='above' x1='0' y1='10' x2='100' y2='10'/>"));
    EXPECT_THAT(namesAt(drawing, {50, 10}, 1), ElementsAre("above", "below"));
}

TEST(Candidates, LieWithinTheCircleOfTheAperture) {
    const Drawing drawing(kvtest::sceneOf("<line id='a' x1='14' y1='14' x2='30' y2='30'/>"));
    EXPECT_THAT(namesAt(drawing, {10, 10}, 5), IsEmpty()); // in the square around the circle
    EXPECT_THAT(namesAt(drawing, {10, 10}, 6), ElementsAre("a"));
}

TEST(Candidates, BeginWithWhatAPickFinds) {
    std::mt19937 random(7);
    std::uniform_int_distribution<int> coordinate(0, 100);
    std::string lines;
    for (int i = 0; i < 60; ++i) {
        lines +=
            "<line x1='" + std::to_string(coordinate(random)) + "' y1='" + std::to_string(coordinate(random));
        lines += "' x2='" + std::to_string(coordinate(random)) + "' y2='" +
                 std::to_string(coordinate(random)) + "'/>";
    }
    const Drawing drawing(kvtest::sceneOf("<g id='b'>" + lines + "</g><use href='#b' x='3' y='5'/>"));
    for (int i = 0; i < 300; ++i) {
        const Point p{static_cast<double>(coordinate(random)), static_cast<double>(coordinate(random))};
        const std::vector<Pick> candidates = candidatesAt(drawing, p, 4);
        const std::optional<Pick> nearest = Picker(drawing).nearest(p, 4);
        ASSERT_EQ(candidates.empty(), !nearest);
        if (!nearest)
            continue;
        EXPECT_EQ(candidates.front().path, nearest->path);
        EXPECT_EQ(candidates.front().gsMarker, nearest->gsMarker);
    }
}
