// Applies schemes, remembers states and watches edits while each allocation fails in turn.
#include "aids/Schemes.h"

#include "aids/History.h"
#include "aids/Watched.h"
#include "tests/aids/AidsTest.h"
#include "tests/support/AllocationFailure.h"

#include <gtest/gtest.h>

namespace {

using kv::Scheme;
using kvtest::FailurePoint;
using kvtest::forEachAllocationFailure;
using kvtest::invariants;
using kvtest::Items;
using kvtest::items;
using kvtest::SetOf;

class AidsFailure : public kvtest::EditTest {
protected:
    void TearDown() override {
        EXPECT_EQ(leftRecords({}), 0U);
        kvtest::EditTest::TearDown();
    }

    // Expects that the set is whole after a failure, and that the scheme works again afterwards.
    static void tryScheme(Scheme scheme, bool shared) {
        forEachAllocationFailure([&](FailurePoint& point) {
            SetOf s{{1}, {2, 3, 4, {5}, 1.5}, {6}};
            const GxapSelectSet sharer(shared ? s.set : GxapSelectSet());
            const SetOf picked{{6}, {7, 0, -1, {}, 2.5}};
            point.run([&] { kv::apply(s.set, scheme, picked.set); });
            EXPECT_TRUE(invariants(s.set));
            EXPECT_EQ(items(sharer).size(), shared ? 3U : 0U);
            kv::apply(s.set, Scheme::kReplace, picked.set);
            EXPECT_EQ(items(s.set).size(), 2U);
        });
    }
};

TEST_F(AidsFailure, OfReplacing) {
    tryScheme(Scheme::kReplace, false);
    tryScheme(Scheme::kReplace, true);
}

TEST_F(AidsFailure, OfAdding) {
    tryScheme(Scheme::kAdd, false);
    tryScheme(Scheme::kAdd, true);
}

TEST_F(AidsFailure, OfToggling) {
    tryScheme(Scheme::kToggle, false);
    tryScheme(Scheme::kToggle, true);
}

TEST_F(AidsFailure, OfRememberingAndUndoingLeavesSetAndHistory) {
    forEachAllocationFailure([](FailurePoint& point) {
        kv::History history;
        GxapSelectSet set;
        point.run([&] {
            for (unsigned long n = 1; n <= 20; ++n) { // enough states for the history to allocate
                history.remember(set);
                kvtest::appendIds(set, n, 1);
            }
            while (history.undo(set)) {}
        });
        EXPECT_TRUE(invariants(set));
        // A failed edit may have copied the data, which leaves a state with the same items.
        for (std::size_t before = items(set).size(); history.undo(set); before = items(set).size())
            EXPECT_LE(before - items(set).size(), 1U);
        EXPECT_TRUE(items(set).empty());
    });
}

TEST_F(AidsFailure, OfReportingLeavesTheChangeToTheNextReport) {
    forEachAllocationFailure([](FailurePoint& point) {
        GxapSelectSet set;
        std::size_t came = 0;
        kv::Watched watched(set, [&came](const kv::Change& change) { came += change.came.size(); });
        kvtest::appendIds(set, 1, 3);
        point.run([&] { watched.endBatch(); });
        watched.endBatch();
        EXPECT_EQ(came, 3U);
    });
}

} // namespace
