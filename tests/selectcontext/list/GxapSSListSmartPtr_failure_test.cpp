// Makes handles, and the process-wide handle of the manager, while each allocation fails in turn. Nothing
// leaks.
#include "tests/selectcontext/support/SetTestSupport.h"
#include "tests/support/AllocationFailure.h"

#include <gtest/gtest.h>
#include <optional>

namespace {

using kvtest::Expect;
using kvtest::FailurePoint;
using kvtest::forEachAllocationFailure;
using Handle = GxapSSListSmartPtr;
using Manager = GxapSelectSetListManager;

class FailingHandle : public kvtest::SetTest {
protected:
    void TearDown() override {
        Manager::destroy();
        SetTest::TearDown();
    }
};

TEST_F(FailingHandle, LeavesNothingBehind) {
    forEachAllocationFailure([](FailurePoint& point) {
        std::optional<Handle> handle;
        point.run([&] { handle.emplace(); });
        EXPECT_EQ(handle.has_value(), point.outcome().completed);
    });
}

TEST_F(FailingHandle, IsCopiedAssignedAndReleasedWithoutMemory) {
    forEachAllocationFailure(
        [](FailurePoint& point) {
            const Handle handle;
            Handle assigned;
            point.run([&] {
                Handle copy(handle);
                assigned = copy;
                copy.release();
            });
            EXPECT_EQ(assigned.list, handle.list);
            EXPECT_EQ(*handle.refCount, 2);
        },
        Expect::None);
}

TEST_F(FailingHandle, OfTheManagerIsThereOrNot) {
    forEachAllocationFailure([](FailurePoint& point) {
        Handle* handle = nullptr;
        point.run([&] { handle = Manager::getInstance(); });
        EXPECT_EQ(handle != nullptr, point.outcome().completed);
        EXPECT_EQ(Manager::s_smartPtrSSList, handle);
        Manager::destroy();
    });
}

} // namespace
