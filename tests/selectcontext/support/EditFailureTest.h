// Runs edits while each allocation fails in turn.
#pragma once

#include "tests/selectcontext/support/EditTestSupport.h"
#include "tests/support/AllocationFailure.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <memory>

namespace kvtest {

// An edit of a set. The set has the items `held` before the edit, and the items `expected` after it.
struct EditCase {
    Items held;
    Unique unique;
    std::function<void(GxapSelectSet&)> edit;
    Items expected;
    std::size_t removed; // number of records that a complete edit removes but does not delete
};

class EditFailure : public EditTest {
protected:
    // Expects that a failed edit changes nothing, and that a second attempt succeeds. If `shared` is true,
    // another set shares the data.
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

// The second item has a value for every key.
inline const Items kThreeItems{{1}, {2, 1, 5, {7}, 1.5}, {3}};

} // namespace kvtest
