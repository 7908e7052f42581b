// Draws sets while each allocation fails in turn. Nothing leaks, no object stays open, and the items keep
// their segments.
#include "tests/selectcontext/support/DrawingTestSupport.h"
#include "tests/support/AllocationFailure.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <vector>

namespace {

using kvinmemory::livePaths;
using kvtest::addSegments;
using kvtest::edit;
using kvtest::FailurePoint;
using kvtest::forEachAllocationFailure;
using kvtest::registrations;
using kvtest::segmentsAt;
using Indices = std::vector<std::int64_t>;

class FailingDraw : public kvtest::DrawingTest {};

TEST_F(FailingDraw, ClosesUnregistersAndLeavesThePathsToTheSet) {
    const GxDbObjectId a = drawing().addEntity("A");
    const GxDbObjectId b = drawing().addEntity("B");
    forEachAllocationFailure([&](FailurePoint& point) {
        GxapSelectSet set;
        edit(set).append(a, GxDbObjectId());
        edit(set).append(b, GxDbObjectId());
        addSegments(set, 0, {1, 2});
        addSegments(set, 1, {3});
        point.run([&] { set.draw(true, true); });
        EXPECT_EQ(kvinmemory::openObjects(), 0);
        EXPECT_EQ(registrations(set), 0);
        EXPECT_EQ(livePaths(), 3);
        EXPECT_EQ(segmentsAt(set, 0), Indices({1, 2}));
    });
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(FailingDraw, OfOneItemDeletesWhatIsNotResident) {
    const GxDbObjectId made = drawing().addNonResident("made");
    forEachAllocationFailure([&](FailurePoint& point) {
        GxapSelectSet set;
        edit(set).append(made, GxDbObjectId());
        addSegments(set, 0, {1, 2});
        GxapSelectSet::ConstIterator it = set.begin();
        const long objects = kvinmemory::liveObjects();
        point.run([&] { set.draw(it, true, true); });
        EXPECT_EQ(kvinmemory::liveObjects(), objects);
        EXPECT_EQ(segmentsAt(set, 0), Indices({1, 2}));
    });
}

} // namespace
