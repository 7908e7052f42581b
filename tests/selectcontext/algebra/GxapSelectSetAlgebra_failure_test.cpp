// Combines sets while each allocation fails in turn. The sets stay consistent, and no record is leaked. A
// second attempt succeeds.
#include "tests/selectcontext/support/EditFailureTest.h"

#include <algorithm>
#include <cstddef>
#include <gtest/gtest.h>
#include <iterator>
#include <vector>

namespace {

using kvtest::edit;
using kvtest::Expect;
using kvtest::FailurePoint;
using kvtest::forEachAllocationFailure;
using kvtest::id;
using kvtest::invariants;
using kvtest::Item;
using kvtest::items;
using kvtest::Items;
using kvtest::kPageSlots;
using kvtest::kThreeItems;
using kvtest::liveRecords;
using kvtest::plainItems;
using kvtest::registrations;
using kvtest::SetOf;
using kvtest::Unique;

using EditFailure = kvtest::EditFailure;

class AlgebraFailure : public EditFailure {
protected:
    using Combine = void (GxapSSetWriteAccessor::*)(const GxapSelectSet*, const GxapSelectSet*);

    // Combines two sets while each allocation fails in turn. After a failure, the operands must be unchanged,
    // and the target must be in one of `states`. The last state is the complete result. `removed` is the
    // number of records that a complete edit removes but does not delete.
    static void tryCombining(Combine combine, const Items& aHeld, const Items& bHeld,
                             const std::vector<Items>& states, std::size_t removed) {
        forEachAllocationFailure([&](FailurePoint& point) {
            freeLeftRecords();
            {
                SetOf target{{8}, {9, 1, 2, {3}, 4}}, a(aHeld, Unique::kOff), b(bHeld);
                const GxapSelectSet sharer(target.set);
                point.run([&] { (edit(target.set).*combine)(&a.set, &b.set); });
                EXPECT_TRUE(invariants(target.set));
                if (point.outcome().failed) {
                    EXPECT_NE(std::count(states.begin(), states.end(), items(target.set)), 0);
                    (edit(target.set).*combine)(&a.set, &b.set);
                }
                EXPECT_EQ(items(target.set), states.back());
                EXPECT_TRUE(invariants(target.set) && invariants(a.set) && invariants(b.set));
                EXPECT_EQ(items(a.set), aHeld);
                EXPECT_EQ(items(b.set), bHeld);
                EXPECT_EQ(items(sharer), (Items{{8}, {9, 1, 2, {3}, 4}}));
            }
            EXPECT_EQ(liveRecords().size(), removed);
        });
    }
};

// --- the unique flag

TEST_F(EditFailure, OfSwitchingUniqueOn) {
    tryAll({{{1}, {2, 1, 5, {7}, 1.5}, {1, 4}, {3}, {2}, {1}},
            Unique::kOff,
            [](GxapSelectSet& set) { edit(set).setUnique(true); },
            {{1}, {2, 1, 5, {7}, 1.5}, {3}},
            3},
           Expect::Failures);
}

TEST_F(EditFailure, OfSwitchingUniqueOnLeavesFlagAndIndex) {
    forEachAllocationFailure([&](FailurePoint& point) {
        freeLeftRecords();
        SetOf s({{1}, {2}, {1, 4}}, Unique::kOff);
        point.run([&] { edit(s.set).setUnique(true); });
        EXPECT_EQ(s.data().unique, !point.outcome().failed);
        EXPECT_EQ(s.data().dataMap.count(id(1)), point.outcome().failed ? 2u : 1u);
    });
}

// The set has two items of each of 100 ids. The edit removes the second item of each id.
TEST_F(EditFailure, OfSwitchingUniqueOnWithManyIds) {
    const Items once = kvtest::plainItems(1, 100);
    Items twice = once;
    twice.insert(twice.end(), once.begin(), once.end());
    tryAll({twice, Unique::kOff, [](GxapSelectSet& set) { edit(set).setUnique(true); }, once, once.size()},
           Expect::Failures);
}

TEST_F(EditFailure, OfSwitchingUniqueOff) {
    tryAll(
        {kThreeItems, Unique::kOn, [](GxapSelectSet& set) { edit(set).setUnique(false); }, kThreeItems, 0});
}

// --- set algebra

TEST_F(AlgebraFailure, OfMerging) {
    tryCombining(&GxapSSetWriteAccessor::merge, kThreeItems, {{3}, {4, 1, 2, {5, 6}, 2.5}, {5}},
                 {{{8}, {9, 1, 2, {3}, 4}},
                  {},
                  kThreeItems,
                  {{1}, {2, 1, 5, {7}, 1.5}, {3}, {4, 1, 2, {5, 6}, 2.5}},
                  {{1}, {2, 1, 5, {7}, 1.5}, {3}, {4, 1, 2, {5, 6}, 2.5}, {5}}},
                 0);
}

TEST_F(AlgebraFailure, OfMergingAcrossPages) {
    forEachAllocationFailure([&](FailurePoint& point) {
        SetOf target(plainItems(1, kPageSlots));
        const SetOf b{{kPageSlots + 1}};
        point.run([&] { edit(target.set).merge(&target.set, &b.set); });
        EXPECT_TRUE(invariants(target.set));
        EXPECT_EQ(kvtest::count(target.set), point.outcome().failed ? kPageSlots : kPageSlots + 1);
    });
}

// The added items are many and not in order, so the merge sorts them. One of the items has an info.
TEST_F(AlgebraFailure, OfMergingManyInNoOrder) {
    Items added;
    for (unsigned long i = 0; i < 300; ++i)
        added.push_back({i * 149 % 300 + 100});
    added.push_back({500, 1, 2, {5, 6}, 2.5});
    Items expected = plainItems(1, 200);
    std::copy_if(added.begin(), added.end(), std::back_inserter(expected),
                 [](const Item& item) { return item.main > 200; });
    const SetOf b(added);
    forEachAllocationFailure([&](FailurePoint& point) {
        SetOf target(plainItems(1, 200));
        point.run([&] { edit(target.set).merge(&target.set, &b.set); });
        EXPECT_TRUE(invariants(target.set));
        const Items found = items(target.set);
        ASSERT_TRUE(found.size() >= 200 && found.size() <= expected.size());
        EXPECT_TRUE(std::equal(found.begin(), found.end(), expected.begin()));
        EXPECT_TRUE(point.outcome().failed || found == expected);
        edit(target.set).merge(&target.set, &b.set);
        EXPECT_EQ(items(target.set), expected);
        EXPECT_TRUE(invariants(target.set));
    });
}

TEST_F(AlgebraFailure, OfMergingASetWithItself) {
    forEachAllocationFailure([&](FailurePoint& point) {
        SetOf s({{1}, {2, 1, 5, {7}, 1.5}}, Unique::kOff);
        point.run([&] { edit(s.set).merge(&s.set, &s.set); });
        EXPECT_TRUE(invariants(s.set));
        const Items whole{{1}, {2, 1, 5, {7}, 1.5}, {1}, {2, 1, 5, {7}, 1.5}}, found = items(s.set);
        ASSERT_TRUE(found.size() >= 2 && found.size() <= 4);
        EXPECT_TRUE(std::equal(found.begin(), found.end(), whole.begin()));
    });
}

TEST_F(AlgebraFailure, OfSubtracting) {
    tryCombining(&GxapSSetWriteAccessor::minus, kThreeItems, {{3}, {2, 1, 5}, {7}},
                 {{{8}, {9, 1, 2, {3}, 4}}, {}, kThreeItems, {{1}}}, 2);
}

TEST_F(AlgebraFailure, OfSubtractingASetFromItself) {
    forEachAllocationFailure([&](FailurePoint& point) {
        freeLeftRecords();
        {
            SetOf s(kThreeItems);
            const GxapSelectSet sharer(s.set);
            point.run([&] { edit(s.set).minus(&s.set, &s.set); });
            EXPECT_TRUE(invariants(s.set));
            EXPECT_EQ(items(s.set), point.outcome().failed ? kThreeItems : Items());
            EXPECT_EQ(items(sharer), kThreeItems);
            EXPECT_EQ(kvtest::owners(sharer), point.outcome().failed ? 2u : 1u);
        }
        EXPECT_EQ(liveRecords().size(), point.outcome().failed ? 0u : 3u);
    });
}

// --- transfer

class ExcludesTwo : public IGxapSSetEntityExcluder {
public:
    bool isExcluded(GxDbObjectId mainEntId) override { return mainEntId == id(2); }
};

TEST_F(AlgebraFailure, OfTransferringKeepsWholeItems) {
    forEachAllocationFailure([&](FailurePoint& point) {
        {
            const SetOf source(kThreeItems);
            SetOf target{{8}}, out{{9}};
            ExcludesTwo excluder;
            point.run([&] { source.set.transfer(target.set, &excluder, &out.set); });
            EXPECT_TRUE(invariants(source.set) && invariants(target.set) && invariants(out.set));
            EXPECT_EQ(registrations(source.set), 0);
            if (point.outcome().failed)
                source.set.transfer(target.set, &excluder, &out.set);
            EXPECT_EQ(items(source.set), kThreeItems);
            EXPECT_EQ(items(target.set), (Items{{8}, {1}, {3}}));
            EXPECT_EQ(items(out.set), (Items{{9}, {2, 1, 5, {7}, 1.5}}));
        }
        EXPECT_TRUE(liveRecords().empty());
    });
}

TEST_F(AlgebraFailure, OfTransferringIntoItselfKeepsWholeItems) {
    forEachAllocationFailure([&](FailurePoint& point) {
        SetOf s(kThreeItems, Unique::kOff);
        ExcludesTwo excluder;
        point.run([&] { s.set.transfer(s.set, &excluder, nullptr); });
        EXPECT_TRUE(invariants(s.set));
        EXPECT_EQ(registrations(s.set), 0);
        const Items whole{{1}, {2, 1, 5, {7}, 1.5}, {3}, {1}, {3}}, found = items(s.set);
        ASSERT_TRUE(found.size() >= 3 && found.size() <= 5);
        EXPECT_TRUE(std::equal(found.begin(), found.end(), whole.begin()));
    });
}

} // namespace
