#include "base/detail/HugePages.h"

#include "tests/support/KvTest.h"
#include "tests/support/NewTracking.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <limits>
#include <new>
#include <sstream>
#include <string>
#include <vector>

namespace {

using kvdetail::kHugePageBytes;
using Allocator = kvdetail::HugePageAllocator<std::uint64_t>;

constexpr std::size_t kNumbersInAHugePage = kHugePageBytes / sizeof(std::uint64_t);

class KvLargeBlocksTest : public kvtest::KvTest {};

bool beginsWithAHugePage(const void* memory) {
    return reinterpret_cast<std::uintptr_t>(memory) % kHugePageBytes == 0;
}

TEST_F(KvLargeBlocksTest, BlockBeginsWithAHugePageAndIsAllThere) {
    const std::size_t bytes = kHugePageBytes + 100;
    void* const memory = kvdetail::allocateHugePages(bytes);
    EXPECT_TRUE(beginsWithAHugePage(memory));
    std::memset(memory, 1, bytes);
    kvdetail::deallocateHugePages(memory);
}

// The flags that the system keeps for the memory at this address; empty where it tells none.
std::string flagsOf(const void* memory) {
    std::ifstream maps("/proc/self/smaps");
    std::string line;
    bool isHere = false;
    while (std::getline(maps, line)) {
        std::uintptr_t first = 0;
        std::uintptr_t last = 0;
        char dash = 0;
        std::istringstream range(line);
        if (range >> std::hex >> first >> dash >> last && dash == '-')
            isHere = first <= reinterpret_cast<std::uintptr_t>(memory) &&
                     reinterpret_cast<std::uintptr_t>(memory) < last;
        else if (isHere && line.rfind("VmFlags:", 0) == 0)
            return line;
    }
    return "";
}

TEST_F(KvLargeBlocksTest, SystemIsAskedForHugePages) {
    if (!std::ifstream("/sys/kernel/mm/transparent_hugepage/enabled"))
        GTEST_SKIP() << "a system without huge pages";
    void* const memory = kvdetail::allocateHugePages(kHugePageBytes);
    const std::string flags = flagsOf(memory);
    kvdetail::deallocateHugePages(memory);
    if (flags.empty())
        GTEST_SKIP() << "a system that tells no flags";
    EXPECT_NE(flags.find(" hg"), std::string::npos) << flags;
}

TEST_F(KvLargeBlocksTest, BlockWithoutMemoryIsRefused) {
    kvtest::failNew(1, false);
    EXPECT_THROW(static_cast<void>(kvdetail::allocateHugePages(kHugePageBytes)), std::bad_alloc);
    kvtest::allowNew();
}

TEST_F(KvLargeBlocksTest, ArrayOfAHugePageIsALargeBlock) {
    Allocator allocator;
    std::uint64_t* const array = allocator.allocate(kNumbersInAHugePage);
    EXPECT_EQ(beginsWithAHugePage(array), kvdetail::kHasHugePages);
    allocator.deallocate(array, kNumbersInAHugePage);
}

TEST_F(KvLargeBlocksTest, SmallerArrayTakesNoHugePage) {
    Allocator allocator;
    std::uint64_t* const array = allocator.allocate(kNumbersInAHugePage - 1);
    EXPECT_FALSE(beginsWithAHugePage(array));
    allocator.deallocate(array, kNumbersInAHugePage - 1);
}

TEST_F(KvLargeBlocksTest, ArrayBeyondAllMemoryIsRefused) {
    Allocator allocator;
    const std::size_t most = std::numeric_limits<std::size_t>::max();
    EXPECT_THROW(static_cast<void>(allocator.allocate(most)), std::bad_alloc);
    EXPECT_THROW(static_cast<void>(allocator.allocate(most / sizeof(std::uint64_t) + 2)), std::bad_alloc);
}

TEST_F(KvLargeBlocksTest, VectorGrowsAcrossTheBoundaryAndKeepsItsNumbers) {
    std::vector<std::uint64_t, Allocator> numbers;
    for (std::uint64_t i = 0; i < 3 * kNumbersInAHugePage; ++i)
        numbers.push_back(i);
    std::vector<std::uint64_t, Allocator> others(10, 7);
    numbers.swap(others);
    EXPECT_EQ(numbers.size(), 10u);
    ASSERT_EQ(others.size(), 3 * kNumbersInAHugePage);
    for (std::uint64_t i = 0; i < others.size(); ++i)
        ASSERT_EQ(others[i], i);
}

} // namespace
