// Reads and compares sets while allocations fail.
#include "base/detail/Shortcuts.h"
#include "tests/selectcontext/support/EditFailureTest.h"

#include <gtest/gtest.h>

namespace {

using kvtest::Expect;
using kvtest::FailurePoint;
using kvtest::forEachAllocationFailure;
using kvtest::id;
using kvtest::Items;
using kvtest::kThreeItems;
using kvtest::SetOf;

class LookupFailure : public kvtest::EditTest {};

TEST_F(LookupFailure, HasNoPlaceInReadingByPositionAndComparing) {
    forEachAllocationFailure(
        [&](FailurePoint& point) {
            const SetOf s(kThreeItems), other{{3}};
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

// Comparing many items makes a hash if there is memory for it. The result is the same without the hash.
TEST_F(LookupFailure, LeavesComparingManyItemsSlow) {
    if (!kvdetail::kHasIdHash)
        GTEST_SKIP() << "this build has no hash of ids";
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

} // namespace
