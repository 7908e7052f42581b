#include "tests/selectcontext/support/EditTestSupport.h"
#include "tests/selectcontext/support/IndexTestSupport.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <sys/mman.h>
#include <utility>

namespace {

using kvtest::edit;
using kvtest::id;
using kvtest::invariants;
using kvtest::kPageSlots;
using kvtest::plainItems;
using kvtest::registrations;
using kvtest::SetOf;
using kvtest::shareData;
using kvtest::Unique;

class Contains : public kvtest::EditTest {};
class IntersectedWith : public kvtest::EditTest {};
class Comparison : public kvtest::EditTest {};

bool contains(const SetOf& s, const SetOf& other) {
    return s.set.contains(&other.set);
}

bool intersected(const SetOf& s, const SetOf& other) {
    return s.set.intersectedWith(&other.set);
}

// Replaces the record in a slot by memory that must not be read: reading it ends the program. The destructor
// puts the record back.
class UnreadableRecord {
public:
    UnreadableRecord(const SetOf& s, std::size_t position)
        : mMemory(mmap(nullptr, sizeof(selected_entity), PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)),
          mSlot(kvtest::occupiedSlots(s.data()).at(position)), mRecord(mSlot->value) {
        mSlot->value = static_cast<selected_entity*>(mMemory);
    }
    UnreadableRecord(const UnreadableRecord&) = delete;
    UnreadableRecord& operator=(const UnreadableRecord&) = delete;
    ~UnreadableRecord() {
        mSlot->value = mRecord;
        munmap(mMemory, sizeof(selected_entity));
    }

private:
    void* const mMemory;
    kvtest::Store::Slot* const mSlot;
    selected_entity* const mRecord;
};

// --- contains

TEST_F(Contains, EverySubset) {
    const SetOf s{{1}, {2, 5}, {3}};
    EXPECT_TRUE(contains(s, SetOf{{3}, {1}}));
    EXPECT_TRUE(contains(s, SetOf{{2, 5}}));
    EXPECT_TRUE(contains(s, SetOf{{3}, {2, 5}, {1}}));
}

TEST_F(Contains, NoSetWithAnItemThatIsMissing) {
    const SetOf s{{1}, {2}, {3}};
    EXPECT_FALSE(contains(s, SetOf{{4}}));
    EXPECT_FALSE(contains(s, SetOf{{4}, {1}, {2}}));
    EXPECT_FALSE(contains(s, SetOf{{1}, {4}, {2}}));
    EXPECT_FALSE(contains(s, SetOf{{1}, {2}, {3}, {4}}));
}

TEST_F(Contains, ItselfAndWhateverSharesItsData) {
    const SetOf s{{1}, {2}};
    const GxapSelectSet sharer(s.set);
    EXPECT_TRUE(s.set.contains(&s.set));
    EXPECT_TRUE(s.set.contains(&sharer));
}

TEST_F(Contains, NoEmptySet) {
    const SetOf s{{1}}, empty;
    EXPECT_FALSE(contains(s, empty));
    EXPECT_FALSE(contains(empty, s));
    EXPECT_FALSE(contains(empty, empty));
}

TEST_F(Contains, NoNullSet) {
    const SetOf s{{1}}, empty;
    EXPECT_FALSE(s.set.contains(nullptr));
    EXPECT_FALSE(empty.set.contains(nullptr));
}

TEST_F(Contains, CountsNoDuplicates) {
    const SetOf once{{1}, {2}}, twice({{1}, {1}, {1}}, Unique::kOff);
    EXPECT_TRUE(contains(once, twice));
}

TEST_F(Contains, StopsAtTheFirstItemThatIsMissing) {
    const SetOf s{{1}, {2}}, other{{1}, {9}, {2}};
    const UnreadableRecord behind(other, 2);
    EXPECT_FALSE(contains(s, other));
}

TEST_F(Contains, AcrossPages) {
    const SetOf all(plainItems(1, kPageSlots + 2));
    SetOf most(plainItems(2, kPageSlots + 1));
    EXPECT_TRUE(contains(all, most));
    EXPECT_FALSE(contains(most, all));
    kvtest::select(most.set, {9999});
    EXPECT_FALSE(contains(all, most));
}

// --- intersectedWith

TEST_F(IntersectedWith, ASetThatHasOneItemInCommon) {
    const SetOf s{{1}, {2, 5}, {3}};
    EXPECT_TRUE(intersected(s, SetOf{{3}, {8}, {9}}));
    EXPECT_TRUE(intersected(s, SetOf{{8}, {2, 5}, {9}}));
    EXPECT_TRUE(intersected(s, SetOf{{8}, {9}, {1}}));
}

TEST_F(IntersectedWith, NoSetThatHasNothingInCommon) {
    const SetOf s{{1}, {2, 5}, {3}};
    EXPECT_FALSE(intersected(s, SetOf{{4}, {5}, {6}}));
    EXPECT_FALSE(intersected(s, SetOf{{2}, {2, 6}, {5, 2}}));
}

TEST_F(IntersectedWith, ItselfAndWhateverSharesItsData) {
    const SetOf s{{1}, {2}};
    const GxapSelectSet sharer(s.set);
    EXPECT_TRUE(s.set.intersectedWith(&s.set));
    EXPECT_TRUE(s.set.intersectedWith(&sharer));
}

TEST_F(IntersectedWith, NoEmptySet) {
    const SetOf s{{1}}, empty;
    EXPECT_FALSE(intersected(s, empty));
    EXPECT_FALSE(intersected(empty, s));
    EXPECT_FALSE(intersected(empty, empty));
}

TEST_F(IntersectedWith, NoNullSet) {
    const SetOf s{{1}}, empty;
    EXPECT_FALSE(s.set.intersectedWith(nullptr));
    EXPECT_FALSE(empty.set.intersectedWith(nullptr));
}

TEST_F(IntersectedWith, StopsAtTheFirstItemInCommon) {
    const SetOf s{{1}, {2}}, other{{9}, {1}, {2}};
    const UnreadableRecord behind(other, 2);
    EXPECT_TRUE(intersected(s, other));
}

TEST_F(IntersectedWith, AnItemOfALaterPage) {
    SetOf many(plainItems(1, kPageSlots + 1));
    const SetOf last{{kPageSlots + 1}};
    EXPECT_TRUE(intersected(last, many));
    EXPECT_TRUE(intersected(many, last));
    edit(many.set).remove(id(kPageSlots + 1));
    EXPECT_FALSE(intersected(last, many));
}

// --- which items are equal

class SameItem : public kvtest::EditTest {
protected:
    static void expectSame(const kvtest::Item& a, const kvtest::Item& b, bool same) {
        const SetOf first{a}, second{b};
        EXPECT_EQ(contains(first, second), same) << a << b;
        EXPECT_EQ(contains(second, first), same) << a << b;
        EXPECT_EQ(intersected(first, second), same) << a << b;
        EXPECT_EQ(intersected(second, first), same) << a << b;
    }
};

TEST_F(SameItem, HasEqualKeys) {
    expectSame({1, 2, 3, {7, 1}}, {1, 2, 3, {7, 1}}, true);
    expectSame({1, 2, 3, {7, 1}}, {9, 2, 3, {7, 1}}, false);
    expectSame({1, 2, 3, {7, 1}}, {1, 9, 3, {7, 1}}, false);
    expectSame({1, 2, 3, {7, 1}}, {1, 2, 9, {7, 1}}, false);
}

TEST_F(SameItem, HasAnEqualPath) {
    expectSame({1, 2, 3, {7, 1}}, {1, 2, 3, {8, 1}}, false);
    expectSame({1, 2, 3, {7, 1}}, {1, 2, 3, {7}}, false);
    expectSame({1, 2, 3, {7, 1}}, {1, 2, 3}, false);
    expectSame({1, 2, 3, {7, 1}}, {1, 2, 3, {1, 7}}, false);
}

TEST_F(SameItem, HasAnEquivalentMarker) {
    expectSame({1, 2, 0}, {1, 2, -1}, true);
    expectSame({1, 2, 0}, {1, 2, 5}, false);
    expectSame({1, 2, -1}, {1, 2, 5}, false);
    expectSame({1, 2, -1}, {1, 2, -2}, false);
}

TEST_F(SameItem, MayHaveAnyTransform) {
    expectSame({1, 2, 3, {}, 1.5}, {1, 2, 3, {}, 2.5}, true);
    expectSame({1, 2, 3, {}, 1.5}, {1, 2, 3}, true);
}

TEST_F(SameItem, MayHaveAnyHighlight) {
    const SetOf first{{1}}, second{{1}};
    kvtest::giveSegments(*kvtest::record(first.set, 0), 2);
    EXPECT_TRUE(contains(first, second));
    EXPECT_TRUE(contains(second, first));
}

TEST_F(SameItem, HasIdsThatThePlatformTakesForEqual) {
    kvinmemory::makeEqual(id(1), id(2));
    expectSame({1, 1}, {2, 2}, true);
}

TEST_F(SameItem, IsLookedForAmongAllItemsOfItsMainId) {
    const SetOf s{{1, 1}, {1, 2}, {1, 3, 4, {7}}};
    EXPECT_TRUE(contains(s, SetOf{{1, 3, 4, {7}}}));
    EXPECT_TRUE(intersected(s, SetOf{{1, 9}, {1, 3, 4, {7}}}));
}

// --- contains and intersectedWith

TEST_F(Comparison, OfASetWithoutDataIsFalseAndCreatesNone) {
    const SetOf s{{1}};
    GxapSelectSet none;
    none.releaseData();
    EXPECT_FALSE(s.set.contains(&none));
    EXPECT_FALSE(none.contains(&s.set));
    EXPECT_FALSE(none.contains(&none));
    EXPECT_FALSE(s.set.intersectedWith(&none));
    EXPECT_FALSE(none.intersectedWith(&s.set));
    EXPECT_FALSE(none.intersectedWith(&none));
    EXPECT_EQ(none.sharedData, nullptr);
}

TEST_F(Comparison, AsksTheCountsFirst) {
    SetOf s{{1}}, other{{1}};
    s.data().entityCount = 0;
    EXPECT_FALSE(contains(s, other));
    EXPECT_FALSE(intersected(s, other));
    EXPECT_FALSE(contains(other, s));
    EXPECT_FALSE(intersected(other, s));
}

TEST_F(Comparison, WithASetThatHasNoStoreIsFalse) {
    const SetOf s{{1}}, without{{1}};
    auto* const store = std::exchange(without.data().entities, nullptr);
    EXPECT_FALSE(contains(s, without));
    EXPECT_FALSE(intersected(s, without));
    EXPECT_FALSE(contains(without, s));
    EXPECT_FALSE(intersected(without, s));
    without.data().entities = store;
}

// The second comparison of large sets uses a hash of ids, and prefetches for the items to come.
TEST_F(Comparison, OfLargeSetsInNoOrderIsThatOfTheirItems) {
    constexpr unsigned long kMany = 20000;
    GxapSelectSet a, b;
    for (const unsigned long n : kvtest::shuffled(kMany, 1))
        edit(a).append(id(n), kvtest::kNoId);
    for (const unsigned long n : kvtest::shuffled(kMany, 2))
        edit(b).append(id(n), kvtest::kNoId);
    kvtest::takeOutIds(b, 100, 50);
    for (int round = 0; round < 2; ++round)
        EXPECT_TRUE(a.contains(&b));
    kvtest::takeOutIds(a, 777, 1);
    for (int round = 0; round < 2; ++round)
        EXPECT_FALSE(a.contains(&b));
}

TEST_F(Comparison, WalksOverFreedSlots) {
    SetOf s{{1}, {2}, {3}, {4}};
    edit(s.set).remove(id(1));
    edit(s.set).remove(id(3));
    EXPECT_TRUE(contains(SetOf{{2}, {4}}, s));
    EXPECT_FALSE(contains(SetOf{{1}, {2}, {3}}, s));
    EXPECT_FALSE(intersected(SetOf{{1}, {3}}, s));
    EXPECT_TRUE(intersected(SetOf{{1}, {4}}, s));
}

TEST_F(Comparison, WalksOverAPageWithoutOccupiedSlots) {
    SetOf s(plainItems(1, kPageSlots + 1));
    const auto taken = kvtest::emptyFirstPageInPlace(s.set);
    EXPECT_TRUE(contains(SetOf{{kPageSlots + 1}}, s));
    EXPECT_FALSE(intersected(SetOf{{1}}, s));
    EXPECT_TRUE(intersected(SetOf{{kPageSlots + 1}}, s));
}

TEST_F(Comparison, PassesOverNullRecords) {
    SetOf s{{1}, {2}}, other{{1}, {2}};
    const auto mine = kvtest::takeRecordOut(s.set, 0);
    EXPECT_TRUE(contains(other, s));
    EXPECT_FALSE(contains(s, other));
    EXPECT_TRUE(intersected(s, other));
    const auto theirs = kvtest::takeRecordOut(other.set, 1);
    EXPECT_FALSE(intersected(s, other));
    EXPECT_FALSE(intersected(other, s));
}

// a.contains(&b) walks over the store of b, and looks the items up in the index of a. The index of `s` lacks
// the entry of {1, 3}.
TEST_F(Comparison, FindsWhatTheIndexHasLostOnTheWalkedSideOnly) {
    SetOf s{{1, 2}, {1, 3}, {2}};
    edit(s.set).remove(id(1), id(2));
    const SetOf other{{1, 3}};
    EXPECT_FALSE(contains(s, other));
    EXPECT_FALSE(intersected(s, other));
    EXPECT_TRUE(intersected(other, s));
    EXPECT_FALSE(s.set.contains(&s.set));
}

TEST_F(Comparison, ChangesNothing) {
    const SetOf s{{1}, {2}}, other{{2}};
    const GxapSelectSet sharer(s.set), otherSharer(other.set);
    const auto it = s.set.begin();
    const kvtest::AllocationCount since;
    contains(s, other);
    intersected(s, other);
    EXPECT_EQ(since.newCalls(), 0);
    EXPECT_EQ(since.mallocCalls(), 0);
    EXPECT_TRUE(shareData(s.set, sharer) && shareData(other.set, otherSharer));
    EXPECT_EQ(registrations(s.set), 1);
    EXPECT_EQ(registrations(other.set), 0);
    EXPECT_TRUE(invariants(s.set));
}

} // namespace
