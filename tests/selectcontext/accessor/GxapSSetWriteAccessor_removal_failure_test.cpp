// Removes items while each allocation fails in turn. A failed removal leaves the set unchanged and leaks no
// record. A second attempt succeeds.
#include "tests/selectcontext/support/EditFailureTest.h"

#include <gtest/gtest.h>

namespace {

using kvtest::edit;
using kvtest::Expect;
using kvtest::FailurePoint;
using kvtest::forEachAllocationFailure;
using kvtest::id;
using kvtest::invariants;
using kvtest::kThreeItems;
using kvtest::record;
using kvtest::registrations;
using kvtest::SetOf;
using kvtest::Unique;

using Iterator = GxapSelectSet::Iterator;

using EditFailure = kvtest::EditFailure;

TEST_F(EditFailure, OfRemovingByMainId) {
    tryAll({{{1}, {2, 1, 5, {7}, 1.5}, {1, 4}},
            Unique::kOn,
            [](GxapSelectSet& set) { edit(set).remove(id(1)); },
            {{2, 1, 5, {7}, 1.5}},
            2});
}

TEST_F(EditFailure, OfRemovingByMainAndSubId) {
    tryAll({kThreeItems,
            Unique::kOn,
            [](GxapSelectSet& set) { edit(set).remove(id(2), id(1)); },
            {{1}, {3}},
            1});
}

TEST_F(EditFailure, OfRemovingByThreeKeys) {
    tryAll({kThreeItems,
            Unique::kOn,
            [](GxapSelectSet& set) { edit(set).remove(id(2), id(1), 5); },
            {{1}, {3}},
            1});
}

TEST_F(EditFailure, OfRemovingAtAPosition) {
    tryAll({kThreeItems,
            Unique::kOn,
            [](GxapSelectSet& set) { edit(set).removeAt(2); },
            {{1}, {2, 1, 5, {7}, 1.5}},
            1});
}

TEST_F(EditFailure, OfRemovingAtAnIterator) {
    tryAll({kThreeItems,
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
        SetOf s(kThreeItems);
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

} // namespace
