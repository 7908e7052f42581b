#include "base/detail/Raise.h"

#include "platform/inmemory/InMemoryOsBase.h"
#include "tests/base/ContainerTest.h"
#include "tests/support/NewTracking.h"
#include "tests/support/Thrown.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>

namespace {

constexpr const wchar_t* kMessage = L"Error access KvTrucker";

class KvRaiseTest : public kvtest::ContainerTest {};

// A crash recorder that counts its calls and stores the last exception.
class Recorder final : public IKvCrashRecorder {
public:
    void recordException(KvException* exception) override {
        ++calls;
        shown = exception;
    }

    int calls = 0;
    KvException* shown = nullptr;
};

TEST_F(KvRaiseTest, StatusIsThrownAsAPointerWithoutAPosition) {
    const auto error = kvtest::thrown<KvErrorStatus>([] { kvdetail::raiseStatus(24); });
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->status(), 24);
    EXPECT_STREQ(error->file(), L"\"\"");
    EXPECT_EQ(error->line(), 0);
}

TEST_F(KvRaiseTest, MessageIsThrownAsAPointerWithoutAPosition) {
    const auto error = kvtest::thrown<KvExceptionWithMsg>([] { kvdetail::raiseMessage(kMessage); });
    ASSERT_NE(error, nullptr);
    EXPECT_STREQ(error->message(), kMessage);
    EXPECT_STREQ(error->file(), L"\"\"");
    EXPECT_EQ(error->line(), 0);
}

TEST_F(KvRaiseTest, RecorderIsShownTheThrownStatusOnce) {
    Recorder recorder;
    kvinmemory::installCrashRecorder(&recorder);
    const auto error = kvtest::thrown<KvErrorStatus>([] { kvdetail::raiseStatus(6); });
    EXPECT_EQ(recorder.calls, 1);
    EXPECT_EQ(recorder.shown, error.get());
}

TEST_F(KvRaiseTest, RecorderIsShownTheThrownMessageOnce) {
    Recorder recorder;
    kvinmemory::installCrashRecorder(&recorder);
    const auto error = kvtest::thrown<KvExceptionWithMsg>([] { kvdetail::raiseMessage(kMessage); });
    EXPECT_EQ(recorder.calls, 1);
    EXPECT_EQ(recorder.shown, error.get());
}

TEST_F(KvRaiseTest, ErrorsAreRaisedWithoutARecorderToo) {
    kvinmemory::installCrashRecorder(nullptr);
    EXPECT_NE(kvtest::thrown<KvErrorStatus>([] { kvdetail::raiseStatus(24); }), nullptr);
    EXPECT_NE(kvtest::thrown<KvExceptionWithMsg>([] { kvdetail::raiseMessage(kMessage); }), nullptr);
}

TEST_F(KvRaiseTest, ExceptionIsMadeWithNewAndOwnedByItsCatcher) {
    const long before = kvtest::liveNewBlocksOfSize(sizeof(KvErrorStatus));
    auto error = kvtest::thrown<KvErrorStatus>([] { kvdetail::raiseStatus(24); });
    EXPECT_EQ(kvtest::liveNewBlocksOfSize(sizeof(KvErrorStatus)), before + 1);
    error.reset();
    EXPECT_EQ(kvtest::liveNewBlocksOfSize(sizeof(KvErrorStatus)), before);
}

TEST_F(KvRaiseTest, EachErrorIsAnObjectOfItsOwn) {
    const auto first = kvtest::thrown<KvErrorStatus>([] { kvdetail::raiseStatus(24); });
    const auto second = kvtest::thrown<KvErrorStatus>([] { kvdetail::raiseStatus(6); });
    EXPECT_NE(first.get(), second.get());
    EXPECT_EQ(first->status(), 24);
    EXPECT_EQ(second->status(), 6);
}

TEST_F(KvRaiseTest, ExceptionThatCannotBeMadeIsBadAlloc) {
    Recorder recorder;
    kvinmemory::installCrashRecorder(&recorder);
    kvtest::failNew(1, false);
    EXPECT_THROW(kvdetail::raiseStatus(24), std::bad_alloc);
    kvtest::allowNew();
    EXPECT_EQ(recorder.calls, 0);
}

TEST_F(KvRaiseTest, WhatARecorderThrowsTakesThePlaceOfTheError) {
    struct Refusal {};
    class Refusing final : public IKvCrashRecorder {
        void recordException(KvException*) override { throw Refusal(); }
    } recorder;
    kvinmemory::installCrashRecorder(&recorder);
    EXPECT_THROW(kvdetail::raiseStatus(6), Refusal);
    EXPECT_THROW(kvdetail::raiseMessage(kMessage), Refusal);
}

} // namespace
