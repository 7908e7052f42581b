#include "tests/support/Thrown.h"

#include "base/detail/Raise.h"
#include "platform/inmemory/InMemoryOsBase.h"
#include "tests/support/KvTest.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>

namespace {

using namespace kvtest;

using Thrown = KvTest;

void throwStatus24() {
    throw new KvErrorStatus(24, L"\"\"", 0);
}

TEST_F(Thrown, AnswersWhatWasThrown) {
    const auto exception = thrown<KvErrorStatus>(throwStatus24);
    ASSERT_NE(exception, nullptr);
    EXPECT_EQ(exception->status(), 24);
}

TEST_F(Thrown, ReportsThatNothingWasThrown) {
    EXPECT_NONFATAL_FAILURE(thrown<KvErrorStatus>([] {}), "nothing was thrown");
}

TEST_F(Thrown, ReportsAnotherClass) {
    EXPECT_NONFATAL_FAILURE(thrown<KvExceptionWithMsg>(throwStatus24), "another class");
}

TEST_F(Thrown, ReportsAnObjectThrownByValue) {
    EXPECT_NONFATAL_FAILURE(thrown<KvErrorStatus>([] { throw std::runtime_error("by value"); }),
                            "something else");
}

TEST_F(Thrown, WrongExceptionsAreDeletedToo) {
    expectNothingLeft();
    EXPECT_NONFATAL_FAILURE(thrown<KvExceptionWithMsg>(throwStatus24), "another class");
}

TEST_F(Thrown, AcceptsWhatIsRaisedTheOneWay) {
    kvinmemory::installCrashRecorder();
    expectStatus([] { kvdetail::raiseStatus(6); }, 6);
    expectMessage([] { kvdetail::raiseMessage(L"empty"); }, L"empty");
    EXPECT_EQ(kvinmemory::recordedExceptions().size(), 2u);
}

TEST_F(Thrown, AcceptsItWithoutARecorderToo) {
    expectStatus(throwStatus24, 24);
}

TEST_F(Thrown, ReportsAnotherStatusOrMessage) {
    EXPECT_NONFATAL_FAILURE(expectStatus(throwStatus24, 6), "status");
    EXPECT_NONFATAL_FAILURE(expectMessage([] { kvdetail::raiseMessage(L"empty"); }, L"full"), "message");
}

TEST_F(Thrown, ReportsAnotherFileOrLine) {
    EXPECT_NONFATAL_FAILURE(expectStatus([] { throw new KvErrorStatus(24, L"a.cpp", 0); }, 24), "file");
    EXPECT_NONFATAL_FAILURE(expectStatus([] { throw new KvErrorStatus(24, L"\"\"", 1); }, 24), "line");
}

TEST_F(Thrown, ReportsWhatTheRecorderWasNotShown) {
    kvinmemory::installCrashRecorder();
    EXPECT_NONFATAL_FAILURE(expectStatus(throwStatus24, 24), "crash recorder");
}

TEST_F(Thrown, ReportsWhatTheRecorderWasShownTwice) {
    kvinmemory::installCrashRecorder();
    const auto showTwice = [] {
        auto exception = std::make_unique<KvErrorStatus>(24, L"\"\"", 0);
        gxapGetCrashRecorder()->recordException(exception.get());
        gxapGetCrashRecorder()->recordException(exception.get());
        throw exception.release();
    };
    EXPECT_NONFATAL_FAILURE(expectStatus(showTwice, 24), "crash recorder");
}

} // namespace
