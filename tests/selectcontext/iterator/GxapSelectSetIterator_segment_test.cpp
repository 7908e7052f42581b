#include "tests/selectcontext/support/DrawingTestSupport.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <utility>
#include <vector>

// Tests adding and clearing highlight segments, through an iterator and through the accessor.

namespace {

using kvinmemory::DatabaseCall;
using kvinmemory::databaseEvents;
using kvinmemory::livePaths;
using kvtest::addSegments;
using kvtest::AllocationCount;
using kvtest::edit;
using kvtest::Filled;
using kvtest::id;
using kvtest::owners;
using kvtest::recordAt;
using kvtest::SegmentArray;
using kvtest::segmentsAt;
using kvtest::subentPath;
using Iterator = GxapSelectSet::Iterator;
using Indices = std::vector<std::int64_t>;

class HighlightSegment : public kvtest::SetTest {};

const SegmentArray& listAt(const GxapSelectSet& set, std::size_t position) {
    return *recordAt(set, position)->highlightSegmentArray;
}

TEST_F(HighlightSegment, IsMissingInANewItem) {
    Filled filled(1);
    EXPECT_EQ(filled.set.begin().highlightSegmentArray(), nullptr);
}

TEST_F(HighlightSegment, ComesWithItsListToAnItemWithout) {
    Filled filled(1);
    addSegments(filled.set, 0, {4});
    EXPECT_EQ(filled.set.begin().highlightSegmentArray(), recordAt(filled.set, 0)->highlightSegmentArray);
    EXPECT_EQ(segmentsAt(filled.set, 0), Indices({4}));
}

TEST_F(HighlightSegment, IsAnEqualCopyOfTheCallersPath) {
    Filled filled(1);
    const GxDbFullSubentPath path = subentPath({3, 1, 2}, 5, 77);
    edit(filled.set).begin().setHighlightSegment(&path);
    ASSERT_EQ(listAt(filled.set, 0).logicalLength(), 1);
    const GxDbFullSubentPath* const segment = listAt(filled.set, 0).at(0);
    EXPECT_NE(segment, &path);
    EXPECT_TRUE(*segment == path);
}

TEST_F(HighlightSegment, IsMadeByOneCopyConstruction) {
    Filled filled(1);
    const GxDbFullSubentPath path = subentPath({1});
    edit(filled.set).begin().setHighlightSegment(&path);
    const auto copies = databaseEvents(DatabaseCall::PathCopy);
    ASSERT_EQ(copies.size(), 1u);
    EXPECT_EQ(copies[0].source, &path);
    EXPECT_EQ(copies[0].path, listAt(filled.set, 0).at(0));
    EXPECT_TRUE(databaseEvents(DatabaseCall::PathAssignment).empty());
}

TEST_F(HighlightSegment, StaysWhenTheCallersPathChanges) {
    Filled filled(1);
    GxDbFullSubentPath path = subentPath({1}, 1, 8);
    edit(filled.set).begin().setHighlightSegment(&path);
    path.subentId().index = 9;
    path.objectIds()[0] = id(5);
    EXPECT_TRUE(*listAt(filled.set, 0).at(0) == subentPath({1}, 1, 8));
}

TEST_F(HighlightSegment, StaysWhenTheCallersPathDies) {
    Filled filled(1);
    auto path = std::make_unique<GxDbFullSubentPath>(subentPath({1}, 1, 8));
    edit(filled.set).begin().setHighlightSegment(path.get());
    path.reset();
    EXPECT_EQ(segmentsAt(filled.set, 0), Indices({8}));
}

TEST_F(HighlightSegment, IsAddedBehindTheOthers) {
    Filled filled(1);
    addSegments(filled.set, 0, {3, 1, 2});
    EXPECT_EQ(segmentsAt(filled.set, 0), Indices({3, 1, 2}));
}

TEST_F(HighlightSegment, IsAddedAgainWhenItIsThereAlready) {
    Filled filled(1);
    addSegments(filled.set, 0, {6, 6});
    EXPECT_EQ(segmentsAt(filled.set, 0), Indices({6, 6}));
    EXPECT_NE(listAt(filled.set, 0).at(0), listAt(filled.set, 0).at(1));
}

TEST_F(HighlightSegment, MayBeOneOfTheItemsOwn) {
    Filled filled(1);
    addSegments(filled.set, 0, {1});
    for (int added = 1; added <= 20; ++added)
        edit(filled.set).begin().setHighlightSegment(listAt(filled.set, 0).at(0));
    EXPECT_EQ(segmentsAt(filled.set, 0), Indices(21, 1));
}

TEST_F(HighlightSegment, KeepsItsPlaceAndAddressWhileTheListGrows) {
    Filled filled(1);
    addSegments(filled.set, 0, {0});
    const GxDbFullSubentPath* const first = listAt(filled.set, 0).at(0);
    Indices expected = {0};
    for (std::int64_t index = 1; index < 100; ++index) {
        addSegments(filled.set, 0, {index});
        expected.push_back(index);
    }
    EXPECT_EQ(segmentsAt(filled.set, 0), expected);
    EXPECT_EQ(listAt(filled.set, 0).at(0), first);
}

TEST_F(HighlightSegment, MakesTheListGrowByOne) {
    Filled filled(1);
    for (std::int64_t n = 1; n <= 17; ++n) {
        addSegments(filled.set, 0, {n});
        EXPECT_EQ(listAt(filled.set, 0).logicalLength(), n);
        EXPECT_EQ(listAt(filled.set, 0).physicalLength(), (n + 7) / 8 * 8);
    }
}

TEST_F(HighlightSegment, GoesToTheItemUnderTheIterator) {
    Filled filled(3);
    addSegments(filled.set, 1, {7});
    EXPECT_EQ(segmentsAt(filled.set, 0), Indices());
    EXPECT_EQ(segmentsAt(filled.set, 1), Indices({7}));
    EXPECT_EQ(segmentsAt(filled.set, 2), Indices());
}

TEST_F(HighlightSegment, LeavesTheIteratorWhereItIs) {
    Filled filled(3);
    Iterator it = edit(filled.set).iteratorAt(1);
    const GxDbFullSubentPath path = subentPath({1});
    it.setHighlightSegment(&path);
    it.setHighlightSegment(nullptr);
    EXPECT_TRUE(it == filled.set.iteratorAt(1));
    EXPECT_TRUE(kvtest::isRegistered(filled.set, it));
}

TEST_F(HighlightSegment, OfANewListTakesNoShareOfTheEmptyBlock) {
    Filled filled(1);
    const std::uint32_t sharers = kvtest::emptyBlockCount();
    addSegments(filled.set, 0, {1});
    EXPECT_EQ(kvtest::emptyBlockCount(), sharers);
}

TEST_F(HighlightSegment, GoesIntoAListWithoutBlock) {
    Filled filled(1);
    recordAt(filled.set, 0)->highlightSegmentArray = kvtest::newSegmentsWithoutBlock();
    addSegments(filled.set, 0, {5, 6});
    EXPECT_EQ(segmentsAt(filled.set, 0), Indices({5, 6}));
}

TEST_F(HighlightSegment, GoesIntoAnEmptyListOfTheCallers) {
    Filled filled(1);
    auto* const list = new SegmentArray;
    recordAt(filled.set, 0)->highlightSegmentArray = list;
    addSegments(filled.set, 0, {5});
    EXPECT_EQ(&listAt(filled.set, 0), list);
    EXPECT_EQ(segmentsAt(filled.set, 0), Indices({5}));
}

TEST_F(HighlightSegment, MakesAListThatIsSharedPrivate) {
    Filled filled(1);
    addSegments(filled.set, 0, {1, 2});
    const SegmentArray callers = listAt(filled.set, 0);
    addSegments(filled.set, 0, {3});
    EXPECT_EQ(callers.logicalLength(), 2);
    EXPECT_NE(callers.data.block, listAt(filled.set, 0).data.block);
    EXPECT_EQ(callers.at(0), listAt(filled.set, 0).at(0));
    EXPECT_EQ(callers.at(1), listAt(filled.set, 0).at(1));
    EXPECT_EQ(segmentsAt(filled.set, 0), Indices({1, 2, 3}));
}

TEST_F(HighlightSegment, IsWrittenIntoDataThatIsShared) {
    Filled filled(1);
    GxapSelectSet copy(filled.set);
    addSegments(copy, 0, {1});
    EXPECT_EQ(owners(filled.set), 2u);
    EXPECT_EQ(segmentsAt(filled.set, 0), Indices({1}));
}

TEST_F(HighlightSegment, ThroughTheAccessorsIteratorLeavesTheOtherSet) {
    Filled filled(1);
    GxapSelectSet copy(filled.set);
    Iterator it = edit(copy).begin();
    const GxDbFullSubentPath path = subentPath({1}, 1, 3);
    it.setHighlightSegment(&path);
    EXPECT_EQ(segmentsAt(copy, 0), Indices({3}));
    EXPECT_EQ(segmentsAt(filled.set, 0), Indices());
}

TEST_F(HighlightSegment, DoesNotStayWhenItsCopyFails) {
    Filled filled(1);
    const GxDbFullSubentPath path = subentPath({1});
    kvinmemory::throwFromPathCopy(1);
    EXPECT_THROW(edit(filled.set).begin().setHighlightSegment(&path), kvinmemory::PlatformFailure);
    EXPECT_EQ(recordAt(filled.set, 0)->highlightSegmentArray, nullptr);
}

TEST_F(HighlightSegment, LeavesTheOthersWhenItsCopyFails) {
    Filled filled(1);
    addSegments(filled.set, 0, {1, 2});
    const GxDbFullSubentPath path = subentPath({1});
    kvinmemory::throwFromPathCopy(1);
    EXPECT_THROW(edit(filled.set).begin().setHighlightSegment(&path), kvinmemory::PlatformFailure);
    EXPECT_EQ(segmentsAt(filled.set, 0), Indices({1, 2}));
}

class ClearingSegments : public kvtest::SetTest {};

TEST_F(ClearingSegments, DeletesPathsAndList) {
    Filled filled(1);
    const AllocationCount sinceThen;
    addSegments(filled.set, 0, {1, 2, 3});
    ASSERT_EQ(livePaths(), 3);
    Iterator it = edit(filled.set).begin();
    it.setHighlightSegment(nullptr);
    EXPECT_EQ(livePaths(), 0);
    EXPECT_EQ(recordAt(filled.set, 0)->highlightSegmentArray, nullptr);
    EXPECT_EQ(it.highlightSegmentArray(), nullptr);
    EXPECT_EQ(sinceThen.liveMalloc(), 0);
}

TEST_F(ClearingSegments, DeletesFromTheFirstToTheLast) {
    Filled filled(1);
    addSegments(filled.set, 0, {1, 2, 3});
    std::vector<const GxDbFullSubentPath*> segments;
    for (int i = 0; i < 3; ++i)
        segments.push_back(listAt(filled.set, 0).at(i));
    const std::size_t before = databaseEvents(DatabaseCall::PathDestruction).size();
    edit(filled.set).begin().setHighlightSegment(nullptr);

    const auto destroyed = databaseEvents(DatabaseCall::PathDestruction);
    ASSERT_EQ(destroyed.size(), before + 3);
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_EQ(destroyed[before + i].path, segments[i]);
}

TEST_F(ClearingSegments, ChangesNothingWithoutSegments) {
    Filled filled(1);
    Iterator it = edit(filled.set).begin();
    const AllocationCount sinceThen;
    it.setHighlightSegment(nullptr);
    EXPECT_EQ(sinceThen.mallocCalls(), 0);
    EXPECT_EQ(sinceThen.freeCalls(), 0);
    EXPECT_EQ(sinceThen.newCalls(), 0);
    EXPECT_EQ(it.highlightSegmentArray(), nullptr);
}

TEST_F(ClearingSegments, LeavesThoseOfOtherItems) {
    Filled filled(2);
    addSegments(filled.set, 0, {1});
    addSegments(filled.set, 1, {2});
    edit(filled.set).begin().setHighlightSegment(nullptr);
    EXPECT_EQ(segmentsAt(filled.set, 0), Indices());
    EXPECT_EQ(segmentsAt(filled.set, 1), Indices({2}));
}

TEST_F(ClearingSegments, LeavesAnItemThatTakesNewOnes) {
    Filled filled(1);
    addSegments(filled.set, 0, {1, 2});
    edit(filled.set).begin().setHighlightSegment(nullptr);
    addSegments(filled.set, 0, {3});
    EXPECT_EQ(segmentsAt(filled.set, 0), Indices({3}));
}

TEST_F(ClearingSegments, SkipsNullElements) {
    Filled filled(1);
    addSegments(filled.set, 0, {1});
    kvtest::append<GxDbFullSubentPath*>(*recordAt(filled.set, 0)->highlightSegmentArray, nullptr);
    addSegments(filled.set, 0, {2});
    edit(filled.set).begin().setHighlightSegment(nullptr);
    EXPECT_EQ(livePaths(), 0);
    EXPECT_EQ(recordAt(filled.set, 0)->highlightSegmentArray, nullptr);
}

TEST_F(ClearingSegments, DeletesAListWithoutBlock) {
    Filled filled(1);
    recordAt(filled.set, 0)->highlightSegmentArray = kvtest::newSegmentsWithoutBlock();
    edit(filled.set).begin().setHighlightSegment(nullptr);
    EXPECT_EQ(recordAt(filled.set, 0)->highlightSegmentArray, nullptr);
}

TEST_F(ClearingSegments, GivesAnEmptyListsShareOfTheEmptyBlockBack) {
    Filled filled(1);
    const std::uint32_t sharers = kvtest::emptyBlockCount();
    recordAt(filled.set, 0)->highlightSegmentArray = new SegmentArray;
    ASSERT_EQ(kvtest::emptyBlockCount(), sharers + 1);
    edit(filled.set).begin().setHighlightSegment(nullptr);
    EXPECT_EQ(kvtest::emptyBlockCount(), sharers);
}

TEST_F(ClearingSegments, LeavesTheStorageToAnotherOwner) {
    Filled filled(1);
    addSegments(filled.set, 0, {1, 2});
    const SegmentArray callers = listAt(filled.set, 0);
    const GxDbFullSubentPath* const first = callers.at(0);
    const int physicalLength = callers.physicalLength();
    edit(filled.set).begin().setHighlightSegment(nullptr);
    EXPECT_EQ(livePaths(), 0);
    EXPECT_EQ(callers.data.block->refCount.load(), 1u);
    EXPECT_EQ(callers.logicalLength(), 2);
    EXPECT_EQ(callers.physicalLength(), physicalLength);
    EXPECT_EQ(callers.at(0), first);
}

class SegmentWithoutItem : public kvtest::SetTest {
protected:
    // Expects that setHighlightSegment() does nothing, whether it gets a path or null.
    static void expectNothingFrom(Iterator& it, const GxapSelectSet& set, const Indices& segments) {
        const GxDbFullSubentPath path = subentPath({1});
        const long paths = livePaths();
        const AllocationCount sinceThen;
        it.setHighlightSegment(&path);
        it.setHighlightSegment(nullptr);
        EXPECT_EQ(sinceThen.newCalls(), 0);
        EXPECT_EQ(sinceThen.mallocCalls(), 0);
        EXPECT_EQ(livePaths(), paths);
        EXPECT_EQ(segmentsAt(set, 0), segments);
    }
};

TEST_F(SegmentWithoutItem, IsIgnoredAtTheEnd) {
    Filled filled(1);
    addSegments(filled.set, 0, {1});
    Iterator it = edit(filled.set).end();
    expectNothingFrom(it, filled.set, {1});
}

// setHighlightSegment() compares it.index with the count. It does nothing here, even though the iterator has
// a record.
TEST_F(SegmentWithoutItem, IsIgnoredWhenTheIndexIsNotBelowTheCount) {
    Filled filled(1);
    addSegments(filled.set, 0, {1});
    Iterator it = edit(filled.set).begin();
    it.index = 1;
    ASSERT_NE(it.get(), nullptr);
    expectNothingFrom(it, filled.set, {1});
    it.index = 2;
    expectNothingFrom(it, filled.set, {1});
}

TEST_F(SegmentWithoutItem, IsIgnoredWhenTheSetHasLostItemsSince) {
    Filled filled(3);
    addSegments(filled.set, 0, {1});
    Iterator it = edit(filled.set).iteratorAt(1);
    kvtest::takeOutIds(filled.set, 2, 2);
    expectNothingFrom(it, filled.set, {1});
}

TEST_F(SegmentWithoutItem, IsIgnoredAtANegativePosition) {
    Filled filled(1);
    addSegments(filled.set, 0, {1});
    Iterator it = edit(filled.set).iteratorAt(-1);
    expectNothingFrom(it, filled.set, {1});
}

// Index and count are compared as signed numbers. So a negative index is below every count.
TEST_F(SegmentWithoutItem, IsAddedAtANegativeIndexThatStandsOnAnItem) {
    Filled filled(1);
    Iterator it = edit(filled.set).begin();
    it.index = -1;
    const GxDbFullSubentPath path = subentPath({1}, 1, 2);
    it.setHighlightSegment(&path);
    EXPECT_EQ(segmentsAt(filled.set, 0), Indices({2}));
}

TEST_F(SegmentWithoutItem, IsIgnoredByADisabledIterator) {
    Filled filled(1);
    addSegments(filled.set, 0, {1});
    Iterator it = edit(filled.set).begin();
    it.disable();
    expectNothingFrom(it, filled.set, {1});
}

TEST_F(SegmentWithoutItem, IsIgnoredInASetWithoutData) {
    Filled filled(1);
    GxapSelectSet other;
    Iterator it = edit(other).begin();
    other.releaseData();
    expectNothingFrom(it, filled.set, {});
    EXPECT_EQ(other.sharedData, nullptr);
}

TEST_F(SegmentWithoutItem, IsIgnoredWithoutASet) {
    Filled filled(1);
    Iterator it(nullptr, 0);
    expectNothingFrom(it, filled.set, {});
}

TEST_F(SegmentWithoutItem, IsIgnoredOnANullRecord) {
    Filled filled(2);
    const auto record = kvtest::takeRecordOut(filled.set, 1);
    Iterator it = edit(filled.set).iteratorAt(1);
    expectNothingFrom(it, filled.set, {});
}

class AccessorSegment : public kvtest::SetTest {};

TEST_F(AccessorSegment, AddsAndClearsAsTheIteratorDoes) {
    Filled filled(1);
    Iterator it = edit(filled.set).begin();
    const GxDbFullSubentPath path = subentPath({1}, 1, 5);
    edit(filled.set).setHighlightSegment(it, &path);
    EXPECT_EQ(segmentsAt(filled.set, 0), Indices({5}));
    edit(filled.set).setHighlightSegment(it, nullptr);
    EXPECT_EQ(recordAt(filled.set, 0)->highlightSegmentArray, nullptr);
}

TEST_F(AccessorSegment, IsWrittenIntoDataThatIsShared) {
    Filled filled(1);
    const GxapSelectSet copy(filled.set);
    Iterator it(&filled.set, 0);
    const GxDbFullSubentPath path = subentPath({1}, 1, 5);
    edit(filled.set).setHighlightSegment(it, &path);
    EXPECT_EQ(owners(copy), 2u);
    EXPECT_EQ(segmentsAt(copy, 0), Indices({5}));
}

TEST_F(AccessorSegment, GoesWhereTheIteratorStandsWhateverTheSet) {
    Filled filled(1);
    GxapSelectSet other;
    other.releaseData();
    Iterator it = edit(filled.set).begin();
    const GxDbFullSubentPath path = subentPath({1}, 1, 5);
    edit(other).setHighlightSegment(it, &path);
    EXPECT_EQ(segmentsAt(filled.set, 0), Indices({5}));
    EXPECT_EQ(other.sharedData, nullptr);
}

} // namespace
