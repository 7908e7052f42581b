// Tests sets of an application that takes their entities away, and one whose crash recorder throws.
#include "tests/selectcontext/support/EditTestSupport.h"
#include "tests/support/AllocationFailure.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <vector>

namespace {

using kvtest::edit;
using kvtest::FailurePoint;
using kvtest::forEachAllocationFailure;
using kvtest::id;
using kvtest::idVector;
using kvtest::invariants;
using kvtest::items;
using kvtest::Items;
using kvtest::kNoId;
using kvtest::registrations;
using kvtest::SetOf;

// --- ids that stop being valid

// Has a set of ten entities of a drawing. Each entity can be taken away.
class LostEntities : public kvtest::EditTest {
protected:
    void SetUp() override {
        EditTest::SetUp();
        drawing.emplace(64);
        set = std::make_unique<GxapSelectSet>();
        for (int i = 0; i < 10; ++i) {
            ids.push_back(drawing->addEntity());
            const KvVector<GxDbObjectId> path = idVector({ids.front(), ids.back()});
            edit(*set).select(ids.back(), ids.front(), i, nullptr, &path);
        }
    }

    void TearDown() override {
        set.reset();
        freeLeftRecords();
        std::vector<GxDbObjectId>().swap(ids);
        drawing.reset();
        EditTest::TearDown();
    }

    void loseAll() {
        for (std::size_t i = 0; i < ids.size(); ++i) {
            if (i % 2 == 0)
                drawing->erase(ids[i]);
            else
                drawing->invalidate(ids[i]);
        }
    }

    std::optional<kvinmemory::Database> drawing;
    std::vector<GxDbObjectId> ids;
    std::unique_ptr<GxapSelectSet> set;
};

TEST_F(LostEntities, AreStillFound) {
    loseAll();
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(set->find(ids[static_cast<std::size_t>(i)]), i);
        EXPECT_EQ(set->find(ids[static_cast<std::size_t>(i)], ids[0], i), i);
    }
}

TEST_F(LostEntities, AreStillRefusedASecondTime) {
    loseAll();
    const KvVector<GxDbObjectId> path = idVector({ids[0], ids[3]});
    edit(*set).select(ids[3], ids[0], 3, nullptr, &path);
    EXPECT_EQ(kvtest::count(*set), 10u);
}

TEST_F(LostEntities, CanBeRemovedAndSelectedAgain) {
    loseAll();
    for (const GxDbObjectId& lost : ids) {
        EXPECT_TRUE(edit(*set).remove(lost));
        edit(*set).append(lost, kNoId);
    }
    EXPECT_EQ(kvtest::count(*set), 10u);
    EXPECT_TRUE(invariants(*set));
}

TEST_F(LostEntities, CanBeMergedSubtractedAndCompared) {
    GxapSelectSet some(*set);
    edit(some).removeAt(9);
    loseAll();
    GxapSelectSet result;
    edit(result).minus(set.get(), &some);
    EXPECT_EQ(items(result), Items({items(*set).back()}));
    edit(result).merge(&result, &some);
    EXPECT_TRUE(result.contains(set.get()));
    EXPECT_TRUE(invariants(result));
}

TEST_F(LostEntities, KeepTheirSubSelection) {
    selected_entity& record = *kvtest::record(*set, 1);
    GxDbFullSubentPath part = kvtest::subentPath({ids[1]}, 1, 7);
    record.hasSubselPaths = true;
    record.subselPathArray = new kvtest::SegmentArray;
    kvtest::append(*record.subselPathArray, &part);
    drawing->invalidate(ids[1]);
    EXPECT_FALSE(edit(*set).appendSubentPathSubsel(part));
    EXPECT_FALSE(edit(*set).removeSubentPathSubsel(part));
    EXPECT_EQ(set->findSubentPathSubsel(ids[1], part), 0);
    EXPECT_TRUE(edit(*set).removeSubentPathAtSubsel(1, 0));
    EXPECT_EQ(kvtest::count(*set), 9u);
}

TEST_F(LostEntities, MayBeGoneWithTheirDrawing) {
    const GxapSelectSet copy(*set);
    drawing.reset();
    int walked = 0;
    for (auto it = copy.begin(); !it.isDone(); it.step(), ++walked)
        EXPECT_EQ(it.mainEntId().stub(), ids[static_cast<std::size_t>(walked)].stub());
    EXPECT_EQ(walked, 10);
    EXPECT_EQ(set->getAt(4)->gsMarker, 4);
    edit(*set).clear();
    EXPECT_EQ(kvtest::count(*set), 0u);
}

// --- a crash recorder that throws

struct Refusal {};

// Throws from recordException() while it is on, which a recorder must not do.
class ThrowingRecorder final : public IKvCrashRecorder {
public:
    void recordException(KvException*) override {
        ++records;
        throw Refusal();
    }

    int records = 0;
};

class RefusedRecord : public kvtest::EditTest {
protected:
    void SetUp() override {
        EditTest::SetUp();
        kvinmemory::installCrashRecorder(&recorder);
    }

    void TearDown() override {
        kvinmemory::installCrashRecorder(nullptr);
        EditTest::TearDown();
    }

    // Runs an edit of a set while each allocation fails. Takes the recorder's exception for a failure.
    // Expects that a failed edit changes nothing, and that a second attempt succeeds.
    void tryEach(const std::function<void(GxapSelectSet&)>& change, const Items& expected) {
        const Items held{{1}, {2, 1, 5, {7}, 1.5}, {3}};
        forEachAllocationFailure([&](FailurePoint& point) {
            freeLeftRecords();
            SetOf s(held);
            const GxapSelectSet sharer(s.set);
            const auto attempt = [&] {
                try {
                    change(s.set);
                } catch (const Refusal&) {
                    throw std::bad_alloc();
                }
            };
            point.run(attempt);
            if (point.outcome().failed) {
                EXPECT_EQ(items(s.set), held);
                EXPECT_TRUE(invariants(s.set));
                change(s.set);
            }
            EXPECT_EQ(items(s.set), expected);
            EXPECT_EQ(items(sharer), held);
            EXPECT_TRUE(invariants(s.set));
            EXPECT_EQ(registrations(s.set), 0);
        });
        EXPECT_GT(recorder.records, 0);
    }

    ThrowingRecorder recorder;
};

TEST_F(RefusedRecord, OfSelectingLeavesTheSet) {
    tryEach(
        [](GxapSelectSet& set) {
            KvVector<GxDbObjectId> path;
            path.setLogicalLength(1);
            path.at(0) = id(7);
            edit(set).select(id(4), kNoId, -1, nullptr, &path);
        },
        {{1}, {2, 1, 5, {7}, 1.5}, {3}, {4, 0, -1, {7}}});
}

TEST_F(RefusedRecord, OfRemovingLeavesTheSet) {
    tryEach([](GxapSelectSet& set) { edit(set).remove(id(1)); }, {{2, 1, 5, {7}, 1.5}, {3}});
}

TEST_F(RefusedRecord, OfAddingASegmentLeavesTheSet) {
    const GxDbFullSubentPath path = kvtest::subentPath({1}, 1, 1);
    tryEach([&](GxapSelectSet& set) { edit(set).iteratorAt(1).setHighlightSegment(&path); },
            {{1}, {2, 1, 5, {7}, 1.5}, {3}});
}

TEST_F(RefusedRecord, OfALookUpWithoutDataReachesTheCaller) {
    GxapSelectSet set;
    set.releaseData();
    EXPECT_THROW(set.findInMap(id(1)), Refusal);
    EXPECT_EQ(set.sharedData, nullptr);
}

TEST_F(RefusedRecord, OfAnUnreadableItemReachesTheCaller) {
    SetOf s{{1}, {2}};
    const GxapSelectSet::ConstIterator it = s.set.begin();
    edit(s.set).remove(id(1));
    EXPECT_THROW(it.get(), Refusal);
    EXPECT_THROW(edit(s.set).append(it.get()), Refusal);
    EXPECT_EQ(items(s.set), (Items{{2}}));
    EXPECT_EQ(registrations(s.set), 1);
}

TEST_F(RefusedRecord, OfAPathIndexReachesTheCaller) {
    SetOf s{{1}};
    kvtest::record(s.set, 0)->hasSubselPaths = true;
    kvtest::record(s.set, 0)->subselPathArray = new kvtest::SegmentArray;
    GxDbFullSubentPath path;
    EXPECT_THROW(s.set.getSubentPathAtSubsel(0, 0, path), Refusal);
    EXPECT_TRUE(invariants(s.set));
}

} // namespace
