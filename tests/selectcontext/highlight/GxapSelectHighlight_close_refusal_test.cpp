// Tests draw() and getFilteredNestedFullPath() when releasing an entity throws.

#include "tests/selectcontext/support/RecordTestSupport.h"

#include <csignal>
#include <gtest/gtest.h>
#include <memory>

namespace {

struct Refusal {};

bool gRefuses = false;
bool gRefusesId = false;
int gCloses = 0;

} // namespace

// Replaces close() of the platform, and leaves the object open. So the tests of this file must not check that
// objects are closed.
GxErrorStatus GxDbObject::close() {
    ++gCloses;
    if (gRefuses)
        throw Refusal();
    return eOk;
}

// Replaces objectId() of the platform. The library asks for the id of each entity that it releases.
GxDbObjectId GxDbObject::objectId() const {
    if (gRefusesId)
        throw Refusal();
    return GxDbObjectId(mStub);
}

namespace {

using kvinmemory::DatabaseCall;
using kvinmemory::livePaths;
using kvtest::edit;
using kvtest::registrations;

// Has a set of one item. The item has a segment and a nested path of two ids. Closing an entity throws.
class RefusedClose : public kvtest::SetTest {
protected:
    void SetUp() override {
        SetTest::SetUp();
        mDrawing = std::make_unique<kvinmemory::Database>(64);
        const GxDbObjectId outer = mDrawing->addEntity("outer");
        const GxDbObjectId inner = mDrawing->addEntity("inner");
        set = std::make_unique<GxapSelectSet>();
        const KvVector<GxDbObjectId> nested = kvtest::idVector({outer, inner});
        edit(*set).select(inner, GxDbObjectId(), -1, nullptr, &nested);
        const GxDbFullSubentPath path = kvtest::subentPath({outer, inner}, 1, 1);
        edit(*set).begin().setHighlightSegment(&path);
        gCloses = 0;
        gRefuses = true;
    }

    void TearDown() override {
        gRefuses = false;
        gRefusesId = false;
        set.reset();
        mDrawing.reset();
        SetTest::TearDown();
    }

    std::unique_ptr<GxapSelectSet> set;

private:
    std::unique_ptr<kvinmemory::Database> mDrawing;
};

TEST_F(RefusedClose, ReachesTheCallerOfADrawing) {
    EXPECT_THROW(set->draw(true, true), Refusal);
    EXPECT_EQ(kvinmemory::databaseEvents(DatabaseCall::Highlight).size(), 1u);
    EXPECT_EQ(gCloses, 1);
    EXPECT_EQ(registrations(*set), 0);
}

TEST_F(RefusedClose, LeavesTheSegmentsOfADrawingToTheItem) {
    EXPECT_THROW(set->draw(true, true), Refusal);
    EXPECT_EQ(livePaths(), 1);
    edit(*set).begin().setHighlightSegment(nullptr);
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(RefusedClose, ReachesTheCallerOfAPathsResolution) {
    const GxapSelectSet::ConstIterator it = set->begin();
    KvVector<GxDbObjectId> ids;
    EXPECT_THROW(it.getFilteredNestedFullPath(ids), Refusal);
    EXPECT_EQ(gCloses, 1);
    EXPECT_EQ(it.nestedEntFullPath().logicalLength(), 2);
}

TEST_F(RefusedClose, OfTheIdReachesTheCallerOfADrawing) {
    kvinmemory::setLogging(false); // the log asks for the id, too
    gRefusesId = true;
    EXPECT_THROW(set->draw(true, true), Refusal);
    EXPECT_EQ(gCloses, 0);
    EXPECT_EQ(registrations(*set), 0);
    gRefusesId = false;
    edit(*set).begin().setHighlightSegment(nullptr);
    EXPECT_EQ(livePaths(), 0);
}

// Two exceptions at once end any program.
TEST(RefusedCloseDeathTest, AfterAHighlightThatThrewEndsTheProcess) {
    kvinmemory::Database drawing(64);
    const GxDbObjectId id = drawing.addEntity();
    GxapSelectSet set;
    edit(set).append(id, GxDbObjectId());
    const GxDbFullSubentPath path = kvtest::subentPath({id}, 1, 1);
    edit(set).begin().setHighlightSegment(&path);
    const auto draw = [&] {
        gRefuses = true;
        kvinmemory::throwFromHighlight(1);
        set.draw(true, true);
    };
    EXPECT_EXIT(draw(), ::testing::KilledBySignal(SIGABRT), "");
}

} // namespace
