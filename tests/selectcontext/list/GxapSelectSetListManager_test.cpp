// Tests the manager of the process-wide list of named sets.
#include "platform/inmemory/InMemoryOsBase.h"
#include "tests/selectcontext/list/Name.h"
#include "tests/selectcontext/support/SetTestSupport.h"

#include <gtest/gtest.h>

namespace {

using kvinmemory::isLiveBlock;
using kvtest::Name;
using Handle = GxapSSListSmartPtr;
using Manager = GxapSelectSetListManager;

class ListManager : public kvtest::SetTest {
protected:
    void TearDown() override {
        Manager::destroy();
        SetTest::TearDown();
    }
};

TEST_F(ListManager, HasNoHandleUntilItIsAskedFor) {
    EXPECT_EQ(Manager::s_smartPtrSSList, nullptr);
    Handle* const handle = Manager::getInstance();
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(Manager::s_smartPtrSSList, handle);
    ASSERT_NE(handle->list, nullptr);
    EXPECT_TRUE(handle->list->sets.empty());
    EXPECT_EQ(*handle->refCount, 1);
}

TEST_F(ListManager, AnswersTheSameHandleHoweverItIsAskedFor) {
    Handle* const handle = Manager::newInstance();
    EXPECT_EQ(Manager::getInstance(), handle);
    EXPECT_EQ(Manager::newInstance(), handle);
    EXPECT_EQ(*handle->refCount, 1);
}

TEST_F(ListManager, DestroyedHasNoHandleAndNoSets) {
    Name name;
    const GxapSelectSet* const set = Manager::getInstance()->list->newSelectSet(name);
    Manager::destroy();
    EXPECT_EQ(Manager::s_smartPtrSSList, nullptr);
    EXPECT_FALSE(isLiveBlock(set));
    Manager::destroy();
    EXPECT_EQ(Manager::s_smartPtrSSList, nullptr);
}

TEST_F(ListManager, BeginsAnewAfterItsDestruction) {
    Name name;
    Manager::getInstance()->list->newSelectSet(name);
    Manager::destroy();
    ASSERT_NE(Manager::getInstance(), nullptr);
    EXPECT_TRUE(Manager::getInstance()->list->sets.empty());
}

TEST_F(ListManager, LeavesTheListToTheHandlesThatCallersKeep) {
    Name name;
    const Handle kept(Manager::getInstance());
    GxapSelectSet* const set = kept.list->newSelectSet(name);
    Manager::destroy();
    EXPECT_EQ(*kept.refCount, 1);
    EXPECT_TRUE(isLiveBlock(set));
    EXPECT_EQ(kept.list->getSSetByName(name), set);
    EXPECT_NE(Manager::getInstance()->list, kept.list);
}

TEST_F(ListManager, LeavesTheLockToItsCallers) {
    Name name;
    {
        const Handle kept(*Manager::getInstance());
        kept.list->newSelectSet(name);
        kept.list->getSSetByName(name);
        kept.list->delSelectSet(name);
    }
    Manager::destroy();
    EXPECT_TRUE(kvinmemory::lockCalls().empty());
}

TEST_F(ListManager, OffersALockThatWorks) {
    Manager::s_locker.lock();
    Manager::s_locker.unlock();
    const auto taken = kvinmemory::lockCalls();
    ASSERT_EQ(taken.size(), 2u);
    EXPECT_EQ(taken[0].locker, &Manager::s_locker);
    EXPECT_TRUE(taken[0].isLock);
    EXPECT_FALSE(taken[1].isLock);
}

} // namespace
