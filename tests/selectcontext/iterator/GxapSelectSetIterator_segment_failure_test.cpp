// Edits highlight segments while each allocation fails in turn. Nothing leaks. An edit that throws changes
// nothing. Clearing the segments needs no memory.
#include "tests/selectcontext/support/DrawingTestSupport.h"
#include "tests/support/AllocationFailure.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <vector>

namespace {

using kvinmemory::livePaths;
using kvtest::addSegments;
using kvtest::edit;
using kvtest::Expect;
using kvtest::FailurePoint;
using kvtest::Filled;
using kvtest::forEachAllocationFailure;
using kvtest::segmentsAt;
using kvtest::subentPath;
using Indices = std::vector<std::int64_t>;
using Iterator = GxapSelectSet::Iterator;

class FailingSegment : public kvtest::SetTest {
protected:
    // Adds the segment 9 to an item that has the segments `before`, while each allocation fails in turn.
    static void addInTurn(const Indices& before) {
        forEachAllocationFailure([&](FailurePoint& point) {
            Filled filled(1);
            addSegments(filled.set, 0, before);
            Iterator it = edit(filled.set).begin();
            const GxDbFullSubentPath path = subentPath({1, 2}, 1, 9);
            point.run([&] { it.setHighlightSegment(&path); });
            Indices expected = before;
            if (point.outcome().completed)
                expected.push_back(9);
            EXPECT_EQ(segmentsAt(filled.set, 0), expected);
            EXPECT_EQ(it.highlightSegmentArray() != nullptr, !expected.empty());
        });
    }
};

TEST_F(FailingSegment, LeavesAnItemWithoutSegmentsWithout) {
    addInTurn({});
}

TEST_F(FailingSegment, LeavesTheSegmentsAsTheyWere) {
    addInTurn({1, 2});
}

TEST_F(FailingSegment, LeavesAFullListAsItWas) {
    addInTurn(Indices(8, 3));
}

TEST_F(FailingSegment, LeavesASharedListShared) {
    forEachAllocationFailure([](FailurePoint& point) {
        Filled filled(1);
        addSegments(filled.set, 0, {1, 2});
        const auto clone = kvtest::cloneOf(filled.set);
        Iterator it = edit(*clone).begin();
        const GxDbFullSubentPath path = subentPath({1}, 1, 9);
        point.run([&] { it.setHighlightSegment(&path); });
        EXPECT_EQ(segmentsAt(filled.set, 0), Indices({1, 2}));
        EXPECT_EQ(segmentsAt(*clone, 0), point.outcome().completed ? Indices({1, 2, 9}) : Indices({1, 2}));
    });
}

TEST_F(FailingSegment, IsClearedWithoutMemory) {
    forEachAllocationFailure(
        [](FailurePoint& point) {
            Filled filled(1);
            addSegments(filled.set, 0, {1, 2});
            Iterator it = edit(filled.set).begin();
            point.run([&] { it.setHighlightSegment(nullptr); });
            EXPECT_EQ(it.highlightSegmentArray(), nullptr);
            EXPECT_EQ(livePaths(), 0);
        },
        Expect::None);
}

TEST_F(FailingSegment, OfASharedListIsClearedWithoutMemory) {
    forEachAllocationFailure(
        [](FailurePoint& point) {
            Filled filled(1);
            addSegments(filled.set, 0, {1, 2});
            const auto clone = kvtest::cloneOf(filled.set);
            Iterator it = edit(*clone).begin();
            point.run([&] { it.setHighlightSegment(nullptr); });
            EXPECT_EQ(it.highlightSegmentArray(), nullptr);
            EXPECT_EQ(segmentsAt(filled.set, 0), Indices({1, 2}));
        },
        Expect::None);
}

} // namespace
