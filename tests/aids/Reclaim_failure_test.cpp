// Takes items while each allocation fails in turn. Nothing is left in any case.
#include "aids/Reclaim.h"

#include "tests/aids/AidsTest.h"
#include "tests/selectcontext/support/EditFailureTest.h"

#include <gtest/gtest.h>

namespace {

using kvtest::EditFailure;
using kvtest::Expect;
using kvtest::FailurePoint;
using kvtest::forEachAllocationFailure;
using kvtest::id;
using kvtest::Items;
using kvtest::kThreeItems;
using kvtest::Unique;

const Items kRest{{1}, {3}};

TEST_F(EditFailure, OfTakingByMainId) {
    tryAll({kThreeItems, Unique::kOn, [](GxapSelectSet& set) { kv::take(set, id(2)); }, kRest, 0},
           Expect::Failures);
}

TEST_F(EditFailure, OfTakingByThreeKeys) {
    tryAll({kThreeItems, Unique::kOn, [](GxapSelectSet& set) { kv::take(set, id(2), id(1), 5); }, kRest, 0},
           Expect::Failures);
}

TEST_F(EditFailure, OfTakingAtAPosition) {
    tryAll({kThreeItems, Unique::kOn, [](GxapSelectSet& set) { kv::takeAt(set, 1); }, kRest, 0});
}

TEST_F(EditFailure, OfTakingIf) {
    const auto isSecond = [](const selected_entity& item) { return item.mainEntId == id(2); };
    tryAll({kThreeItems, Unique::kOn, [&](GxapSelectSet& set) { kv::takeIf(set, isSecond); }, kRest, 0},
           Expect::Failures);
}

TEST_F(EditFailure, OfTakingTheItemsOfAnotherSet) {
    const auto takeSecond = [](GxapSelectSet& set) {
        GxapSelectSet other; // the fixture deletes all records before each run
        kvtest::select(other, {2, 1, 5});
        kv::takeMinus(set, other);
    };
    tryAll({kThreeItems, Unique::kOn, takeSecond, kRest, 0}, Expect::Failures);
}

TEST_F(EditFailure, OfTakingWhatIsNotUnique) {
    tryAll({Items{{1}, {3}, {1, 2}}, Unique::kOff, [](GxapSelectSet& set) { kv::takeSetUnique(set, true); },
            kRest, 0},
           Expect::Failures);
}

TEST_F(EditFailure, OfAddingToASubselection) {
    kvinmemory::Database database;
    const GxDbObjectId wall = database.addEntity();
    const GxDbFullSubentPath path = kvtest::subentPath({wall}, 1, 5);
    forEachAllocationFailure([&](FailurePoint& point) {
        kv::SubselectionPaths paths;
        GxapSelectSet set;
        point.run([&] { paths.add(set, path); });
        EXPECT_EQ(kvtest::count(set), point.outcome().completed ? 1U : 0U);
        EXPECT_EQ(paths.size(), point.outcome().completed ? 1U : 0U);
    });
}

} // namespace
