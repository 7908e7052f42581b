// Vectors that share a block, on several threads. The thread sanitizer reports data races.
#include "base/KvVector.h"

#include "tests/base/VectorValues.h"
#include "tests/support/Ids.h"
#include "tests/support/Threads.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using kvtest::contents;
using kvtest::filled;
using kvtest::onThreads;
using kvtest::shares;
using kvtest::values;
using kvtest::waitUntilOne;

constexpr std::size_t kThreads = 4;
constexpr int kRounds = 200;

template <class Vector>
class KvVectorThreadsOf : public kvtest::ThreadTest {};

// Returns whether the vector has the expected values. Allocates nothing: the locks of the allocator would
// order the threads and hide data races.
template <class Vector>
bool holds(const Vector& vector, const std::vector<kvtest::Element<Vector>>& expected) {
    if (static_cast<std::size_t>(vector.logicalLength()) != expected.size())
        return false;
    for (int i = 0; i < vector.logicalLength(); ++i) {
        if (!(vector.at(i) == expected[static_cast<std::size_t>(i)]))
            return false;
    }
    return true;
}

// Releases the block of a vector as the destructor does. Assigning an empty vector would also change the
// reference count of the empty block. Such a change would order the threads and hide data races.
template <class Vector>
void letGo(Vector& vector) {
    vector.data._release();
    vector.data.block = nullptr;
}

TYPED_TEST_SUITE(KvVectorThreadsOf, kvtest::VectorTypes, kvtest::VectorTypeName);

TYPED_TEST(KvVectorThreadsOf, HoldersThatAllReadAndThenLetGoTogetherFreeTheBlockOnce) {
    struct Holder {
        TypeParam vector;
        bool agreed = false;
    };
    const auto expected = values<TypeParam>({0, 1, 2, 3, 4});
    for (int round = 0; round < kRounds; ++round) {
        std::vector<Holder> holders;
        {
            const TypeParam original = filled<TypeParam>(5);
            holders.assign(kThreads, Holder{original, false});
        }
        onThreads(kThreads, [&](std::size_t n) {
            Holder& holder = holders[n];
            holder.agreed = holds(std::as_const(holder.vector), expected);
            letGo(holder.vector);
        });
        for (const Holder& holder : holders)
            ASSERT_TRUE(holder.agreed);
    }
}

TYPED_TEST(KvVectorThreadsOf, OwnerThatWaitsForAReaderToLetGoWritesInPlace) {
    const auto expected = values<TypeParam>({0, 1, 2});
    const auto replacement = kvtest::value<TypeParam>(50);
    for (int round = 0; round < kRounds; ++round) {
        TypeParam owner = filled<TypeParam>(3);
        const KvVectorBlock* block = owner.data.block;
        TypeParam lent(owner);
        bool agreed = false;
        std::thread reader([&lent, &agreed, &expected] {
            agreed = holds(std::as_const(lent), expected);
            letGo(lent);
        });
        waitUntilOne(owner.data.block->refCount);
        owner.at(1) = replacement;
        EXPECT_EQ(owner.data.block, block);
        reader.join();
        ASSERT_TRUE(agreed);
        ASSERT_EQ(contents(std::as_const(owner)), values<TypeParam>({0, 50, 2}));
    }
}

TYPED_TEST(KvVectorThreadsOf, OwnerThatWaitsForAReaderToLetGoFreesTheBlock) {
    const auto expected = values<TypeParam>({0, 1, 2});
    for (int round = 0; round < kRounds; ++round) {
        TypeParam owner = filled<TypeParam>(3);
        TypeParam lent(owner);
        bool agreed = false;
        std::thread reader([&lent, &agreed, &expected] {
            agreed = holds(std::as_const(lent), expected);
            letGo(lent);
        });
        waitUntilOne(owner.data.block->refCount);
        letGo(owner);
        reader.join();
        ASSERT_TRUE(agreed);
    }
}

TYPED_TEST(KvVectorThreadsOf, WritersMakeCopiesOfTheirOwnWhileOthersRead) {
    const TypeParam original = filled<TypeParam>(4);
    std::vector<TypeParam> holders(kThreads, original);
    onThreads(kThreads, [&](std::size_t n) {
        const TypeParam& holder = holders[n];
        for (int i = 0; i < kRounds; ++i) {
            TypeParam copy(holder);
            copy.at(static_cast<int>(n % 4)) = kvtest::value<TypeParam>(i);
            copy.setLogicalLength(4 + i % 9);
            copy = holder;
            copy.removeAt(1);
        }
    });
    EXPECT_EQ(contents(original), values<TypeParam>({0, 1, 2, 3}));
    EXPECT_EQ(shares(original), kThreads + 1);
}

TYPED_TEST(KvVectorThreadsOf, EmptyBlockIsCountedRightByAllThreads) {
    const std::uint32_t before = kvtest::emptyBlockCount();
    onThreads(kThreads, [](std::size_t) {
        for (int i = 0; i < kRounds; ++i) {
            TypeParam vector;
            TypeParam copy(vector);
            copy.setLogicalLength(1);
            copy = vector;
        }
    });
    EXPECT_EQ(kvtest::emptyBlockCount(), before);
}

} // namespace
