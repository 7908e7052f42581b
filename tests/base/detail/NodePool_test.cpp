#include "base/detail/NodePool.h"

#include "tests/support/AllocationFailure.h"
#include "tests/support/KvTest.h"
#include "tests/support/NewTracking.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <set>
#include <vector>

namespace {

constexpr std::size_t kNodeBytes = 48;

class NodePoolTest : public kvtest::KvTest {
protected:
    void SetUp() override {
        KvTest::SetUp();
        expectNothingLeft();
        pool = new kvdetail::NodePool;
    }

    void TearDown() override {
        pool->release();
        KvTest::TearDown();
    }

    std::vector<void*> take(std::size_t count) {
        std::vector<void*> nodes;
        for (std::size_t i = 0; i < count; ++i)
            nodes.push_back(pool->allocate(kNodeBytes));
        return nodes;
    }

    void give(const std::vector<void*>& nodes) {
        for (void* node : nodes)
            pool->deallocate(node, kNodeBytes);
    }

    kvdetail::NodePool* pool = nullptr;
};

TEST_F(NodePoolTest, NewPoolTakesNoMemory) {
    const long before = kvtest::newCalls();
    EXPECT_EQ(pool->live(), 0u);
    EXPECT_EQ(kvtest::newCalls(), before);
}

TEST_F(NodePoolTest, NodesAreAlignedAndDoNotOverlap) {
    const std::vector<void*> nodes = take(5000);
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        ASSERT_EQ(reinterpret_cast<std::uintptr_t>(nodes[i]) % alignof(std::max_align_t), 0u);
        std::memset(nodes[i], static_cast<int>(i % 251), kNodeBytes);
    }
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const auto* const bytes = static_cast<const unsigned char*>(nodes[i]);
        ASSERT_EQ(bytes[0], i % 251);
        ASSERT_EQ(bytes[kNodeBytes - 1], i % 251);
    }
    give(nodes);
}

TEST_F(NodePoolTest, LiveCountsTheNodesThatAreOut) {
    const std::vector<void*> nodes = take(3);
    EXPECT_EQ(pool->live(), 3u);
    give({nodes[1]});
    EXPECT_EQ(pool->live(), 2u);
    give({nodes[0], nodes[2]});
    EXPECT_EQ(pool->live(), 0u);
}

TEST_F(NodePoolTest, FreedNodesAreHandedOutAgainBeforeFreshMemoryUnlessTheyArePoisoned) {
    const std::vector<void*> nodes = take(100);
    give(nodes);
    const long before = kvtest::newCalls();
    const std::vector<void*> again = take(100);
    EXPECT_LT(kvtest::newCalls() - before, 20) << "room for the test's own list";
    EXPECT_EQ(std::set<void*>(again.begin(), again.end()) == std::set<void*>(nodes.begin(), nodes.end()),
              kvdetail::kReusesNodes);
    give(again);
}

#if KV_ADDRESS_SANITIZER
TEST_F(NodePoolTest, NodeThatWasGivenBackIsPoisoned) {
    const std::vector<void*> nodes = take(3);
    EXPECT_EQ(__asan_region_is_poisoned(nodes[1], kNodeBytes), nullptr);
    give({nodes[1]});
    EXPECT_EQ(__asan_region_is_poisoned(nodes[1], kNodeBytes), nodes[1]);
    EXPECT_EQ(__asan_region_is_poisoned(nodes[2], kNodeBytes), nullptr);
    give({nodes[0], nodes[2]});
}
#endif

TEST_F(NodePoolTest, ManyNodesTakeFewBlocks) {
    const long before = kvtest::liveNewBlocks();
    const std::vector<void*> nodes = take(10000);
    EXPECT_LT(kvtest::liveNewBlocks() - before, 30);
    give(nodes);
}

// Enough nodes for hundreds of chunks.
constexpr std::size_t kManyNodes = 300000;

TEST_F(NodePoolTest, AbandonedNodesOfManyChunksAreAllFreed) {
    const long before = kvtest::liveNewBlocks();
    static_cast<void>(take(kManyNodes).size());
    pool->addOwner(); // for the container that is abandoned
    pool->reclaimAbandoned();
    EXPECT_EQ(kvtest::liveNewBlocks(), before);
}

TEST_F(NodePoolTest, LargePoolThatCannotGrowIsAsItWas) {
    auto* const growing = new kvdetail::NodePool;
    std::vector<void*> nodes;
    nodes.reserve(2 * kManyNodes);
    while (nodes.size() < kManyNodes)
        nodes.push_back(growing->allocate(kNodeBytes));
    kvtest::failNew(1, true);
    EXPECT_THROW(
        {
            while (nodes.size() < 2 * kManyNodes)
                nodes.push_back(growing->allocate(kNodeBytes));
        },
        std::bad_alloc);
    kvtest::allowNew();
    EXPECT_EQ(growing->live(), nodes.size());
    nodes.push_back(growing->allocate(kNodeBytes));
    EXPECT_EQ(std::set<void*>(nodes.begin(), nodes.end()).size(), nodes.size());
    for (void* node : nodes)
        growing->deallocate(node, kNodeBytes);
    growing->release();
}

TEST_F(NodePoolTest, RequestOfAnotherSizeIsNoNode) {
    const std::vector<void*> nodes = take(1);
    void* const array = pool->allocate(10 * kNodeBytes);
    EXPECT_EQ(pool->live(), 1u);
    std::memset(array, 1, 10 * kNodeBytes);
    pool->deallocate(array, 10 * kNodeBytes);
    EXPECT_EQ(pool->live(), 1u);
    give(nodes);
}

TEST_F(NodePoolTest, FirstRequestOfNothingOrOfTooMuchIsServed) {
    void* const nothing = pool->allocate(0);
    EXPECT_NE(nothing, nullptr);
    pool->deallocate(nothing, 0);
    auto* const other = new kvdetail::NodePool;
    void* const array = other->allocate(1000000);
    EXPECT_EQ(other->live(), 0u);
    void* const node = other->allocate(kNodeBytes);
    EXPECT_EQ(other->live(), 1u);
    const volatile std::size_t beyondAllMemory = std::numeric_limits<std::size_t>::max() - 7;
    other->deallocate(node, kNodeBytes);
    other->deallocate(array, 1000000);
    kvtest::failNew(1, false); // counts the request if it reaches operator new
    EXPECT_THROW(static_cast<void>(other->allocate(beyondAllMemory)), std::bad_alloc);
    kvtest::allowNew();
    EXPECT_EQ(kvtest::failedNews(), 1);
    other->release();
}

TEST_F(NodePoolTest, ReclaimingTakesAllNodesBackAndFreesTheirMemory) {
    const long before = kvtest::liveNewBlocks();
    const std::uint64_t generation = pool->generation();
    static_cast<void>(take(3000).size());
    pool->addOwner(); // for the container that is abandoned
    pool->reclaimAbandoned();
    EXPECT_EQ(pool->live(), 0u);
    EXPECT_NE(pool->generation(), generation);
    EXPECT_EQ(kvtest::liveNewBlocks(), before);
    const std::vector<void*> nodes = take(50);
    EXPECT_EQ(std::set<void*>(nodes.begin(), nodes.end()).size(), 50u);
    give(nodes);
}

TEST_F(NodePoolTest, PoolLivesUntilItsLastOwnerLetsItGo) {
    pool->addOwner();
    pool->release();
    const std::vector<void*> nodes = take(20);
    EXPECT_EQ(pool->live(), 20u);
    give(nodes);
}

TEST_F(NodePoolTest, PoolWithoutOwnersLivesUntilItsLastNodeIsGivenBack) {
    const long before = kvtest::liveNewBlocks();
    auto* const other = new kvdetail::NodePool;
    void* nodes[100];
    for (void*& node : nodes)
        node = other->allocate(kNodeBytes);
    other->release();
    for (void* node : nodes) {
        EXPECT_GT(kvtest::liveNewBlocks(), before);
        other->deallocate(node, kNodeBytes);
    }
    EXPECT_EQ(kvtest::liveNewBlocks(), before);
}

TEST_F(NodePoolTest, ChangeRaisesTheGeneration) {
    const std::uint64_t generation = pool->generation();
    pool->noteChanged();
    EXPECT_NE(pool->generation(), generation);
    EXPECT_EQ(pool->live(), 0u);
}

TEST_F(NodePoolTest, PoolThatCannotGrowIsAsItWas) {
    kvtest::forEachAllocationFailure([](kvtest::FailurePoint& point) {
        auto* const growing = new kvdetail::NodePool;
        std::vector<void*> nodes;
        nodes.reserve(4000);
        const kvtest::Outcome outcome = point.run([&] {
            while (nodes.size() < 4000)
                nodes.push_back(growing->allocate(kNodeBytes));
        });
        EXPECT_EQ(outcome.failed, outcome.injected);
        EXPECT_EQ(growing->live(), nodes.size());
        nodes.push_back(growing->allocate(kNodeBytes));
        EXPECT_EQ(std::set<void*>(nodes.begin(), nodes.end()).size(), nodes.size());
        for (void* node : nodes)
            growing->deallocate(node, kNodeBytes);
        EXPECT_EQ(growing->live(), 0u);
        growing->release();
    });
}

} // namespace
