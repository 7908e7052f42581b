// Tests the list of named sets.
#include "tests/selectcontext/list/Name.h"
#include "tests/selectcontext/support/DrawingTestSupport.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <iterator>
#include <limits>
#include <list>
#include <memory>
#include <vector>

namespace {

using kvinmemory::isLiveBlock;
using kvinmemory::nameKeyCalls;
using kvtest::AllocationCount;
using kvtest::edit;
using kvtest::Filled;
using kvtest::id;
using kvtest::idRange;
using kvtest::mainIds;
using kvtest::Name;
using kvtest::owners;
using Sets = std::list<GxapSelectSet*>;

long addressOf(const GxapSelectSet* set) {
    return reinterpret_cast<long>(set);
}

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
    list.sets.pop_back(); // this entry is left, but delSelectSet() has destroyed its set
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

// Each set has one path. The log shows the order in which the paths, and so the sets, are destroyed.
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

} // namespace
