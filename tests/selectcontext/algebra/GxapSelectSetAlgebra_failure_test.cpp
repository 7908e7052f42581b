// Every allocation of every edit fails in its turn. What a call that failed leaves is consistent, nothing is
// lost, and the same call works afterwards.

#include "tests/selectcontext/support/EditTestSupport.h"
#include "tests/support/AllocationFailure.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <memory>
#include <vector>

namespace {

using kvtest::edit;
using kvtest::Expect;
using kvtest::FailurePoint;
using kvtest::forEachAllocationFailure;
using kvtest::freePathCopiesLeft;
using kvtest::id;
using kvtest::invariants;
using kvtest::Item;
using kvtest::items;
using kvtest::Items;
using kvtest::kPageSlots;
using kvtest::liveRecords;
using kvtest::pathCopiesLeft;
using kvtest::plainItems;
using kvtest::record;
using kvtest::registrations;
using kvtest::SetOf;
using kvtest::Unique;

using Iterator = GxapSelectSet::Iterator;
using Path = GxDbFullSubentPath;

const GxDbObjectId kNoId;

// What one edit does to a set.
struct EditCase {
    Items held;
    Unique unique;
    std::function<void(GxapSelectSet&)> edit;
    Items expected;
    std::size_t removed; // records that a complete edit leaves unreleased
};

class EditFailure : public kvtest::EditTest {
protected:
    // A failed edit has done all or nothing, and nothing has been lost; the next attempt does it.
    static void tryOnce(FailurePoint& point, const EditCase& c, bool shared) {
        freeLeftRecords();
        {
            SetOf s(c.held, c.unique);
            const auto sharer = shared ? std::make_unique<GxapSelectSet>(s.set) : nullptr;
            point.run([&] { c.edit(s.set); });
            EXPECT_TRUE(invariants(s.set));
            if (point.outcome().failed) {
                EXPECT_EQ(items(s.set), c.held);
                c.edit(s.set);
            }
            EXPECT_EQ(items(s.set), c.expected);
            EXPECT_TRUE(invariants(s.set));
            EXPECT_EQ(registrations(s.set), 0);
            if (shared) {
                EXPECT_EQ(items(*sharer), c.held);
                EXPECT_TRUE(invariants(*sharer));
            }
        }
        EXPECT_EQ(liveRecords().size(), c.removed);
    }

    static void tryAll(const EditCase& c, Expect onPrivateData = Expect::None) {
        forEachAllocationFailure([&](FailurePoint& point) { tryOnce(point, c, false); }, onPrivateData);
        forEachAllocationFailure([&](FailurePoint& point) { tryOnce(point, c, true); });
    }
};

class AlgebraFailure : public EditFailure {
protected:
    using Combine = void (GxapSSetWriteAccessor::*)(const GxapSelectSet*, const GxapSelectSet*);

    // The operands are as they were; the target holds one of the states that the edit goes through.
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

class SubselFailure : public kvtest::EditTest {
protected:
    void TearDown() override {
        freeLeftRecords();
        freePathCopiesLeft();
        EditTest::TearDown();
    }

    // A set whose only item is a sub-selection of one path. The path is the caller's.
    void fillWithSubselection(GxapSelectSet& set, Path& path) const {
        edit(set).append(entity, kNoId);
        record(set, 0)->hasSubselPaths = true;
        record(set, 0)->subselPathArray = new kvtest::SegmentArray;
        kvtest::append(*record(set, 0)->subselPathArray, &path);
    }

    static int length(const GxapSelectSet& set) { return record(set, 0)->subselPathArray->logicalLength(); }

    static void setToPart(Path& path, const GxDbObjectId& of, std::int64_t n) {
        path.objectIds().setLogicalLength(1);
        path.objectIds()[0] = of;
        path.subentId().index = n;
    }

    kvinmemory::Database database;
    const GxDbObjectId entity = database.addEntity();
};

const Items kThree{{1}, {2, 1, 5, {7}, 1.5}, {3}};

// --- removals

TEST_F(EditFailure, OfRemovingByMainId) {
    tryAll({{{1}, {2, 1, 5, {7}, 1.5}, {1, 4}},
            Unique::kOn,
            [](GxapSelectSet& set) { edit(set).remove(id(1)); },
            {{2, 1, 5, {7}, 1.5}},
            2});
}

TEST_F(EditFailure, OfRemovingByMainAndSubId) {
    tryAll({kThree, Unique::kOn, [](GxapSelectSet& set) { edit(set).remove(id(2), id(1)); }, {{1}, {3}}, 1});
}

TEST_F(EditFailure, OfRemovingByThreeKeys) {
    tryAll(
        {kThree, Unique::kOn, [](GxapSelectSet& set) { edit(set).remove(id(2), id(1), 5); }, {{1}, {3}}, 1});
}

TEST_F(EditFailure, OfRemovingAtAPosition) {
    tryAll({kThree,
            Unique::kOn,
            [](GxapSelectSet& set) { edit(set).removeAt(2); },
            {{1}, {2, 1, 5, {7}, 1.5}},
            1});
}

TEST_F(EditFailure, OfRemovingAtAnIterator) {
    tryAll({kThree,
            Unique::kOn,
            [](GxapSelectSet& set) {
                Iterator it(&set, 2);
                edit(set).removeAt(it);
            },
            {{1}, {2, 1, 5, {7}, 1.5}},
            1},
           Expect::Failures);
}

TEST_F(EditFailure, OfRemovingAtAnIteratorLeavesTheIteratorInPlace) {
    forEachAllocationFailure([&](FailurePoint& point) {
        freeLeftRecords();
        SetOf s(kThree);
        const GxapSelectSet sharer(s.set);
        Iterator it(&s.set, 2);
        point.run([&] { edit(s.set).removeAt(it); });
        if (!point.outcome().failed)
            return;
        EXPECT_EQ(it.index, 2);
        EXPECT_EQ(it.get(), record(s.set, 2));
        EXPECT_EQ(registrations(s.set), 1);
        EXPECT_TRUE(invariants(s.set));
        EXPECT_TRUE(edit(s.set).removeAt(it));
    });
}

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

// So many ids that what remembers them has to grow while they are looked through.
TEST_F(EditFailure, OfSwitchingUniqueOnWithManyIds) {
    const Items once = kvtest::plainItems(1, 100);
    Items twice = once;
    twice.insert(twice.end(), once.begin(), once.end());
    tryAll({twice, Unique::kOff, [](GxapSelectSet& set) { edit(set).setUnique(true); }, once, once.size()},
           Expect::Failures);
}

TEST_F(EditFailure, OfSwitchingUniqueOff) {
    tryAll({kThree, Unique::kOn, [](GxapSelectSet& set) { edit(set).setUnique(false); }, kThree, 0});
}

// --- set algebra

TEST_F(AlgebraFailure, OfMerging) {
    tryCombining(&GxapSSetWriteAccessor::merge, kThree, {{3}, {4, 1, 2, {5, 6}, 2.5}, {5}},
                 {{{8}, {9, 1, 2, {3}, 4}},
                  {},
                  kThree,
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

// So many, in no order, that they are sorted, and with an info.
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
    tryCombining(&GxapSSetWriteAccessor::minus, kThree, {{3}, {2, 1, 5}, {7}},
                 {{{8}, {9, 1, 2, {3}, 4}}, {}, kThree, {{1}}}, 2);
}

TEST_F(AlgebraFailure, OfSubtractingASetFromItself) {
    forEachAllocationFailure([&](FailurePoint& point) {
        freeLeftRecords();
        {
            SetOf s(kThree);
            const GxapSelectSet sharer(s.set);
            point.run([&] { edit(s.set).minus(&s.set, &s.set); });
            EXPECT_TRUE(invariants(s.set));
            EXPECT_EQ(items(s.set), point.outcome().failed ? kThree : Items());
            EXPECT_EQ(items(sharer), kThree);
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
            const SetOf source(kThree);
            SetOf target{{8}}, out{{9}};
            ExcludesTwo excluder;
            point.run([&] { source.set.transfer(target.set, &excluder, &out.set); });
            EXPECT_TRUE(invariants(source.set) && invariants(target.set) && invariants(out.set));
            EXPECT_EQ(registrations(source.set), 0);
            if (point.outcome().failed)
                source.set.transfer(target.set, &excluder, &out.set);
            EXPECT_EQ(items(source.set), kThree);
            EXPECT_EQ(items(target.set), (Items{{8}, {1}, {3}}));
            EXPECT_EQ(items(out.set), (Items{{9}, {2, 1, 5, {7}, 1.5}}));
        }
        EXPECT_TRUE(liveRecords().empty());
    });
}

TEST_F(AlgebraFailure, OfTransferringIntoItselfKeepsWholeItems) {
    forEachAllocationFailure([&](FailurePoint& point) {
        SetOf s(kThree, Unique::kOff);
        ExcludesTwo excluder;
        point.run([&] { s.set.transfer(s.set, &excluder, nullptr); });
        EXPECT_TRUE(invariants(s.set));
        EXPECT_EQ(registrations(s.set), 0);
        const Items whole{{1}, {2, 1, 5, {7}, 1.5}, {3}, {1}, {3}}, found = items(s.set);
        ASSERT_TRUE(found.size() >= 3 && found.size() <= 5);
        EXPECT_TRUE(std::equal(found.begin(), found.end(), whole.begin()));
    });
}

// --- reading

TEST_F(AlgebraFailure, HasNoPlaceInReadingByPositionAndComparing) {
    forEachAllocationFailure(
        [&](FailurePoint& point) {
            const SetOf s(kThree), other{{3}};
            GxDbObjectId mainId, subId;
            point.run([&] {
                s.set.getAt(1);
                s.set.getAt(1, mainId, subId);
                s.set.getFirst(mainId);
                s.set.getLast(mainId, subId);
                s.set.contains(&other.set);
                s.set.intersectedWith(&other.set);
            });
            EXPECT_TRUE(mainId == id(3));
        },
        Expect::None);
}

// What makes many lookups faster is given up where there is no memory for it.
TEST_F(AlgebraFailure, LeavesComparingManyItemsSlow) {
    const Items held = kvtest::plainItems(1, 300);
    const Items backwards(held.rbegin(), held.rend());
    forEachAllocationFailure([&](FailurePoint& point) {
        const SetOf one(held), other(backwards);
        bool isContained = false;
        point.run([&] { isContained = one.set.contains(&other.set); });
        EXPECT_FALSE(point.outcome().failed);
        EXPECT_TRUE(isContained);
    });
}

// --- sub-selection

TEST_F(SubselFailure, OfAppendingAPath) {
    forEachAllocationFailure([&](FailurePoint& point) {
        Path held, added;
        setToPart(held, entity, 1);
        setToPart(added, entity, 2);
        GxapSelectSet set;
        fillWithSubselection(set, held);
        const GxapSelectSet sharer(set);
        point.run([&] { edit(set).appendSubentPathSubsel(added); });
        EXPECT_TRUE(invariants(set));
        EXPECT_EQ(registrations(set), 0);
        EXPECT_EQ(length(set), point.outcome().failed ? 1 : 2);
        EXPECT_EQ(pathCopiesLeft().size(), point.outcome().failed ? 0u : 1u);
        if (point.outcome().failed) {
            EXPECT_TRUE(edit(set).appendSubentPathSubsel(added));
        }
        EXPECT_EQ(length(set), 2);
        EXPECT_EQ(length(sharer), 1);
        freePathCopiesLeft();
    });
    EXPECT_TRUE(liveRecords().empty());
}

TEST_F(SubselFailure, OfAppendingAPathOfANewEntity) {
    forEachAllocationFailure([&](FailurePoint& point) {
        Path added;
        setToPart(added, entity, 2);
        {
            SetOf s(kThree);
            const GxapSelectSet sharer(s.set);
            point.run([&] { edit(s.set).appendSubentPathSubsel(added); });
            EXPECT_TRUE(invariants(s.set));
            EXPECT_EQ(kvtest::count(s.set), point.outcome().failed ? 3u : 4u);
            EXPECT_EQ(pathCopiesLeft().size(), point.outcome().failed ? 0u : 1u);
            if (point.outcome().failed) {
                EXPECT_TRUE(edit(s.set).appendSubentPathSubsel(added));
            }
            EXPECT_EQ(kvtest::count(s.set), 4u);
            EXPECT_EQ(items(sharer), kThree);
            freePathCopiesLeft();
        }
        EXPECT_TRUE(liveRecords().empty());
    });
}

// Removing a path takes one more attempt at most, whatever of it a failed one has done.
TEST_F(SubselFailure, OfRemovingAPath) {
    forEachAllocationFailure([&](FailurePoint& point) {
        freeLeftRecords();
        Path held, other;
        setToPart(held, entity, 1);
        setToPart(other, entity, 2);
        {
            GxapSelectSet set;
            fillWithSubselection(set, held);
            kvtest::append(*record(set, 0)->subselPathArray, &other);
            const GxapSelectSet sharer(set);
            point.run([&] { edit(set).removeSubentPathSubsel(held); });
            EXPECT_TRUE(invariants(set));
            EXPECT_EQ(registrations(set), 0);
            EXPECT_EQ(length(set), point.outcome().failed ? 2 : 1);
            if (point.outcome().failed) {
                EXPECT_TRUE(edit(set).removeSubentPathSubsel(held));
            }
            EXPECT_EQ(length(set), 1);
            EXPECT_EQ(length(sharer), 2);
        }
        EXPECT_TRUE(liveRecords().empty());
    });
}

TEST_F(SubselFailure, OfRemovingAPathByPosition) {
    forEachAllocationFailure([&](FailurePoint& point) {
        Path held, other;
        setToPart(held, entity, 1);
        setToPart(other, entity, 2);
        GxapSelectSet set;
        fillWithSubselection(set, held);
        kvtest::append(*record(set, 0)->subselPathArray, &other);
        const GxapSelectSet sharer(set);
        point.run([&] { edit(set).removeSubentPathAtSubsel(0, 1); });
        EXPECT_TRUE(invariants(set));
        EXPECT_EQ(length(set), point.outcome().failed ? 2 : 1);
        if (point.outcome().failed) {
            EXPECT_TRUE(edit(set).removeSubentPathAtSubsel(0, 1));
        }
        EXPECT_EQ(length(set), 1);
        EXPECT_EQ(length(sharer), 2);
    });
}

TEST_F(SubselFailure, OfRemovingTheOnlyPath) {
    forEachAllocationFailure([&](FailurePoint& point) {
        freeLeftRecords();
        Path held;
        setToPart(held, entity, 1);
        {
            GxapSelectSet set;
            fillWithSubselection(set, held);
            const GxapSelectSet sharer(set);
            point.run([&] { edit(set).removeSubentPathSubsel(held); });
            EXPECT_TRUE(invariants(set));
            if (point.outcome().failed)
                edit(set).removeSubentPathSubsel(held);
            EXPECT_EQ(kvtest::count(set), 0u);
            EXPECT_EQ(length(sharer), 1);
        }
        EXPECT_EQ(liveRecords().size(), 1u);
    });
}

TEST_F(SubselFailure, OfLookingForAPath) {
    forEachAllocationFailure([&](FailurePoint& point) {
        Path held;
        setToPart(held, entity, 1);
        GxapSelectSet set;
        fillWithSubselection(set, held);
        const kvtest::SegmentArray sharedList(*record(set, 0)->subselPathArray);
        int found = -2;
        point.run([&] { found = set.findSubentPathSubsel(entity, held); });
        EXPECT_TRUE(invariants(set));
        EXPECT_EQ(registrations(set), 0);
        EXPECT_EQ(found, point.outcome().failed ? -2 : 0);
        EXPECT_EQ(set.findSubentPathSubsel(entity, held), 0);
    });
}

} // namespace
