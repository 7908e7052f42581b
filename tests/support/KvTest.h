// The fixture of tests that watch memory.
#pragma once

#include <cstdint>
#include <gtest/gtest.h>

namespace kvtest {

// Every test starts on a platform whose switches are put back, whose logs are on and whose memory is tracked,
// the sizes of new blocks too. It ends with the check that nothing was freed twice or to the wrong owner.
class KvTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Lets TearDown check as well that there are as many blocks of _kvMalloc and of `new`, paths and sharers
    // of the empty block as there are now. Whatever the fixture of a derived class holds is to be let go in
    // its own TearDown, before it calls this one.
    void expectNothingLeft();

private:
    struct Holdings {
        long mallocBlocks;
        long newBlocks;
        long paths;
        std::uint32_t emptyBlockCount;
    };
    static Holdings holdings();

    bool mExpectNothingLeft = false;
    Holdings mAtStart{};
    long mWrongDeletesAtStart = 0;
};

// Matrices that exist and were made by `new`, as far as the sizes of new blocks are tracked.
long liveNewMatrices();

} // namespace kvtest
