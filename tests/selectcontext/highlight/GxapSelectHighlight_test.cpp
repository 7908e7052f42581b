#include "tests/selectcontext/support/DrawingTestSupport.h"

#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <utility>
#include <vector>

// Tests how the paths of one entity, one item, and a whole set are drawn.

namespace {

using kvinmemory::DatabaseCall;
using kvinmemory::databaseEvents;
using kvinmemory::HighlightCall;
using kvinmemory::livePaths;
using kvinmemory::onHighlight;
using kvinmemory::openObjects;
using kvinmemory::PlatformFailure;
using kvtest::addSegments;
using kvtest::edit;
using kvtest::Lines;
using kvtest::owners;
using kvtest::recordAt;
using kvtest::registrations;
using kvtest::SegmentArray;
using kvtest::segmentsAt;
using kvtest::subentPath;
using ConstIterator = GxapSelectSet::ConstIterator;

constexpr GxErrorStatus kRefused = static_cast<GxErrorStatus>(7);

// A caller's list of paths to the parts 1, 2, ... of an entity.
class Paths {
public:
    explicit Paths(int count) {
        for (int n = 1; n <= count; ++n)
            kvtest::append(list, new GxDbFullSubentPath(subentPath({1}, 1, n)));
    }
    Paths(const Paths&) = delete;
    Paths& operator=(const Paths&) = delete;
    ~Paths() {
        for (int i = 0; i < list.logicalLength(); ++i)
            delete kvtest::elementAt(list, i);
    }

    SegmentArray list;
};

class PathHighlight : public kvtest::DrawingTest {};

TEST_F(PathHighlight, OpensHighlightsInOrderAndCloses) {
    const GxDbObjectId a = drawing().addEntity("A");
    const Paths paths(3);
    gxutEntityGxDbFullPathHighlight(a, &paths.list, true, true);
    EXPECT_EQ(calls(), Lines({"open A", "highlight A 1", "highlight A 2", "highlight A 3", "close A"}));
}

TEST_F(PathHighlight, UnhighlightsTheOtherWay) {
    const GxDbObjectId a = drawing().addEntity("A");
    const Paths paths(2);
    gxutEntityGxDbFullPathHighlight(a, &paths.list, true, false);
    EXPECT_EQ(calls(), Lines({"open A", "unhighlight A 1", "unhighlight A 2", "close A"}));
}

TEST_F(PathHighlight, OpensForReadingAndNothingErased) {
    const GxDbObjectId a = drawing().addEntity("A");
    const Paths paths(1);
    gxutEntityGxDbFullPathHighlight(a, &paths.list, true, true);
    const auto opens = databaseEvents(DatabaseCall::Open);
    ASSERT_EQ(opens.size(), 1u);
    EXPECT_EQ(opens[0].mode, GxDb::kForRead);
    EXPECT_FALSE(opens[0].openErased);
}

TEST_F(PathHighlight, HandsTheFlagThrough) {
    const GxDbObjectId a = drawing().addEntity("A");
    const Paths paths(1);
    for (const bool highlight : {true, false}) {
        for (const bool flag : {true, false}) {
            gxutEntityGxDbFullPathHighlight(a, &paths.list, flag, highlight);
            const auto events =
                databaseEvents(highlight ? DatabaseCall::Highlight : DatabaseCall::Unhighlight);
            ASSERT_FALSE(events.empty());
            EXPECT_EQ(events.back().entityFlag, flag);
        }
    }
}

TEST_F(PathHighlight, HandsTheVeryPathsOver) {
    const GxDbObjectId a = drawing().addEntity("A");
    const Paths paths(2);
    gxutEntityGxDbFullPathHighlight(a, &paths.list, true, true);
    const auto highlights = databaseEvents(DatabaseCall::Highlight);
    ASSERT_EQ(highlights.size(), 2u);
    EXPECT_EQ(highlights[0].path, paths.list.at(0));
    EXPECT_EQ(highlights[1].path, paths.list.at(1));
}

TEST_F(PathHighlight, DeletesAnEntityThatIsNotResident) {
    const GxDbObjectId a = drawing().addNonResident("A");
    const Paths paths(2);
    gxutEntityGxDbFullPathHighlight(a, &paths.list, true, true);
    EXPECT_EQ(calls(), Lines({"open A", "highlight  1", "highlight  2", "delete"}));
}

TEST_F(PathHighlight, PassesOverWhatCannotBeOpened) {
    const GxDbObjectId erased = drawing().addEntity("erased");
    drawing().erase(erased);
    const GxDbObjectId layer = drawing().add(std::make_unique<kvinmemory::NonEntity>(), "layer");
    const GxDbObjectId invalid = drawing().addInvalid();
    const Paths paths(1);
    for (const GxDbObjectId& id : {erased, layer, invalid, GxDbObjectId()})
        gxutEntityGxDbFullPathHighlight(id, &paths.list, true, true);
    EXPECT_EQ(calls(), Lines({"open erased", "open layer", "open ", "open "}));
}

TEST_F(PathHighlight, PassesOverAnOpenThatSucceedsAndYieldsNothing) {
    const GxDbObjectId a = drawing().addEntity("A");
    drawing().forceOpenStatus(a, eOk);
    const Paths paths(1);
    gxutEntityGxDbFullPathHighlight(a, &paths.list, true, true);
    EXPECT_EQ(calls(), Lines({"open A"}));
}

TEST_F(PathHighlight, ClosesWhatAFailedOpenYields) {
    const GxDbObjectId a = drawing().addEntity("A");
    drawing().forceOpenStatus(a, kRefused, true);
    const Paths paths(1);
    gxutEntityGxDbFullPathHighlight(a, &paths.list, true, true);
    EXPECT_EQ(calls(), Lines({"open A", "close A"}));
}

TEST_F(PathHighlight, DeletesWhatAFailedOpenYieldsOutsideTheDatabase) {
    const GxDbObjectId a = drawing().addNonResident("A");
    drawing().forceOpenStatus(a, kRefused, true);
    const Paths paths(1);
    gxutEntityGxDbFullPathHighlight(a, &paths.list, true, true);
    EXPECT_EQ(calls(), Lines({"open A", "delete"}));
}

TEST_F(PathHighlight, HighlightsNothingInsteadOfAnEmptyList) {
    const GxDbObjectId a = drawing().addEntity("A");
    const SegmentArray empty;
    gxutEntityGxDbFullPathHighlight(a, &empty, true, true);
    EXPECT_EQ(calls(), Lines({"open A", "close A"}));
}

TEST_F(PathHighlight, HighlightsNothingOfAListWithoutBlock) {
    const GxDbObjectId a = drawing().addEntity("A");
    const std::unique_ptr<SegmentArray> none(kvtest::newSegmentsWithoutBlock());
    gxutEntityGxDbFullPathHighlight(a, none.get(), true, true);
    EXPECT_EQ(calls(), Lines({"open A", "close A"}));
}

TEST_F(PathHighlight, HighlightsNothingWithoutAList) {
    const GxDbObjectId a = drawing().addEntity("A");
    gxutEntityGxDbFullPathHighlight(a, nullptr, true, true);
    gxutEntityGxDbFullPathHighlight(a, nullptr, true, false);
    EXPECT_TRUE(databaseEvents(DatabaseCall::Highlight).empty());
    EXPECT_TRUE(databaseEvents(DatabaseCall::Unhighlight).empty());
}

TEST_F(PathHighlight, SkipsNullElements) {
    const GxDbObjectId a = drawing().addEntity("A");
    Paths paths(3);
    delete std::exchange(paths.list.at(1), nullptr);
    gxutEntityGxDbFullPathHighlight(a, &paths.list, true, true);
    EXPECT_EQ(calls(), Lines({"open A", "highlight A 1", "highlight A 3", "close A"}));
}

TEST_F(PathHighlight, LeavesPathsAndListTheCallers) {
    const GxDbObjectId a = drawing().addEntity("A");
    const Paths paths(3);
    const KvVectorBlock* const block = paths.list.data.block;
    gxutEntityGxDbFullPathHighlight(a, &paths.list, true, true);
    EXPECT_EQ(livePaths(), 3);
    EXPECT_EQ(paths.list.data.block, block);
    EXPECT_EQ(block->refCount.load(), 1u);
}

TEST_F(PathHighlight, ClosesWhenAHighlightThrows) {
    const GxDbObjectId a = drawing().addEntity("A");
    const Paths paths(3);
    kvinmemory::throwFromHighlight(2);
    EXPECT_THROW(gxutEntityGxDbFullPathHighlight(a, &paths.list, true, true), PlatformFailure);
    EXPECT_EQ(calls(), Lines({"open A", "highlight A 1", "highlight A 2", "close A"}));
    EXPECT_EQ(livePaths(), 3);
    EXPECT_EQ(paths.list.data.block->refCount.load(), 1u);
}

TEST_F(PathHighlight, ClosesWhenAnUnhighlightThrows) {
    const GxDbObjectId a = drawing().addEntity("A");
    const Paths paths(2);
    kvinmemory::throwFromHighlight(1);
    EXPECT_THROW(gxutEntityGxDbFullPathHighlight(a, &paths.list, true, false), PlatformFailure);
    EXPECT_EQ(calls(), Lines({"open A", "unhighlight A 1", "close A"}));
}

TEST_F(PathHighlight, DeletesANonResidentEntityWhenAHighlightThrows) {
    const GxDbObjectId a = drawing().addNonResident("A");
    const Paths paths(1);
    kvinmemory::throwFromHighlight(1);
    EXPECT_THROW(gxutEntityGxDbFullPathHighlight(a, &paths.list, true, true), PlatformFailure);
    EXPECT_EQ(calls(), Lines({"open A", "highlight  1", "delete"}));
}

// Has a set of the entities A, B and C. A and C have one segment each, and B has two.
class Draw : public kvtest::DrawingTest {
protected:
    void SetUp() override {
        DrawingTest::SetUp();
        set = std::make_unique<GxapSelectSet>();
        for (const char* name : {"A", "B", "C"})
            edit(*set).append(drawing().addEntity(name), GxDbObjectId());
        addSegments(*set, 0, {1});
        addSegments(*set, 1, {2, 3});
        addSegments(*set, 2, {4});
    }

    void TearDown() override {
        onHighlight(nullptr);
        set.reset();
        DrawingTest::TearDown();
    }

    // Runs `work` once, at the next highlight.
    static void onFirstHighlight(std::function<void()> work) {
        auto pending = std::make_shared<bool>(true);
        onHighlight([pending, work = std::move(work)](const HighlightCall&) {
            if (std::exchange(*pending, false))
                work();
        });
    }

    std::unique_ptr<GxapSelectSet> set;
};

const Lines kAll = {"open A",        "highlight A 1", "close A", "open B",        "highlight B 2",
                    "highlight B 3", "close B",       "open C",  "highlight C 4", "close C"};
const Lines kFirst = {"open A", "highlight A 1", "close A"};

class DrawItem : public Draw {};

TEST_F(DrawItem, HighlightsTheSegmentsOfTheItem) {
    ConstIterator it = set->iteratorAt(1);
    set->draw(it, true, true);
    EXPECT_EQ(calls(), Lines({"open B", "highlight B 2", "highlight B 3", "close B"}));
}

TEST_F(DrawItem, UnhighlightsThem) {
    ConstIterator it = set->iteratorAt(1);
    set->draw(it, true, false);
    EXPECT_EQ(calls(), Lines({"open B", "unhighlight B 2", "unhighlight B 3", "close B"}));
}

TEST_F(DrawItem, HandsTheFlagThrough) {
    ConstIterator it = set->begin();
    set->draw(it, true, true);
    set->draw(it, false, true);
    const auto highlights = databaseEvents(DatabaseCall::Highlight);
    ASSERT_EQ(highlights.size(), 2u);
    EXPECT_TRUE(highlights[0].entityFlag);
    EXPECT_FALSE(highlights[1].entityFlag);
}

TEST_F(DrawItem, LeavesTheIteratorAndSharedDataAlone) {
    const GxapSelectSet copy(*set);
    ConstIterator it = set->iteratorAt(1);
    set->draw(it, true, true);
    EXPECT_TRUE(it == set->iteratorAt(1));
    EXPECT_EQ(owners(copy), 2u);
}

TEST_F(DrawItem, OpensNothingAtTheEnd) {
    ConstIterator it = set->end();
    set->draw(it, true, true);
    EXPECT_TRUE(calls().empty());
}

TEST_F(DrawItem, OpensNothingForADisabledIterator) {
    ConstIterator it = set->begin();
    it.disable();
    set->draw(it, true, true);
    EXPECT_TRUE(calls().empty());
}

TEST_F(DrawItem, OpensNothingForAnItemWithoutSegments) {
    edit(*set).begin().setHighlightSegment(nullptr);
    ConstIterator it = set->begin();
    set->draw(it, true, true);
    EXPECT_TRUE(calls().empty());
}

TEST_F(DrawItem, OpensNothingForANullRecord) {
    const auto record = kvtest::takeRecordOut(*set, 0);
    ConstIterator it = set->begin();
    set->draw(it, true, true);
    EXPECT_TRUE(calls().empty());
}

TEST_F(DrawItem, OpensTheEntityOfAnEmptyList) {
    edit(*set).begin().setHighlightSegment(nullptr);
    recordAt(*set, 0)->highlightSegmentArray = new SegmentArray;
    ConstIterator it = set->begin();
    set->draw(it, true, true);
    EXPECT_EQ(calls(), Lines({"open A", "close A"}));
}

TEST_F(DrawItem, ConsultsTheIteratorsRecordAlone) {
    GxapSelectSet other;
    other.releaseData();
    ConstIterator it = set->begin();
    other.draw(it, true, true);
    EXPECT_EQ(calls(), kFirst);
    EXPECT_EQ(other.sharedData, nullptr);
}

TEST_F(DrawItem, PassesAnErasedEntityOver) {
    drawing().erase(drawing().findByName("A"));
    ConstIterator it = set->begin();
    set->draw(it, true, true);
    EXPECT_EQ(calls(), Lines({"open A"}));
}

class DrawSet : public Draw {};

TEST_F(DrawSet, DrawsItemByItemInOrder) {
    set->draw(true, true);
    EXPECT_EQ(calls(), kAll);
}

TEST_F(DrawSet, UnhighlightsItemByItem) {
    set->draw(true, false);
    EXPECT_EQ(calls(), Lines({"open A", "unhighlight A 1", "close A", "open B", "unhighlight B 2",
                              "unhighlight B 3", "close B", "open C", "unhighlight C 4", "close C"}));
}

TEST_F(DrawSet, HandsTheFlagThrough) {
    for (const bool flag : {false, true}) {
        set->draw(flag, true);
        const auto highlights = databaseEvents(DatabaseCall::Highlight);
        ASSERT_GE(highlights.size(), 4u);
        for (std::size_t i = highlights.size() - 4; i < highlights.size(); ++i)
            EXPECT_EQ(highlights[i].entityFlag, flag);
    }
}

TEST_F(DrawSet, HoldsOneEntityAndOneIteratorAtATime) {
    int highlights = 0;
    onHighlight([&](const HighlightCall&) {
        ++highlights;
        EXPECT_EQ(openObjects(), 1);
        EXPECT_EQ(registrations(*set), 1);
    });
    set->draw(true, true);
    EXPECT_EQ(highlights, 4);
    EXPECT_EQ(registrations(*set), 0);
}

TEST_F(DrawSet, OpensAnEntityOncePerItem) {
    edit(*set).setUnique(false);
    edit(*set).append(drawing().findByName("A"), GxDbObjectId());
    addSegments(*set, 3, {5});
    set->draw(true, true);
    Lines expected = kAll;
    expected.insert(expected.end(), {"open A", "highlight A 5", "close A"});
    EXPECT_EQ(calls(), expected);
}

TEST_F(DrawSet, PassesItemsWithoutSegmentsOver) {
    edit(*set).iteratorAt(1).setHighlightSegment(nullptr);
    set->draw(true, true);
    EXPECT_EQ(calls(), Lines({"open A", "highlight A 1", "close A", "open C", "highlight C 4", "close C"}));
}

TEST_F(DrawSet, OpensNothingWithoutSegments) {
    for (int position = 0; position < 3; ++position)
        edit(*set).iteratorAt(position).setHighlightSegment(nullptr);
    set->draw(true, true);
    EXPECT_TRUE(calls().empty());
}

TEST_F(DrawSet, PassesWhatCannotBeOpenedOver) {
    drawing().erase(drawing().findByName("A"));
    drawing().forceOpenStatus(drawing().findByName("B"), kRefused, true);
    set->draw(true, true);
    EXPECT_EQ(calls(), Lines({"open A", "open B", "close B", "open C", "highlight C 4", "close C"}));
}

TEST_F(DrawSet, SkipsANullRecord) {
    const auto record = kvtest::takeRecordOut(*set, 1);
    set->draw(true, true);
    EXPECT_EQ(calls(), Lines({"open A", "highlight A 1", "close A", "open C", "highlight C 4", "close C"}));
}

TEST_F(DrawSet, DoesNothingForAnEmptySet) {
    const GxapSelectSet empty;
    empty.draw(true, true);
    EXPECT_TRUE(calls().empty());
}

TEST_F(DrawSet, CreatesMissingData) {
    GxapSelectSet other;
    other.releaseData();
    other.draw(true, true);
    EXPECT_TRUE(calls().empty());
    EXPECT_NE(other.sharedData, nullptr);
}

TEST_F(DrawSet, LeavesSharedDataAndIteratorsAlone) {
    const GxapSelectSet copy(*set);
    const ConstIterator it = set->iteratorAt(1);
    set->draw(true, true);
    EXPECT_EQ(owners(copy), 2u);
    EXPECT_TRUE(it == set->iteratorAt(1));
    EXPECT_EQ(registrations(*set), 1);
}

TEST_F(DrawSet, ClosesAndUnregistersWhenAHighlightThrows) {
    kvinmemory::throwFromHighlight(3);
    EXPECT_THROW(set->draw(true, true), PlatformFailure);
    EXPECT_EQ(calls(), Lines({"open A", "highlight A 1", "close A", "open B", "highlight B 2",
                              "highlight B 3", "close B"}));
    EXPECT_EQ(registrations(*set), 0);
    EXPECT_EQ(livePaths(), 4);
}

TEST_F(DrawSet, ShowsInTheEntitiesUntilItIsTakenBack) {
    const auto highlightsOf = [&](const char* name) {
        const auto* entity = static_cast<kvinmemory::Entity*>(drawing().entity(drawing().findByName(name)));
        return entity->highlights().size();
    };
    set->draw(true, true);
    EXPECT_EQ(highlightsOf("A"), 1u);
    EXPECT_EQ(highlightsOf("B"), 2u);
    set->draw(true, false);
    EXPECT_EQ(highlightsOf("A"), 0u);
    EXPECT_EQ(highlightsOf("B"), 0u);
}

// Tests callbacks that change the set while draw() highlights one of its entities.
class DrawCallback : public Draw {};

TEST_F(DrawCallback, ThatClearsTheSegmentsLeavesThemToTheDrawing) {
    edit(*set).begin().setHighlightSegment(nullptr);
    edit(*set).iteratorAt(2).setHighlightSegment(nullptr);
    onFirstHighlight([&] {
        edit(*set).iteratorAt(1).setHighlightSegment(nullptr);
        EXPECT_EQ(livePaths(), 2);
    });
    set->draw(true, true);
    EXPECT_EQ(calls(), Lines({"open B", "highlight B 2", "highlight B 3", "close B"}));
    EXPECT_EQ(livePaths(), 0);
    EXPECT_EQ(recordAt(*set, 1)->highlightSegmentArray, nullptr);
}

TEST_F(DrawCallback, ThatClearsTheSegmentsAndThrowsLeavesNothingBehind) {
    onFirstHighlight([&] {
        edit(*set).begin().setHighlightSegment(nullptr);
        throw PlatformFailure{0};
    });
    EXPECT_THROW(set->draw(true, true), PlatformFailure);
    EXPECT_EQ(calls(), kFirst);
    EXPECT_EQ(livePaths(), 3);
}

TEST_F(DrawCallback, ThatAddsASegmentDoesNotGetItDrawn) {
    onFirstHighlight([&] { addSegments(*set, 0, {9}); });
    set->draw(true, true);
    EXPECT_EQ(calls(), kAll);
    EXPECT_EQ(segmentsAt(*set, 0), std::vector<std::int64_t>({1, 9}));
}

TEST_F(DrawCallback, ThatClearsTheSetEndsTheDrawing) {
    onFirstHighlight([&] { edit(*set).clear(); });
    set->draw(true, true);
    EXPECT_EQ(calls(), kFirst);
    EXPECT_EQ(livePaths(), 0);
    EXPECT_EQ(registrations(*set), 0);
}

TEST_F(DrawCallback, ThatReleasesTheDataEndsTheDrawing) {
    onFirstHighlight([&] { set->releaseData(); });
    set->draw(true, true);
    EXPECT_EQ(calls(), kFirst);
    EXPECT_EQ(livePaths(), 0);
    EXPECT_EQ(set->sharedData, nullptr);
}

TEST_F(DrawCallback, ThatReleasesTheDataLeavesAllSegmentsOfTheItemToTheDrawing) {
    ConstIterator it = set->iteratorAt(1);
    onFirstHighlight([&] { set->releaseData(); });
    set->draw(it, true, true);
    EXPECT_EQ(calls(), Lines({"open B", "highlight B 2", "highlight B 3", "close B"}));
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(DrawCallback, ThatWritesIntoSharedDataEndsTheDrawing) {
    const GxapSelectSet copy(*set);
    onFirstHighlight([&] { edit(*set).writeData(); });
    set->draw(true, true);
    EXPECT_EQ(calls(), kFirst);
}

TEST_F(DrawCallback, ThatDrawsTheSetAgainNestsTheCalls) {
    onFirstHighlight([&] { set->draw(true, true); });
    set->draw(true, true);
    EXPECT_EQ(databaseEvents(DatabaseCall::Highlight).size(), 8u);
    EXPECT_EQ(databaseEvents(DatabaseCall::Open).size(), databaseEvents(DatabaseCall::Close).size());
}

// Tests callbacks that change the set while draw() opens one of its entities.
class DrawOpening : public kvtest::DrawingTest {
protected:
    void SetUp() override {
        DrawingTest::SetUp();
        set = std::make_unique<GxapSelectSet>();
    }

    void TearDown() override {
        set.reset();
        DrawingTest::TearDown();
    }

    // Adds an item whose segments are 1 and 2. When the entity of the item is opened, `work` runs, and then
    // the entity is made.
    GxDbObjectId addItem(std::function<void()> work) {
        const GxDbObjectId id = drawing().addNonResident(
            [work = std::move(work)] {
                work();
                return std::make_unique<kvinmemory::Entity>();
            },
            "A");
        edit(*set).append(id, GxDbObjectId());
        addSegments(*set, 0, {1, 2});
        return id;
    }

    std::unique_ptr<GxapSelectSet> set;
};

const Lines kOpenedAndDrawn = {"open A", "highlight  1", "highlight  2", "delete"};

TEST_F(DrawOpening, ThatClearsTheSegmentsLeavesThemToTheDrawing) {
    addItem([&] {
        edit(*set).begin().setHighlightSegment(nullptr);
        EXPECT_EQ(livePaths(), 2);
    });
    set->draw(true, true);
    EXPECT_EQ(calls(), kOpenedAndDrawn);
    EXPECT_EQ(recordAt(*set, 0)->highlightSegmentArray, nullptr);
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(DrawOpening, ThatAddsASegmentDoesNotGetItDrawn) {
    addItem([&] { addSegments(*set, 0, {9}); });
    set->draw(true, true);
    EXPECT_EQ(calls(), kOpenedAndDrawn);
    EXPECT_EQ(segmentsAt(*set, 0), std::vector<std::int64_t>({1, 2, 9}));
    EXPECT_EQ(livePaths(), 3);
}

TEST_F(DrawOpening, ThatReplacesTheSegmentsGetsTheOldOnesDrawn) {
    addItem([&] {
        edit(*set).begin().setHighlightSegment(nullptr);
        addSegments(*set, 0, {8, 9});
    });
    set->draw(true, true);
    EXPECT_EQ(calls(), kOpenedAndDrawn);
    EXPECT_EQ(segmentsAt(*set, 0), std::vector<std::int64_t>({8, 9}));
    EXPECT_EQ(livePaths(), 2);
}

TEST_F(DrawOpening, ThatClearsTheSetEndsTheDrawingWithTheItem) {
    addItem([&] { edit(*set).clear(); });
    edit(*set).append(drawing().addEntity("B"), GxDbObjectId());
    addSegments(*set, 1, {3});
    set->draw(true, true);
    EXPECT_EQ(calls(), kOpenedAndDrawn);
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(DrawOpening, ThatReleasesTheDataEndsTheDrawingWithTheItem) {
    addItem([&] { set->releaseData(); });
    set->draw(true, false);
    EXPECT_EQ(calls(), Lines({"open A", "unhighlight  1", "unhighlight  2", "delete"}));
    EXPECT_EQ(livePaths(), 0);
    EXPECT_EQ(set->sharedData, nullptr);
}

TEST_F(DrawOpening, ThatClearsTheSegmentsAndThrowsLeavesNothingBehind) {
    addItem([&] {
        edit(*set).begin().setHighlightSegment(nullptr);
        throw PlatformFailure{0};
    });
    EXPECT_THROW(set->draw(true, true), PlatformFailure);
    EXPECT_TRUE(databaseEvents(DatabaseCall::Highlight).empty());
    EXPECT_EQ(livePaths(), 0);
    EXPECT_EQ(registrations(*set), 0);
}

TEST_F(DrawOpening, ThatClearsTheSegmentsAndIsRefusedDrawsNothing) {
    const GxDbObjectId refused = addItem([&] { edit(*set).begin().setHighlightSegment(nullptr); });
    drawing().forceOpenStatus(refused, kRefused, true);
    set->draw(true, true);
    EXPECT_EQ(calls(), Lines({"open A", "delete"}));
    EXPECT_EQ(livePaths(), 0);
}

TEST_F(DrawOpening, ThatThrowsLeavesTheSegmentsToTheItem) {
    addItem([] { throw PlatformFailure{0}; });
    EXPECT_THROW(set->draw(true, true), PlatformFailure);
    EXPECT_EQ(segmentsAt(*set, 0), std::vector<std::int64_t>({1, 2}));
    EXPECT_EQ(livePaths(), 2);
}

} // namespace
