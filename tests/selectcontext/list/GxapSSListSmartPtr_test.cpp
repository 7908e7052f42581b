// Tests the counted handle of the list of named sets.
#include "tests/selectcontext/list/Name.h"
#include "tests/selectcontext/support/RecordTestSupport.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

using kvinmemory::isLiveBlock;
using kvtest::Name;
using Handle = GxapSSListSmartPtr;

class ListHandle : public kvtest::SetTest {
protected:
    // Adds a set to the list of the handle. The set lives as long as the list. So tests look at the set to
    // see whether the list was destroyed.
    static const GxapSelectSet* addSet(const Handle& handle) {
        Name name;
        return handle.list->newSelectSet(name);
    }
};

TEST_F(ListHandle, BeginsWithAFreshListAndACountOfOne) {
    const Handle handle;
    ASSERT_NE(handle.list, nullptr);
    ASSERT_NE(handle.refCount, nullptr);
    EXPECT_TRUE(handle.list->sets.empty());
    EXPECT_EQ(*handle.refCount, 1);
}

TEST_F(ListHandle, HasAListOfItsOwn) {
    const Handle a, b;
    EXPECT_NE(a.list, b.list);
    EXPECT_NE(a.refCount, b.refCount);
}

TEST_F(ListHandle, CopiesShareListAndCount) {
    const Handle handle;
    const Handle copy(handle);
    const Handle fromPointer(&handle);
    EXPECT_EQ(copy.list, handle.list);
    EXPECT_EQ(fromPointer.list, handle.list);
    EXPECT_EQ(copy.refCount, handle.refCount);
    EXPECT_EQ(fromPointer.refCount, handle.refCount);
    EXPECT_EQ(*handle.refCount, 3);
}

TEST_F(ListHandle, OfANullPointerHoldsNothingAndIsReleasedHarmlessly) {
    Handle handle(static_cast<const Handle*>(nullptr));
    EXPECT_EQ(handle.list, nullptr);
    EXPECT_EQ(handle.refCount, nullptr);
    handle.release();
    EXPECT_EQ(handle.list, nullptr);
    const Handle copy(handle);
    EXPECT_EQ(copy.list, nullptr);
    EXPECT_EQ(copy.refCount, nullptr);
}

TEST_F(ListHandle, ReleasedAloneDestroysTheList) {
    Handle handle;
    const GxapSelectSet* const set = addSet(handle);
    handle.release();
    EXPECT_FALSE(isLiveBlock(set));
    EXPECT_EQ(handle.list, nullptr);
    EXPECT_EQ(handle.refCount, nullptr);
    handle.release();
}

TEST_F(ListHandle, DestroyedAloneDestroysTheList) {
    const GxapSelectSet* set = nullptr;
    {
        const Handle handle;
        set = addSet(handle);
    }
    EXPECT_FALSE(isLiveBlock(set));
}

TEST_F(ListHandle, ReleasedBesideOthersLeavesThemTheList) {
    Handle handle;
    const Handle copy(handle);
    const GxapSelectSet* const set = addSet(handle);
    handle.release();
    EXPECT_EQ(*copy.refCount, 1);
    EXPECT_TRUE(isLiveBlock(set));
    EXPECT_EQ(handle.list, nullptr);
    EXPECT_EQ(handle.refCount, nullptr);
}

TEST_F(ListHandle, AssignedLetsTheOldListGo) {
    Handle handle;
    const Handle other;
    const GxapSelectSet* const set = addSet(handle);
    EXPECT_EQ(&handle.assign(other), &handle);
    EXPECT_FALSE(isLiveBlock(set));
    EXPECT_EQ(handle.list, other.list);
    EXPECT_EQ(*other.refCount, 2);
}

TEST_F(ListHandle, AssignedByOperatorIsAssigned) {
    Handle handle;
    const Handle other;
    EXPECT_EQ(&(handle = other), &handle);
    EXPECT_EQ(handle.list, other.list);
    EXPECT_EQ(handle.refCount, other.refCount);
    EXPECT_EQ(*other.refCount, 2);
}

TEST_F(ListHandle, AssignedToItselfChangesNothing) {
    Handle handle;
    const GxapSelectSet* const set = addSet(handle);
    const Handle& same = handle;
    EXPECT_EQ(&handle.assign(same), &handle);
    handle = same;
    EXPECT_EQ(*handle.refCount, 1);
    EXPECT_TRUE(isLiveBlock(set));
}

TEST_F(ListHandle, AssignedASharerKeepsTheCount) {
    Handle handle;
    const Handle sharer(handle);
    handle.assign(sharer);
    EXPECT_EQ(handle.list, sharer.list);
    EXPECT_EQ(*sharer.refCount, 2);
}

TEST_F(ListHandle, AssignedNothingHoldsNothing) {
    Handle handle;
    const Handle nothing(static_cast<const Handle*>(nullptr));
    const GxapSelectSet* const set = addSet(handle);
    handle = nothing;
    EXPECT_EQ(handle.list, nullptr);
    EXPECT_EQ(handle.refCount, nullptr);
    EXPECT_FALSE(isLiveBlock(set));
}

TEST_F(ListHandle, WithoutACountOwnsNothing) {
    GxapSelectSetList list;
    Handle handle(static_cast<const Handle*>(nullptr));
    handle.list = &list;
    Handle copy(handle);
    EXPECT_EQ(copy.list, &list);
    EXPECT_EQ(copy.refCount, nullptr);
    copy.release();
    EXPECT_EQ(copy.list, nullptr);
}

TEST_F(ListHandle, WithoutAListFreesTheCountAndCountsNoCopy) {
    Handle handle(static_cast<const Handle*>(nullptr));
    handle.refCount = new std::int32_t(1);
    {
        Handle copy(handle);
        EXPECT_EQ(copy.refCount, handle.refCount);
        EXPECT_EQ(*handle.refCount, 1);
        copy.refCount = nullptr; // `copy` was not counted, so its destructor must not lower the count
    }
    handle.release();
    EXPECT_EQ(handle.refCount, nullptr);
}

} // namespace
