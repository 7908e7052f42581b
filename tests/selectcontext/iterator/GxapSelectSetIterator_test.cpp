#include "tests/selectcontext/support/SetTestSupport.h"
#include "tests/support/Infos.h"
#include "tests/support/NewTracking.h"
#include "tests/support/Thrown.h"

#include <gtest/gtest.h>

#include <list>
#include <type_traits>

namespace {

using kvtest::appendIds;
using kvtest::at;
using kvtest::DataHold;
using kvtest::edit;
using kvtest::Filled;
using kvtest::id;
using kvtest::invariants;
using kvtest::isRegistered;
using kvtest::kAccessError;
using kvtest::kBeforeFirst;
using kvtest::kPageSlots;
using kvtest::numberOf;
using kvtest::registrations;
using kvtest::takeOutIds;

using ConstIterator = GxapSelectSet::ConstIterator;
using Iterator = GxapSelectSet::Iterator;
using Store = GxapSelectSet::SSetData::Store;

static_assert(std::is_base_of_v<ConstIterator, Iterator> && sizeof(Iterator) == sizeof(ConstIterator));
static_assert(std::is_same_v<decltype(&ConstIterator::get), selected_entity* (ConstIterator::*)() const>);
static_assert(std::is_same_v<decltype(&Iterator::get), selected_entity* (Iterator::*)()>);
static_assert(std::is_same_v<decltype(&GxapSelectSet::begin), ConstIterator (GxapSelectSet::*)() const>);
static_assert(std::is_same_v<decltype(&GxapSelectSet::end), ConstIterator (GxapSelectSet::*)() const>);
static_assert(std::is_same_v<decltype(&GxapSelectSet::cbegin), ConstIterator (GxapSelectSet::*)()>);
static_assert(std::is_same_v<decltype(&GxapSelectSet::cend), ConstIterator (GxapSelectSet::*)()>);

class IteratorRegistry : public kvtest::SetTest {};
class ConstIteratorConstruction : public kvtest::SetTest {};
class ConstIteratorCopy : public kvtest::SetTest {};
class ConstIteratorAssignment : public kvtest::SetTest {};
class ConstIteratorEnd : public kvtest::SetTest {};
class ConstIteratorState : public kvtest::SetTest {};
class ConstIteratorStep : public kvtest::SetTest {};
class ConstIteratorStepBack : public kvtest::SetTest {};
class ConstIteratorEquality : public kvtest::SetTest {};
class ConstIteratorAccess : public kvtest::SetTest {};
class WritableIterator : public kvtest::SetTest {};
class IteratorFactories : public kvtest::SetTest {};

class StoreTakenAway {
public:
    explicit StoreTakenAway(GxapSelectSet& set) : mData(set.sharedData), mStore(mData->entities) {
        mData->entities = nullptr;
    }
    StoreTakenAway(const StoreTakenAway&) = delete;
    StoreTakenAway& operator=(const StoreTakenAway&) = delete;
    ~StoreTakenAway() { mData->entities = mStore; }

private:
    GxapSelectSet::SSetData* mData;
    Store* mStore;
};

// Returns an iterator that names the set, but is not registered with it.
ConstIterator unregistered(const GxapSelectSet& set) {
    ConstIterator it(nullptr, 0);
    it.set = &set;
    return it;
}

std::vector<unsigned long> walk(const ConstIterator& it) {
    std::vector<unsigned long> ids;
    for (; !it.isDone(); it.step(true))
        ids.push_back(at(it));
    return ids;
}

// --- registry

TEST_F(IteratorRegistry, StartsWithoutStorageAndGrowsByEight) {
    GxapSelectSet set;
    EXPECT_EQ(set.iterators.mArray, nullptr);
    EXPECT_EQ(set.iterators.physicalLength(), 0);
    EXPECT_EQ(set.iterators.growLength(), 8);
}

TEST_F(IteratorRegistry, IgnoresNull) {
    GxapSelectSet set;
    set.addIterator(nullptr);
    EXPECT_EQ(registrations(set), 0);
    set.removeIterator(nullptr);
    EXPECT_TRUE(invariants(set));
}

TEST_F(IteratorRegistry, IgnoresNullBesideRegisteredIterators) {
    GxapSelectSet set;
    const ConstIterator it(&set, 0);
    set.addIterator(nullptr);
    set.removeIterator(nullptr);
    EXPECT_EQ(registrations(set), 1);
    EXPECT_TRUE(isRegistered(set, it));
}

TEST_F(IteratorRegistry, TakesNoEntryOutForNull) {
    GxapSelectSet set;
    set.iterators.setLogicalLength(1);
    set.iterators.at(0) = nullptr;
    set.removeIterator(nullptr);
    EXPECT_EQ(registrations(set), 1);
    set.iterators.setLogicalLength(0);
}

TEST_F(IteratorRegistry, HoldsAnIteratorOnceHoweverOftenItIsAdded) {
    GxapSelectSet set;
    ConstIterator it = unregistered(set);
    set.addIterator(&it);
    set.addIterator(&it);
    EXPECT_EQ(registrations(set), 1);
    EXPECT_TRUE(invariants(set));
}

TEST_F(IteratorRegistry, KeepsTheOrderOfRegistration) {
    GxapSelectSet set;
    ConstIterator a = unregistered(set), b = unregistered(set), c = unregistered(set);
    set.addIterator(&b);
    set.addIterator(&c);
    set.addIterator(&a);
    set.addIterator(&b);
    ASSERT_EQ(registrations(set), 3);
    EXPECT_EQ(set.iterators.at(0), &b);
    EXPECT_EQ(set.iterators.at(1), &c);
    EXPECT_EQ(set.iterators.at(2), &a);
}

TEST_F(IteratorRegistry, OfAConstSetAcceptsRegistrations) {
    GxapSelectSet set;
    const GxapSelectSet& constSet = set;
    ConstIterator it = unregistered(set);
    constSet.addIterator(&it);
    EXPECT_TRUE(isRegistered(set, it));
    constSet.removeIterator(&it);
    EXPECT_FALSE(isRegistered(set, it));
}

TEST_F(IteratorRegistry, GrowsByTheArraysRule) {
    GxapSelectSet set;
    std::list<ConstIterator> its;
    while (its.size() < 8)
        its.emplace_back(&set, 0);
    EXPECT_EQ(set.iterators.physicalLength(), 8);
    its.emplace_back(&set, 0);
    EXPECT_EQ(set.iterators.physicalLength(), 16);
    while (its.size() < 17)
        its.emplace_back(&set, 0);
    EXPECT_EQ(set.iterators.physicalLength(), 32);
    EXPECT_EQ(registrations(set), 17);
    EXPECT_TRUE(invariants(set));
}

TEST_F(IteratorRegistry, RemovingClosesTheGapAndKeepsTheOrder) {
    GxapSelectSet set;
    const ConstIterator a(&set, 0), b(&set, 0), c(&set, 0), d(&set, 0);
    set.removeIterator(set.iterators.at(1));
    ASSERT_EQ(registrations(set), 3);
    EXPECT_EQ(set.iterators.at(0), &a);
    EXPECT_EQ(set.iterators.at(1), &c);
    EXPECT_EQ(set.iterators.at(2), &d);
    EXPECT_FALSE(isRegistered(set, b));
}

TEST_F(IteratorRegistry, RemovesTheFirstAndTheLastEntry) {
    GxapSelectSet set;
    ConstIterator a(&set, 0), b(&set, 0), c(&set, 0);
    set.removeIterator(&a);
    set.removeIterator(&c);
    ASSERT_EQ(registrations(set), 1);
    EXPECT_EQ(set.iterators.at(0), &b);
    set.removeIterator(&b);
    EXPECT_EQ(registrations(set), 0);
}

TEST_F(IteratorRegistry, RemovingOneThatIsAbsentDoesNothing) {
    GxapSelectSet set;
    ConstIterator stranger = unregistered(set);
    set.removeIterator(&stranger);
    EXPECT_EQ(registrations(set), 0);
    const ConstIterator a(&set, 0), b(&set, 0);
    set.removeIterator(&stranger);
    EXPECT_EQ(registrations(set), 2);
    EXPECT_TRUE(invariants(set));
}

TEST_F(IteratorRegistry, RemovesTheFirstOfTwoEqualEntriesOnly) {
    GxapSelectSet set;
    ConstIterator a(&set, 0), b(&set, 0);
    set.iterators.setLogicalLength(3);
    set.iterators.at(2) = &a;
    set.removeIterator(&a);
    ASSERT_EQ(registrations(set), 2);
    EXPECT_EQ(set.iterators.at(0), &b);
    EXPECT_EQ(set.iterators.at(1), &a);
}

TEST_F(IteratorRegistry, RemovingDoesNotDisable) {
    Filled three(3);
    ConstIterator it = three.set.iteratorAt(1);
    three.set.removeIterator(&it);
    EXPECT_FALSE(isRegistered(three.set, it));
    EXPECT_EQ(at(it), 2u);
}

TEST_F(IteratorRegistry, DisablingAllEmptiesItAndKeepsItsStorage) {
    Filled three(3);
    const ConstIterator a = three.set.iteratorAt(1), b = three.set.end();
    three.set.disableAllIterator();
    EXPECT_EQ(registrations(three.set), 0);
    EXPECT_EQ(three.set.iterators.physicalLength(), 8);
    EXPECT_EQ(a.truckerIterator, nullptr);
    EXPECT_EQ(b.truckerIterator, nullptr);
}

TEST_F(IteratorRegistry, DisablingAllLeavesSetAndIndexOfTheIterators) {
    Filled three(3);
    const ConstIterator it = three.set.iteratorAt(2);
    three.set.disableAllIterator();
    EXPECT_EQ(it.set, &three.set);
    EXPECT_EQ(it.index, 2);
}

TEST_F(IteratorRegistry, DisablingAllOfAnEmptyRegistryDoesNothing) {
    GxapSelectSet set;
    set.disableAllIterator();
    EXPECT_EQ(registrations(set), 0);
    EXPECT_EQ(set.iterators.mArray, nullptr);
}

TEST_F(IteratorRegistry, OfACopiedSetStartsEmpty) {
    Filled three(3);
    const ConstIterator it = three.set.begin();
    const GxapSelectSet copy(three.set);
    EXPECT_EQ(registrations(copy), 0);
    EXPECT_EQ(registrations(three.set), 1);
}

TEST_F(IteratorRegistry, IsEmptiedByAReleaseThatLeavesTheDataToAnotherSet) {
    Filled three(3);
    GxapSelectSet sharer(three.set);
    const ConstIterator mine = three.set.begin(), theirs = sharer.begin();
    three.set.releaseData();
    EXPECT_TRUE(mine.isDone());
    EXPECT_EQ(mine.get(), nullptr);
    EXPECT_EQ(registrations(three.set), 0);
    EXPECT_EQ(at(theirs), 1u);
    EXPECT_EQ(registrations(sharer), 1);
}

// --- construction

TEST_F(ConstIteratorConstruction, WithoutASetIsDisabled) {
    const ConstIterator it(nullptr, 5);
    EXPECT_EQ(it.set, nullptr);
    EXPECT_EQ(it.index, 5);
    EXPECT_EQ(it.truckerIterator, nullptr);
    EXPECT_TRUE(it.isDone());
}

TEST_F(ConstIteratorConstruction, OnASetWithoutDataIsDisabledAndUnregistered) {
    GxapSelectSet set;
    set.releaseData();
    const ConstIterator it(&set, 3);
    EXPECT_EQ(it.set, &set);
    EXPECT_EQ(it.index, 3);
    EXPECT_EQ(it.truckerIterator, nullptr);
    EXPECT_EQ(registrations(set), 0);
    EXPECT_EQ(set.sharedData, nullptr);
}

TEST_F(ConstIteratorConstruction, OnDataWithoutAStoreIsDisabledAndUnregistered) {
    GxapSelectSet set;
    const StoreTakenAway away(set);
    const ConstIterator it(&set, 0);
    EXPECT_EQ(it.truckerIterator, nullptr);
    EXPECT_EQ(it.set, &set);
    EXPECT_EQ(registrations(set), 0);
}

TEST_F(ConstIteratorConstruction, RegistersAndStandsOnTheRecord) {
    Filled three(3);
    const ConstIterator it(&three.set, 1);
    EXPECT_TRUE(isRegistered(three.set, it));
    EXPECT_EQ(registrations(three.set), 1);
    EXPECT_EQ(it.index, 1);
    ASSERT_NE(it.truckerIterator, nullptr);
    EXPECT_EQ(it.truckerIterator->trucker, &three.store());
    EXPECT_EQ(it.truckerIterator->page, three.store().head);
    EXPECT_EQ(it.truckerIterator->slot, three.slot(1));
    EXPECT_EQ(it.truckerIterator->pageEnd, three.slot(kPageSlots));
    EXPECT_EQ(it.truckerIterator->position, 2u);
}

TEST_F(ConstIteratorConstruction, CountsOccupiedSlotsOnly) {
    Filled four(4);
    takeOutIds(four.set, 2, 1);
    const ConstIterator it(&four.set, 1);
    EXPECT_EQ(at(it), 3u);
    EXPECT_EQ(it.truckerIterator->slot, four.slot(2));
    EXPECT_EQ(it.truckerIterator->position, 2u);
}

TEST_F(ConstIteratorConstruction, AtTheCountStandsOnePastTheLastPage) {
    Filled three(3);
    const ConstIterator it(&three.set, 3);
    ASSERT_NE(it.truckerIterator, nullptr);
    EXPECT_EQ(it.truckerIterator->trucker, &three.store());
    EXPECT_EQ(it.truckerIterator->page, three.store().tail);
    EXPECT_EQ(it.truckerIterator->slot, three.slot(kPageSlots));
    EXPECT_EQ(it.truckerIterator->pageEnd, three.slot(kPageSlots));
    EXPECT_EQ(it.truckerIterator->position, 3u);
    EXPECT_TRUE(it.isDone());
    EXPECT_TRUE(isRegistered(three.set, it));
}

TEST_F(ConstIteratorConstruction, OnAnEmptySetStandsInAStoreWithoutPages) {
    GxapSelectSet set;
    const ConstIterator it(&set, 0);
    ASSERT_NE(it.truckerIterator, nullptr);
    EXPECT_EQ(it.truckerIterator->trucker, set.sharedData->entities);
    EXPECT_EQ(it.truckerIterator->page, nullptr);
    EXPECT_EQ(it.truckerIterator->pageEnd, nullptr);
    EXPECT_EQ(it.truckerIterator->slot, nullptr);
    EXPECT_EQ(it.truckerIterator->position, 0u);
    EXPECT_TRUE(it.isDone());
}

TEST_F(ConstIteratorConstruction, WithANegativeIndexIsRegisteredAtTheEnd) {
    Filled three(3);
    const ConstIterator it(&three.set, -1);
    EXPECT_EQ(it.index, -1);
    EXPECT_TRUE(isRegistered(three.set, it));
    EXPECT_TRUE(three.store().isEnd(*it.truckerIterator));
    EXPECT_TRUE(it.isDone());
}

TEST_F(ConstIteratorConstruction, BeyondTheCountIsNotClampedAndStandsNowhere) {
    Filled three(3);
    const ConstIterator it(&three.set, 7);
    EXPECT_EQ(it.index, 7);
    ASSERT_NE(it.truckerIterator, nullptr);
    EXPECT_EQ(it.truckerIterator->page, nullptr);
    EXPECT_EQ(it.truckerIterator->slot, nullptr);
    EXPECT_EQ(it.truckerIterator->pageEnd, nullptr);
    EXPECT_FALSE(it.isDone());
    kvtest::expectMessage([&] { it.get(); }, kAccessError);
}

TEST_F(ConstIteratorConstruction, OnTheSecondPageCountsWithinThatPage) {
    Filled two(kPageSlots + 1);
    const ConstIterator lastOfFirst(&two.set, kPageSlots - 1), firstOfSecond(&two.set, kPageSlots);
    EXPECT_EQ(lastOfFirst.truckerIterator->page, two.store().head);
    EXPECT_EQ(lastOfFirst.truckerIterator->position, kPageSlots);
    EXPECT_EQ(firstOfSecond.truckerIterator->page, two.store().tail);
    EXPECT_EQ(firstOfSecond.truckerIterator->slot, two.store().tail->slots);
    EXPECT_EQ(firstOfSecond.truckerIterator->position, 1u);
    EXPECT_EQ(at(firstOfSecond), kPageSlots + 1);
}

TEST_F(ConstIteratorConstruction, LeavesNothingBehindWhenTheIteratorGoes) {
    Filled three(3);
    { const ConstIterator warmUp(&three.set, 0); }
    const long before = kvtest::liveNewBlocks();
    {
        const ConstIterator a(&three.set, 0), b(&three.set, 3), c(nullptr, 0), d(a);
        EXPECT_EQ(registrations(three.set), 3);
    }
    EXPECT_EQ(kvtest::liveNewBlocks(), before);
    EXPECT_EQ(registrations(three.set), 0);
}

TEST_F(ConstIteratorConstruction, IsPossibleOnDataThatTwoSetsShare) {
    Filled three(3);
    const GxapSelectSet sharer(three.set);
    const ConstIterator it(&sharer, 2);
    EXPECT_EQ(at(it), 3u);
    EXPECT_EQ(registrations(sharer), 1);
    EXPECT_EQ(registrations(three.set), 0);
}

// --- copying

TEST_F(ConstIteratorCopy, RegistersItselfAndOwnsItsOwnPosition) {
    Filled three(3);
    const ConstIterator original = three.set.iteratorAt(1);
    const ConstIterator copy(original);
    EXPECT_EQ(registrations(three.set), 2);
    EXPECT_TRUE(isRegistered(three.set, copy));
    ASSERT_NE(copy.truckerIterator, nullptr);
    EXPECT_NE(copy.truckerIterator, original.truckerIterator);
    EXPECT_EQ(copy.index, 1);
    EXPECT_EQ(copy.truckerIterator->page, original.truckerIterator->page);
    EXPECT_EQ(copy.truckerIterator->slot, original.truckerIterator->slot);
    EXPECT_EQ(copy.truckerIterator->pageEnd, original.truckerIterator->pageEnd);
    EXPECT_EQ(copy.truckerIterator->position, original.truckerIterator->position);
}

TEST_F(ConstIteratorCopy, StepsByItself) {
    Filled three(3);
    const ConstIterator original = three.set.begin();
    const ConstIterator copy(original);
    copy.step();
    EXPECT_EQ(at(original), 1u);
    EXPECT_EQ(at(copy), 2u);
}

TEST_F(ConstIteratorCopy, OfADisabledIteratorIsDisabledAndUnregistered) {
    Filled three(3);
    ConstIterator original = three.set.iteratorAt(2);
    original.disable();
    const ConstIterator copy(original);
    EXPECT_EQ(copy.set, &three.set);
    EXPECT_EQ(copy.index, 2);
    EXPECT_EQ(copy.truckerIterator, nullptr);
    EXPECT_FALSE(isRegistered(three.set, copy));
}

TEST_F(ConstIteratorCopy, OfAnIteratorWithoutASetIsDisabled) {
    const ConstIterator original(nullptr, 4);
    const ConstIterator copy(original);
    EXPECT_EQ(copy.set, nullptr);
    EXPECT_EQ(copy.index, 4);
    EXPECT_EQ(copy.truckerIterator, nullptr);
}

TEST_F(ConstIteratorCopy, OfAPositionedIteratorWhoseSetHasNoDataIsDisabled) {
    Filled three(3);
    const DataHold hold(three.set);
    ConstIterator original = three.set.iteratorAt(1);
    three.set.removeIterator(&original);
    three.set.releaseData();
    const ConstIterator copy(original);
    EXPECT_NE(original.truckerIterator, nullptr);
    EXPECT_EQ(copy.truckerIterator, nullptr);
    EXPECT_EQ(copy.set, &three.set);
    EXPECT_EQ(copy.index, 1);
    EXPECT_EQ(registrations(three.set), 0);
}

TEST_F(ConstIteratorCopy, OfAPositionedIteratorWhoseDataHasNoStoreIsDisabled) {
    Filled three(3);
    const ConstIterator original = three.set.iteratorAt(1);
    const StoreTakenAway away(three.set);
    const ConstIterator copy(original);
    EXPECT_EQ(copy.truckerIterator, nullptr);
    EXPECT_FALSE(isRegistered(three.set, copy));
}

TEST_F(ConstIteratorCopy, OfAnUnregisteredPositionedIteratorIsRegistered) {
    Filled three(3);
    ConstIterator original = three.set.iteratorAt(1);
    three.set.removeIterator(&original);
    const ConstIterator copy(original);
    EXPECT_EQ(registrations(three.set), 1);
    EXPECT_TRUE(isRegistered(three.set, copy));
    EXPECT_TRUE(copy == original);
}

// --- assignment

TEST_F(ConstIteratorAssignment, ToItselfChangesNothing) {
    Filled three(3);
    ConstIterator it = three.set.iteratorAt(1);
    const Store::iterator* position = it.truckerIterator;
    const ConstIterator& same = it;
    EXPECT_EQ(&(it = same), &it);
    EXPECT_EQ(it.truckerIterator, position);
    EXPECT_EQ(it.index, 1);
    EXPECT_EQ(registrations(three.set), 1);
}

TEST_F(ConstIteratorAssignment, WithinASetMovesThePositionAndKeepsTheRegistry) {
    Filled three(3);
    ConstIterator a = three.set.begin();
    const ConstIterator b = three.set.iteratorAt(2);
    EXPECT_EQ(&(a = b), &a);
    EXPECT_TRUE(a == b);
    EXPECT_EQ(a.index, 2);
    EXPECT_NE(a.truckerIterator, b.truckerIterator);
    ASSERT_EQ(registrations(three.set), 2);
    EXPECT_EQ(three.set.iterators.at(0), &a);
    EXPECT_EQ(three.set.iterators.at(1), &b);
}

TEST_F(ConstIteratorAssignment, FromAnotherSetMovesTheRegistration) {
    Filled here(3), there(5);
    ConstIterator it = here.set.begin();
    const ConstIterator other = there.set.iteratorAt(4);
    it = other;
    EXPECT_EQ(it.set, &there.set);
    EXPECT_EQ(at(it), 5u);
    EXPECT_EQ(registrations(here.set), 0);
    EXPECT_EQ(registrations(there.set), 2);
    EXPECT_TRUE(invariants(there.set));
}

TEST_F(ConstIteratorAssignment, ToAnIteratorWithoutASetRegisters) {
    Filled three(3);
    ConstIterator it(nullptr, 0);
    it = three.set.begin();
    EXPECT_EQ(at(it), 1u);
    EXPECT_EQ(registrations(three.set), 1);
    EXPECT_TRUE(isRegistered(three.set, it));
}

TEST_F(ConstIteratorAssignment, FromADisabledIteratorOfTheSameSetLeavesItDisabledButRegistered) {
    Filled three(3);
    ConstIterator it = three.set.begin();
    ConstIterator disabled = three.set.iteratorAt(2);
    disabled.disable();
    it = disabled;
    EXPECT_EQ(it.truckerIterator, nullptr);
    EXPECT_EQ(it.index, 2);
    EXPECT_EQ(it.set, &three.set);
    EXPECT_TRUE(isRegistered(three.set, it));
}

TEST_F(ConstIteratorAssignment, FromADisabledIteratorOfAnotherSetLeavesItRegisteredNowhere) {
    Filled here(3), there(3);
    ConstIterator it = here.set.begin();
    ConstIterator disabled = there.set.iteratorAt(1);
    disabled.disable();
    it = disabled;
    EXPECT_EQ(it.truckerIterator, nullptr);
    EXPECT_EQ(it.set, &there.set);
    EXPECT_EQ(it.index, 1);
    EXPECT_EQ(registrations(here.set), 0);
    EXPECT_FALSE(isRegistered(there.set, it));
}

TEST_F(ConstIteratorAssignment, FromAnIteratorWithoutASetUnregisters) {
    Filled three(3);
    ConstIterator it = three.set.begin();
    it = ConstIterator(nullptr, 9);
    EXPECT_EQ(it.set, nullptr);
    EXPECT_EQ(it.index, 9);
    EXPECT_EQ(it.truckerIterator, nullptr);
    EXPECT_EQ(registrations(three.set), 0);
}

TEST_F(ConstIteratorAssignment, FromAPositionedIteratorWhoseSetHasNoDataDisables) {
    Filled here(3), there(3);
    const DataHold hold(there.set);
    ConstIterator left = there.set.iteratorAt(2);
    there.set.removeIterator(&left);
    there.set.releaseData();
    ConstIterator it = here.set.begin();
    it = left;
    EXPECT_EQ(it.set, &there.set);
    EXPECT_EQ(it.index, 2);
    EXPECT_EQ(it.truckerIterator, nullptr);
    EXPECT_EQ(registrations(here.set), 0);
    EXPECT_EQ(registrations(there.set), 0);
}

TEST_F(ConstIteratorAssignment, FromAPositionedIteratorWhoseDataHasNoStoreDisables) {
    Filled here(3), there(3);
    const ConstIterator source = there.set.iteratorAt(2);
    const StoreTakenAway away(there.set);
    ConstIterator it = here.set.begin();
    it = source;
    EXPECT_EQ(it.truckerIterator, nullptr);
    EXPECT_FALSE(isRegistered(there.set, it));
    EXPECT_EQ(registrations(here.set), 0);
}

TEST_F(ConstIteratorAssignment, AfterAReleaseWalksTheNewDataWithoutBeingRegistered) {
    Filled three(3);
    ConstIterator it = three.set.begin();
    three.set.createData();
    appendIds(three.set, 11, 2);
    ASSERT_TRUE(it.isDone());
    it = three.set.begin();
    EXPECT_FALSE(isRegistered(three.set, it));
    EXPECT_EQ(walk(it), (std::vector<unsigned long>{11, 12}));
    EXPECT_TRUE(invariants(three.set));
}

TEST_F(ConstIteratorAssignment, AfterAReleaseIsNotDisabledByTheNextOne) {
    Filled three(3);
    ConstIterator it = three.set.begin();
    three.set.createData();
    appendIds(three.set, 11, 2);
    it = three.set.begin();
    const DataHold hold(three.set);
    three.set.createData();
    EXPECT_NE(it.truckerIterator, nullptr);
}

TEST_F(ConstIteratorAssignment, AfterAReleaseByWayOfAnotherSetIsRegistered) {
    Filled three(3), other(1);
    ConstIterator it = other.set.begin();
    three.set.createData();
    appendIds(three.set, 11, 2);
    it = three.set.begin();
    EXPECT_TRUE(isRegistered(three.set, it));
    EXPECT_EQ(registrations(other.set), 0);
    three.set.createData();
    EXPECT_TRUE(it.isDone());
}

TEST_F(ConstIteratorAssignment, FreesThePositionItHadBefore) {
    Filled three(3);
    ConstIterator it = three.set.begin();
    const ConstIterator other = three.set.end();
    const long before = kvtest::liveNewBlocks();
    it = other;
    it = other;
    EXPECT_EQ(kvtest::liveNewBlocks(), before);
}

// --- destruction

TEST_F(ConstIteratorEnd, UnregistersOnlyItself) {
    Filled three(3);
    const ConstIterator stays = three.set.begin();
    {
        const ConstIterator goes = three.set.begin();
        EXPECT_EQ(registrations(three.set), 2);
    }
    ASSERT_EQ(registrations(three.set), 1);
    EXPECT_EQ(three.set.iterators.at(0), &stays);
}

TEST_F(ConstIteratorEnd, AfterAReleaseIsHarmless) {
    Filled three(3);
    const ConstIterator other = three.set.end();
    {
        const ConstIterator a = three.set.begin(), b = three.set.iteratorAt(2), c(b);
        three.set.releaseData();
        EXPECT_TRUE(a.isDone() && b.isDone() && c.isDone() && other.isDone());
        EXPECT_EQ(registrations(three.set), 0);
    }
    EXPECT_TRUE(invariants(three.set));
}

TEST_F(ConstIteratorEnd, DisablingFreesThePositionAndNothingElse) {
    Filled three(3);
    ConstIterator it = three.set.iteratorAt(1);
    const long before = kvtest::liveNewBlocks();
    it.disable();
    EXPECT_EQ(kvtest::liveNewBlocks(), before - 1);
    EXPECT_EQ(it.truckerIterator, nullptr);
    EXPECT_EQ(it.set, &three.set);
    EXPECT_EQ(it.index, 1);
    EXPECT_TRUE(isRegistered(three.set, it));
}

TEST_F(ConstIteratorEnd, DisablingTwiceDoesNothingMore) {
    Filled three(3);
    ConstIterator it = three.set.iteratorAt(1);
    it.disable();
    it.disable();
    EXPECT_EQ(it.truckerIterator, nullptr);
    EXPECT_EQ(it.index, 1);
}

TEST_F(ConstIteratorEnd, OfTheSetClearsItInTheIteratorsStillRegistered) {
    auto set = std::make_unique<GxapSelectSet>();
    appendIds(*set, 1, 3);
    const ConstIterator a = set->begin(), b = set->end();
    set.reset();
    EXPECT_EQ(a.set, nullptr);
    EXPECT_EQ(b.set, nullptr);
    EXPECT_TRUE(a.isDone() && b.isDone());
    EXPECT_EQ(a.get(), nullptr);
    EXPECT_FALSE(a.step());
}

TEST_F(ConstIteratorEnd, OfTheSetClearsItAlsoInADisabledIteratorStillRegistered) {
    auto set = std::make_unique<GxapSelectSet>();
    ConstIterator it = set->begin();
    it.disable();
    ASSERT_TRUE(isRegistered(*set, it));
    set.reset();
    EXPECT_EQ(it.set, nullptr);
}

// --- isDone

TEST_F(ConstIteratorState, IsNotDoneOnARecord) {
    Filled one(1);
    EXPECT_FALSE(one.set.begin().isDone());
}

TEST_F(ConstIteratorState, IsDoneAtTheEnd) {
    Filled one(1);
    EXPECT_TRUE(one.set.end().isDone());
    EXPECT_TRUE(GxapSelectSet().begin().isDone());
}

TEST_F(ConstIteratorState, IsDoneWhenDisabled) {
    Filled one(1);
    ConstIterator it = one.set.begin();
    it.disable();
    EXPECT_TRUE(it.isDone());
}

TEST_F(ConstIteratorState, IsDoneWhenTheDataHasNoStore) {
    Filled one(1);
    const ConstIterator it = one.set.begin();
    const StoreTakenAway away(one.set);
    EXPECT_TRUE(it.isDone());
    EXPECT_EQ(it.get(), nullptr);
    EXPECT_FALSE(it.step());
}

TEST_F(ConstIteratorState, IsDoneWhenTheSetHasNoData) {
    Filled one(1);
    const DataHold hold(one.set);
    ConstIterator it = one.set.begin();
    one.set.removeIterator(&it);
    one.set.releaseData();
    ASSERT_NE(it.truckerIterator, nullptr);
    EXPECT_TRUE(it.isDone());
    EXPECT_EQ(it.get(), nullptr);
    EXPECT_FALSE(it.step());
    EXPECT_EQ(it.index, 0);
}

TEST_F(ConstIteratorState, AtTheEndDoesNotDependOnThePageEnd) {
    Filled one(1);
    const ConstIterator it = one.set.end();
    it.truckerIterator->pageEnd = nullptr;
    EXPECT_TRUE(it.isDone());
}

TEST_F(ConstIteratorState, AtTheEndDependsOnEveryOtherField) {
    Filled one(1), other(1);
    for (int field = 0; field < 4; ++field) {
        const ConstIterator it = one.set.end();
        Store::iterator& position = *it.truckerIterator;
        if (field == 0)
            position.trucker = &other.store();
        if (field == 1)
            position.slot = one.slot(0);
        if (field == 2)
            position.page = other.store().head;
        if (field == 3)
            position.position = 0;
        EXPECT_FALSE(it.isDone()) << "field " << field;
    }
}

TEST_F(ConstIteratorState, AtTheEndOfEarlierDataReadsAsNotDone) {
    Filled three(3);
    const DataHold hold(three.set);
    ConstIterator it = three.set.end();
    three.set.removeIterator(&it);
    three.set.createData();
    EXPECT_FALSE(it.isDone());
}

TEST_F(ConstIteratorState, AtTheEndIsNoLongerDoneOnceARecordIsAppended) {
    Filled three(3);
    const ConstIterator it = three.set.end();
    appendIds(three.set, 4, 1);
    EXPECT_FALSE(it.isDone());
    EXPECT_TRUE(three.set.end().isDone());
}

// --- step

TEST_F(ConstIteratorStep, WalksEveryRecordInStoreOrder) {
    GxapSelectSet set;
    for (unsigned long n : {5ul, 2ul, 9ul, 1ul})
        edit(set).append(id(n), GxDbObjectId());
    EXPECT_EQ(walk(set.begin()), (std::vector<unsigned long>{5, 2, 9, 1}));
}

TEST_F(ConstIteratorStep, RaisesTheIndexAndThePosition) {
    Filled three(3);
    const ConstIterator it = three.set.begin();
    EXPECT_TRUE(it.step(true));
    EXPECT_EQ(it.index, 1);
    EXPECT_EQ(it.truckerIterator->slot, three.slot(1));
    EXPECT_EQ(it.truckerIterator->position, 2u);
    EXPECT_TRUE(it == three.set.iteratorAt(1));
}

TEST_F(ConstIteratorStep, IgnoresItsArgument) {
    Filled three(3);
    const ConstIterator it = three.set.begin();
    EXPECT_TRUE(it.step(false));
    EXPECT_EQ(at(it), 2u);
    EXPECT_TRUE(it.step());
    EXPECT_EQ(at(it), 3u);
}

TEST_F(ConstIteratorStep, OntoTheEndAnswersFalseAndStillRaisesTheIndex) {
    Filled three(3);
    const ConstIterator it = three.set.iteratorAt(2);
    EXPECT_FALSE(it.step(true));
    EXPECT_EQ(it.index, 3);
    EXPECT_TRUE(it.isDone());
    EXPECT_TRUE(it == three.set.end());
}

TEST_F(ConstIteratorStep, AtTheEndChangesNothing) {
    Filled three(3);
    const ConstIterator it = three.set.end();
    EXPECT_FALSE(it.step(true));
    EXPECT_EQ(it.index, 3);
    EXPECT_TRUE(it == three.set.end());
}

TEST_F(ConstIteratorStep, OfANegativeIndexChangesNothing) {
    Filled three(3);
    const ConstIterator it(&three.set, -1);
    EXPECT_FALSE(it.step(true));
    EXPECT_EQ(it.index, -1);
}

TEST_F(ConstIteratorStep, WhenDisabledChangesNothing) {
    Filled three(3);
    ConstIterator it = three.set.begin();
    it.disable();
    EXPECT_FALSE(it.step(true));
    EXPECT_EQ(it.index, 0);
    const ConstIterator nowhere(nullptr, 2);
    EXPECT_FALSE(nowhere.step(true));
    EXPECT_EQ(nowhere.index, 2);
}

TEST_F(ConstIteratorStep, SkipsFreedSlots) {
    Filled six(6);
    takeOutIds(six.set, 2, 2);
    takeOutIds(six.set, 6, 1);
    const ConstIterator it = six.set.begin();
    EXPECT_EQ(walk(it), (std::vector<unsigned long>{1, 4, 5}));
    EXPECT_EQ(it.index, 3);
    EXPECT_TRUE(it == six.set.end());
}

TEST_F(ConstIteratorStep, CrossesToTheNextPage) {
    Filled two(kPageSlots + 1);
    const ConstIterator it = two.set.iteratorAt(kPageSlots - 1);
    EXPECT_TRUE(it.step(true));
    EXPECT_EQ(it.truckerIterator->page, two.store().tail);
    EXPECT_EQ(it.truckerIterator->slot, two.store().tail->slots);
    EXPECT_EQ(it.truckerIterator->pageEnd, two.store().tail->slots + kPageSlots);
    EXPECT_EQ(it.truckerIterator->position, 1u);
    EXPECT_TRUE(it == two.set.iteratorAt(kPageSlots));
    EXPECT_FALSE(it.step(true));
    EXPECT_TRUE(it == two.set.end());
}

TEST_F(ConstIteratorStep, WalksTwoPagesFromEndToEnd) {
    Filled two(kPageSlots + 1);
    const ConstIterator it = two.set.begin();
    EXPECT_EQ(walk(it), kvtest::idRange(1, kPageSlots + 1));
    EXPECT_EQ(it.index, static_cast<int>(kPageSlots + 1));
}

TEST_F(ConstIteratorStep, ReachesWhatIsAppendedDuringTheWalk) {
    Filled one(1);
    const ConstIterator it = one.set.begin();
    appendIds(one.set, 2, 1);
    EXPECT_EQ(at(it), 1u);
    EXPECT_TRUE(it.step());
    EXPECT_EQ(at(it), 2u);
    EXPECT_FALSE(it.step());
}

TEST_F(ConstIteratorStep, FromAnEndThatAnAppendLeftBehindGoesToTheEnd) {
    Filled three(3);
    const ConstIterator it = three.set.end();
    appendIds(three.set, 4, 1);
    EXPECT_FALSE(it.step());
    EXPECT_EQ(it.index, 4);
    EXPECT_TRUE(it == three.set.end());
}

TEST_F(ConstIteratorStep, FromTheEndOfAnEmptySetThatAnAppendLeftBehindDoesNotMove) {
    GxapSelectSet set;
    const ConstIterator it = set.end();
    appendIds(set, 1, 1);
    EXPECT_TRUE(it.step());
    EXPECT_EQ(it.index, 1);
    EXPECT_EQ(it.truckerIterator->slot, nullptr);
}

TEST_F(ConstIteratorStep, FromTheEndOfAFullPageReachesTheRecordAppendedBehindIt) {
    Filled full(kPageSlots);
    const ConstIterator it = full.set.end();
    appendIds(full.set, kPageSlots + 1, 1);
    EXPECT_FALSE(it.isDone());
    EXPECT_TRUE(it.step());
    EXPECT_EQ(at(it), kPageSlots + 1);
    EXPECT_EQ(it.truckerIterator->position, 1u);
}

TEST_F(ConstIteratorStep, FromAFreedSlotReachesTheNextRecord) {
    Filled three(3);
    const ConstIterator it = three.set.begin();
    takeOutIds(three.set, 1, 1);
    EXPECT_FALSE(it.isDone());
    kvtest::expectMessage([&] { it.get(); }, kAccessError);
    EXPECT_TRUE(it.step());
    EXPECT_EQ(at(it), 2u);
}

// `position` is the number of occupied slots of the page up to the slot of the iterator. When the first two
// slots are freed, `position` stays the same. It is then too high.
TEST_F(ConstIteratorStep, WithAStalePositionEndsItsPageEarly) {
    Filled five(5);
    const ConstIterator it = five.set.iteratorAt(2);
    takeOutIds(five.set, 1, 2);
    EXPECT_EQ(at(it), 3u);
    EXPECT_FALSE(it.step());
    EXPECT_TRUE(it.isDone());
    EXPECT_EQ(it.index, 3);
}

TEST_F(ConstIteratorStep, BeyondTheCountDoesNotMove) {
    Filled three(3);
    const ConstIterator it(&three.set, 7);
    EXPECT_TRUE(it.step());
    EXPECT_EQ(it.index, 8);
    EXPECT_EQ(it.truckerIterator->slot, nullptr);
    EXPECT_FALSE(it.isDone());
}

// --- getPrevIterator

TEST_F(ConstIteratorStepBack, OnTheFirstRecordAnswersFalseAndLeavesItsArgument) {
    Filled three(3);
    const ConstIterator first = three.set.begin();
    ConstIterator prev(nullptr, 42);
    EXPECT_FALSE(first.getPrevIterator(prev));
    EXPECT_EQ(prev.set, nullptr);
    EXPECT_EQ(prev.index, 42);
    EXPECT_EQ(registrations(three.set), 1);
}

TEST_F(ConstIteratorStepBack, WithANegativeIndexAnswersFalseAndLeavesItsArgument) {
    Filled three(3);
    const ConstIterator it(&three.set, -1);
    ConstIterator prev(nullptr, 42);
    EXPECT_FALSE(it.getPrevIterator(prev));
    EXPECT_EQ(prev.set, nullptr);
    EXPECT_EQ(prev.index, 42);
}

TEST_F(ConstIteratorStepBack, WhenDisabledAnswersFalseAndLeavesItsArgument) {
    Filled three(3), other(2);
    ConstIterator it = three.set.iteratorAt(2);
    it.disable();
    ConstIterator prev = other.set.iteratorAt(1);
    EXPECT_FALSE(it.getPrevIterator(prev));
    EXPECT_EQ(prev.set, &other.set);
    EXPECT_EQ(at(prev), 2u);
    EXPECT_EQ(registrations(other.set), 1);
}

TEST_F(ConstIteratorStepBack, OfAnEmptySetsEndAnswersFalse) {
    GxapSelectSet set;
    ConstIterator prev(nullptr, 0);
    EXPECT_FALSE(set.end().getPrevIterator(prev));
    EXPECT_EQ(prev.set, nullptr);
}

TEST_F(ConstIteratorStepBack, GivesTheRecordBefore) {
    Filled three(3);
    const ConstIterator it = three.set.iteratorAt(2);
    ConstIterator prev(nullptr, 0);
    EXPECT_TRUE(it.getPrevIterator(prev));
    EXPECT_EQ(prev.index, 1);
    EXPECT_EQ(prev.truckerIterator->slot, three.slot(1));
    EXPECT_EQ(prev.truckerIterator->position, 2u);
    EXPECT_TRUE(prev == three.set.iteratorAt(1));
    EXPECT_EQ(at(it), 3u);
    EXPECT_EQ(it.index, 2);
}

TEST_F(ConstIteratorStepBack, RegistersItsArgumentWithThisSet) {
    Filled three(3), other(1);
    const ConstIterator it = three.set.iteratorAt(1);
    ConstIterator prev = other.set.begin();
    EXPECT_TRUE(it.getPrevIterator(prev));
    EXPECT_TRUE(isRegistered(three.set, prev));
    EXPECT_EQ(registrations(other.set), 0);
    EXPECT_EQ(registrations(three.set), 2);
    EXPECT_TRUE(invariants(three.set));
}

TEST_F(ConstIteratorStepBack, FromTheEndGivesTheLastRecord) {
    Filled three(3);
    ConstIterator prev(nullptr, 0);
    EXPECT_TRUE(three.set.end().getPrevIterator(prev));
    EXPECT_EQ(prev.index, 2);
    EXPECT_EQ(at(prev), 3u);
    EXPECT_EQ(prev.truckerIterator->slot, three.slot(2));
}

// The end has as `position` the number of items of the last page, here 3. The step back makes it 2, although
// iteratorAt(2) gives the same item the `position` 3.
TEST_F(ConstIteratorStepBack, FromTheEndCountsThePositionDownFromTheLiveCount) {
    Filled three(3);
    ConstIterator prev(nullptr, 0);
    three.set.end().getPrevIterator(prev);
    EXPECT_EQ(prev.truckerIterator->position, 2u);
    EXPECT_TRUE(prev != three.set.iteratorAt(2));
    EXPECT_FALSE(prev.step());
    EXPECT_TRUE(prev == three.set.end());
}

TEST_F(ConstIteratorStepBack, WalksTheWholeSetBackwards) {
    Filled three(3);
    ConstIterator it = three.set.end();
    std::vector<unsigned long> ids;
    while (it.getPrevIterator(it))
        ids.push_back(at(it));
    EXPECT_EQ(ids, (std::vector<unsigned long>{3, 2, 1}));
    EXPECT_EQ(it.index, 0);
    EXPECT_EQ(registrations(three.set), 1);
}

TEST_F(ConstIteratorStepBack, SkipsFreedSlots) {
    Filled five(5);
    takeOutIds(five.set, 2, 3);
    ConstIterator it = five.set.iteratorAt(1);
    ASSERT_EQ(at(it), 5u);
    EXPECT_TRUE(it.getPrevIterator(it));
    EXPECT_EQ(at(it), 1u);
    EXPECT_EQ(it.truckerIterator->position, 1u);
}

TEST_F(ConstIteratorStepBack, FromAFreedSlotGivesTheRecordBeforeIt) {
    Filled three(3);
    const ConstIterator it = three.set.iteratorAt(1);
    takeOutIds(three.set, 2, 1);
    ConstIterator prev(nullptr, 0);
    EXPECT_TRUE(it.getPrevIterator(prev));
    EXPECT_EQ(at(prev), 1u);
}

TEST_F(ConstIteratorStepBack, CrossesToThePageBefore) {
    Filled two(kPageSlots + 1);
    const ConstIterator it = two.set.iteratorAt(kPageSlots);
    ConstIterator prev(nullptr, 0);
    EXPECT_TRUE(it.getPrevIterator(prev));
    EXPECT_EQ(prev.index, static_cast<int>(kPageSlots - 1));
    EXPECT_EQ(prev.truckerIterator->page, two.store().head);
    EXPECT_EQ(prev.truckerIterator->slot, two.slot(kPageSlots - 1));
    EXPECT_EQ(prev.truckerIterator->pageEnd, two.slot(kPageSlots));
    EXPECT_EQ(prev.truckerIterator->position, kPageSlots - 1);
    EXPECT_EQ(at(prev), kPageSlots);
}

TEST_F(ConstIteratorStepBack, FromTheEndCrossesBothPages) {
    Filled two(kPageSlots + 2);
    ConstIterator it = two.set.end();
    for (unsigned long n = kPageSlots + 2; n > 0; --n) {
        ASSERT_TRUE(it.getPrevIterator(it));
        ASSERT_EQ(at(it), n);
    }
    EXPECT_FALSE(it.getPrevIterator(it));
}

TEST_F(ConstIteratorStepBack, StartsInAPartlyFilledPageBeforeAtTheEndOfWhatWasUsed) {
    Filled two(kPageSlots + 1);
    takeOutIds(two.set, 3, kPageSlots - 2);
    ASSERT_EQ(two.store().head->liveCount, 2u);
    const ConstIterator it = two.set.iteratorAt(2);
    ConstIterator prev(nullptr, 0);
    EXPECT_TRUE(it.getPrevIterator(prev));
    EXPECT_EQ(at(prev), 2u);
    EXPECT_EQ(prev.truckerIterator->position, 1u);
}

TEST_F(ConstIteratorStepBack, BeforeTheFirstSlotOfTheStoreStandsBeforeTheFirstElement) {
    Filled two(2);
    const ConstIterator it = two.set.iteratorAt(1);
    takeOutIds(two.set, 1, 1);
    ConstIterator prev(nullptr, 0);
    EXPECT_TRUE(it.getPrevIterator(prev));
    EXPECT_EQ(prev.index, 0);
    EXPECT_EQ(prev.truckerIterator->position, kBeforeFirst);
    EXPECT_EQ(prev.truckerIterator->page, nullptr);
    EXPECT_EQ(prev.truckerIterator->slot, nullptr);
    EXPECT_EQ(prev.truckerIterator->pageEnd, nullptr);
    EXPECT_FALSE(prev.isDone());
}

TEST_F(ConstIteratorStepBack, BeforeTheFirstElementRaisesWhenReadAndStepsOntoTheFirstRecord) {
    Filled two(2);
    const ConstIterator it = two.set.iteratorAt(1);
    takeOutIds(two.set, 1, 1);
    ConstIterator prev(nullptr, 0);
    it.getPrevIterator(prev);
    kvtest::expectMessage([&] { prev.get(); }, kAccessError);
    EXPECT_TRUE(prev.step());
    EXPECT_EQ(at(prev), 2u);
    EXPECT_EQ(prev.index, 1);
    EXPECT_EQ(prev.truckerIterator->position, 1u);
}

TEST_F(ConstIteratorStepBack, BeforeTheFirstElementStaysThereWithALowerIndex) {
    Filled three(3);
    const ConstIterator it = three.set.iteratorAt(2);
    takeOutIds(three.set, 1, 2);
    ConstIterator prev(nullptr, 0);
    ASSERT_TRUE(it.getPrevIterator(prev));
    ASSERT_EQ(prev.index, 1);
    EXPECT_TRUE(prev.getPrevIterator(prev));
    EXPECT_EQ(prev.index, 0);
    EXPECT_EQ(prev.truckerIterator->position, kBeforeFirst);
}

// The step moves the iterator from before the first element to the first slot, with `position` 0.
// iteratorAt(0) gives the same slot the `position` 1.
TEST_F(ConstIteratorStepBack, BeforeTheFirstElementStepsOntoAnOccupiedFirstSlotWithPositionZero) {
    Filled two(2);
    const ConstIterator it = two.set.iteratorAt(1);
    takeOutIds(two.set, 1, 1);
    ConstIterator prev(nullptr, 0);
    ASSERT_TRUE(it.getPrevIterator(prev));
    takeOutIds(two.set, 2, 1);
    appendIds(two.set, 11, 2);
    EXPECT_TRUE(prev.step());
    EXPECT_EQ(at(prev), 11u);
    EXPECT_EQ(prev.truckerIterator->position, 0u);
    EXPECT_TRUE(prev.step());
    EXPECT_EQ(at(prev), 12u);
    EXPECT_EQ(prev.truckerIterator->position, 1u);
    EXPECT_FALSE(prev.step());
    EXPECT_TRUE(prev.isDone());
}

TEST_F(ConstIteratorStepBack, WithoutAPageLowersTheIndexAlone) {
    Filled three(3);
    const ConstIterator beyond(&three.set, 7);
    ConstIterator prev(nullptr, 0);
    EXPECT_TRUE(beyond.getPrevIterator(prev));
    EXPECT_EQ(prev.index, 6);
    EXPECT_EQ(prev.truckerIterator->page, nullptr);
    EXPECT_EQ(prev.truckerIterator->slot, nullptr);
    EXPECT_EQ(prev.truckerIterator->position, beyond.truckerIterator->position);
}

TEST_F(ConstIteratorStepBack, OfAPositionedIteratorWhoseSetHasNoDataAnswersFalse) {
    Filled three(3);
    const DataHold hold(three.set);
    ConstIterator it = three.set.iteratorAt(2);
    three.set.removeIterator(&it);
    three.set.releaseData();
    ConstIterator prev(nullptr, 42);
    EXPECT_FALSE(it.getPrevIterator(prev));
    EXPECT_EQ(prev.truckerIterator, nullptr);
    EXPECT_TRUE(prev.isDone());
}

// --- equality

TEST_F(ConstIteratorEquality, HoldsBetweenCopies) {
    Filled three(3);
    const ConstIterator a = three.set.iteratorAt(1);
    const ConstIterator b(a);
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a != b);
    EXPECT_TRUE(a == a);
}

TEST_F(ConstIteratorEquality, OfBeginAndEndHoldsOnAnEmptySetOnly) {
    GxapSelectSet set;
    EXPECT_TRUE(set.begin() == set.end());
    EXPECT_EQ(set.begin().index, 0);
    appendIds(set, 1, 1);
    EXPECT_TRUE(set.begin() != set.end());
}

TEST_F(ConstIteratorEquality, NeverHoldsForADisabledIterator) {
    Filled three(3);
    ConstIterator disabled = three.set.iteratorAt(1);
    disabled.disable();
    const ConstIterator copy(disabled), positioned = three.set.iteratorAt(1);
    EXPECT_FALSE(disabled == copy);
    EXPECT_FALSE(disabled == positioned);
    EXPECT_FALSE(positioned == disabled);
    EXPECT_FALSE(disabled == disabled);
    EXPECT_TRUE(disabled != disabled);
}

TEST_F(ConstIteratorEquality, FailsBetweenSetsThatShareTheirData) {
    Filled three(3);
    const GxapSelectSet sharer(three.set);
    EXPECT_FALSE(three.set.begin() == sharer.begin());
}

TEST_F(ConstIteratorEquality, FailsBetweenDifferentIndexes) {
    Filled three(3);
    const ConstIterator a = three.set.iteratorAt(1), b(a);
    b.index = 2;
    EXPECT_FALSE(a == b);
}

TEST_F(ConstIteratorEquality, ComparesStoreSlotPageAndPosition) {
    Filled three(3), other(3);
    for (int field = 0; field < 4; ++field) {
        const ConstIterator a = three.set.iteratorAt(1), b(a);
        Store::iterator& position = *b.truckerIterator;
        if (field == 0)
            position.trucker = &other.store();
        if (field == 1)
            position.slot = three.slot(2);
        if (field == 2)
            position.page = other.store().head;
        if (field == 3)
            position.position = 1;
        EXPECT_FALSE(a == b) << "field " << field;
        EXPECT_FALSE(b == a) << "field " << field;
    }
}

TEST_F(ConstIteratorEquality, ComparesNeitherPageEndNorEpoch) {
    Filled three(3);
    const ConstIterator a = three.set.iteratorAt(1), b(a);
    b.truckerIterator->pageEnd = nullptr;
    EXPECT_TRUE(a == b);
    ++b.truckerIterator->epoch;
    EXPECT_TRUE(a == b);
}

// --- access

TEST_F(ConstIteratorAccess, ReadsTheCurrentRecord) {
    GxapSelectSet set;
    GxapSelectedEntInfo* info = kvtest::makeInfo();
    const KvVector<GxDbObjectId> path = kvtest::idVector({7, 8});
    edit(set).select(id(1), id(2), 33, info, &path);
    selected_entity* record = set.getAt(0);
    record->highlightSegmentArray = new KvVector<GxDbFullSubentPath*>;
    const ConstIterator it = set.begin();
    EXPECT_EQ(it.get(), record);
    EXPECT_TRUE(it.mainEntId() == id(1));
    EXPECT_TRUE(it.subEntId() == id(2));
    EXPECT_EQ(it.gsMarker(), 33);
    EXPECT_EQ(it.selectedEntityInfo(), info);
    EXPECT_EQ(it.highlightSegmentArray(), record->highlightSegmentArray);
    EXPECT_EQ(it.hlVpArray(), &record->hlVpArray);
    EXPECT_EQ(&it.nestedEntFullPath(), &record->nestedEntFullPath);
    EXPECT_TRUE(it.nestedEntFullPath() == path);
}

TEST_F(ConstIteratorAccess, OfAPlainRecordGivesItsNullFields) {
    Filled one(1);
    const ConstIterator it = one.set.begin();
    EXPECT_EQ(it.gsMarker(), -1);
    EXPECT_EQ(it.selectedEntityInfo(), nullptr);
    EXPECT_EQ(it.highlightSegmentArray(), nullptr);
    EXPECT_NE(it.hlVpArray(), nullptr);
    EXPECT_EQ(it.nestedEntFullPath().logicalLength(), 0);
}

void expectNoRecord(const ConstIterator& it) {
    EXPECT_EQ(it.get(), nullptr);
    EXPECT_EQ(it.gsMarker(), 0);
    EXPECT_EQ(it.selectedEntityInfo(), nullptr);
    EXPECT_EQ(it.highlightSegmentArray(), nullptr);
    EXPECT_EQ(it.hlVpArray(), nullptr);
    EXPECT_TRUE(it.mainEntId().isNull());
    EXPECT_TRUE(it.subEntId().isNull());
    EXPECT_EQ(it.nestedEntFullPath().logicalLength(), 0);
}

TEST_F(ConstIteratorAccess, AtTheEndFindsNoRecord) {
    Filled three(3);
    expectNoRecord(three.set.end());
    expectNoRecord(ConstIterator(&three.set, -1));
}

TEST_F(ConstIteratorAccess, WhenDisabledFindsNoRecord) {
    Filled three(3);
    ConstIterator it = three.set.begin();
    it.disable();
    expectNoRecord(it);
    expectNoRecord(ConstIterator(nullptr, 0));
}

TEST_F(ConstIteratorAccess, OnASetWithoutDataFindsNoRecord) {
    GxapSelectSet set;
    set.releaseData();
    expectNoRecord(ConstIterator(&set, 0));
}

TEST_F(ConstIteratorAccess, OnASlotWithANullRecordFindsNoRecordAndStepsOn) {
    Filled three(3);
    const std::unique_ptr<selected_entity> record(three.set.getAt(1));
    *edit(three.set).getAt(1) = nullptr;
    const ConstIterator it = three.set.iteratorAt(1);
    EXPECT_FALSE(it.isDone());
    expectNoRecord(it);
    EXPECT_TRUE(it.step());
    EXPECT_EQ(at(it), 3u);
}

TEST_F(ConstIteratorAccess, SharesOneEmptyPathBetweenAllThatHaveNoRecord) {
    Filled three(3), other(1);
    const ConstIterator end = three.set.end(), disabled(nullptr, 0);
    EXPECT_EQ(&end.nestedEntFullPath(), &disabled.nestedEntFullPath());
    EXPECT_EQ(&end.nestedEntFullPath(), &other.set.end().nestedEntFullPath());
    EXPECT_EQ(end.nestedEntFullPath().data.block, gpEmptyVectorData);
}

TEST_F(ConstIteratorAccess, ReadsThePathOfADoneIteratorAfterItsDataIsGone) {
    Filled three(3);
    const ConstIterator it = three.set.begin();
    three.set.releaseData();
    const KvVector<GxDbObjectId>& path = it.nestedEntFullPath();
    three.set.createData();
    EXPECT_EQ(path.logicalLength(), 0);
}

// --- Iterator

TEST_F(WritableIterator, GivesTheRecordForWriting) {
    Filled three(3);
    Iterator it(&three.set, 1);
    ASSERT_EQ(it.get(), three.set.getAt(1));
    it.get()->gsMarker = 9;
    EXPECT_EQ(three.set.iteratorAt(1).gsMarker(), 9);
}

TEST_F(WritableIterator, AtTheEndOrDisabledGivesNull) {
    Filled three(3);
    Iterator end(&three.set, 3), disabled(&three.set, 0);
    disabled.disable();
    EXPECT_EQ(end.get(), nullptr);
    EXPECT_EQ(disabled.get(), nullptr);
}

TEST_F(WritableIterator, IsRegisteredAndPositionedLikeAConstIterator) {
    Filled three(3);
    const Iterator it(&three.set, 1);
    EXPECT_EQ(registrations(three.set), 1);
    EXPECT_TRUE(isRegistered(three.set, it));
    EXPECT_TRUE(it == three.set.iteratorAt(1));
}

TEST_F(WritableIterator, CopiesAsAConstIteratorDoes) {
    Filled three(3);
    Iterator original(&three.set, 1);
    {
        const Iterator copy(original);
        EXPECT_TRUE(copy == original);
        EXPECT_EQ(registrations(three.set), 2);
    }
    original.disable();
    const Iterator disabled(original);
    EXPECT_EQ(disabled.truckerIterator, nullptr);
    EXPECT_FALSE(isRegistered(three.set, disabled));
}

TEST_F(WritableIterator, AssignsAsAConstIteratorDoes) {
    Filled here(3), there(3);
    Iterator it(&here.set, 0);
    const Iterator other(&there.set, 2);
    EXPECT_EQ(&(it = other), &it);
    EXPECT_TRUE(it == other);
    EXPECT_EQ(registrations(here.set), 0);
    EXPECT_EQ(registrations(there.set), 2);
    const Iterator& same = it;
    const Store::iterator* position = it.truckerIterator;
    it = same;
    EXPECT_EQ(it.truckerIterator, position);
}

TEST_F(WritableIterator, ConvertsToAConstIteratorThatIsRegisteredToo) {
    Filled three(3);
    const Iterator it(&three.set, 1);
    const ConstIterator copy(it);
    EXPECT_TRUE(copy == it);
    EXPECT_EQ(registrations(three.set), 2);
}

TEST_F(WritableIterator, DoesNotMakeItsDataPrivate) {
    Filled three(3);
    const GxapSelectSet sharer(three.set);
    Iterator it(&three.set, 0);
    it.get()->gsMarker = 5;
    EXPECT_EQ(three.set.sharedData, sharer.sharedData);
    EXPECT_EQ(sharer.begin().gsMarker(), 5);
}

// --- factories

TEST_F(IteratorFactories, GiveTheirPositions) {
    Filled three(3);
    GxapSelectSet& set = three.set;
    EXPECT_EQ(at(set.begin()), 1u);
    EXPECT_EQ(set.begin().index, 0);
    EXPECT_EQ(set.end().index, 3);
    EXPECT_TRUE(set.end().isDone());
    EXPECT_EQ(at(set.iteratorAt(2)), 3u);
    EXPECT_TRUE(set.cbegin() == set.begin());
    EXPECT_TRUE(set.cend() == set.end());
}

TEST_F(IteratorFactories, ClampAnIndexAboveTheCount) {
    Filled three(3);
    EXPECT_TRUE(three.set.iteratorAt(3) == three.set.end());
    EXPECT_TRUE(three.set.iteratorAt(4) == three.set.end());
    EXPECT_TRUE(three.set.iteratorAt(2147483647) == three.set.end());
    EXPECT_EQ(three.set.iteratorAt(4).index, 3);
}

TEST_F(IteratorFactories, PassANegativeIndexThrough) {
    Filled three(3);
    const ConstIterator it = three.set.iteratorAt(-1);
    EXPECT_EQ(it.index, -1);
    EXPECT_TRUE(it.isDone());
    EXPECT_TRUE(isRegistered(three.set, it));
    EXPECT_TRUE(three.store().isEnd(*it.truckerIterator));
    EXPECT_FALSE(it == three.set.end());
}

template <class Factory>
void expectCreatesMissingData(Factory factory) {
    GxapSelectSet set;
    set.releaseData();
    {
        const ConstIterator it = factory(set);
        ASSERT_NE(set.sharedData, nullptr);
        EXPECT_TRUE(it.isDone());
        EXPECT_EQ(it.index, 0);
        EXPECT_NE(it.truckerIterator, nullptr);
        EXPECT_TRUE(isRegistered(set, it));
        EXPECT_EQ(registrations(set), 1);
    }
    EXPECT_EQ(kvtest::owners(set), 1u);
    EXPECT_TRUE(set.sharedData->unique);
    EXPECT_TRUE(invariants(set));
}

TEST_F(IteratorFactories, CreateMissingData) {
    expectCreatesMissingData([](const GxapSelectSet& set) { return set.begin(); });
    expectCreatesMissingData([](const GxapSelectSet& set) { return set.end(); });
    expectCreatesMissingData([](GxapSelectSet& set) { return set.cbegin(); });
    expectCreatesMissingData([](GxapSelectSet& set) { return set.cend(); });
    expectCreatesMissingData([](const GxapSelectSet& set) { return set.iteratorAt(5); });
    expectCreatesMissingData([](const GxapSelectSet& set) { return set.findItr(id(1)); });
    expectCreatesMissingData([](const GxapSelectSet& set) { return set.findMain(id(1)); });
}

TEST_F(IteratorFactories, WithMissingDataPassANegativeIndexThrough) {
    GxapSelectSet set;
    set.releaseData();
    EXPECT_EQ(set.iteratorAt(-3).index, -3);
    EXPECT_NE(set.sharedData, nullptr);
}

template <class Factory>
void expectOneRegistration(GxapSelectSet& set, Factory factory) {
    {
        const ConstIterator it = factory(set);
        ASSERT_EQ(registrations(set), 1);
        EXPECT_EQ(set.iterators.at(0), &it);
    }
    EXPECT_EQ(registrations(set), 0);
}

TEST_F(IteratorFactories, LeaveExactlyOneRegistration) {
    Filled three(3);
    const KvVector<GxDbObjectId> path;
    const GxDbObjectId null, main = id(2), absent = id(9);
    expectOneRegistration(three.set, [](const GxapSelectSet& set) { return set.begin(); });
    expectOneRegistration(three.set, [](const GxapSelectSet& set) { return set.end(); });
    expectOneRegistration(three.set, [](GxapSelectSet& set) { return set.cbegin(); });
    expectOneRegistration(three.set, [](GxapSelectSet& set) { return set.cend(); });
    expectOneRegistration(three.set, [](const GxapSelectSet& set) { return set.iteratorAt(1); });
    expectOneRegistration(three.set, [&](const GxapSelectSet& set) { return set.findItr(main); });
    expectOneRegistration(three.set, [&](const GxapSelectSet& set) { return set.findItr(absent); });
    expectOneRegistration(three.set, [&](const GxapSelectSet& set) { return set.findItr(main, null); });
    expectOneRegistration(three.set, [&](const GxapSelectSet& set) { return set.findItr(main, null, -1); });
    expectOneRegistration(three.set, [&](const GxapSelectSet& set) { return set.findItr(main, null, 0); });
    expectOneRegistration(three.set,
                          [&](const GxapSelectSet& set) { return set.findItr(main, null, &path); });
    expectOneRegistration(three.set,
                          [&](const GxapSelectSet& set) { return set.findItr(main, null, -1, &path); });
    expectOneRegistration(three.set, [&](const GxapSelectSet& set) { return set.findMain(main); });
    expectOneRegistration(three.set, [&](const GxapSelectSet& set) { return set.findMainSubsel(main); });
}

TEST_F(IteratorFactories, LeaveNoRegistrationOfATemporary) {
    Filled three(3);
    three.set.begin();
    three.set.cend();
    three.set.iteratorAt(1);
    EXPECT_EQ(registrations(three.set), 0);
}

TEST_F(IteratorFactories, DoNotCopySharedData) {
    Filled three(3);
    GxapSelectSet sharer(three.set);
    const ConstIterator a = sharer.begin(), b = sharer.end(), c = sharer.cbegin(), d = sharer.cend(),
                        e = sharer.iteratorAt(1);
    EXPECT_EQ(sharer.sharedData, three.set.sharedData);
    EXPECT_EQ(registrations(sharer), 5);
    EXPECT_EQ(registrations(three.set), 0);
}

TEST_F(IteratorFactories, DoNotTouchTheIteratorsThatAreThere) {
    Filled three(3);
    const ConstIterator first = three.set.iteratorAt(1);
    const ConstIterator second = three.set.begin();
    EXPECT_EQ(three.set.iterators.at(0), &first);
    EXPECT_EQ(three.set.iterators.at(1), &second);
    EXPECT_EQ(at(first), 2u);
}

TEST_F(IteratorFactories, SupportTheUsualWalk) {
    Filled three(3);
    std::vector<unsigned long> ids;
    const GxapSelectSet& set = three.set;
    for (ConstIterator it = set.begin(); !it.isDone(); it.step(true))
        ids.push_back(numberOf(it.get()->mainEntId));
    EXPECT_EQ(ids, (std::vector<unsigned long>{1, 2, 3}));
    EXPECT_TRUE(invariants(set));
    EXPECT_EQ(registrations(set), 0);
}

} // namespace
