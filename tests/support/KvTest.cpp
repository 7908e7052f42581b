#include "tests/support/KvTest.h"

#include "platform/KvGeometry.h"
#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/support/Ids.h"
#include "tests/support/NewTracking.h"

namespace kvtest {

namespace {

// Nests traces. The test framework allocates memory for the deepest nesting so far, and keeps that memory. So
// SetUp() nests traces before the leak check counts the live blocks.
void reserveTraces(int depth) {
    if (depth == 0)
        return;
    SCOPED_TRACE("");
    reserveTraces(depth - 1);
}

constexpr int kDeepestTrace = 16;

} // namespace

void KvTest::SetUp() {
    reserveTraces(kDeepestTrace);
    mExpectNothingLeft = false;
    kvinmemory::resetAll();
    kvinmemory::setLogging(true);
    kvinmemory::trackMemory(true);
    trackNewSizes(true);
    allowNew();
    mWrongDeletesAtStart = wrongDeletes();
}

void KvTest::TearDown() {
    if (mExpectNothingLeft && !IsSkipped()) { // the message of a skipped test takes memory
        const LiveCounts now = liveCounts();
        EXPECT_EQ(now.mallocBlocks, mAtStart.mallocBlocks) << "blocks of _kvMalloc";
        EXPECT_EQ(now.newBlocks, mAtStart.newBlocks) << "blocks of operator new";
        EXPECT_EQ(now.paths, mAtStart.paths) << "sub-entity paths";
        EXPECT_EQ(now.emptyBlockCount, mAtStart.emptyBlockCount) << "sharers of the empty block";
    }
    EXPECT_EQ(kvinmemory::doubleFrees(), 0) << "blocks given to _kvFree twice";
    EXPECT_EQ(kvinmemory::foreignFrees(), 0) << "pointers given to _kvFree that are not of _kvMalloc";
    EXPECT_EQ(wrongDeletes(), mWrongDeletesAtStart) << "blocks given to a wrong operator delete";
    allowNew();
    trackNewSizes(false);
    kvinmemory::resetAll();
}

void KvTest::expectNothingLeft() {
    mExpectNothingLeft = true;
    mAtStart = liveCounts();
}

KvTest::LiveCounts KvTest::liveCounts() {
    return {kvinmemory::liveBlocks(), liveNewBlocks(), kvinmemory::livePaths(), emptyBlockCount()};
}

long liveNewMatrices() {
    return liveNewBlocksOfSize(sizeof(GxGeMatrix3d));
}

} // namespace kvtest
