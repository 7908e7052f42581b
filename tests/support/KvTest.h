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
// At the end of a test, double frees, foreign frees and wrong deletes are failures.
//
// Thread safety: SetUp and TearDown run while the test has no other thread.
class KvTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Turns the leak check of TearDown on. It compares four counts with those of this moment: live blocks of
    // _kvMalloc, live blocks of `new`, paths, and the reference count of the empty block.
    // A derived fixture releases its members in its own TearDown before it calls this one.
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

// The number of live matrices that were made by `new` while the sizes of new blocks are tracked.
long liveNewMatrices();

} // namespace kvtest
