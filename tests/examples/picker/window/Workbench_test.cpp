#include "examples/picker/window/Workbench.h"

#include "tests/examples/picker/Svg.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace picker;
using testing::HasSubstr;

namespace {

class WorkbenchTest : public testing::Test {
protected:
    WorkbenchTest() {
        bench.session().load(kvtest::sceneOf("<line id='a' x1='20' y1='20' x2='80' y2='20'/>"
                                             "<line id='b' x1='20' y1='40' x2='80' y2='40'/>"));
    }

    std::uint32_t items() { return itemCount(bench.session().set()); }
    static Area boxAt(Point corner, Point opposite, Area::Kind kind = Area::Kind::window) {
        return {kind, {corner, opposite}};
    }

    Workbench bench;
};

} // namespace

TEST_F(WorkbenchTest, ReportsWhatACommandPrints) {
    const Workbench::Report report = bench.run("count");
    EXPECT_FALSE(report.isError);
    EXPECT_EQ(report.command, "count");
    EXPECT_EQ(report.text, "set A: 0 items under 0 main ids\n");
}

TEST_F(WorkbenchTest, ReportsWhyACommandFails) {
    const Workbench::Report report = bench.run("nonsense");
    EXPECT_TRUE(report.isError);
    EXPECT_THAT(report.text, HasSubstr("unknown command 'nonsense'"));
}

TEST_F(WorkbenchTest, ReportsTheEnd) {
    EXPECT_TRUE(bench.run("quit").isFinished);
    EXPECT_FALSE(bench.run("count").isFinished);
}

TEST_F(WorkbenchTest, WritesNumbersSoThatTheyAreReadExactly) {
    const double third = 100. / 3;
    const Workbench::Report report = bench.pick(boxAt({0.1, third}, {90, 50}), Change::add);
    EXPECT_EQ(report.command, "window 0.1 33.333333333333336 90 50");
    EXPECT_EQ(items(), 1u);
}

TEST_F(WorkbenchTest, RunsACommandForEachPickThatAddsOrRemoves) {
    EXPECT_EQ(bench.pick({Area::Kind::point, {{30, 20}}, 2}, Change::add).command, "pick 30 20 2");
    EXPECT_EQ(bench.pick({Area::Kind::point, {{30, 20}}, 2}, Change::remove).command, "remove-pick 30 20 2");
    EXPECT_EQ(bench.pick(boxAt({1, 2}, {3, 4}), Change::remove).command, "remove-box 1 2 3 4");
    EXPECT_EQ(bench.pick(boxAt({1, 2}, {3, 4}, Area::Kind::crossing), Change::add).command,
              "crossing 1 2 3 4");
    EXPECT_EQ(bench.pick(boxAt({1, 2}, {3, 4}, Area::Kind::crossing), Change::remove).command,
              "remove-crossing 1 2 3 4");
    EXPECT_EQ(bench.pick({Area::Kind::fence, {{1, 2}, {3, 4}, {5, 6}}}, Change::add).command,
              "fence 1 2 3 4 5 6");
    EXPECT_EQ(bench.pick({Area::Kind::fence, {{1, 2}, {3, 4}, {5, 6}}}, Change::remove).command,
              "remove-fence 1 2 3 4 5 6");
}

TEST_F(WorkbenchTest, RemovesRowsInAnyOrder) {
    bench.run("all");
    bench.removeAt({0, 1});
    EXPECT_EQ(items(), 0u);
}

TEST_F(WorkbenchTest, TellsThePositionOfAnEntity) {
    bench.run("all");
    const GxDbObjectId b = bench.session().drawing().database().findByName("b");
    EXPECT_EQ(bench.positionOf({b}), 1);
    bench.run("clear");
    EXPECT_EQ(bench.positionOf({b}), -1);
}
