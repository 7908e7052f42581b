#include "tests/selectcontext/support/DrawingTestSupport.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <iterator>
#include <limits>
#include <memory>
#include <vector>

// Named sets: their list, its counted handle, and the manager of the process-wide one.

namespace {

using kvinmemory::isLiveBlock;
using kvinmemory::nameKeyCalls;
using kvtest::AllocationCount;
using kvtest::edit;
using kvtest::Filled;
using kvtest::id;
using kvtest::idRange;
using kvtest::mainIds;
using kvtest::owners;
using Handle = GxapSSListSmartPtr;
using Manager = GxapSelectSetListManager;
using Sets = std::list<GxapSelectSet*>;

long addressOf(const GxapSelectSet* set) {
    return reinterpret_cast<long>(set);
}

struct Name {
    long words[2] = {-7, -8};

    operator long*() { return words; }
};

class SelectSetList : public kvtest::SetTest {};

TEST_F(SelectSetList, BeginsEmpty) {
    const GxapSelectSetList list;
    EXPECT_TRUE(list.sets.empty());
}

TEST_F(SelectSetList, MakesEmptySetsWithDataOfTheirOwn) {
    GxapSelectSetList list;
    Name name;
    const GxapSelectSet* const set = list.newSelectSet(name);
    ASSERT_NE(set, nullptr);
    ASSERT_NE(set->sharedData, nullptr);
    EXPECT_EQ(set->sharedData->entityCount, 0u);
    EXPECT_TRUE(set->sharedData->unique);
    EXPECT_EQ(owners(*set), 1u);
    EXPECT_EQ(set->lispRefCnt, 0);
}

TEST_F(SelectSetList, PutsTheNewestInFront) {
    GxapSelectSetList list;
    Name a, b, c;
    GxapSelectSet* const first = list.newSelectSet(a);
    GxapSelectSet* const second = list.newSelectSet(b);
    GxapSelectSet* const third = list.addSelectSet(*first, c);
    EXPECT_EQ(list.sets, Sets({third, second, first}));
}

TEST_F(SelectSetList, TakesTheMemoryOfASetFromThePlatform) {
    GxapSelectSetList list;
    Name name;
    const long blocks = kvinmemory::liveBlocksOfSize(sizeof(GxapSelectSet));
    const GxapSelectSet* const set = list.newSelectSet(name);
    EXPECT_TRUE(isLiveBlock(set));
    EXPECT_EQ(kvinmemory::liveBlocksOfSize(sizeof(GxapSelectSet)), blocks + 1);
}

TEST_F(SelectSetList, WritesTheAddressBeforeThePlatformCompletesTheName) {
    GxapSelectSetList list;
    Name name;
    const GxapSelectSet* const set = list.newSelectSet(name);
    const auto completed = nameKeyCalls();
    ASSERT_EQ(completed.size(), 1u);
    EXPECT_EQ(completed[0].name, name.words);
    EXPECT_EQ(completed[0].word0, addressOf(set));
    EXPECT_EQ(name.words[0], addressOf(set));
    EXPECT_EQ(name.words[1], completed[0].word1);
}

TEST_F(SelectSetList, HasEachNameCompletedOnce) {
    GxapSelectSetList list;
    Name a, b;
    const GxapSelectSet* const first = list.newSelectSet(a);
    const GxapSelectSet* const second = list.addSelectSet(*first, b);
    const auto completed = nameKeyCalls();
    ASSERT_EQ(completed.size(), 2u);
    EXPECT_EQ(completed[1].name, b.words);
    EXPECT_EQ(completed[1].word0, addressOf(second));
    EXPECT_NE(a.words[1], b.words[1]);
}

TEST_F(SelectSetList, AddsASetThatSharesTheDataOfTheSource) {
    GxapSelectSetList list;
    Filled filled(3);
    filled.set.addLispRefCnt();
    const auto it = filled.set.begin();
    Name name;
    GxapSelectSet* const set = list.addSelectSet(filled.set, name);
    ASSERT_NE(set, nullptr);
    EXPECT_NE(set, &filled.set);
    EXPECT_EQ(set->sharedData, filled.set.sharedData);
    EXPECT_EQ(owners(filled.set), 2u);
    EXPECT_EQ(set->lispRefCnt, 0);
    EXPECT_EQ(kvtest::registrations(*set), 0);
    EXPECT_EQ(kvtest::registrations(filled.set), 1);
    EXPECT_EQ(list.getSSetByName(name), set);
}

TEST_F(SelectSetList, KeepsAnAddedSetWhenTheSourceChangesOrDies) {
    GxapSelectSetList list;
    Name name;
    auto filled = std::make_unique<Filled>(3);
    const GxapSelectSet* const set = list.addSelectSet(filled->set, name);
    edit(filled->set).append(id(4), GxDbObjectId());
    filled.reset();
    EXPECT_EQ(mainIds(*set), idRange(1, 3));
}

TEST_F(SelectSetList, AddsACopyOfASetOfItsOwn) {
    GxapSelectSetList list;
    Name a, b;
    GxapSelectSet* const first = list.newSelectSet(a);
    kvtest::appendIds(*first, 1, 2);
    const GxapSelectSet* const second = list.addSelectSet(*first, b);
    EXPECT_EQ(mainIds(*second), idRange(1, 2));
    EXPECT_EQ(owners(*first), 2u);
}

TEST_F(SelectSetList, AddsASetWithoutDataAsOne) {
    GxapSelectSetList list;
    GxapSelectSet source;
    source.releaseData();
    Name name;
    const GxapSelectSet* const set = list.addSelectSet(source, name);
    ASSERT_NE(set, nullptr);
    EXPECT_EQ(set->sharedData, nullptr);
}

TEST_F(SelectSetList, FindsEachSetByItsName) {
    GxapSelectSetList list;
    Name a, b;
    GxapSelectSet* const first = list.newSelectSet(a);
    GxapSelectSet* const second = list.newSelectSet(b);
    EXPECT_EQ(list.getSSetByName(a), first);
    EXPECT_EQ(list.getSSetByName(b), second);
}

TEST_F(SelectSetList, LooksAtTheFirstWordAlone) {
    GxapSelectSetList list;
    Name name;
    GxapSelectSet* const set = list.newSelectSet(name);
    for (const long word : {12345L, 0L, -1L, std::numeric_limits<long>::min()}) {
        const long other[2] = {addressOf(set), word};
        EXPECT_EQ(list.getSSetByName(other), set);
    }
}

TEST_F(SelectSetList, FindsNoSetOfAnotherName) {
    GxapSelectSetList list, other;
    Name name;
    const long zero[2] = {0, 0};
    EXPECT_EQ(list.getSSetByName(zero), nullptr);
    other.newSelectSet(name);
    EXPECT_EQ(list.getSSetByName(name), nullptr);
    Name own;
    list.newSelectSet(own);
    EXPECT_EQ(list.getSSetByName(zero), nullptr);
    EXPECT_EQ(list.getSSetByName(name), nullptr);
    std::swap(own.words[0], own.words[1]);
    EXPECT_EQ(list.getSSetByName(own), nullptr);
}

TEST_F(SelectSetList, ToleratesANullName) {
    GxapSelectSetList list;
    Name name;
    const GxapSelectSet* const set = list.newSelectSet(name);
    EXPECT_EQ(list.newSelectSet(nullptr), nullptr);
    EXPECT_EQ(list.addSelectSet(*set, nullptr), nullptr);
    EXPECT_EQ(list.getSSetByName(nullptr), nullptr);
    list.delSelectSet(nullptr);
    EXPECT_EQ(list.sets.size(), 1u);
    EXPECT_EQ(owners(*set), 1u);
    EXPECT_EQ(nameKeyCalls().size(), 1u);
}

class DeleteNamedSet : public kvtest::SetTest {};

TEST_F(DeleteNamedSet, DestroysAndFreesIt) {
    GxapSelectSetList list;
    Filled filled(2);
    Name name;
    const AllocationCount sinceThen;
    const GxapSelectSet* const set = list.addSelectSet(filled.set, name);
    list.delSelectSet(name);
    EXPECT_FALSE(isLiveBlock(set));
    EXPECT_TRUE(list.sets.empty());
    EXPECT_EQ(owners(filled.set), 1u);
    EXPECT_EQ(sinceThen.liveMalloc(), 0);
    EXPECT_EQ(sinceThen.liveNew(), 0);
}

TEST_F(DeleteNamedSet, LeavesItUnfoundAndASecondDeletionHarmless) {
    GxapSelectSetList list;
    Name a, b;
    list.newSelectSet(a);
    GxapSelectSet* const other = list.newSelectSet(b);
    list.delSelectSet(a);
    EXPECT_EQ(list.getSSetByName(a), nullptr);
    list.delSelectSet(a);
    EXPECT_EQ(list.sets, Sets({other}));
}

TEST_F(DeleteNamedSet, LeavesTheOthersInOrder) {
    GxapSelectSetList list;
    Name names[4];
    std::vector<GxapSelectSet*> sets;
    for (Name& name : names)
        sets.push_back(list.newSelectSet(name));
    list.delSelectSet(names[1]);
    EXPECT_EQ(list.sets, Sets({sets[3], sets[2], sets[0]}));
    list.delSelectSet(names[3]);
    EXPECT_EQ(list.sets, Sets({sets[2], sets[0]}));
    list.delSelectSet(names[0]);
    EXPECT_EQ(list.sets, Sets({sets[2]}));
}

TEST_F(DeleteNamedSet, LooksAtTheFirstWordAlone) {
    GxapSelectSetList list;
    for (const long word : {99L, 0L, -1L, std::numeric_limits<long>::min()}) {
        Name name;
        list.newSelectSet(name);
        name.words[1] = word;
        list.delSelectSet(name);
        EXPECT_TRUE(list.sets.empty());
    }
}

TEST_F(DeleteNamedSet, PassesSetsOfOtherListsOver) {
    GxapSelectSetList list, other;
    Name name, own;
    const GxapSelectSet* const set = other.newSelectSet(name);
    list.newSelectSet(own);
    list.delSelectSet(name);
    EXPECT_TRUE(isLiveBlock(set));
    EXPECT_EQ(list.sets.size(), 1u);
    EXPECT_EQ(other.sets.size(), 1u);
}

TEST_F(DeleteNamedSet, RemovesTheFirstOfEqualEntriesAlone) {
    GxapSelectSetList list;
    Name a, b;
    GxapSelectSet* const twice = list.newSelectSet(a);
    GxapSelectSet* const other = list.newSelectSet(b);
    list.sets.push_front(twice);
    list.delSelectSet(a);
    EXPECT_EQ(list.sets, Sets({other, twice}));
    list.sets.pop_back(); // its set is gone
}

TEST_F(DeleteNamedSet, DisablesItsIterators) {
    GxapSelectSetList list;
    Name name;
    GxapSelectSet* const set = list.newSelectSet(name);
    kvtest::appendIds(*set, 1, 2);
    const auto it = set->begin();
    ASSERT_FALSE(it.isDone());
    list.delSelectSet(name);
    EXPECT_TRUE(it.isDone());
    EXPECT_EQ(it.get(), nullptr);
}

class DestroyedList : public kvtest::SetTest {};

TEST_F(DestroyedList, DestroysItsSets) {
    Filled filled(2);
    const AllocationCount sinceThen;
    {
        GxapSelectSetList list;
        Name a, b;
        kvtest::appendIds(*list.newSelectSet(a), 1, 3);
        list.addSelectSet(filled.set, b);
    }
    EXPECT_EQ(owners(filled.set), 1u);
    EXPECT_EQ(sinceThen.liveMalloc(), 0);
    EXPECT_EQ(sinceThen.liveNew(), 0);
}

// The paths that die with the sets show the order.
TEST_F(DestroyedList, DestroysFromTheFrontToTheBack) {
    std::vector<const GxDbFullSubentPath*> expected;
    auto list = std::make_unique<GxapSelectSetList>();
    for (int n = 0; n < 3; ++n) {
        Name name;
        GxapSelectSet* const set = list->newSelectSet(name);
        kvtest::appendIds(*set, 1, 1);
        kvtest::addSegments(*set, 0, {n});
        const auto& segments = *kvtest::recordAt(*set, 0)->highlightSegmentArray;
        expected.insert(expected.begin(), kvtest::elementAt(segments, 0));
    }
    const std::size_t before = databaseEvents(kvinmemory::DatabaseCall::PathDestruction).size();
    list.reset();
    const auto destroyed = databaseEvents(kvinmemory::DatabaseCall::PathDestruction);
    ASSERT_EQ(destroyed.size(), before + 3);
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_EQ(destroyed[before + i].path, expected[i]);
}

class ListHandle : public kvtest::SetTest {
protected:
    // Answers what the handle's list says of itself once it is gone.
    static const GxapSelectSet* addSet(const Handle& handle) {
        Name name;
        return handle.list->newSelectSet(name);
    }
};

TEST_F(ListHandle, BeginsWithAFreshListAndACountOfOne) {
    const Handle handle;
    ASSERT_NE(handle.list, nullptr);
    ASSERT_NE(handle.refCount, nullptr);
    EXPECT_TRUE(handle.list->sets.empty());
    EXPECT_EQ(*handle.refCount, 1);
}

TEST_F(ListHandle, HasAListOfItsOwn) {
    const Handle a, b;
    EXPECT_NE(a.list, b.list);
    EXPECT_NE(a.refCount, b.refCount);
}

TEST_F(ListHandle, CopiesShareListAndCount) {
    const Handle handle;
    const Handle copy(handle);
    const Handle fromPointer(&handle);
    EXPECT_EQ(copy.list, handle.list);
    EXPECT_EQ(fromPointer.list, handle.list);
    EXPECT_EQ(copy.refCount, handle.refCount);
    EXPECT_EQ(fromPointer.refCount, handle.refCount);
    EXPECT_EQ(*handle.refCount, 3);
}

TEST_F(ListHandle, OfANullPointerHoldsNothingAndIsReleasedHarmlessly) {
    Handle handle(static_cast<const Handle*>(nullptr));
    EXPECT_EQ(handle.list, nullptr);
    EXPECT_EQ(handle.refCount, nullptr);
    handle.release();
    EXPECT_EQ(handle.list, nullptr);
    const Handle copy(handle);
    EXPECT_EQ(copy.list, nullptr);
    EXPECT_EQ(copy.refCount, nullptr);
}

TEST_F(ListHandle, ReleasedAloneDestroysTheList) {
    Handle handle;
    const GxapSelectSet* const set = addSet(handle);
    handle.release();
    EXPECT_FALSE(isLiveBlock(set));
    EXPECT_EQ(handle.list, nullptr);
    EXPECT_EQ(handle.refCount, nullptr);
    handle.release();
}

TEST_F(ListHandle, DestroyedAloneDestroysTheList) {
    const GxapSelectSet* set = nullptr;
    {
        const Handle handle;
        set = addSet(handle);
    }
    EXPECT_FALSE(isLiveBlock(set));
}

TEST_F(ListHandle, ReleasedBesideOthersLeavesThemTheList) {
    Handle handle;
    const Handle copy(handle);
    const GxapSelectSet* const set = addSet(handle);
    handle.release();
    EXPECT_EQ(*copy.refCount, 1);
    EXPECT_TRUE(isLiveBlock(set));
    EXPECT_EQ(handle.list, nullptr);
    EXPECT_EQ(handle.refCount, nullptr);
}

TEST_F(ListHandle, AssignedLetsTheOldListGo) {
    Handle handle;
    const Handle other;
    const GxapSelectSet* const set = addSet(handle);
    EXPECT_EQ(&handle.assign(other), &handle);
    EXPECT_FALSE(isLiveBlock(set));
    EXPECT_EQ(handle.list, other.list);
    EXPECT_EQ(*other.refCount, 2);
}

TEST_F(ListHandle, AssignedByOperatorIsAssigned) {
    Handle handle;
    const Handle other;
    EXPECT_EQ(&(handle = other), &handle);
    EXPECT_EQ(handle.list, other.list);
    EXPECT_EQ(handle.refCount, other.refCount);
    EXPECT_EQ(*other.refCount, 2);
}

TEST_F(ListHandle, AssignedToItselfChangesNothing) {
    Handle handle;
    const GxapSelectSet* const set = addSet(handle);
    const Handle& same = handle;
    EXPECT_EQ(&handle.assign(same), &handle);
    handle = same;
    EXPECT_EQ(*handle.refCount, 1);
    EXPECT_TRUE(isLiveBlock(set));
}

TEST_F(ListHandle, AssignedASharerKeepsTheCount) {
    Handle handle;
    const Handle sharer(handle);
    handle.assign(sharer);
    EXPECT_EQ(handle.list, sharer.list);
    EXPECT_EQ(*sharer.refCount, 2);
}

TEST_F(ListHandle, AssignedNothingHoldsNothing) {
    Handle handle;
    const Handle nothing(static_cast<const Handle*>(nullptr));
    const GxapSelectSet* const set = addSet(handle);
    handle = nothing;
    EXPECT_EQ(handle.list, nullptr);
    EXPECT_EQ(handle.refCount, nullptr);
    EXPECT_FALSE(isLiveBlock(set));
}

TEST_F(ListHandle, WithoutACountOwnsNothing) {
    GxapSelectSetList list;
    Handle handle(static_cast<const Handle*>(nullptr));
    handle.list = &list;
    Handle copy(handle);
    EXPECT_EQ(copy.list, &list);
    EXPECT_EQ(copy.refCount, nullptr);
    copy.release();
    EXPECT_EQ(copy.list, nullptr);
}

TEST_F(ListHandle, WithoutAListFreesTheCountAndCountsNoCopy) {
    Handle handle(static_cast<const Handle*>(nullptr));
    handle.refCount = new std::int32_t(1);
    {
        Handle copy(handle);
        EXPECT_EQ(copy.refCount, handle.refCount);
        EXPECT_EQ(*handle.refCount, 1);
        copy.refCount = nullptr; // it was not counted
    }
    handle.release();
    EXPECT_EQ(handle.refCount, nullptr);
}

class ListManager : public kvtest::SetTest {
protected:
    void TearDown() override {
        Manager::destroy();
        SetTest::TearDown();
    }
};

TEST_F(ListManager, HasNoHandleUntilItIsAskedFor) {
    EXPECT_EQ(Manager::s_smartPtrSSList, nullptr);
    Handle* const handle = Manager::getInstance();
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(Manager::s_smartPtrSSList, handle);
    ASSERT_NE(handle->list, nullptr);
    EXPECT_TRUE(handle->list->sets.empty());
    EXPECT_EQ(*handle->refCount, 1);
}

TEST_F(ListManager, AnswersTheSameHandleHoweverItIsAskedFor) {
    Handle* const handle = Manager::newInstance();
    EXPECT_EQ(Manager::getInstance(), handle);
    EXPECT_EQ(Manager::newInstance(), handle);
    EXPECT_EQ(*handle->refCount, 1);
}

TEST_F(ListManager, DestroyedHasNoHandleAndNoSets) {
    Name name;
    const GxapSelectSet* const set = Manager::getInstance()->list->newSelectSet(name);
    Manager::destroy();
    EXPECT_EQ(Manager::s_smartPtrSSList, nullptr);
    EXPECT_FALSE(isLiveBlock(set));
    Manager::destroy();
    EXPECT_EQ(Manager::s_smartPtrSSList, nullptr);
}

TEST_F(ListManager, BeginsAnewAfterItsDestruction) {
    Name name;
    Manager::getInstance()->list->newSelectSet(name);
    Manager::destroy();
    ASSERT_NE(Manager::getInstance(), nullptr);
    EXPECT_TRUE(Manager::getInstance()->list->sets.empty());
}

TEST_F(ListManager, LeavesTheListToTheHandlesThatCallersKeep) {
    Name name;
    const Handle kept(Manager::getInstance());
    GxapSelectSet* const set = kept.list->newSelectSet(name);
    Manager::destroy();
    EXPECT_EQ(*kept.refCount, 1);
    EXPECT_TRUE(isLiveBlock(set));
    EXPECT_EQ(kept.list->getSSetByName(name), set);
    EXPECT_NE(Manager::getInstance()->list, kept.list);
}

TEST_F(ListManager, LeavesTheLockToItsCallers) {
    Name name;
    {
        const Handle kept(*Manager::getInstance());
        kept.list->newSelectSet(name);
        kept.list->getSSetByName(name);
        kept.list->delSelectSet(name);
    }
    Manager::destroy();
    EXPECT_TRUE(kvinmemory::lockCalls().empty());
}

TEST_F(ListManager, OffersALockThatWorks) {
    Manager::s_locker.lock();
    Manager::s_locker.unlock();
    const auto taken = kvinmemory::lockCalls();
    ASSERT_EQ(taken.size(), 2u);
    EXPECT_EQ(taken[0].locker, &Manager::s_locker);
    EXPECT_TRUE(taken[0].isLock);
    EXPECT_FALSE(taken[1].isLock);
}

} // namespace
