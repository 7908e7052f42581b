// Edits sub-selections while each allocation fails in turn. A failed edit leaves the sub-selection unchanged
// and leaks no record. A second attempt succeeds.
#include "tests/selectcontext/subselection/SubselectionTest.h"
#include "tests/selectcontext/support/EditFailureTest.h"

#include <cstdint>
#include <gtest/gtest.h>

namespace {

using kvtest::edit;
using kvtest::FailurePoint;
using kvtest::forEachAllocationFailure;
using kvtest::freePathCopiesLeft;
using kvtest::invariants;
using kvtest::items;
using kvtest::kNoId;
using kvtest::kThreeItems;
using kvtest::liveRecords;
using kvtest::pathCopiesLeft;
using kvtest::record;
using kvtest::registrations;
using kvtest::SetOf;

class SubselFailure : public kvtest::SubselectionTest {
protected:
    // Fills the set with one item. The item has a sub-selection of one path, which the caller owns.
    void fillWithOnePath(GxapSelectSet& set, Path& path) const {
        edit(set).append(first, kNoId);
        record(set, 0)->hasSubselPaths = true;
        record(set, 0)->subselPathArray = new kvtest::SegmentArray;
        kvtest::append(*record(set, 0)->subselPathArray, &path);
    }

    static int length(const GxapSelectSet& set) { return record(set, 0)->subselPathArray->logicalLength(); }
};

TEST_F(SubselFailure, OfAppendingAPath) {
    forEachAllocationFailure([&](FailurePoint& point) {
        Path held, added;
        setToPart(held, first, 1);
        setToPart(added, first, 2);
        GxapSelectSet set;
        fillWithOnePath(set, held);
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
        setToPart(added, first, 2);
        {
            SetOf s(kThreeItems);
            const GxapSelectSet sharer(s.set);
            point.run([&] { edit(s.set).appendSubentPathSubsel(added); });
            EXPECT_TRUE(invariants(s.set));
            EXPECT_EQ(kvtest::count(s.set), point.outcome().failed ? 3u : 4u);
            EXPECT_EQ(pathCopiesLeft().size(), point.outcome().failed ? 0u : 1u);
            if (point.outcome().failed) {
                EXPECT_TRUE(edit(s.set).appendSubentPathSubsel(added));
            }
            EXPECT_EQ(kvtest::count(s.set), 4u);
            EXPECT_EQ(items(sharer), kThreeItems);
            freePathCopiesLeft();
        }
        EXPECT_TRUE(liveRecords().empty());
    });
}

// A failed removal leaves the path in the list. A second attempt removes the path.
TEST_F(SubselFailure, OfRemovingAPath) {
    forEachAllocationFailure([&](FailurePoint& point) {
        freeLeftRecords();
        Path held, other;
        setToPart(held, first, 1);
        setToPart(other, first, 2);
        {
            GxapSelectSet set;
            fillWithOnePath(set, held);
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
        setToPart(held, first, 1);
        setToPart(other, first, 2);
        GxapSelectSet set;
        fillWithOnePath(set, held);
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
        setToPart(held, first, 1);
        {
            GxapSelectSet set;
            fillWithOnePath(set, held);
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
        setToPart(held, first, 1);
        GxapSelectSet set;
        fillWithOnePath(set, held);
        const kvtest::SegmentArray sharedList(*record(set, 0)->subselPathArray);
        int found = -2;
        point.run([&] { found = set.findSubentPathSubsel(first, held); });
        EXPECT_TRUE(invariants(set));
        EXPECT_EQ(registrations(set), 0);
        EXPECT_EQ(found, point.outcome().failed ? -2 : 0);
        EXPECT_EQ(set.findSubentPathSubsel(first, held), 0);
    });
}

} // namespace
