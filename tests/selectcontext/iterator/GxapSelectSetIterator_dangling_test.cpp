// Tests iterators whose page, store or set was freed, and where they move. The address sanitizer reports a
// read of freed memory.
#include "tests/selectcontext/support/SetTestSupport.h"
#include "tests/support/Thrown.h"

#include <gtest/gtest.h>

#include <memory>
#include <type_traits>

namespace {

using kvtest::appendIds;
using kvtest::at;
using kvtest::edit;
using kvtest::expectMessage;
using kvtest::Filled;
using kvtest::id;
using kvtest::invariants;
using kvtest::isRegistered;
using kvtest::kAccessError;
using kvtest::kBeforeFirst;
using kvtest::kPageSlots;
using kvtest::mainIds;
using kvtest::registrations;
using kvtest::takeOutIds;

using ConstIterator = GxapSelectSet::ConstIterator;
using Iterator = GxapSelectSet::Iterator;

class IteratorOnAReleasedPage : public kvtest::SetTest {};
class IteratorAfterClear : public kvtest::SetTest {};
class IteratorWithoutItsStore : public kvtest::SetTest {};
class IteratorBesideReleasedPages : public kvtest::SetTest {};
class EndIteratorLeftBehind : public kvtest::SetTest {};
class IteratorAfterAssignment : public kvtest::SetTest {};
class IteratorAfterItsSet : public kvtest::SetTest {};

// Unregisters the iterator, which keeps its position. An iterator that is disabled and then assigned within
// its set is in the same state.
void unregister(GxapSelectSet& set, ConstIterator& it) {
    set.removeIterator(&it);
}

void expectUnreadable(const ConstIterator& it) {
    EXPECT_FALSE(it.isDone());
    expectMessage([&] { it.get(); }, kAccessError);
    expectMessage([&] { it.gsMarker(); }, kAccessError);
    expectMessage([&] { it.selectedEntityInfo(); }, kAccessError);
    expectMessage([&] { it.highlightSegmentArray(); }, kAccessError);
    expectMessage([&] { it.hlVpArray(); }, kAccessError);
    expectMessage([&] { it.nestedEntFullPath(); }, kAccessError);
    expectMessage([&] { it.mainEntId(); }, kAccessError);
    expectMessage([&] { it.subEntId(); }, kAccessError);
}

void expectStepGoesToTheEnd(const ConstIterator& it) {
    const int index = it.index;
    EXPECT_FALSE(it.step());
    EXPECT_EQ(it.index, index + 1);
    EXPECT_TRUE(it.isDone());
    EXPECT_EQ(it.get(), nullptr);
    EXPECT_TRUE(it.set->sharedData->entities->isEnd(*it.truckerIterator));
}

void expectBeforeFirst(const ConstIterator& it) {
    ASSERT_NE(it.truckerIterator, nullptr);
    EXPECT_EQ(it.truckerIterator->position, kBeforeFirst);
    EXPECT_EQ(it.truckerIterator->page, nullptr);
    EXPECT_EQ(it.truckerIterator->slot, nullptr);
    EXPECT_EQ(it.truckerIterator->pageEnd, nullptr);
}

// --- a page released by removals

TEST_F(IteratorOnAReleasedPage, IsUnreadableWhenTheStoreHasBecomeEmpty) {
    Filled three(3);
    const ConstIterator it = three.set.iteratorAt(1);
    takeOutIds(three.set, 1, 3);
    ASSERT_EQ(three.store().head, nullptr);
    expectUnreadable(it);
    expectStepGoesToTheEnd(it);
}

TEST_F(IteratorOnAReleasedPage, IsUnreadableWhenOtherPagesAreLeft) {
    Filled two(kPageSlots + 2);
    const ConstIterator it = two.set.iteratorAt(5);
    takeOutIds(two.set, 1, kPageSlots);
    ASSERT_EQ(two.store().head, two.store().tail);
    expectUnreadable(it);
    expectStepGoesToTheEnd(it);
}

TEST_F(IteratorOnAReleasedPage, IsUnreadableWhenItWasTheLastPage) {
    Filled two(kPageSlots + 2);
    const ConstIterator it = two.set.iteratorAt(kPageSlots + 1);
    takeOutIds(two.set, kPageSlots + 1, 2);
    ASSERT_EQ(two.store().head, two.store().tail);
    expectUnreadable(it);
    expectStepGoesToTheEnd(it);
}

TEST_F(IteratorOnAReleasedPage, StepsBackToBeforeTheFirstElement) {
    Filled two(kPageSlots + 2);
    const ConstIterator it = two.set.iteratorAt(kPageSlots + 1);
    takeOutIds(two.set, kPageSlots + 1, 2);
    ConstIterator prev(nullptr, 0);
    EXPECT_TRUE(it.getPrevIterator(prev));
    EXPECT_EQ(prev.index, static_cast<int>(kPageSlots));
    expectBeforeFirst(prev);
    EXPECT_TRUE(isRegistered(two.set, prev));
}

TEST_F(IteratorOnAReleasedPage, StepsBackToBeforeTheFirstElementOfAnEmptyStore) {
    Filled three(3);
    const ConstIterator it = three.set.iteratorAt(2);
    takeOutIds(three.set, 1, 3);
    ConstIterator prev(nullptr, 0);
    EXPECT_TRUE(it.getPrevIterator(prev));
    expectBeforeFirst(prev);
}

// The store is empty. So there is no first element to which the iterator could move.
TEST_F(IteratorOnAReleasedPage, BeforeTheFirstElementOfAnEmptyStoreDoesNotMove) {
    Filled three(3);
    const ConstIterator it = three.set.iteratorAt(2);
    takeOutIds(three.set, 1, 3);
    ConstIterator prev(nullptr, 0);
    it.getPrevIterator(prev);
    prev.step();
    expectBeforeFirst(prev);
    expectMessage([&] { prev.get(); }, kAccessError);
}

TEST_F(IteratorOnAReleasedPage, CanBeCopiedComparedAndAssigned) {
    Filled two(kPageSlots + 1);
    const ConstIterator it = two.set.iteratorAt(3);
    takeOutIds(two.set, 1, kPageSlots);
    const ConstIterator copy(it);
    ConstIterator assigned(nullptr, 0);
    assigned = it;
    EXPECT_TRUE(copy == it);
    EXPECT_TRUE(assigned == it);
    EXPECT_FALSE(it == two.set.begin());
    expectUnreadable(copy);
    expectUnreadable(assigned);
    EXPECT_TRUE(invariants(two.set));
}

TEST_F(IteratorOnAReleasedPage, CanBeMadeGoodByAssignment) {
    Filled two(kPageSlots + 1);
    ConstIterator it = two.set.iteratorAt(3);
    takeOutIds(two.set, 1, kPageSlots);
    it = two.set.begin();
    EXPECT_EQ(at(it), kPageSlots + 1);
}

TEST_F(IteratorOnAReleasedPage, RaisesWhenItsRecordIsToBeRemoved) {
    Filled two(kPageSlots + 1);
    Iterator it(&two.set, 3);
    takeOutIds(two.set, 1, kPageSlots);
    expectMessage([&] { edit(two.set).removeAt(it); }, kAccessError);
    EXPECT_EQ(mainIds(two.set), (std::vector<unsigned long>{kPageSlots + 1}));
    EXPECT_TRUE(invariants(two.set));
}

TEST_F(IteratorOnAReleasedPage, RaisesWhenItsRecordIsToBeWritten) {
    Filled two(kPageSlots + 4);
    Iterator it(&two.set, 3);
    takeOutIds(two.set, 1, kPageSlots);
    const KvVector<GxDbObjectId> path = kvtest::idVector({1});
    const GxDbFullSubentPath segment;
    expectMessage([&] { it.get(); }, kAccessError);
    expectMessage([&] { it.setNestedEntFullPath(path); }, kAccessError);
    expectMessage([&] { it.setHighlightSegment(&segment); }, kAccessError);
    expectMessage([&] { it.setHighlightSegment(nullptr); }, kAccessError);
    EXPECT_TRUE(invariants(two.set));
}

// The new page may have the address of the freed page. The library still knows that the page of the iterator
// was freed. The first step moves the iterator to the end.
TEST_F(IteratorOnAReleasedPage, WalksToTheEndAfterNewPagesHaveCome) {
    Filled three(3);
    const ConstIterator it = three.set.iteratorAt(1);
    takeOutIds(three.set, 1, 3);
    appendIds(three.set, 11, 3);
    int steps = 0;
    while (steps < 10 && it.step())
        ++steps;
    EXPECT_LT(steps, 4);
    EXPECT_TRUE(it.isDone());
    EXPECT_EQ(mainIds(three.set), (std::vector<unsigned long>{11, 12, 13}));
}

TEST_F(IteratorOnAReleasedPage, IsSafeHoweverThePageWasReleased) {
    const auto expectSafe = [](const char* how, auto removeAll) {
        SCOPED_TRACE(how);
        Filled two(kPageSlots + 1);
        const ConstIterator it = two.set.iteratorAt(kPageSlots);
        const std::unique_ptr<selected_entity> last(two.set.getAt(kPageSlots));
        removeAll(two.set);
        ASSERT_EQ(two.store().head, two.store().tail);
        expectUnreadable(it);
        expectStepGoesToTheEnd(it);
        EXPECT_TRUE(invariants(two.set));
    };
    const GxDbObjectId last = id(kPageSlots + 1), null;
    expectSafe("remove by main id", [&](GxapSelectSet& set) { edit(set).remove(last); });
    expectSafe("remove by two keys", [&](GxapSelectSet& set) { edit(set).remove(last, null); });
    expectSafe("remove by three keys", [&](GxapSelectSet& set) { edit(set).remove(last, null, -1); });
    expectSafe("removeAt a position", [&](GxapSelectSet& set) { edit(set).removeAt(kPageSlots); });
    expectSafe("removeAt an iterator", [&](GxapSelectSet& set) {
        Iterator other(&set, kPageSlots);
        edit(set).removeAt(other);
    });
    expectSafe("minus", [&](GxapSelectSet& set) {
        GxapSelectSet other;
        edit(other).append(last, null);
        edit(set).minus(&set, &other);
    });
}

TEST_F(IteratorOnAReleasedPage, IsSafeAfterSetUnique) {
    Filled full(kPageSlots);
    edit(full.set).setUnique(false);
    appendIds(full.set, 7, 1);
    const ConstIterator it = full.set.iteratorAt(kPageSlots);
    const std::unique_ptr<selected_entity> duplicate(full.set.getAt(kPageSlots));
    edit(full.set).setUnique(true);
    ASSERT_EQ(full.store().head, full.store().tail);
    expectUnreadable(it);
    expectStepGoesToTheEnd(it);
    EXPECT_TRUE(invariants(full.set));
}

// --- clear

TEST_F(IteratorAfterClear, OfPrivateDataIsStillRegisteredButUnreadable) {
    Filled three(3);
    const ConstIterator it = three.set.iteratorAt(1);
    edit(three.set).clear();
    EXPECT_TRUE(isRegistered(three.set, it));
    expectUnreadable(it);
    expectStepGoesToTheEnd(it);
    EXPECT_TRUE(invariants(three.set));
}

TEST_F(IteratorAfterClear, StepsBackToBeforeTheFirstElement) {
    Filled three(3);
    const ConstIterator it = three.set.iteratorAt(2);
    edit(three.set).clear();
    ConstIterator prev(nullptr, 0);
    EXPECT_TRUE(it.getPrevIterator(prev));
    EXPECT_EQ(prev.index, 1);
    expectBeforeFirst(prev);
}

TEST_F(IteratorAfterClear, ThatStoodAtTheEndIsUnreadable) {
    Filled three(3);
    const ConstIterator it = three.set.end();
    edit(three.set).clear();
    expectUnreadable(it);
    ConstIterator prev(nullptr, 0);
    EXPECT_TRUE(it.getPrevIterator(prev));
    expectBeforeFirst(prev);
    expectStepGoesToTheEnd(it);
}

TEST_F(IteratorAfterClear, EndsItsWalkInWhatTheSetHoldsNow) {
    Filled three(3);
    const ConstIterator it = three.set.begin();
    edit(three.set).clear();
    appendIds(three.set, 11, 2);
    int steps = 0;
    while (steps < 10 && it.step())
        ++steps;
    EXPECT_LT(steps, 3);
    EXPECT_TRUE(it.isDone());
}

TEST_F(IteratorAfterClear, OfTheDataItselfIsUnreadable) {
    Filled three(3);
    const ConstIterator it = three.set.begin();
    three.set.sharedData->clear();
    expectUnreadable(it);
    expectStepGoesToTheEnd(it);
}

TEST_F(IteratorAfterClear, OfSharedDataIsDisabled) {
    Filled three(3);
    const GxapSelectSet sharer(three.set);
    const ConstIterator it = three.set.begin(), theirs = sharer.begin();
    edit(three.set).clear();
    EXPECT_EQ(it.truckerIterator, nullptr);
    EXPECT_TRUE(it.isDone());
    EXPECT_EQ(at(theirs), 1u);
}

TEST_F(IteratorAfterClear, OfAnOperandOfMergeOrMinusIsUnreadable) {
    const GxapSelectSet empty;
    for (const bool merge : {true, false}) {
        Filled three(3);
        const ConstIterator it = three.set.begin();
        if (merge)
            edit(three.set).merge(nullptr, nullptr);
        else
            edit(three.set).minus(&empty, nullptr);
        expectUnreadable(it);
        expectStepGoesToTheEnd(it);
    }
}

// --- unregistered iterators after their data was released

TEST_F(IteratorWithoutItsStore, IsDoneWhileTheSetHasNoData) {
    Filled three(3);
    ConstIterator it = three.set.iteratorAt(1);
    unregister(three.set, it);
    three.set.releaseData();
    ASSERT_NE(it.truckerIterator, nullptr);
    EXPECT_TRUE(it.isDone());
    EXPECT_EQ(it.get(), nullptr);
    EXPECT_EQ(it.gsMarker(), 0);
    EXPECT_TRUE(it.mainEntId().isNull());
    EXPECT_EQ(it.nestedEntFullPath().logicalLength(), 0);
    EXPECT_FALSE(it.step());
    ConstIterator prev(nullptr, 0);
    EXPECT_FALSE(it.getPrevIterator(prev));
}

TEST_F(IteratorWithoutItsStore, IsUnreadableOnceTheSetHasOtherData) {
    Filled three(3);
    ConstIterator it = three.set.iteratorAt(1);
    unregister(three.set, it);
    three.set.createData();
    appendIds(three.set, 11, 3);
    expectUnreadable(it);
    expectStepGoesToTheEnd(it);
}

TEST_F(IteratorWithoutItsStore, IsUnreadableOnceItsOldDataIsGoneEverywhere) {
    Filled three(3);
    auto sharer = std::make_unique<GxapSelectSet>(three.set);
    ConstIterator it = three.set.iteratorAt(1);
    unregister(three.set, it);
    edit(three.set).append(id(4), GxDbObjectId());
    EXPECT_FALSE(it.isDone());
    sharer.reset();
    expectUnreadable(it);
    expectStepGoesToTheEnd(it);
}

TEST_F(IteratorWithoutItsStore, StepsBackToBeforeTheFirstElement) {
    Filled three(3);
    ConstIterator it = three.set.iteratorAt(2);
    unregister(three.set, it);
    three.set.createData();
    ConstIterator prev(nullptr, 0);
    EXPECT_TRUE(it.getPrevIterator(prev));
    EXPECT_EQ(prev.index, 1);
    expectBeforeFirst(prev);
}

TEST_F(IteratorWithoutItsStore, CanBeCopiedAndAssigned) {
    Filled three(3);
    ConstIterator it = three.set.iteratorAt(1);
    unregister(three.set, it);
    three.set.createData();
    const ConstIterator copy(it);
    ConstIterator assigned(nullptr, 0);
    assigned = it;
    EXPECT_TRUE(copy == it);
    EXPECT_TRUE(assigned == it);
    expectStepGoesToTheEnd(copy);
    expectStepGoesToTheEnd(assigned);
}

TEST_F(IteratorWithoutItsStore, ThatWasAssignedAfterAReleaseSurvivesTheNextOne) {
    Filled three(3);
    ConstIterator it = three.set.begin();
    three.set.createData();
    appendIds(three.set, 11, 3);
    it = three.set.iteratorAt(1);
    ASSERT_FALSE(isRegistered(three.set, it));
    three.set.createData();
    EXPECT_NE(it.truckerIterator, nullptr);
    expectStepGoesToTheEnd(it);
    three.set.releaseData();
    EXPECT_TRUE(it.isDone());
    EXPECT_EQ(it.get(), nullptr);
}

TEST_F(IteratorWithoutItsStore, SurvivesACopyOnWrite) {
    Filled three(3);
    ConstIterator it = three.set.begin();
    unregister(three.set, it);
    {
        const GxapSelectSet sharer(three.set);
        edit(three.set).append(id(4), GxDbObjectId());
    }
    EXPECT_FALSE(it.isDone());
    expectUnreadable(it);
    expectStepGoesToTheEnd(it);
}

TEST_F(IteratorWithoutItsStore, RaisesWhenItsRecordIsToBeRemoved) {
    Filled three(3);
    Iterator it(&three.set, 1);
    unregister(three.set, it);
    three.set.createData();
    appendIds(three.set, 11, 3);
    expectMessage([&] { edit(three.set).removeAt(it); }, kAccessError);
    EXPECT_EQ(mainIds(three.set), (std::vector<unsigned long>{11, 12, 13}));
    EXPECT_TRUE(invariants(three.set));
}

// --- iterators whose page stays while other pages are freed

TEST_F(IteratorBesideReleasedPages, StaysGoodWhenAnotherPageGoes) {
    Filled two(kPageSlots + 2);
    const ConstIterator it = two.set.iteratorAt(kPageSlots);
    takeOutIds(two.set, 1, kPageSlots);
    EXPECT_EQ(at(it), kPageSlots + 1);
    EXPECT_TRUE(it.step());
    EXPECT_EQ(at(it), kPageSlots + 2);
    EXPECT_FALSE(it.step());
    EXPECT_TRUE(it.isDone());
}

TEST_F(IteratorBesideReleasedPages, StaysGoodWhenAnotherSetLosesPages) {
    Filled three(3);
    const ConstIterator it = three.set.begin();
    {
        Filled other(3);
        takeOutIds(other.set, 1, 3);
    }
    EXPECT_EQ(at(it), 1u);
    EXPECT_TRUE(it.step());
    ConstIterator prev(nullptr, 0);
    EXPECT_TRUE(it.getPrevIterator(prev));
    EXPECT_EQ(at(prev), 1u);
}

TEST_F(IteratorBesideReleasedPages, WalksOverTheGap) {
    Filled three(2 * kPageSlots + 1);
    const ConstIterator it = three.set.iteratorAt(kPageSlots - 1);
    takeOutIds(three.set, kPageSlots + 1, kPageSlots);
    EXPECT_EQ(at(it), kPageSlots);
    EXPECT_TRUE(it.step());
    EXPECT_EQ(at(it), 2 * kPageSlots + 1);
}

TEST_F(IteratorBesideReleasedPages, WalksBackOverTheGap) {
    Filled three(2 * kPageSlots + 1);
    const ConstIterator it = three.set.iteratorAt(2 * kPageSlots);
    takeOutIds(three.set, kPageSlots + 1, kPageSlots);
    ConstIterator prev(nullptr, 0);
    EXPECT_TRUE(it.getPrevIterator(prev));
    EXPECT_EQ(at(prev), kPageSlots);
    EXPECT_EQ(prev.truckerIterator->page, three.store().head);
}

TEST_F(IteratorBesideReleasedPages, WithoutAPageInFrontStepsBackToBeforeTheFirstElement) {
    Filled two(kPageSlots + 1);
    const ConstIterator it = two.set.iteratorAt(kPageSlots);
    takeOutIds(two.set, 1, kPageSlots);
    ConstIterator prev(nullptr, 0);
    EXPECT_TRUE(it.getPrevIterator(prev));
    EXPECT_EQ(prev.index, static_cast<int>(kPageSlots - 1));
    expectBeforeFirst(prev);
}

// --- end iterators

TEST_F(EndIteratorLeftBehind, ByAnAppendIsUnreadable) {
    Filled three(3);
    const ConstIterator it = three.set.end();
    appendIds(three.set, 4, 1);
    expectUnreadable(it);
}

TEST_F(EndIteratorLeftBehind, ByAnAppendToAnEmptySetIsUnreadable) {
    GxapSelectSet set;
    const ConstIterator it = set.end();
    appendIds(set, 1, 1);
    expectUnreadable(it);
}

TEST_F(EndIteratorLeftBehind, ByAReleasedPageStepsBackWithinItsOwn) {
    Filled two(kPageSlots + 2);
    const ConstIterator it = two.set.end();
    takeOutIds(two.set, 1, kPageSlots);
    EXPECT_TRUE(it.isDone());
    ConstIterator prev(nullptr, 0);
    EXPECT_TRUE(it.getPrevIterator(prev));
    EXPECT_EQ(at(prev), kPageSlots + 2);
}

TEST_F(EndIteratorLeftBehind, OnAReleasedPageGoesToTheNewEnd) {
    Filled two(kPageSlots + 2);
    const ConstIterator it = two.set.end();
    takeOutIds(two.set, kPageSlots + 1, 2);
    expectUnreadable(it);
    ConstIterator prev(nullptr, 0);
    EXPECT_TRUE(it.getPrevIterator(prev));
    expectBeforeFirst(prev);
    expectStepGoesToTheEnd(it);
}

// --- assignment to the set

TEST_F(IteratorAfterAssignment, OfOtherDataIsDisabled) {
    Filled three(3), other(3);
    const ConstIterator it = three.set.iteratorAt(1);
    three.set = other.set;
    EXPECT_EQ(it.truckerIterator, nullptr);
    EXPECT_TRUE(it.isDone());
    EXPECT_EQ(it.get(), nullptr);
    EXPECT_EQ(registrations(three.set), 0);
}

TEST_F(IteratorAfterAssignment, ByCopyFromMergeOrTransferIsDisabled) {
    Filled other(3);
    for (int how = 0; how < 3; ++how) {
        Filled three(3);
        const ConstIterator it = three.set.iteratorAt(1);
        if (how == 0)
            edit(three.set).copyFrom(other.set);
        if (how == 1)
            edit(three.set).merge(&other.set, nullptr);
        if (how == 2)
            other.set.transfer(three.set, nullptr, nullptr);
        EXPECT_EQ(it.truckerIterator, nullptr);
        EXPECT_EQ(it.get(), nullptr);
    }
}

TEST_F(IteratorAfterAssignment, OfTheSameDataIsGood) {
    Filled three(3);
    const GxapSelectSet sharer(three.set);
    const ConstIterator it = three.set.iteratorAt(1);
    three.set = sharer;
    EXPECT_EQ(at(it), 2u);
    EXPECT_TRUE(isRegistered(three.set, it));
}

// --- the set itself

TEST_F(IteratorAfterItsSet, IsHarmless) {
    auto three = std::make_unique<Filled>(3);
    auto other = std::make_unique<Filled>(3);
    Iterator it(&three->set, 1);
    const ConstIterator end = three->set.end(), copy(it);
    three.reset();
    EXPECT_TRUE(it.isDone() && end.isDone() && copy.isDone());
    EXPECT_EQ(it.get(), nullptr);
    EXPECT_FALSE(it.step());
    EXPECT_FALSE(it.getPrevIterator(it));
    const ConstIterator again(it);
    EXPECT_EQ(again.set, nullptr);
    it = Iterator(&other->set, 2);
    EXPECT_EQ(at(it), 3u);
    EXPECT_TRUE(isRegistered(other->set, it));
    other.reset();
}

TEST_F(IteratorAfterItsSet, IsHarmlessWhenTheDataLivesOn) {
    auto three = std::make_unique<Filled>(3);
    const GxapSelectSet sharer(three->set);
    const ConstIterator it = three->set.iteratorAt(1);
    three.reset();
    EXPECT_EQ(it.set, nullptr);
    EXPECT_TRUE(it.isDone());
    EXPECT_EQ(mainIds(sharer), (std::vector<unsigned long>{1, 2, 3}));
}

} // namespace
