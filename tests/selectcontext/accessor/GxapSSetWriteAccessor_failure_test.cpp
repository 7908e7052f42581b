// Writes, selects and appends while each allocation fails in turn.
#include "platform/inmemory/InMemoryOsBase.h"
#include "tests/selectcontext/support/RecordTestSupport.h"
#include "tests/support/AllocationFailure.h"
#include "tests/support/Infos.h"
#include "tests/support/NewTracking.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

using kvtest::Allocation;
using kvtest::appendIds;
using kvtest::at;
using kvtest::edit;
using kvtest::Failing;
using kvtest::FailurePoint;
using kvtest::Filled;
using kvtest::forEachAllocationFailure;
using kvtest::id;
using kvtest::idRange;
using kvtest::IndexState;
using kvtest::invariants;
using kvtest::isRegistered;
using kvtest::kNoId;
using kvtest::kPageSlots;
using kvtest::mainIds;
using kvtest::Outcome;
using kvtest::owners;

using ConstIterator = GxapSelectSet::ConstIterator;
using SSetData = GxapSelectSet::SSetData;
using Path = KvVector<GxDbObjectId>;

class WriteDataFailure : public kvtest::SetTest {};
class AccessorEditFailure : public kvtest::SetTest {};
class UpdateDataMapFailure : public kvtest::SetTest {};
class SelectFailure : public kvtest::SetTest {};
class AppendFailure : public kvtest::SetTest {};

// A set of id(1), id(2), id(3). The second item has a value in every field.
class Rich {
public:
    Rich() : path(kvtest::idVector({7, 2})) {
        appendIds(set, 1, 1);
        edit(set).select(id(2), id(12), 5, kvtest::makeFullInfo(), &path);
        appendIds(set, 3, 1);
        selected_entity* record = set.getAt(1);
        record->hlVpArray.setLogicalLength(2);
        GxapSelectSet::Iterator(&set, 1).setHighlightSegment(&segment);
        GxapSelectSet::Iterator(&set, 1).setHighlightSegment(&segment);
        record->subselPathArray = new KvVector<GxDbFullSubentPath*>;
        record->subselPathArray->setLogicalLength(1);
        record->subselPathArray->at(0) = &subselected;
        record->hasSubselPaths = true;
    }

    Path path;
    GxDbFullSubentPath segment, subselected;
    GxapSelectSet set;
};

// Two sets that share their data. Each set has an iterator on the second item.
class SharedRich : public Rich {
public:
    SharedRich() : sharer(set), data(set.sharedData), mine(&set, 1), theirs(&sharer, 1) {}

    bool isShared() const { return set.sharedData == data && sharer.sharedData == data && owners(set) == 2; }

    GxapSelectSet sharer;
    const SSetData* data;
    ConstIterator mine, theirs;
};

void expectRich(const GxapSelectSet& set) {
    const selected_entity* record = set.getAt(1);
    ASSERT_NE(record, nullptr);
    EXPECT_TRUE(record->mainEntId == id(2) && record->subEntId == id(12));
    EXPECT_EQ(record->gsMarker, 5);
    EXPECT_EQ(record->hlVpArray.logicalLength(), 2);
    EXPECT_EQ(record->nestedEntFullPath.logicalLength(), 2);
    ASSERT_NE(record->highlightSegmentArray, nullptr);
    EXPECT_EQ(record->highlightSegmentArray->logicalLength(), 2);
    ASSERT_NE(record->subselPathArray, nullptr);
    EXPECT_EQ(record->subselPathArray->logicalLength(), 1);
    ASSERT_NE(record->selectedEntityInfo, nullptr);
    EXPECT_NE(record->selectedEntityInfo->getFenceInfoPtr(), nullptr);
    EXPECT_NE(record->selectedEntityInfo->getBTRMatPtr(), nullptr);
}

// Expects that a failed edit has left the shared data and both sets unchanged.
void expectUntouched(const SharedRich& sets) {
    EXPECT_TRUE(sets.isShared());
    EXPECT_TRUE(isRegistered(sets.set, sets.mine));
    EXPECT_EQ(at(sets.mine), 2u);
    EXPECT_EQ(mainIds(sets.set), idRange(1, 3));
    expectRich(sets.set);
}

void expectOtherSetUntouched(const SharedRich& sets) {
    EXPECT_EQ(sets.sharer.sharedData, sets.data);
    EXPECT_EQ(at(sets.theirs), 2u);
    EXPECT_EQ(mainIds(sets.sharer), idRange(1, 3));
    expectRich(sets.sharer);
    EXPECT_TRUE(invariants(sets.set));
    EXPECT_TRUE(invariants(sets.sharer));
}

// Expects that an edit succeeds. Call this after a failed edit.
void expectUsable(GxapSelectSet& set) {
    const std::size_t before = mainIds(set).size();
    edit(set).append(id(1000), kNoId);
    EXPECT_EQ(mainIds(set).size(), before + 1);
    EXPECT_TRUE(invariants(set));
}

// --- writeData and other edits that copy shared data

template <class Edit>
void expectEditOfSharedDataIsWholeOrNothing(Edit editShared) {
    forEachAllocationFailure([&editShared](FailurePoint& point) {
        SharedRich sets;
        const Outcome outcome = point.run([&] { editShared(edit(sets.set)); });
        if (outcome.failed)
            expectUntouched(sets);
        else
            EXPECT_FALSE(sets.isShared());
        expectOtherSetUntouched(sets);
        expectUsable(sets.set);
        expectOtherSetUntouched(sets);
    });
}

TEST_F(WriteDataFailure, OnSharedDataLeavesItShared) {
    expectEditOfSharedDataIsWholeOrNothing([](GxapSSetWriteAccessor& accessor) { accessor.writeData(); });
}

TEST_F(WriteDataFailure, OnASetWithoutDataLeavesNoneOrAWholeOne) {
    forEachAllocationFailure([](FailurePoint& point) {
        GxapSelectSet set;
        set.releaseData();
        const Outcome outcome = point.run([&] { edit(set).writeData(); });
        EXPECT_EQ(set.sharedData == nullptr, outcome.failed);
        EXPECT_TRUE(invariants(set));
        expectUsable(set);
    });
}

TEST_F(WriteDataFailure, OnPrivateDataCannotHappen) {
    forEachAllocationFailure(
        [](FailurePoint& point) {
            Rich rich;
            point.run([&] { edit(rich.set).writeData(); });
            expectRich(rich.set);
        },
        kvtest::Expect::None);
}

TEST_F(AccessorEditFailure, OfGetAtLeavesSharedDataShared) {
    expectEditOfSharedDataIsWholeOrNothing(
        [](GxapSSetWriteAccessor& accessor) { EXPECT_NE(accessor.getAt(1), nullptr); });
}

TEST_F(AccessorEditFailure, OfTheNestedModeLeavesSharedDataShared) {
    expectEditOfSharedDataIsWholeOrNothing([](GxapSSetWriteAccessor& accessor) {
        accessor.setSelectByNestedMode(true);
        EXPECT_TRUE(accessor.isSelectByNestedMode());
    });
}

TEST_F(AccessorEditFailure, OfTheNestedModeKeepsTheMode) {
    forEachAllocationFailure([](FailurePoint& point) {
        SharedRich sets;
        const Outcome outcome = point.run([&] { edit(sets.set).setSelectByNestedMode(true); });
        EXPECT_EQ(sets.set.isSelectByNestedMode(), outcome.completed);
        EXPECT_FALSE(sets.sharer.isSelectByNestedMode());
    });
}

TEST_F(AccessorEditFailure, OfClearOnSharedDataLetsNothingGo) {
    forEachAllocationFailure([](FailurePoint& point) {
        SharedRich sets;
        const Outcome outcome = point.run([&] { edit(sets.set).clear(); });
        if (outcome.failed)
            expectUntouched(sets);
        else
            EXPECT_TRUE(mainIds(sets.set).empty());
        expectOtherSetUntouched(sets);
        expectUsable(sets.set);
    });
}

TEST_F(AccessorEditFailure, OfClearOnPrivateDataCannotHappen) {
    forEachAllocationFailure(
        [](FailurePoint& point) {
            Rich rich;
            point.run([&] { edit(rich.set).clear(); });
            EXPECT_TRUE(mainIds(rich.set).empty());
            EXPECT_TRUE(invariants(rich.set));
        },
        kvtest::Expect::None);
}

TEST_F(AccessorEditFailure, OfClearOnASetWithoutDataLeavesNoneOrAWholeOne) {
    forEachAllocationFailure([](FailurePoint& point) {
        GxapSelectSet set;
        set.releaseData();
        point.run([&] { edit(set).clear(); });
        EXPECT_TRUE(invariants(set));
        expectUsable(set);
    });
}

TEST_F(AccessorEditFailure, OfCopyFromCannotHappen) {
    forEachAllocationFailure(
        [](FailurePoint& point) {
            Rich source, target;
            point.run([&] { edit(target.set).copyFrom(source.set); });
            EXPECT_EQ(target.set.sharedData, source.set.sharedData);
            EXPECT_TRUE(invariants(target.set));
        },
        kvtest::Expect::None);
}

// --- updateDataMap

TEST_F(UpdateDataMapFailure, LeavesTheRecordsAndIsRepairedByTheNextCall) {
    forEachAllocationFailure([](FailurePoint& point) {
        Rich rich;
        rich.set.getAt(0)->mainEntId = id(9);
        point.run([&] { edit(rich.set).updateDataMap(); });
        EXPECT_EQ(mainIds(rich.set), (std::vector<unsigned long>{9, 2, 3}));
        EXPECT_EQ(rich.set.sharedData->entityCount, 3u);
        expectRich(rich.set);
        EXPECT_TRUE(invariants(rich.set, IndexState::kMayLackEntries));
        edit(rich.set).updateDataMap();
        EXPECT_TRUE(invariants(rich.set));
        EXPECT_EQ(rich.set.find(id(9)), 0);
    });
}

TEST_F(UpdateDataMapFailure, OnASetWithoutDataLeavesNoneOrAWholeOne) {
    forEachAllocationFailure([](FailurePoint& point) {
        GxapSelectSet set;
        set.releaseData();
        point.run([&] { edit(set).updateDataMap(); });
        EXPECT_TRUE(invariants(set));
    });
}

// --- select

constexpr unsigned long kSelected = 5000;

enum class Extras { kNone, kInfoAndPath };

// Selects id(kSelected), with or without info and path. check() expects that a failed select() has freed the
// info.
class Selection {
public:
    explicit Selection(Extras extras)
        : mPath(kvtest::idVector({7, kSelected})),
          mInfo(extras == Extras::kNone ? nullptr : kvtest::makeFullInfo()),
          mGivenPath(extras == Extras::kNone ? nullptr : &mPath) {}

    void run(GxapSelectSet& set) { edit(set).select(id(kSelected), id(21), 6, mInfo, mGivenPath); }

    void check(const GxapSelectSet& set, const Outcome& outcome) const {
        const int position = set.find(id(kSelected), id(21), 6);
        ASSERT_EQ(position < 0, outcome.failed);
        EXPECT_EQ(kvinmemory::isLiveBlock(mInfo), mInfo && outcome.completed);
        if (outcome.failed)
            return;
        EXPECT_EQ(set.getAt(position), set.getLast());
        EXPECT_EQ(set.getLast()->selectedEntityInfo, mInfo);
        EXPECT_EQ(set.getLast()->nestedEntFullPath.logicalLength(), mGivenPath ? 2 : 0);
    }

private:
    Path mPath;
    GxapSelectedEntInfo* mInfo;
    const Path* mGivenPath;
};

void expectSelectsIntoPrivateData(Extras extras, bool unique) {
    forEachAllocationFailure([=](FailurePoint& point) {
        Rich rich;
        edit(rich.set).setUnique(unique);
        const ConstIterator it = rich.set.iteratorAt(1);
        Selection selection(extras);
        const Outcome outcome = point.run([&] { selection.run(rich.set); });
        selection.check(rich.set, outcome);
        EXPECT_EQ(mainIds(rich.set),
                  outcome.failed ? idRange(1, 3) : (std::vector<unsigned long>{1, 2, 3, kSelected}));
        EXPECT_EQ(at(it), 2u);
        EXPECT_TRUE(invariants(rich.set));
        expectUsable(rich.set);
    });
}

TEST_F(SelectFailure, OnPrivateDataLeavesTheSetAsItWas) {
    expectSelectsIntoPrivateData(Extras::kNone, true);
    expectSelectsIntoPrivateData(Extras::kNone, false);
}

TEST_F(SelectFailure, OnPrivateDataFreesTheInfo) {
    expectSelectsIntoPrivateData(Extras::kInfoAndPath, true);
    expectSelectsIntoPrivateData(Extras::kInfoAndPath, false);
}

void expectSelectsIntoSharedData(Extras extras) {
    forEachAllocationFailure([=](FailurePoint& point) {
        SharedRich sets;
        Selection selection(extras);
        const Outcome outcome = point.run([&] { selection.run(sets.set); });
        selection.check(sets.set, outcome);
        EXPECT_EQ(mainIds(sets.set),
                  outcome.failed ? idRange(1, 3) : (std::vector<unsigned long>{1, 2, 3, kSelected}));
        expectOtherSetUntouched(sets);
        expectUsable(sets.set);
        expectOtherSetUntouched(sets);
    });
}

TEST_F(SelectFailure, OnSharedDataLeavesBothSetsAsTheyWere) {
    expectSelectsIntoSharedData(Extras::kNone);
}

TEST_F(SelectFailure, OnSharedDataFreesTheInfo) {
    expectSelectsIntoSharedData(Extras::kInfoAndPath);
}

TEST_F(SelectFailure, OnASetWithoutDataLeavesNoneOrAWholeOne) {
    for (const Extras extras : {Extras::kNone, Extras::kInfoAndPath}) {
        forEachAllocationFailure([extras](FailurePoint& point) {
            GxapSelectSet set;
            set.releaseData();
            Selection selection(extras);
            const Outcome outcome = point.run([&] { selection.run(set); });
            EXPECT_TRUE(invariants(set));
            selection.check(set, outcome);
            expectUsable(set);
        });
    }
}

TEST_F(SelectFailure, OfTheFirstItemLeavesAnEmptySet) {
    forEachAllocationFailure([](FailurePoint& point) {
        GxapSelectSet set;
        Selection selection(Extras::kInfoAndPath);
        const Outcome outcome = point.run([&] { selection.run(set); });
        selection.check(set, outcome);
        EXPECT_EQ(mainIds(set).size(), outcome.failed ? 0u : 1u);
        EXPECT_TRUE(invariants(set));
        expectUsable(set);
    });
}

TEST_F(SelectFailure, WithANullMainIdOrRefusedCannotHappen) {
    forEachAllocationFailure(
        [](FailurePoint& point) {
            SharedRich sets;
            GxapSelectedEntInfo* info = kvtest::makeFullInfo();
            point.run([&] {
                edit(sets.set).append(kNoId, kNoId);
                edit(sets.set).append(id(1), kNoId);
                edit(sets.set).select(id(2), id(12), 5, info, nullptr);
            });
            EXPECT_FALSE(kvinmemory::isLiveBlock(info));
            expectUntouched(sets);
        },
        kvtest::Expect::None);
}

// A failed select() leaves the set unchanged. So the next attempt can use the same set.
TEST_F(SelectFailure, ThatOpensAPageLeavesTheFullPage) {
    Filled full(kPageSlots);
    for (const Failing failing : {Failing::Once, Failing::FromThenOn}) {
        for (const Allocation allocation : {Allocation::KvMalloc, Allocation::New}) {
            for (long nth = 1;; ++nth) {
                FailurePoint point(allocation, failing, nth);
                SCOPED_TRACE(::testing::Message() << point);
                Selection selection(Extras::kInfoAndPath);
                const Outcome outcome = point.run([&] { selection.run(full.set); });
                selection.check(full.set, outcome);
                EXPECT_TRUE(invariants(full.set));
                EXPECT_EQ(full.set.sharedData->entityCount, outcome.failed ? kPageSlots : kPageSlots + 1);
                kvtest::takeOutIds(full.set, kSelected, 1);
                ASSERT_LT(nth, 100);
                if (!outcome.injected)
                    break;
                ASSERT_FALSE(HasFailure());
            }
            full.set.createData();
            appendIds(full.set, 100, kPageSlots);
        }
    }
}

// Copying a full page allocates thousands of times. So the test makes only some allocations fail: the first,
// middle and last ones.
TEST_F(SelectFailure, ThatCopiesAFullPageAndOpensAnotherLeavesBothSetsAsTheyWere) {
    Filled full(kPageSlots);
    const GxapSelectSet sharer(full.set);
    const SSetData* data = sharer.sharedData;
    long news = 0;
    {
        GxapSelectSet trial(full.set);
        const long before = kvtest::newCalls();
        edit(trial).append(id(kSelected), kNoId);
        news = kvtest::newCalls() - before;
    }
    for (const Failing failing : {Failing::Once, Failing::FromThenOn}) {
        for (const long nth : {1l, 2l, 3l, 4l, 5l, 6l, news / 2, news / 2 + 1, news - 5, news - 4, news - 3,
                               news - 2, news - 1, news}) {
            FailurePoint point(Allocation::New, failing, nth);
            SCOPED_TRACE(::testing::Message() << point);
            const Outcome outcome = point.run([&] { edit(full.set).append(id(kSelected), kNoId); });
            EXPECT_EQ(outcome.failed, outcome.injected);
            EXPECT_TRUE(outcome.injected || nth > news / 2);
            EXPECT_EQ(full.set.sharedData->entityCount, outcome.failed ? kPageSlots : kPageSlots + 1);
            EXPECT_EQ(sharer.sharedData, data);
            EXPECT_TRUE(invariants(full.set));
            EXPECT_TRUE(invariants(sharer));
            full.set = sharer;
        }
    }
    edit(full.set).append(id(kSelected), kNoId);
    EXPECT_EQ(full.set.find(id(kSelected)), static_cast<int>(kPageSlots));
    EXPECT_EQ(sharer.sharedData->entityCount, kPageSlots);
}

// --- append

TEST_F(AppendFailure, OfIdsLeavesTheSetAsItWas) {
    forEachAllocationFailure([](FailurePoint& point) {
        Rich rich;
        const Outcome outcome = point.run([&] { edit(rich.set).append(id(kSelected), kNoId); });
        EXPECT_EQ(mainIds(rich.set).size(), outcome.failed ? 3u : 4u);
        EXPECT_TRUE(invariants(rich.set));
        expectUsable(rich.set);
    });
}

TEST_F(AppendFailure, OfARecordWithInfoLeavesSetAndRecordAsTheyWere) {
    forEachAllocationFailure([](FailurePoint& point) {
        Rich source;
        Filled target(1);
        bool answer = false;
        const Outcome outcome = point.run([&] { answer = edit(target.set).append(source.set.getAt(1)); });
        EXPECT_EQ(answer, outcome.completed);
        EXPECT_EQ(mainIds(target.set).size(), outcome.failed ? 1u : 2u);
        EXPECT_TRUE(invariants(target.set));
        expectRich(source.set);
        EXPECT_TRUE(invariants(source.set));
        expectUsable(target.set);
    });
}

TEST_F(AppendFailure, OfARecordWithInfoToSharedDataLeavesBothSetsAsTheyWere) {
    forEachAllocationFailure([](FailurePoint& point) {
        Rich source;
        source.set.getAt(1)->gsMarker = 77;
        SharedRich sets;
        const Outcome outcome = point.run([&] { edit(sets.set).append(source.set.getAt(1)); });
        EXPECT_EQ(mainIds(sets.set).size(), outcome.failed ? 3u : 4u);
        expectOtherSetUntouched(sets);
        expectUsable(sets.set);
    });
}

TEST_F(AppendFailure, OfItsOwnRecordToSharedDataLeavesBothSetsAsTheyWere) {
    forEachAllocationFailure([](FailurePoint& point) {
        SharedRich sets;
        edit(sets.sharer).setUnique(false);
        sets.set = sets.sharer;
        sets.data = sets.sharer.sharedData;
        sets.theirs = sets.sharer.iteratorAt(1);
        const Outcome outcome = point.run([&] { edit(sets.set).append(sets.set.getAt(1)); });
        EXPECT_EQ(mainIds(sets.set).size(), outcome.failed ? 3u : 4u);
        expectOtherSetUntouched(sets);
        expectUsable(sets.set);
    });
}

TEST_F(AppendFailure, OfADuplicateRecordLeavesNothingBehind) {
    forEachAllocationFailure([](FailurePoint& point) {
        Rich rich;
        point.run([&] { edit(rich.set).append(rich.set.getAt(1)); });
        EXPECT_EQ(mainIds(rich.set), idRange(1, 3));
        expectRich(rich.set);
        EXPECT_TRUE(invariants(rich.set));
    });
}

} // namespace
