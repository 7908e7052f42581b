#include "tests/selectcontext/support/DrawingTestSupport.h"
#include "tests/support/AllocationFailure.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <optional>
#include <vector>

// Every allocation fails in turn: of segments, drawing, path resolution and named sets. Whatever fails,
// nothing leaks, nothing stays open, and what was there before is there still.

namespace {

using kvinmemory::livePaths;
using kvtest::addSegments;
using kvtest::edit;
using kvtest::Expect;
using kvtest::FailurePoint;
using kvtest::Filled;
using kvtest::forEachAllocationFailure;
using kvtest::id;
using kvtest::idVector;
using kvtest::owners;
using kvtest::recordAt;
using kvtest::registrations;
using kvtest::SegmentArray;
using kvtest::segmentsAt;
using kvtest::subentPath;
using Handle = GxapSSListSmartPtr;
using Ids = KvVector<GxDbObjectId>;
using Indices = std::vector<std::int64_t>;
using Iterator = GxapSelectSet::Iterator;
using Manager = GxapSelectSetListManager;
using Sets = std::list<GxapSelectSet*>;

class FailingSegment : public kvtest::SetTest {
protected:
    // Adds segment 9 to an item whose segments were `before`.
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

class FailingPath : public kvtest::DrawingTest {};

TEST_F(FailingPath, IsUntouchedOrWhole) {
    forEachAllocationFailure([](FailurePoint& point) {
        GxapSelectSet set;
        const Ids nested = idVector({1, 2, 3});
        edit(set).select(id(3), GxDbObjectId(), 7, nullptr, &nested);
        const GxapSelectSet::ConstIterator it = set.begin();
        GxDbFullSubentPath path;
        bool found = false;
        point.run([&] { found = it.getFullSubentPath(path); });
        EXPECT_EQ(found, point.outcome().completed);
        EXPECT_TRUE(path == (found ? subentPath({1, 2, 3}, 0, 7) : GxDbFullSubentPath()));
        EXPECT_EQ(nested.data.block->refCount.load(), 2u);
    });
}

TEST_F(FailingPath, IsFilteredUpToTheFailureWithNothingLeftOpen) {
    const GxDbObjectId a = drawing().addEntity("A");
    const GxDbObjectId b = drawing().addEntity("B");
    forEachAllocationFailure([&](FailurePoint& point) {
        GxapSelectSet set;
        const Ids nested = idVector({a, b, a});
        edit(set).select(a, GxDbObjectId(), -1, nullptr, &nested);
        const GxapSelectSet::ConstIterator it = set.begin();
        Ids ids;
        point.run([&] { it.getFilteredNestedFullPath(ids); });
        EXPECT_EQ(kvinmemory::openObjects(), 0);
        EXPECT_EQ(ids == nested, point.outcome().completed);
        EXPECT_TRUE(it.nestedEntFullPath() == nested);
    });
}

TEST_F(FailingPath, LeavesOtherOwnersTheirIds) {
    const GxDbObjectId a = drawing().addEntity("A");
    forEachAllocationFailure([&](FailurePoint& point) {
        GxapSelectSet set;
        const Ids nested = idVector({a});
        edit(set).select(a, GxDbObjectId(), -1, nullptr, &nested);
        const GxapSelectSet::ConstIterator it = set.begin();
        const Ids others = idVector({4, 5});
        Ids ids = others;
        point.run([&] { it.getFilteredNestedFullPath(ids); });
        EXPECT_TRUE(others == idVector({4, 5}));
        EXPECT_EQ(kvinmemory::openObjects(), 0);
    });
}

TEST_F(FailingPath, IsReplacedWithoutMemory) {
    forEachAllocationFailure(
        [](FailurePoint& point) {
            Filled filled(1);
            const Ids nested = idVector({1, 2});
            Iterator it = edit(filled.set).begin();
            point.run([&] { it.setNestedEntFullPath(nested); });
            EXPECT_EQ(it.nestedEntFullPath().data.block, nested.data.block);
        },
        Expect::None);
}

class FailingList : public kvtest::SetTest {};

TEST_F(FailingList, AnswersNullAndChangesNothingWithoutMemoryForTheSet) {
    GxapSelectSetList list;
    long first[2] = {};
    GxapSelectSet* const listed = list.newSelectSet(first);
    for (const bool add : {false, true}) {
        long name[2] = {-7, -8};
        const std::size_t completed = kvinmemory::nameKeyCalls().size();
        kvinmemory::failMalloc(1, kvinmemory::FailureMode::Once);
        EXPECT_EQ(add ? list.addSelectSet(*listed, name) : list.newSelectSet(name), nullptr);
        kvinmemory::allowMalloc();
        EXPECT_EQ(list.sets, Sets({listed}));
        EXPECT_EQ(name[0], -7);
        EXPECT_EQ(name[1], -8);
        EXPECT_EQ(owners(*listed), 1u);
        EXPECT_EQ(kvinmemory::nameKeyCalls().size(), completed);
    }
}

TEST_F(FailingList, IsAsItWasWhenANewSetFails) {
    forEachAllocationFailure([](FailurePoint& point) {
        GxapSelectSetList list;
        long first[2] = {};
        long name[2] = {-7, -8};
        GxapSelectSet* const listed = list.newSelectSet(first);
        GxapSelectSet* made = nullptr;
        point.run([&] { made = list.newSelectSet(name); });
        EXPECT_EQ(made != nullptr, !point.outcome().injected);
        if (made) {
            EXPECT_EQ(list.sets, Sets({made, listed}));
            return;
        }
        EXPECT_EQ(list.sets, Sets({listed}));
        EXPECT_EQ(name[0], -7);
        EXPECT_EQ(name[1], -8);
        EXPECT_EQ(point.outcome().failed, point.allocation() == kvtest::Allocation::New);
    });
}

TEST_F(FailingList, IsAsItWasWhenAnAddedSetFails) {
    forEachAllocationFailure([](FailurePoint& point) {
        GxapSelectSetList list;
        Filled filled(2);
        long name[2] = {-7, -8};
        GxapSelectSet* made = nullptr;
        point.run([&] { made = list.addSelectSet(filled.set, name); });
        EXPECT_EQ(made != nullptr, !point.outcome().injected);
        EXPECT_EQ(list.sets, made ? Sets({made}) : Sets());
        EXPECT_EQ(owners(filled.set), made ? 2u : 1u);
        EXPECT_EQ(name[0] == -7, made == nullptr);
    });
}

TEST_F(FailingList, DeletesAndDestroysWithoutMemory) {
    forEachAllocationFailure(
        [](FailurePoint& point) {
            auto list = std::make_unique<GxapSelectSetList>();
            long first[2] = {};
            long second[2] = {};
            kvtest::appendIds(*list->newSelectSet(first), 1, 2);
            list->newSelectSet(second);
            point.run([&] {
                list->delSelectSet(second);
                list->getSSetByName(first);
                list.reset();
            });
        },
        Expect::None);
}

class FailingHandle : public kvtest::SetTest {
protected:
    void TearDown() override {
        Manager::destroy();
        SetTest::TearDown();
    }
};

TEST_F(FailingHandle, LeavesNothingBehind) {
    forEachAllocationFailure([](FailurePoint& point) {
        std::optional<Handle> handle;
        point.run([&] { handle.emplace(); });
        EXPECT_EQ(handle.has_value(), point.outcome().completed);
    });
}

TEST_F(FailingHandle, IsCopiedAssignedAndReleasedWithoutMemory) {
    forEachAllocationFailure(
        [](FailurePoint& point) {
            const Handle handle;
            Handle assigned;
            point.run([&] {
                Handle copy(handle);
                assigned = copy;
                copy.release();
            });
            EXPECT_EQ(assigned.list, handle.list);
            EXPECT_EQ(*handle.refCount, 2);
        },
        Expect::None);
}

TEST_F(FailingHandle, OfTheManagerIsThereOrNot) {
    forEachAllocationFailure([](FailurePoint& point) {
        Handle* handle = nullptr;
        point.run([&] { handle = Manager::getInstance(); });
        EXPECT_EQ(handle != nullptr, point.outcome().completed);
        EXPECT_EQ(Manager::s_smartPtrSSList, handle);
        Manager::destroy();
    });
}

} // namespace
