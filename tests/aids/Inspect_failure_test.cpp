// Looks into sets while each allocation fails in turn.
#include "aids/Inspect.h"

#include "tests/aids/AidsTest.h"
#include "tests/selectcontext/support/EditFailureTest.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using kvtest::EditFailure;
using kvtest::Expect;
using kvtest::FailurePoint;
using kvtest::forEachAllocationFailure;
using kvtest::Items;
using kvtest::items;
using kvtest::kThreeItems;
using kvtest::SetOf;
using kvtest::Unique;

TEST_F(EditFailure, OfRemovingExactly) {
    tryAll({kThreeItems,
            Unique::kOn,
            [](GxapSelectSet& set) {
                auto it = set.iteratorAt(1);
                kv::removeExactly(set, it);
            },
            {{1}, {3}},
            1},
           Expect::Failures);
}

TEST_F(EditFailure, OfValidating) {
    forEachAllocationFailure([](FailurePoint& point) {
        SetOf s(kThreeItems);
        s.data().entityCount = 4;
        point.run([&] { kv::validate(s.set); });
        s.data().entityCount = 3;
        EXPECT_EQ(items(s.set), kThreeItems);
    });
}

TEST_F(EditFailure, OfComparing) {
    forEachAllocationFailure([](FailurePoint& point) {
        const SetOf a(kThreeItems);
        const SetOf b{{1}, {4}};
        point.run([&] { kv::difference(a.set, b.set, kvtest::textOfNumber); });
        EXPECT_EQ(items(a.set), kThreeItems);
    });
}

TEST_F(EditFailure, OfMakingAnInfo) {
    const kvtest::AllocationCount allocations;
    forEachAllocationFailure([](FailurePoint& point) {
        kv::InfoFields fields;
        fields.fence = kvtest::fence(1, 0.5);
        fields.transform = kvtest::matrixWith(1);
        fields.points = {{1, 2, 3}};
        point.run([&] { kv::makeInfo(fields); });
    });
    EXPECT_EQ(allocations.liveMalloc(), 0);
}

} // namespace
