// Reads and writes nested paths while each allocation fails in turn. Nothing leaks, and no object stays open.
#include "tests/selectcontext/support/DrawingTestSupport.h"
#include "tests/support/AllocationFailure.h"

#include <gtest/gtest.h>

namespace {

using kvtest::edit;
using kvtest::Expect;
using kvtest::FailurePoint;
using kvtest::Filled;
using kvtest::forEachAllocationFailure;
using kvtest::id;
using kvtest::idVector;
using kvtest::subentPath;
using Ids = KvVector<GxDbObjectId>;
using Iterator = GxapSelectSet::Iterator;

class FailingPath : public kvtest::DrawingTest {};

TEST_F(FailingPath, IsUntouchedOrWhole) {
    forEachAllocationFailure([](FailurePoint& point) {
        GxapSelectSet set;
        const Ids nested = idVector({1, 2, 3});
        edit(set).select(id(3), GxDbObjectId(), 7, nullptr, &nested);
        const GxapSelectSet::ConstIterator it = set.begin();
        GxDbFullSubentPath path;
        bool found = false;
        point.run([&] { found = it.getFullSubentPath(path); });
        EXPECT_EQ(found, point.outcome().completed);
        EXPECT_TRUE(path == (found ? subentPath({1, 2, 3}, 0, 7) : GxDbFullSubentPath()));
        EXPECT_EQ(nested.data.block->refCount.load(), 2u);
    });
}

TEST_F(FailingPath, IsFilteredUpToTheFailureWithNothingLeftOpen) {
    const GxDbObjectId a = drawing().addEntity("A");
    const GxDbObjectId b = drawing().addEntity("B");
    forEachAllocationFailure([&](FailurePoint& point) {
        GxapSelectSet set;
        const Ids nested = idVector({a, b, a});
        edit(set).select(a, GxDbObjectId(), -1, nullptr, &nested);
        const GxapSelectSet::ConstIterator it = set.begin();
        Ids ids;
        point.run([&] { it.getFilteredNestedFullPath(ids); });
        EXPECT_EQ(kvinmemory::openObjects(), 0);
        EXPECT_EQ(ids == nested, point.outcome().completed);
        EXPECT_TRUE(it.nestedEntFullPath() == nested);
    });
}

TEST_F(FailingPath, LeavesOtherOwnersTheirIds) {
    const GxDbObjectId a = drawing().addEntity("A");
    forEachAllocationFailure([&](FailurePoint& point) {
        GxapSelectSet set;
        const Ids nested = idVector({a});
        edit(set).select(a, GxDbObjectId(), -1, nullptr, &nested);
        const GxapSelectSet::ConstIterator it = set.begin();
        const Ids others = idVector({4, 5});
        Ids ids = others;
        point.run([&] { it.getFilteredNestedFullPath(ids); });
        EXPECT_TRUE(others == idVector({4, 5}));
        EXPECT_EQ(kvinmemory::openObjects(), 0);
    });
}

TEST_F(FailingPath, IsReplacedWithoutMemory) {
    forEachAllocationFailure(
        [](FailurePoint& point) {
            Filled filled(1);
            const Ids nested = idVector({1, 2});
            Iterator it = edit(filled.set).begin();
            point.run([&] { it.setNestedEntFullPath(nested); });
            EXPECT_EQ(it.nestedEntFullPath().data.block, nested.data.block);
        },
        Expect::None);
}

} // namespace
