#include "platform/KvOsBase.h"

#include "base/KvVector.h"
#include "tests/support/KvTest.h"

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <type_traits>

namespace {

using KvOsBase = kvtest::KvTest;

TEST_F(KvOsBase, MemoryIsWritableAndAligned) {
    void* memory = _kvMalloc(40);
    ASSERT_NE(memory, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory) % alignof(std::max_align_t), 0u);
    std::memset(memory, 0x5A, 40);
    EXPECT_EQ(static_cast<unsigned char*>(memory)[39], 0x5A);
    _kvFree(memory);
}

TEST_F(KvOsBase, FreeingNullDoesNothing) {
    EXPECT_NO_THROW(_kvFree(nullptr));
}

TEST_F(KvOsBase, TheEmptyBlockIsEmptyAndHeldByThePlatform) {
    ASSERT_NE(gpEmptyVectorData, nullptr);
    EXPECT_GE(gpEmptyVectorData->refCount.load(), 1u);
    EXPECT_EQ(gpEmptyVectorData->logicalLength, 0);
    EXPECT_EQ(gpEmptyVectorData->physicalLength, 0);
    EXPECT_EQ(gpEmptyVectorData->growLength, 8);
    EXPECT_EQ(gpEmptyVectorData->array, nullptr);
}

TEST_F(KvOsBase, AStatusKeepsWhatItWasMadeOf) {
    const wchar_t* const file = L"drawing.cpp";
    const KvErrorStatus exception(24, file, 7);
    EXPECT_EQ(exception.status(), 24);
    EXPECT_EQ(exception.file(), file);
    EXPECT_EQ(exception.line(), 7);
}

TEST_F(KvOsBase, AMessageKeepsWhatItWasMadeOf) {
    const wchar_t* const file = L"drawing.cpp";
    const wchar_t* const message = L"no such layer";
    const KvExceptionWithMsg exception(file, 7, message);
    EXPECT_EQ(exception.file(), file);
    EXPECT_EQ(exception.line(), 7);
    EXPECT_EQ(exception.message(), message);
}

TEST_F(KvOsBase, AThrownPointerIsCaughtAsItsBase) {
    try {
        throw new KvErrorStatus(6, L"", 0);
    } catch (KvException* exception) {
        const std::unique_ptr<KvException> owner(exception);
        EXPECT_NE(dynamic_cast<KvErrorStatus*>(exception), nullptr);
        return;
    }
}

TEST_F(KvOsBase, ThereIsNoCrashRecorderUnlessOneIsInstalled) {
    EXPECT_EQ(gxapGetCrashRecorder(), nullptr);
}

TEST_F(KvOsBase, ALockKeepsThreadsApart) {
    KvLocker locker;
    int counter = 0;
    const auto countUp = [&] {
        for (int i = 0; i < 1000; ++i) {
            locker.lock();
            ++counter;
            locker.unlock();
        }
    };
    std::thread other(countUp);
    countUp();
    other.join();
    EXPECT_EQ(counter, 2000);
}

TEST_F(KvOsBase, AThreadThatHoldsTheLockTakesItAgain) {
    KvLocker locker;
    locker.lock();
    locker.lock();
    locker.unlock();
    locker.unlock();
    bool taken = false;
    std::thread([&] {
        locker.lock();
        taken = true;
        locker.unlock();
    }).join();
    EXPECT_TRUE(taken);
}

TEST_F(KvOsBase, ALockIsNotCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<KvLocker>);
    EXPECT_FALSE(std::is_copy_assignable_v<KvLocker>);
}

} // namespace
