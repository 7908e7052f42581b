// Tests two readers of shared data that make a hash of the ids at the same time, on a platform whose
// comparison of ids waits for both of them.
#include "selectcontext/detail/IdIndex.h"

#include "selectcontext/detail/SetData.h"
#include "tests/selectcontext/support/SetTestSupport.h"
#include "tests/support/Threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <thread>

namespace {

// Number of readers that the next comparisons wait for. The accesses are relaxed and do not order the
// threads.
std::atomic<int> gAwaited{0};

// Waits until as many comparisons have begun as gAwaited said.
void awaitReaders() {
    if (gAwaited.load(std::memory_order_relaxed) <= 0)
        return;
    gAwaited.fetch_sub(1, std::memory_order_relaxed);
    while (gAwaited.load(std::memory_order_relaxed) > 0)
        std::this_thread::yield();
}

} // namespace

// Replaces the platform's comparison of different stubs.
bool c5ObjIdIsEqualTo(const GxDbStub* a, const GxDbStub* b) noexcept {
    awaitReaders();
    return a == b;
}

namespace {

using kvdetail::IdIndex;
using kvtest::id;

constexpr unsigned long kCount = 200; // few enough to be hashed in one step
constexpr int kRounds = 20;

class IdIndexThreads : public kvtest::ThreadTest {
protected:
    void SetUp() override {
        ThreadTest::SetUp();
        expectNothingLeft();
    }
};

TEST_F(IdIndexThreads, OneOfTwoHashesIsPublishedAndTheOtherIsDeleted) {
    if (!kvdetail::kHasIdHash)
        GTEST_SKIP() << "this build has no hash of ids";
    for (int round = 0; round < kRounds; ++round) {
        GxapSelectSet set;
        kvtest::appendIds(set, 1, kCount);
        const IdIndex& index = kvdetail::indexOf(*set.sharedData);
        gAwaited.store(2);
        kvtest::onThreads(2, [&index](std::size_t) {
            index.expectSearches();
            EXPECT_TRUE(index.find(id(kCount)).isHeld);
        });
        EXPECT_NE(index.currentHash(), nullptr);
    }
}

} // namespace
