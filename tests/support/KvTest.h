// The fixture of tests that check memory.
#pragma once

#include <cstdint>
#include <gtest/gtest.h>

namespace kvtest {

// Resets the platform before and after every test.
//
// Invariants during a test:
//  1. The logs are on.
//  2. The memory of _kvMalloc and the sizes of new blocks are tracked.
//
// A test fails if it frees a block twice, gives _kvFree a pointer that is not of _kvMalloc, or calls a wrong
// operator delete.
//
// Thread safety: the test must have no other thread during SetUp and TearDown.
class KvTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Turns on the leak check. TearDown() then compares four counts with those at this call: live blocks of
    // _kvMalloc, live blocks of `new`, paths, and the reference count of the empty block. A derived fixture
    // must release its members in its own TearDown() before it calls KvTest::TearDown().
    void expectNothingLeft();

private:
    struct LiveCounts {
        long mallocBlocks;
        long newBlocks;
        long paths;
        std::uint32_t emptyBlockCount;
    };
    static LiveCounts liveCounts();

    bool mExpectNothingLeft = false;
    LiveCounts mAtStart{};
    long mWrongDeletesAtStart = 0;
};

// Returns the number of live matrices that `new` made while the sizes of new blocks were tracked.
long liveNewMatrices();

} // namespace kvtest
