#include "examples/picker/Filter.h"

#include "tests/examples/picker/Svg.h"

#include <gtest/gtest.h>

using namespace picker;
using kvtest::sceneOf;

namespace {

// The handles:
//   1 drawing: 2 line, 3 reference to block desk
//   4 block desk: 5 rect
const Drawing& drawing() {
    static const Drawing drawing(sceneOf("<symbol id='desk'><rect width='10' height='10'/></symbol>"
                                         "<line y1='80' y2='80' x2='10'/><use href='#desk' x='50'/>"));
    return drawing;
}

const BlockDefinition::Content& content(const std::string& handle) {
    return *drawing().model().find(drawing().find(handle));
}

} // namespace

TEST(Filter, TypeIsThatOfACurve) {
    EXPECT_TRUE(curvesOfType("line")(content("2")));
    EXPECT_FALSE(curvesOfType("rect")(content("2")));
    EXPECT_FALSE(curvesOfType("rect")(content("3")));
}

TEST(Filter, BlockIsThatOfAReference) {
    EXPECT_TRUE(referencesTo("desk")(content("3")));
    EXPECT_FALSE(referencesTo("chair")(content("3")));
    EXPECT_FALSE(referencesTo("desk")(content("2")));
}

TEST(Filter, BoxTakesWhatIsWhollyInsideWhereItIsPlaced) {
    EXPECT_TRUE(inside(Box::between({50, 0}, {60, 10}))(content("3")));
    EXPECT_FALSE(inside(Box::between({50, 0}, {59, 10}))(content("3")));
    EXPECT_FALSE(inside(Box::between({0, 0}, {10, 10}))(content("3")));
    EXPECT_TRUE(inside(Box::between({0, 80}, {10, 80}))(content("2")));
}
