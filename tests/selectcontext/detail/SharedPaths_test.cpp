// Tests highlight paths that several records share.
#include "tests/selectcontext/support/RecordTestSupport.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace {

using kvinmemory::livePaths;
using kvtest::addRecord;
using kvtest::cloneOf;
using kvtest::giveSegments;
using kvtest::id;
using kvtest::recordAt;
using kvtest::SegmentArray;

class SharedPaths : public kvtest::SetTest {
protected:
    // Makes a set with one record, which has two segments.
    void SetUp() override {
        SetTest::SetUp();
        source = std::make_unique<GxapSelectSet>();
        addRecord(*source, id(1));
        giveSegments(*recordAt(*source, 0), 2);
    }

    void TearDown() override {
        source.reset();
        SetTest::TearDown();
    }

    static SegmentArray& segmentsOf(const GxapSelectSet& set) {
        return *recordAt(set, 0)->highlightSegmentArray;
    }

    static void clearSegments(GxapSelectSet& set) {
        GxapSelectSet::Iterator it(&set, 0);
        it.setHighlightSegment(nullptr);
    }

    static void addSegment(GxapSelectSet& set) {
        GxapSelectSet::Iterator it(&set, 0);
        const GxDbFullSubentPath path;
        it.setHighlightSegment(&path);
    }

    std::unique_ptr<GxapSelectSet> source;
};

TEST_F(SharedPaths, OutliveTheSourceForTheClone) {
    auto clone = cloneOf(*source);
    source.reset();
    EXPECT_EQ(livePaths(), 2);
    EXPECT_TRUE(kvtest::elementAt(segmentsOf(*clone), 0)->objectIds()[0] == id(1));
    clone.reset();
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(SharedPaths, OutliveTheCloneForTheSource) {
    auto clone = cloneOf(*source);
    clone.reset();
    EXPECT_EQ(livePaths(), 2);
    EXPECT_TRUE(kvtest::elementAt(segmentsOf(*source), 1)->objectIds()[0] == id(2));
    source.reset();
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(SharedPaths, AreDeletedOnceByTheLastOfManyClones) {
    std::vector<std::unique_ptr<GxapSelectSet>> clones;
    for (int n = 0; n < 5; ++n) {
        clones.push_back(cloneOf(n == 0 ? *source : *clones.back()));
    }
    source.reset();
    for (const std::size_t dying : {2u, 0u, 4u, 1u}) {
        clones[dying].reset();
        EXPECT_EQ(livePaths(), 2);
    }
    clones[3].reset();
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(SharedPaths, OutliveTheClearingOfTheSourcesSegments) {
    auto clone = cloneOf(*source);
    clearSegments(*source);
    EXPECT_EQ(recordAt(*source, 0)->highlightSegmentArray, nullptr);
    EXPECT_EQ(livePaths(), 2);
    clone.reset();
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(SharedPaths, OutliveTheClearingOfTheClonesSegments) {
    const auto clone = cloneOf(*source);
    clearSegments(*clone);
    EXPECT_EQ(livePaths(), 2);
    clearSegments(*source);
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(SharedPaths, OutliveTheClearingOfTheSourcesData) {
    auto clone = cloneOf(*source);
    source->sharedData->clear();
    EXPECT_EQ(livePaths(), 2);
    clone->sharedData->clear();
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(SharedPaths, AreKeptWhenTheSourceMakesItsArrayPrivateByAdding) {
    auto clone = cloneOf(*source);
    addSegment(*source);
    EXPECT_EQ(segmentsOf(*source).logicalLength(), 3);
    EXPECT_EQ(segmentsOf(*clone).logicalLength(), 2);
    source.reset();
    EXPECT_EQ(livePaths(), 2) << "only the added one was the source's own";
    clone.reset();
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(SharedPaths, AreKeptWhenTheCloneMakesItsArrayPrivateByAdding) {
    auto clone = cloneOf(*source);
    addSegment(*clone);
    clone.reset();
    EXPECT_EQ(livePaths(), 2);
    source.reset();
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(SharedPaths, AreSharedAgainByACloneMadeAfterAnAddition) {
    auto clone = cloneOf(*source);
    addSegment(*source);
    auto later = cloneOf(*source);
    source.reset();
    EXPECT_EQ(livePaths(), 3);
    clone.reset();
    EXPECT_EQ(livePaths(), 3);
    later.reset();
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(SharedPaths, NullElementsAmongThemAreTolerated) {
    SegmentArray& segments = segmentsOf(*source);
    delete segments.at(0);
    segments.at(0) = nullptr;
    auto clone = cloneOf(*source);
    source.reset();
    EXPECT_EQ(livePaths(), 1);
    clone.reset();
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(SharedPaths, AreNoLongerSharedOnceTheCloneIsGone) {
    cloneOf(*source).reset();
    clearSegments(*source);
    EXPECT_EQ(livePaths(), 0);
    addSegment(*source);
    EXPECT_EQ(livePaths(), 1);
    source.reset();
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(SharedPaths, OfOneSetDoNotKeepThoseOfAnother) {
    const auto clone = cloneOf(*source);
    {
        GxapSelectSet unrelated;
        addRecord(unrelated, id(1));
        giveSegments(*recordAt(unrelated, 0), 3);
        EXPECT_EQ(livePaths(), 5);
    }
    EXPECT_EQ(livePaths(), 2);
}

TEST_F(SharedPaths, AreKeptThroughACopyOnWrite) {
    auto copy = std::make_unique<GxapSelectSet>(*source);
    static_cast<GxapSSetWriteAccessor&>(*copy).writeData();
    ASSERT_NE(copy->sharedData, source->sharedData);
    copy.reset();
    EXPECT_EQ(livePaths(), 2);
    source.reset();
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(SharedPaths, MayBeTheCallersOwnObjects) {
    // A caller may put its own paths into the list. Records share these paths, too.
    auto* own = new GxDbFullSubentPath;
    kvtest::append(segmentsOf(*source), own);
    auto clone = cloneOf(*source);
    source.reset();
    EXPECT_EQ(livePaths(), 3);
    EXPECT_EQ(kvtest::elementAt(segmentsOf(*clone), 2), own);
    clone.reset();
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(SharedPaths, SubSelectionPathsAreNobodysToDelete) {
    const std::unique_ptr<GxDbFullSubentPath> path(new GxDbFullSubentPath);
    selected_entity& record = *recordAt(*source, 0);
    record.subselPathArray = new SegmentArray;
    record.hasSubselPaths = true;
    kvtest::append(*record.subselPathArray, path.get());
    auto clone = cloneOf(*source);
    source.reset();
    clone.reset();
    EXPECT_EQ(livePaths(), 1);
}

} // namespace
