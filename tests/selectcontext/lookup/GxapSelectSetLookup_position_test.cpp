#include "tests/selectcontext/support/EditTestSupport.h"

#include <gtest/gtest.h>

#include <limits>
#include <utility>

namespace {

using kvtest::edit;
using kvtest::id;
using kvtest::invariants;
using kvtest::kNoId;
using kvtest::kPageSlots;
using kvtest::plainItems;
using kvtest::record;
using kvtest::registrations;
using kvtest::SetOf;
using kvtest::shareData;

class GetAt : public kvtest::EditTest {};
class GetIdsAt : public kvtest::EditTest {};
class GetFirst : public kvtest::EditTest {};
class GetLast : public kvtest::EditTest {};

constexpr int kMinInt = std::numeric_limits<int>::min();
constexpr int kMaxInt = std::numeric_limits<int>::max();

// Two ids. Tests check that a failed call does not change them.
struct Ids {
    GxDbObjectId main = id(77);
    GxDbObjectId sub = id(78);

    bool untouched() const { return main == id(77) && sub == id(78); }
};

// --- getAt(index)

TEST_F(GetAt, AnswersTheRecordsInTheOrderOfSelection) {
    const SetOf s{{5}, {1}, {9}};
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(s.set.getAt(i), record(s.set, static_cast<std::size_t>(i)));
}

TEST_F(GetAt, CountsOccupiedSlotsOnly) {
    SetOf s{{1}, {2}, {3}, {4}};
    edit(s.set).remove(id(1));
    edit(s.set).remove(id(3));
    EXPECT_TRUE(s.set.getAt(0)->mainEntId == id(2));
    EXPECT_TRUE(s.set.getAt(1)->mainEntId == id(4));
    EXPECT_EQ(s.set.getAt(2), nullptr);
}

TEST_F(GetAt, AnswersNullOutsideTheSet) {
    const SetOf s{{1}, {2}};
    for (const int bad : {-1, kMinInt, 2, 3, kMaxInt})
        EXPECT_EQ(s.set.getAt(bad), nullptr) << bad;
}

TEST_F(GetAt, AnswersNullOnAnEmptySet) {
    const GxapSelectSet set;
    for (const int index : {-1, 0, 1})
        EXPECT_EQ(set.getAt(index), nullptr) << index;
}

TEST_F(GetAt, AnswersNullWithoutDataAndCreatesNone) {
    GxapSelectSet set;
    set.releaseData();
    EXPECT_EQ(std::as_const(set).getAt(0), nullptr);
    EXPECT_EQ(set.sharedData, nullptr);
}

TEST_F(GetAt, AnswersNullWhereTheCountIsZero) {
    SetOf s{{1}};
    s.data().entityCount = 0;
    EXPECT_EQ(s.set.getAt(0), nullptr);
}

TEST_F(GetAt, AnswersNullWhereThereIsNoStore) {
    SetOf s{{1}};
    auto* const store = std::exchange(s.data().entities, nullptr);
    EXPECT_EQ(s.set.getAt(0), nullptr);
    s.data().entities = store;
}

TEST_F(GetAt, AnswersNullForASlotThatHoldsANullRecord) {
    SetOf s{{1}, {2}};
    const auto taken = kvtest::takeRecordOut(s.set, 0);
    EXPECT_EQ(s.set.getAt(0), nullptr);
    EXPECT_EQ(s.set.getAt(1), record(s.set, 1));
}

TEST_F(GetAt, ReachesEveryPage) {
    const SetOf s(plainItems(1, 2 * kPageSlots + 1));
    for (const unsigned i : {0u, kPageSlots - 1, kPageSlots, 2 * kPageSlots - 1, 2 * kPageSlots})
        EXPECT_TRUE(s.set.getAt(static_cast<int>(i))->mainEntId == id(i + 1)) << i;
    EXPECT_EQ(s.set.getAt(2 * kPageSlots + 1), nullptr);
}

TEST_F(GetAt, PassesOverAPageWithoutOccupiedSlots) {
    SetOf s(plainItems(1, kPageSlots + 2));
    const auto taken = kvtest::emptyFirstPageInPlace(s.set);
    EXPECT_TRUE(s.set.getAt(0)->mainEntId == id(kPageSlots + 1));
    EXPECT_TRUE(s.set.getAt(1)->mainEntId == id(kPageSlots + 2));
    EXPECT_EQ(s.set.getAt(2), nullptr);
}

TEST_F(GetAt, BeyondTheStoreAnswersNullWhateverTheCount) {
    SetOf s{{1}, {2}};
    s.data().entityCount = 5;
    EXPECT_EQ(s.set.getAt(3), nullptr);
    EXPECT_EQ(s.set.getAt(4), nullptr);
}

TEST_F(GetAt, ReadsSharedDataWithoutCopyingIt) {
    const SetOf s{{1}, {2}};
    const GxapSelectSet sharer(s.set);
    EXPECT_EQ(s.set.getAt(1), sharer.getAt(1));
    EXPECT_TRUE(shareData(s.set, sharer));
}

TEST_F(GetAt, ChangesNothing) {
    const SetOf s{{1}, {2}};
    const kvtest::AllocationCount since;
    s.set.getAt(1);
    s.set.getFirst();
    s.set.getLast();
    EXPECT_EQ(since.newCalls(), 0);
    EXPECT_EQ(since.mallocCalls(), 0);
    EXPECT_EQ(registrations(s.set), 0);
    EXPECT_TRUE(invariants(s.set));
}

// --- getAt(index, ids)

TEST_F(GetIdsAt, WritesTheIdsOfTheRecord) {
    const SetOf s{{5, 1}, {1, 2}, {9}};
    Ids ids;
    EXPECT_TRUE(s.set.getAt(1, ids.main));
    EXPECT_TRUE(ids.main == id(1) && ids.sub == id(78));
    EXPECT_TRUE(s.set.getAt(0, ids.main, ids.sub));
    EXPECT_TRUE(ids.main == id(5) && ids.sub == id(1));
    EXPECT_TRUE(s.set.getAt(2, ids.main, ids.sub));
    EXPECT_TRUE(ids.main == id(9) && ids.sub == kNoId);
}

TEST_F(GetIdsAt, OutsideTheSetLeavesTheIdsAlone) {
    const SetOf s{{1, 2}, {3, 4}};
    Ids ids;
    for (const int bad : {-1, kMinInt, 2, 3, kMaxInt}) {
        EXPECT_FALSE(s.set.getAt(bad, ids.main)) << bad;
        EXPECT_FALSE(s.set.getAt(bad, ids.main, ids.sub)) << bad;
    }
    EXPECT_TRUE(ids.untouched());
}

TEST_F(GetIdsAt, OfASetWithNothingLeavesTheIdsAlone) {
    GxapSelectSet set;
    Ids ids;
    EXPECT_FALSE(set.getAt(0, ids.main));
    EXPECT_FALSE(set.getAt(0, ids.main, ids.sub));
    set.releaseData();
    EXPECT_FALSE(set.getAt(0, ids.main));
    EXPECT_FALSE(set.getAt(0, ids.main, ids.sub));
    EXPECT_EQ(set.sharedData, nullptr);
    EXPECT_TRUE(ids.untouched());
}

TEST_F(GetIdsAt, AnswersFalseWhereTheCountIsZero) {
    SetOf s{{1}};
    s.data().entityCount = 0;
    Ids ids;
    EXPECT_FALSE(s.set.getAt(0, ids.main, ids.sub));
    EXPECT_TRUE(ids.untouched());
}

TEST_F(GetIdsAt, AnswersFalseWhereThereIsNoStoreOrNoPage) {
    SetOf s{{1}};
    auto* const store = std::exchange(s.data().entities, nullptr);
    Ids ids;
    EXPECT_FALSE(s.set.getAt(0, ids.main, ids.sub));
    s.data().entities = store;
    GxapSelectSet set;
    set.sharedData->entityCount = 1;
    EXPECT_FALSE(set.getAt(0, ids.main, ids.sub));
    EXPECT_TRUE(ids.untouched());
}

// getAt() compares the index with the number of records in the store, and ignores `entityCount`.
TEST_F(GetIdsAt, IsBoundedByTheStore) {
    SetOf s{{1}, {2}, {3}};
    Ids ids;
    s.data().entityCount = 1;
    EXPECT_TRUE(s.set.getAt(2, ids.main));
    EXPECT_TRUE(ids.main == id(3));
    s.data().entityCount = 9;
    EXPECT_FALSE(s.set.getAt(3, ids.main));
    EXPECT_TRUE(ids.main == id(3));
    s.data().entityCount = 3;
}

TEST_F(GetIdsAt, ReachesEveryPage) {
    SetOf s(plainItems(1, 2 * kPageSlots + 1));
    edit(s.set).remove(id(2));
    Ids ids;
    for (const unsigned i : {1u, kPageSlots - 2, kPageSlots - 1, 2 * kPageSlots - 1}) {
        EXPECT_TRUE(s.set.getAt(static_cast<int>(i), ids.main)) << i;
        EXPECT_TRUE(ids.main == id(i + 2)) << i;
    }
    EXPECT_FALSE(s.set.getAt(2 * kPageSlots, ids.main));
}

TEST_F(GetIdsAt, OfANullRecordLeavesTheIdsAlone) {
    SetOf s{{1}, {2}};
    const auto taken = kvtest::takeRecordOut(s.set, 0);
    Ids ids;
    EXPECT_FALSE(s.set.getAt(0, ids.main, ids.sub));
    EXPECT_TRUE(ids.untouched());
}

// --- getFirst

TEST_F(GetFirst, AnswersTheFirstItem) {
    const SetOf s{{5, 1}, {1, 2}};
    Ids ids;
    EXPECT_EQ(s.set.getFirst(), record(s.set, 0));
    EXPECT_TRUE(s.set.getFirst(ids.main));
    EXPECT_TRUE(ids.main == id(5) && ids.sub == id(78));
    EXPECT_TRUE(s.set.getFirst(ids.main, ids.sub));
    EXPECT_TRUE(ids.sub == id(1));
}

TEST_F(GetFirst, PassesOverFreedSlots) {
    SetOf s(plainItems(1, kPageSlots + 1));
    Ids ids;
    edit(s.set).remove(id(1));
    EXPECT_TRUE(s.set.getFirst()->mainEntId == id(2));
    EXPECT_TRUE(s.set.getFirst(ids.main) && ids.main == id(2));
    const auto taken = kvtest::emptyFirstPageInPlace(s.set);
    EXPECT_TRUE(s.set.getFirst()->mainEntId == id(kPageSlots + 1));
    EXPECT_TRUE(s.set.getFirst(ids.main) && ids.main == id(kPageSlots + 1));
}

TEST_F(GetFirst, OfASetWithNothingLeavesTheIdsAlone) {
    GxapSelectSet set;
    Ids ids;
    EXPECT_EQ(set.getFirst(), nullptr);
    EXPECT_FALSE(set.getFirst(ids.main));
    EXPECT_FALSE(set.getFirst(ids.main, ids.sub));
    set.releaseData();
    EXPECT_EQ(set.getFirst(), nullptr);
    EXPECT_FALSE(set.getFirst(ids.main));
    EXPECT_FALSE(set.getFirst(ids.main, ids.sub));
    EXPECT_EQ(set.sharedData, nullptr);
    EXPECT_TRUE(ids.untouched());
}

TEST_F(GetFirst, AnswersNothingWhereTheCountIsZeroOrTheStoreMissing) {
    SetOf s{{1}};
    Ids ids;
    s.data().entityCount = 0;
    EXPECT_EQ(s.set.getFirst(), nullptr);
    EXPECT_FALSE(s.set.getFirst(ids.main, ids.sub));
    s.data().entityCount = 1;
    auto* const store = std::exchange(s.data().entities, nullptr);
    EXPECT_EQ(s.set.getFirst(), nullptr);
    EXPECT_FALSE(s.set.getFirst(ids.main, ids.sub));
    s.data().entities = store;
    EXPECT_TRUE(ids.untouched());
}

TEST_F(GetFirst, WithIdsRaisesWhereTheCountPromisesTooMuch) {
    GxapSelectSet set;
    set.sharedData->entityCount = 1;
    Ids ids;
    kvinmemory::installCrashRecorder();
    EXPECT_EQ(set.getFirst(), nullptr);
    kvtest::expectStatus([&] { set.getFirst(ids.main); }, 24);
    kvtest::expectStatus([&] { set.getFirst(ids.main, ids.sub); }, 24);
    EXPECT_TRUE(ids.untouched());
}

TEST_F(GetFirst, OfANullRecordLeavesTheIdsAlone) {
    SetOf s{{1}, {2}};
    const auto taken = kvtest::takeRecordOut(s.set, 0);
    Ids ids;
    EXPECT_EQ(s.set.getFirst(), nullptr);
    EXPECT_FALSE(s.set.getFirst(ids.main));
    EXPECT_FALSE(s.set.getFirst(ids.main, ids.sub));
    EXPECT_TRUE(ids.untouched());
}

// --- getLast

TEST_F(GetLast, AnswersTheLastItem) {
    const SetOf s{{5, 1}, {1, 2}};
    Ids ids;
    EXPECT_EQ(s.set.getLast(), record(s.set, 1));
    EXPECT_TRUE(s.set.getLast(ids.main));
    EXPECT_TRUE(ids.main == id(1) && ids.sub == id(78));
    EXPECT_TRUE(s.set.getLast(ids.main, ids.sub));
    EXPECT_TRUE(ids.sub == id(2));
}

TEST_F(GetLast, IsTheFirstOfASetOfOne) {
    const SetOf s{{5, 1}};
    EXPECT_NE(s.set.getLast(), nullptr);
    EXPECT_EQ(s.set.getLast(), s.set.getFirst());
}

TEST_F(GetLast, PassesOverFreedSlotsAndPages) {
    SetOf s(plainItems(1, kPageSlots + 2));
    Ids ids;
    edit(s.set).remove(id(kPageSlots + 2));
    EXPECT_TRUE(s.set.getLast()->mainEntId == id(kPageSlots + 1));
    edit(s.set).remove(id(kPageSlots + 1));
    EXPECT_TRUE(s.set.getLast()->mainEntId == id(kPageSlots));
    EXPECT_TRUE(s.set.getLast(ids.main) && ids.main == id(kPageSlots));
    edit(s.set).remove(id(kPageSlots));
    EXPECT_TRUE(s.set.getLast(ids.main, ids.sub) && ids.main == id(kPageSlots - 1));
}

TEST_F(GetLast, OfASetWithNothingLeavesTheIdsAlone) {
    GxapSelectSet set;
    Ids ids;
    EXPECT_EQ(set.getLast(), nullptr);
    EXPECT_FALSE(set.getLast(ids.main));
    EXPECT_FALSE(set.getLast(ids.main, ids.sub));
    set.releaseData();
    EXPECT_EQ(set.getLast(), nullptr);
    EXPECT_FALSE(set.getLast(ids.main));
    EXPECT_FALSE(set.getLast(ids.main, ids.sub));
    EXPECT_EQ(set.sharedData, nullptr);
    EXPECT_TRUE(ids.untouched());
}

TEST_F(GetLast, AnswersNothingWhereTheCountIsZeroOrTheStoreMissing) {
    SetOf s{{1}};
    Ids ids;
    s.data().entityCount = 0;
    EXPECT_EQ(s.set.getLast(), nullptr);
    EXPECT_FALSE(s.set.getLast(ids.main, ids.sub));
    s.data().entityCount = 1;
    auto* const store = std::exchange(s.data().entities, nullptr);
    EXPECT_EQ(s.set.getLast(), nullptr);
    EXPECT_FALSE(s.set.getLast(ids.main, ids.sub));
    s.data().entities = store;
    EXPECT_TRUE(ids.untouched());
}

TEST_F(GetLast, TrustsTheCount) {
    SetOf s{{1}, {2}, {3}};
    Ids ids;
    s.data().entityCount = 2;
    EXPECT_TRUE(s.set.getLast()->mainEntId == id(2));
    EXPECT_TRUE(s.set.getLast(ids.main) && ids.main == id(2));
    s.data().entityCount = 3;
}

TEST_F(GetLast, WithIdsRaisesWhereTheCountPromisesTooMuch) {
    SetOf s{{1}, {2}, {3}};
    s.data().entityCount = 5;
    Ids ids;
    kvinmemory::installCrashRecorder();
    EXPECT_EQ(s.set.getLast(), nullptr);
    kvtest::expectStatus([&] { s.set.getLast(ids.main); }, 24);
    kvtest::expectStatus([&] { s.set.getLast(ids.main, ids.sub); }, 24);
    EXPECT_TRUE(ids.untouched());
}

TEST_F(GetLast, OfANullRecordLeavesTheIdsAlone) {
    SetOf s{{1}, {2}};
    const auto taken = kvtest::takeRecordOut(s.set, 1);
    Ids ids;
    EXPECT_EQ(s.set.getLast(), nullptr);
    EXPECT_FALSE(s.set.getLast(ids.main));
    EXPECT_FALSE(s.set.getLast(ids.main, ids.sub));
    EXPECT_TRUE(ids.untouched());
}

} // namespace
