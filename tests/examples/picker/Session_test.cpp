#include "examples/picker/Session.h"

#include "tests/examples/picker/Svg.h"

#include <gtest/gtest.h>

using namespace picker;
using kvtest::sceneOf;

namespace {

// A session whose drawing has a line and two blocks. Block s has a square of side 10. Block t places block s,
// doubled. The drawing places block s at (0, 0) and block t at (50, 50).
class PickSession : public testing::Test {
protected:
    PickSession() {
        session.load(
            sceneOf("<symbol id='s'><rect width='10' height='10'/></symbol>"
                    "<symbol id='t'><use href='#s' transform='scale(2)'/></symbol>"
                    "<line y1='80' y2='80' x2='10'/><use href='#s'/><use href='#t' x='50' y='50'/>"));
    }

    GxDbObjectId id(const std::string& handle) const { return session.drawing().find(handle); }

    std::vector<GxDbObjectId> pathOf(const GxapSelectSet::ConstIterator& it) const {
        std::vector<GxDbObjectId> ids;
        for (int i = 0; i < it.nestedEntFullPath().logicalLength(); ++i)
            ids.push_back(it.nestedEntFullPath().at(i));
        return ids;
    }

    // The handles:
    //   1 drawing: 2 line, 3 reference to block s, 4 reference to block t
    //   5 block s: 6 rect
    //   7 block t: 8 reference to block s
    Session session;
};

} // namespace

TEST_F(PickSession, PlainPickIsItsOwnMainIdAndHasNoMore) {
    session.pick({5, 80}, 1);
    const GxapSelectSet::ConstIterator it = session.set().begin();
    EXPECT_EQ(it.mainEntId(), id("2"));
    EXPECT_TRUE(it.subEntId().isNull());
    EXPECT_EQ(it.gsMarker(), 1);
    EXPECT_TRUE(pathOf(it).empty());
    EXPECT_EQ(it.selectedEntityInfo(), nullptr);
}

TEST_F(PickSession, NestedPickHasTheOutermostReferenceAsMainId) {
    session.pick({60, 70}, 1);
    const GxapSelectSet::ConstIterator it = session.set().begin();
    EXPECT_EQ(it.mainEntId(), id("4"));
    EXPECT_EQ(it.subEntId(), id("6"));
    EXPECT_EQ(it.gsMarker(), 3);
    EXPECT_EQ(pathOf(it), (std::vector<GxDbObjectId>{id("4"), id("8"), id("6")}));
}

TEST_F(PickSession, NestedPickHasTheCompoundTransform) {
    session.pick({60, 70}, 1);
    GxGeMatrix3d matrix;
    ASSERT_TRUE(session.set().begin().selectedEntityInfo()->getCompoundTransformWithBTROffset(matrix));
    const double expected[4][4] = {{2, 0, 0, 50}, {0, 2, 0, 50}, {0, 0, 1, 0}, {0, 0, 0, 1}};
    for (int row = 0; row < 4; ++row) {
        for (int column = 0; column < 4; ++column)
            EXPECT_DOUBLE_EQ(matrix.entry[row][column], expected[row][column]) << row << ',' << column;
    }
}

TEST_F(PickSession, TransformOfATurnedBlockHasItsSinesAcross) {
    session.load(sceneOf(
        "<g id='g' transform='scale(1)'><line x1='1' x2='2'/></g><use href='#g' transform='rotate(90)'/>"));
    session.pick({0, 1.5}, 0.1);
    GxGeMatrix3d matrix;
    ASSERT_TRUE(session.set().begin().selectedEntityInfo()->getCompoundTransformWithBTROffset(matrix));
    EXPECT_NEAR(matrix.entry[0][1], -1, 1e-12);
    EXPECT_NEAR(matrix.entry[1][0], 1, 1e-12);
}

TEST_F(PickSession, FencePickKeepsTheFirstCrossing) {
    session.fence({{8, -1}, {8, 1}, {12, 1}});
    ASSERT_EQ(itemCount(session.set()), 1u);
    const GxapSelectSet::ConstIterator it = session.set().begin();
    SelFenceIntersectInfo crossing{};
    ASSERT_TRUE(it.selectedEntityInfo()->getSelFenceResultInfo(crossing));
    EXPECT_EQ(crossing.index, 0);
    EXPECT_DOUBLE_EQ(crossing.param, 0.8);
    EXPECT_EQ(it.gsMarker(), 1);
    EXPECT_NE(it.selectedEntityInfo()->getBTRMatPtr(), nullptr);
}

TEST_F(PickSession, FencePickOfAPlainEntityHasNoTransform) {
    session.fence({{4, 79}, {4, 81}});
    const GxapSelectSet::ConstIterator it = session.set().begin();
    ASSERT_NE(it.selectedEntityInfo(), nullptr);
    EXPECT_EQ(it.selectedEntityInfo()->getBTRMatPtr(), nullptr);
}

TEST_F(PickSession, BoxPicksNameWholeEntities) {
    session.window(Box::between({-1, -1}, {11, 11}));
    const GxapSelectSet::ConstIterator it = session.set().begin();
    EXPECT_EQ(it.gsMarker(), -1);
    EXPECT_EQ(it.mainEntId(), id("3"));
    SelFenceIntersectInfo crossing{};
    EXPECT_FALSE(it.selectedEntityInfo()->getSelFenceResultInfo(crossing));
}

TEST_F(PickSession, TallyTellsAddedFromRefused) {
    const Tally first = session.crossing(Box::between({5, -1}, {6, 90}));
    EXPECT_EQ(first.found, 2u);
    EXPECT_EQ(first.added, 2u);
    EXPECT_EQ(first.refused(), 0u);
    const Tally second = session.all();
    EXPECT_EQ(second.found, 3u);
    EXPECT_EQ(second.added, 1u);
    EXPECT_EQ(second.refused(), 2u);
    EXPECT_EQ(itemCount(session.set()), 3u);
}

TEST_F(PickSession, SegmentsOfOneEntityAreDifferentItems) {
    EXPECT_EQ(session.pick({5, 0}, 1).added, 1u);
    EXPECT_EQ(session.pick({10, 5}, 1).added, 1u);
    EXPECT_EQ(session.pick({5, 0}, 1).added, 0u);
}

TEST_F(PickSession, NothingFoundChangesNothing) {
    const Tally tally = session.pick({30, 30}, 1);
    EXPECT_EQ(tally.found, 0u);
    EXPECT_EQ(itemCount(session.set()), 0u);
}

TEST_F(PickSession, ByIdTakesPlainEntitiesAndWholeReferences) {
    session.byPaths({{id("2")}});
    session.byPaths({{id("4")}});
    GxapSelectSet::ConstIterator it = session.set().begin();
    EXPECT_EQ(it.mainEntId(), id("2"));
    it.step();
    EXPECT_EQ(it.mainEntId(), id("4"));
    EXPECT_TRUE(it.subEntId().isNull());
    EXPECT_EQ(it.gsMarker(), -1);
    EXPECT_TRUE(pathOf(it).empty());
}

TEST_F(PickSession, ByPathIsTheSameItemAsABoxPick) {
    session.window(Box::between({49, 49}, {71, 71}));
    const Tally tally = session.byPaths({{id("4"), id("8"), id("6")}});
    EXPECT_EQ(tally.found, 1u);
    EXPECT_EQ(tally.refused(), 1u);
}

TEST_F(PickSession, ByPathRefusesWhatIsNotThere) {
    EXPECT_THROW(session.byPaths({{id("6")}}), CommandError);
    EXPECT_THROW(session.byPaths({{id("3"), id("8")}}), CommandError);
    EXPECT_THROW(session.byPaths({{id("2"), id("6")}}), CommandError);
    EXPECT_THROW(session.byPaths({{id("5")}}), CommandError);
    EXPECT_EQ(itemCount(session.set()), 0u);
}

TEST_F(PickSession, CopySharesUntilOneChanges) {
    session.pick({5, 80}, 1);
    session.copyTo("B");
    EXPECT_EQ(session.sets().at("A").sharedData, session.sets().at("B").sharedData);
    session.pick({5, 0}, 1);
    EXPECT_EQ(itemCount(session.sets().at("A")), 2u);
    EXPECT_EQ(itemCount(session.sets().at("B")), 1u);
}

TEST_F(PickSession, RefusedPickLeavesACopyShared) {
    session.pick({5, 80}, 1);
    session.copyTo("B");
    session.pick({5, 80}, 1);
    EXPECT_EQ(session.sets().at("A").sharedData, session.sets().at("B").sharedData);
}

TEST_F(PickSession, CopyOntoItselfChangesNothing) {
    session.pick({5, 80}, 1);
    session.copyTo("A");
    EXPECT_EQ(itemCount(session.set()), 1u);
}

TEST_F(PickSession, PicksGoIntoTheSetInUse) {
    session.use("B");
    session.pick({5, 80}, 1);
    EXPECT_EQ(itemCount(session.sets().at("A")), 0u);
    EXPECT_EQ(itemCount(session.sets().at("B")), 1u);
}

TEST_F(PickSession, LoadingStartsAgain) {
    session.use("B");
    session.all();
    session.load(sceneOf("<line x2='1'/>"));
    EXPECT_EQ(session.currentName(), "A");
    EXPECT_EQ(session.sets().size(), 1u);
    EXPECT_EQ(itemCount(session.set()), 0u);
}

TEST_F(PickSession, FailedLoadKeepsTheDrawingAndTheSets) {
    session.all();
    EXPECT_ANY_THROW(session.load("/no/such/file.svg"));
    EXPECT_EQ(itemCount(session.set()), 3u);
    EXPECT_TRUE(session.hasDrawing());
}

TEST(Session, WithoutADrawingPicksAreErrors) {
    Session session;
    EXPECT_FALSE(session.hasDrawing());
    EXPECT_THROW(session.all(), CommandError);
    EXPECT_THROW(session.pick({0, 0}, 1), CommandError);
}
