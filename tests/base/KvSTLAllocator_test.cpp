#include "base/KvSTLAllocator.h"

#include "base/detail/NodePool.h"
#include "tests/support/AllocationFailure.h"
#include "tests/support/KvTest.h"
#include "tests/support/NewTracking.h"
#include "tests/support/Threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using Entry = std::pair<const long, unsigned long>;
using Index = std::multimap<long, unsigned long, std::less<long>, _KvSTLAllocator<Entry>>;

static_assert(std::is_same_v<_KvSTLAllocator<Entry>::value_type, Entry>);
static_assert(std::is_nothrow_default_constructible_v<_KvSTLAllocator<Entry>>);
static_assert(
    std::is_same_v<std::allocator_traits<_KvSTLAllocator<Entry>>::rebind_alloc<int>, _KvSTLAllocator<int>>);

struct alignas(16) Wide {
    std::uint64_t words[6];
};

class KvSTLAllocatorTest : public kvtest::KvTest {};
using KvSTLAllocatorThreads = kvtest::ThreadTest;

TEST_F(KvSTLAllocatorTest, AllAllocatorsAreEqual) {
    const _KvSTLAllocator<int> ints;
    const _KvSTLAllocator<long> longs(ints);
    EXPECT_TRUE(ints == longs);
    EXPECT_FALSE(ints != longs);
    EXPECT_TRUE(ints == _KvSTLAllocator<int>());
}

TEST_F(KvSTLAllocatorTest, MemoryOfOneAllocatorIsGivenBackThroughAnother) {
    _KvSTLAllocator<Entry> one;
    _KvSTLAllocator<Entry> other;
    Entry* memory = one.allocate(1);
    new (memory) Entry(1, 2);
    other.deallocate(memory, 1);
}

TEST_F(KvSTLAllocatorTest, ConstructsFromArgumentsAndDestroys) {
    const auto owner = std::make_shared<int>(7);
    using Owner = std::shared_ptr<int>;
    _KvSTLAllocator<Owner> allocator;
    Owner* const memory = allocator.allocate(1);
    allocator.construct(memory, owner);
    EXPECT_EQ(owner.use_count(), 2);
    allocator.destroy(memory);
    EXPECT_EQ(owner.use_count(), 1);
    allocator.deallocate(memory, 1);
}

TEST_F(KvSTLAllocatorTest, MemoryIsAlignedAndHeldByOneOwnerAtATime) {
    _KvSTLAllocator<Wide> allocator;
    std::vector<std::pair<Wide*, std::size_t>> owned;
    std::uint64_t stamp = 0;
    for (int round = 0; round < 5; ++round) {
        for (std::size_t n = 1; n <= 40; ++n) {
            Wide* memory = allocator.allocate(n);
            ASSERT_EQ(reinterpret_cast<std::uintptr_t>(memory) % alignof(Wide), 0u);
            for (std::size_t i = 0; i < n; ++i)
                new (memory + i) Wide{{stamp, stamp, stamp, stamp, stamp, stamp}};
            owned.emplace_back(memory, n);
            ++stamp;
        }
        for (std::size_t k = 0; k < owned.size(); k += 2) {
            allocator.deallocate(owned[k].first, owned[k].second);
            owned[k].first = nullptr;
        }
    }
    for (std::size_t k = 0; k < owned.size(); ++k) {
        const auto& [memory, n] = owned[k];
        for (std::size_t i = 0; memory && i < n; ++i) {
            ASSERT_EQ(memory[i].words[0], k);
            ASSERT_EQ(memory[i].words[5], k);
        }
        if (memory)
            allocator.deallocate(memory, n);
    }
}

TEST_F(KvSTLAllocatorTest, IndexOverItBehavesLikeAnyOther) {
    Index index;
    std::multimap<long, unsigned long> expected;
    for (unsigned long i = 0; i < 3000; ++i) {
        const long key = static_cast<long>(i * 7919 % 613);
        index.emplace(key, i);
        expected.emplace(key, i);
        if (i % 3 == 0) {
            index.erase(static_cast<long>(i % 401));
            expected.erase(static_cast<long>(i % 401));
        }
    }
    EXPECT_TRUE(std::equal(index.begin(), index.end(), expected.begin(), expected.end()));
}

TEST_F(KvSTLAllocatorTest, CopiedMovedAndSwappedIndexesKeepTheirEntries) {
    Index index{{1, 10}, {2, 20}};
    Index copy(index);
    Index moved(std::move(index));
    Index other{{3, 30}};
    moved.swap(other);
    EXPECT_EQ(copy, other);
    EXPECT_EQ(moved.size(), 1u);
    copy = moved;
    EXPECT_EQ(copy, moved);
}

TEST_F(KvSTLAllocatorTest, FillingAndClearingAgainAndAgainTakesNoMoreMemory) {
    const auto fillAndClear = [] {
        Index index;
        for (long i = 0; i < 500; ++i)
            index.emplace(i, 0);
    };
    fillAndClear();
    fillAndClear();
    const long settled = kvtest::liveNewBlocks();
    for (int i = 0; i < 50; ++i)
        fillAndClear();
    EXPECT_EQ(kvtest::liveNewBlocks(), settled);
}

TEST_F(KvSTLAllocatorTest, NumberBeyondTheAddressSpaceIsRefused) {
    _KvSTLAllocator<Entry> allocator;
    const std::size_t tooMany = std::numeric_limits<std::size_t>::max() / sizeof(Entry) + 2;
    EXPECT_THROW(static_cast<void>(allocator.allocate(tooMany)), std::bad_alloc);
}

TEST_F(KvSTLAllocatorTest, InsertionThatFailsLeavesTheIndexAsItWas) {
    kvtest::forEachAllocationFailure([](kvtest::FailurePoint& point) {
        Index index{{1, 10}, {2, 20}};
        const Index before(index);
        const kvtest::Outcome outcome = point.run([&] {
            for (long i = 0; i < 200; ++i)
                index.emplace(100 + i, 0);
        });
        EXPECT_EQ(outcome.failed, outcome.injected);
        index.erase(index.lower_bound(100), index.end());
        EXPECT_EQ(index, before);
    });
}

TEST_F(KvSTLAllocatorTest, FailureIsBadAlloc) {
    // A compiler may omit an allocation whose result is not used. Storing the result in a volatile variable
    // is a use.
    Wide* volatile memory = nullptr;
    _KvSTLAllocator<Wide> allocator;
    kvtest::failNew(1, false);
    EXPECT_THROW(memory = allocator.allocate(4096), std::bad_alloc);
    kvtest::allowNew();
    EXPECT_EQ(kvtest::failedNews(), 1);
    EXPECT_EQ(memory, nullptr);
}

TEST_F(KvSTLAllocatorTest, IndexIsGivenBackOnAnotherThread) {
    auto index = std::make_unique<Index>();
    for (long i = 0; i < 1000; ++i)
        index->emplace(i, 0);
    std::thread([&index] {
        index->emplace(5, 1);
        index.reset();
    }).join();
    Index next;
    for (long i = 0; i < 1000; ++i)
        next.emplace(i, 1);
    EXPECT_EQ(next.size(), 1000u);
}

TEST_F(KvSTLAllocatorTest, ThreadsFillAndClearIndexesOfTheirOwn) {
    std::vector<std::thread> threads;
    std::vector<std::size_t> sizes(4);
    for (std::size_t t = 0; t < sizes.size(); ++t) {
        threads.emplace_back([&sizes, t] {
            for (int round = 0; round < 10; ++round) {
                Index index;
                for (long i = 0; i < 300; ++i)
                    index.emplace(i, static_cast<unsigned long>(t));
                for (const auto& entry : index)
                    sizes[t] += entry.second == t ? 1u : 0u;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (const std::size_t size : sizes)
        EXPECT_EQ(size, 3000u);
}

// ---- with a pool

// Returns an index that is the only owner of its pool.
Index pooledIndex() {
    auto* const pool = new kvdetail::NodePool;
    Index index{_KvSTLAllocator<Entry>(pool)};
    pool->release();
    return index;
}

void fillWith(Index& index, long count) {
    for (long i = 0; i < count; ++i)
        index.emplace(i, 0);
}

TEST_F(KvSTLAllocatorTest, AllocatorsOfTwoPoolsDiffer) {
    const Index one = pooledIndex();
    const Index other = pooledIndex();
    EXPECT_FALSE(one.get_allocator() == other.get_allocator());
    EXPECT_TRUE(one.get_allocator() != _KvSTLAllocator<Entry>());
    EXPECT_TRUE(one.get_allocator() == one.get_allocator());
}

TEST_F(KvSTLAllocatorTest, PoolWhoseAddressNeedsMoreThanFortyEightBitsIsNotUsed) {
    auto* const far = reinterpret_cast<kvdetail::NodePool*>((std::uintptr_t{1} << 48) + 4096);
    _KvSTLAllocator<Entry> ofValues(far);
    EXPECT_EQ(ofValues.pool(), nullptr);
    _KvSTLAllocator<Wide> ofNodes(far);
    EXPECT_EQ(ofNodes.pool(), nullptr);
    Wide* const memory = ofNodes.allocate(1);
    *memory = Wide{};
    ofNodes.deallocate(memory, 1);
}

TEST_F(KvSTLAllocatorTest, NodesComeFromThePool) {
    Index index = pooledIndex();
    fillWith(index, 30);
    EXPECT_EQ(index.get_allocator().pool()->live(), 30u);
    index.erase(index.begin());
    EXPECT_EQ(index.get_allocator().pool()->live(), 29u);
}

TEST_F(KvSTLAllocatorTest, PoolGoesWithTheLastIndexThatUsesIt) {
    const long before = kvtest::liveNewBlocks();
    {
        Index moved;
        {
            Index index = pooledIndex();
            fillWith(index, 30);
            moved = std::move(index);
        }
        EXPECT_EQ(moved.size(), 30u);
        fillWith(moved, 30);
        EXPECT_EQ(moved.get_allocator().pool()->live(), 60u);
    }
    EXPECT_EQ(kvtest::liveNewBlocks(), before);
}

TEST_F(KvSTLAllocatorTest, EmptyIndexThatWasSwappedAwayIsFilledOnceItsPoolsOwnerIsGone) {
    Index mine;
    {
        Index index = pooledIndex();
        fillWith(index, 3);
        mine.swap(index);
    }
    mine.clear();
    fillWith(mine, 100);
    EXPECT_EQ(mine.size(), 100u);
}

TEST_F(KvSTLAllocatorTest, NodeThatOutlivesItsIndexIsGivenBack) {
    const long before = kvtest::liveNewBlocks();
    {
        Index::node_type node;
        {
            Index index = pooledIndex();
            fillWith(index, 3);
            node = index.extract(index.begin());
        }
        EXPECT_EQ(node.key(), 0);
    }
    EXPECT_EQ(kvtest::liveNewBlocks(), before);
}

TEST_F(KvSTLAllocatorTest, NodeTakenOutAndPutBackLeavesNothingBehindButATrace) {
    const long before = kvtest::liveNewBlocks();
    {
        Index index = pooledIndex();
        fillWith(index, 3);
        const std::uint64_t generation = index.get_allocator().pool()->generation();
        index.insert(index.extract(index.begin()));
        EXPECT_NE(index.get_allocator().pool()->generation(), generation);
        EXPECT_EQ(index.get_allocator().pool()->live(), 3u);
    }
    EXPECT_EQ(kvtest::liveNewBlocks(), before);
}

TEST_F(KvSTLAllocatorTest, EntryErasedAndInsertedAgainRaisesTheGeneration) {
    Index index = pooledIndex();
    fillWith(index, 3);
    const std::uint64_t filled = index.get_allocator().pool()->generation();
    index.erase(1);
    const std::uint64_t erased = index.get_allocator().pool()->generation();
    EXPECT_GT(erased, filled);
    index.emplace(1, 1);
    EXPECT_GT(index.get_allocator().pool()->generation(), erased);
    EXPECT_EQ(index.get_allocator().pool()->live(), 3u);
}

// Not for libc++: its assignment stores the new values in the old nodes, and calls no function of the
// allocator. So the generation cannot rise.
#ifndef _LIBCPP_VERSION
TEST_F(KvSTLAllocatorTest, AssignmentThatFillsTheOldNodesAnewRaisesTheGeneration) {
    Index index = pooledIndex();
    fillWith(index, 3);
    const Index other(index);
    const std::uint64_t filled = index.get_allocator().pool()->generation();
    index = other;
    const std::uint64_t assigned = index.get_allocator().pool()->generation();
    EXPECT_GT(assigned, filled);
    index = {{7, 1}, {8, 2}, {9, 3}};
    EXPECT_GT(index.get_allocator().pool()->generation(), assigned);
}
#endif

TEST_F(KvSTLAllocatorTest, ReadingTheAllocatorChangesNothing) {
    Index index = pooledIndex();
    fillWith(index, 3);
    const std::uint64_t generation = index.get_allocator().pool()->generation();
    const auto allocator = index.get_allocator();
    EXPECT_EQ(allocator.pool()->generation(), generation);
}

TEST_F(KvSTLAllocatorTest, CopyTakesNoPartInThePool) {
    Index index = pooledIndex();
    fillWith(index, 10);
    const Index copy(index);
    EXPECT_EQ(copy.get_allocator().pool(), nullptr);
    EXPECT_EQ(index.get_allocator().pool()->live(), 10u);
    EXPECT_EQ(copy, index);
}

TEST_F(KvSTLAllocatorTest, PooledInsertionThatFailsLeavesTheIndexAsItWas) {
    kvtest::forEachAllocationFailure([](kvtest::FailurePoint& point) {
        Index index = pooledIndex();
        const kvtest::Outcome outcome = point.run([&index] { fillWith(index, 3000); });
        EXPECT_EQ(outcome.failed, outcome.injected);
        EXPECT_EQ(index.get_allocator().pool()->live(), index.size());
        long expected = 0;
        for (const auto& entry : index)
            EXPECT_EQ(entry.first, expected++);
    });
}

// The flag is relaxed and does not order the threads. The pool itself must order what the index did before
// its own deletion.
TEST_F(KvSTLAllocatorThreads, PoolIsDeletedByAnOwnerOnAnotherThreadThanItsIndex) {
    for (int round = 0; round < 100; ++round) {
        auto* const pool = new kvdetail::NodePool;
        auto index = std::make_unique<Index>(_KvSTLAllocator<Entry>(pool));
        std::atomic<bool> isIndexGone{false};
        kvtest::onThreads(2, [&](std::size_t n) {
            if (n == 0) {
                fillWith(*index, 20);
                index.reset();
                isIndexGone.store(true, std::memory_order_relaxed);
                return;
            }
            while (!isIndexGone.load(std::memory_order_relaxed))
                std::this_thread::yield();
            pool->release();
        });
    }
}

} // namespace
