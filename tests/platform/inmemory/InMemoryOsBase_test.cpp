#include "platform/inmemory/InMemoryOsBase.h"

#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/support/Ids.h"
#include "tests/support/KvTest.h"
#include "tests/support/Mistakes.h"

#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

namespace {

using namespace kvinmemory;

// Resets the platform before and after every test, and checks nothing. These tests make wrong frees, which
// kvtest::KvTest would report as failures.
//
// Thread safety: the test must have no other thread during SetUp and TearDown.
class InMemoryOsBase : public ::testing::Test {
protected:
    void SetUp() override { resetAll(); }
    void TearDown() override { resetAll(); }
};

using InMemoryMemory = InMemoryOsBase;
using InMemoryRecorder = InMemoryOsBase;
using InMemoryLock = InMemoryOsBase;
using InMemoryReset = InMemoryOsBase;

// ---- Counting

TEST_F(InMemoryMemory, NothingIsCountedUnlessTrackingIsOn) {
    _kvFree(_kvMalloc(8));
    EXPECT_FALSE(isTrackingMemory());
    EXPECT_EQ(mallocCalls(), 0);
    EXPECT_EQ(freeCalls(), 0);
}

TEST_F(InMemoryMemory, CallsAndBlocksAreCountedBySize) {
    trackMemory(true);
    void* small = _kvMalloc(24);
    void* large = _kvMalloc(100);
    _kvFree(_kvMalloc(24));
    EXPECT_EQ(mallocCalls(), 3);
    EXPECT_EQ(mallocCallsOfSize(24), 2);
    EXPECT_EQ(mallocCallsOfSize(25), 0);
    EXPECT_EQ(freeCalls(), 1);
    EXPECT_EQ(liveBlocks(), 2);
    EXPECT_EQ(liveBlocksOfSize(24), 1);
    EXPECT_EQ(liveBlocksOfSize(100), 1);
    EXPECT_EQ(liveBytes(), 124);
    _kvFree(small);
    _kvFree(large);
    EXPECT_EQ(liveBlocks(), 0);
    EXPECT_EQ(liveBytes(), 0);
}

TEST_F(InMemoryMemory, FreeingNullIsNoCall) {
    trackMemory(true);
    _kvFree(nullptr);
    EXPECT_EQ(freeCalls(), 0);
    EXPECT_EQ(foreignFrees(), 0);
}

TEST_F(InMemoryMemory, TurningTrackingOnStartsAtZero) {
    trackMemory(true);
    void* block = _kvMalloc(8);
    _kvFree(block);
    trackMemory(true);
    EXPECT_EQ(mallocCalls(), 0);
    EXPECT_EQ(mallocCallsOfSize(8), 0);
}

TEST_F(InMemoryMemory, CountsAreExactAcrossThreads) {
    trackMemory(true);
    const auto work = [] {
        for (int i = 0; i < 500; ++i)
            _kvFree(_kvMalloc(16));
    };
    std::thread other(work);
    work();
    other.join();
    EXPECT_EQ(mallocCalls(), 1000);
    EXPECT_EQ(freeCalls(), 1000);
    EXPECT_EQ(liveBlocks(), 0);
}

// ---- Wrong frees

TEST_F(InMemoryMemory, AForeignPointerIsCountedAndNotFreed) {
    trackMemory(true);
    const auto own = std::make_unique<int>(42);
    kvtest::freeByMistake(own.get());
    EXPECT_EQ(foreignFrees(), 1);
    EXPECT_EQ(doubleFrees(), 0);
    EXPECT_EQ(*own, 42);
}

TEST_F(InMemoryMemory, APointerIntoABlockIsForeign) {
    trackMemory(true);
    char* block = static_cast<char*>(_kvMalloc(16));
    kvtest::freeByMistake(block + 8);
    EXPECT_EQ(foreignFrees(), 1);
    EXPECT_EQ(liveBlocks(), 1);
    _kvFree(block);
}

TEST_F(InMemoryMemory, ASecondFreeIsCountedAndDoesNothing) {
    trackMemory(true);
    void* block = _kvMalloc(16);
    _kvFree(block);
    kvtest::freeByMistake(block);
    EXPECT_EQ(doubleFrees(), 1);
    EXPECT_EQ(foreignFrees(), 0);
}

TEST_F(InMemoryMemory, ABlockIsLiveFromMallocToFree) {
    trackMemory(true);
    void* block = _kvMalloc(16);
    EXPECT_TRUE(isLiveBlock(block));
    EXPECT_FALSE(isLiveBlock(static_cast<char*>(block) + 1));
    _kvFree(block);
    EXPECT_FALSE(isLiveBlock(block)); // NOLINT: the address is compared, the block is not read
}

// ---- Failing

// Calls _kvMalloc repeatedly. Element i of the result is true if call i returned null.
std::vector<bool> failures(int calls) {
    std::vector<bool> failed;
    for (int i = 0; i < calls; ++i) {
        void* block = _kvMalloc(8);
        failed.push_back(block == nullptr);
        _kvFree(block);
    }
    return failed;
}

TEST_F(InMemoryMemory, TheNthCallFailsOnce) {
    failMalloc(2, FailureMode::Once);
    EXPECT_EQ(failures(4), (std::vector<bool>{false, true, false, false}));
    EXPECT_EQ(failedMallocs(), 1);
}

TEST_F(InMemoryMemory, TheNthCallAndAllAfterItFail) {
    failMalloc(3, FailureMode::FromThenOn);
    EXPECT_EQ(failures(5), (std::vector<bool>{false, false, true, true, true}));
    EXPECT_EQ(failedMallocs(), 3);
}

TEST_F(InMemoryMemory, AllowingEndsTheFailures) {
    failMalloc(1, FailureMode::FromThenOn);
    failures(1);
    allowMalloc();
    EXPECT_EQ(failures(2), (std::vector<bool>{false, false}));
    EXPECT_EQ(failedMallocs(), 1);
}

TEST_F(InMemoryMemory, ArmingCountsFromThatMomentAndForgetsEarlierFailures) {
    failMalloc(1, FailureMode::Once);
    failures(1);
    failMalloc(2, FailureMode::Once);
    EXPECT_EQ(failedMallocs(), 0);
    EXPECT_EQ(failures(3), (std::vector<bool>{false, true, false}));
}

TEST_F(InMemoryMemory, AFailedCallIsACallAndNoBlock) {
    trackMemory(true);
    failMalloc(1, FailureMode::Once);
    EXPECT_EQ(_kvMalloc(8), nullptr);
    EXPECT_EQ(mallocCalls(), 1);
    EXPECT_EQ(liveBlocks(), 0);
}

// ---- The recorder

TEST_F(InMemoryRecorder, LogsStatusesAndMessages) {
    installCrashRecorder();
    KvErrorStatus status(24, L"a.cpp", 3);
    KvExceptionWithMsg message(L"b.cpp", 4, L"no layer");
    gxapGetCrashRecorder()->recordException(&status);
    gxapGetCrashRecorder()->recordException(&message);
    const auto log = recordedExceptions();
    ASSERT_EQ(log.size(), 2u);
    EXPECT_EQ(log[0].exception, &status);
    EXPECT_EQ(log[0].kind, ExceptionKind::Status);
    EXPECT_EQ(log[0].status, 24);
    EXPECT_STREQ(log[0].file, L"a.cpp");
    EXPECT_EQ(log[0].line, 3);
    EXPECT_EQ(log[1].exception, &message);
    EXPECT_EQ(log[1].kind, ExceptionKind::Message);
    EXPECT_STREQ(log[1].message, L"no layer");
    EXPECT_STREQ(log[1].file, L"b.cpp");
    EXPECT_EQ(log[1].line, 4);
    EXPECT_LT(log[0].sequence, log[1].sequence);
}

TEST_F(InMemoryRecorder, LogsExceptionsOfOtherClasses) {
    installCrashRecorder();
    KvException exception;
    gxapGetCrashRecorder()->recordException(&exception);
    ASSERT_EQ(recordedExceptions().size(), 1u);
    EXPECT_EQ(recordedExceptions()[0].kind, ExceptionKind::Other);
}

class SilentRecorder final : public IKvCrashRecorder {
public:
    virtual ~SilentRecorder() = default;
    void recordException(KvException*) override {}
};

TEST_F(InMemoryRecorder, TheCallersOwnTakesItsPlace) {
    SilentRecorder own;
    installCrashRecorder(&own);
    EXPECT_EQ(gxapGetCrashRecorder(), &own);
    EXPECT_FALSE(isRecordingExceptions());
    installCrashRecorder();
    EXPECT_NE(gxapGetCrashRecorder(), &own);
    EXPECT_TRUE(isRecordingExceptions());
    installCrashRecorder(nullptr);
    EXPECT_EQ(gxapGetCrashRecorder(), nullptr);
}

// ---- The lock

TEST_F(InMemoryLock, CallsAreLoggedWhileLoggingIsOn) {
    KvLocker locker;
    locker.lock();
    setLogging(true);
    locker.unlock();
    locker.lock();
    setLogging(false);
    locker.unlock();
    const auto calls = lockCalls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].locker, &locker);
    EXPECT_FALSE(calls[0].isLock);
    EXPECT_TRUE(calls[1].isLock);
    EXPECT_LT(calls[0].sequence, calls[1].sequence);
}

// ---- Reset

TEST_F(InMemoryReset, TurnsEverySwitchOff) {
    setLogging(true);
    trackMemory(true);
    installCrashRecorder();
    failMalloc(1, FailureMode::FromThenOn);
    resetAll();
    EXPECT_FALSE(isLogging());
    EXPECT_FALSE(isTrackingMemory());
    EXPECT_EQ(gxapGetCrashRecorder(), nullptr);
    EXPECT_EQ(failures(1), (std::vector<bool>{false}));
    EXPECT_EQ(failedMallocs(), 0);
}

TEST_F(InMemoryReset, EmptiesTheLogs) {
    setLogging(true);
    installCrashRecorder();
    KvException exception;
    gxapGetCrashRecorder()->recordException(&exception);
    KvLocker locker;
    locker.lock();
    locker.unlock();
    resetAll();
    EXPECT_TRUE(recordedExceptions().empty());
    EXPECT_TRUE(lockCalls().empty());
    EXPECT_EQ(nextSequence(), 1u);
}

TEST_F(InMemoryReset, BringsTheEmptyBlockBack) {
    KvVectorBlock* const block = gpEmptyVectorData;
    const std::uint32_t count = kvtest::emptyBlockCount();
    gpEmptyVectorData = nullptr;
    resetAll();
    EXPECT_EQ(gpEmptyVectorData, block);
    EXPECT_EQ(kvtest::emptyBlockCount(), count);
}

} // namespace
