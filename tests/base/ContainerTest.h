// The fixture of all tests of containers: whatever a test allocates is gone when it ends, and every error
// that a test expects is looked for in the crash recorder's notes as well.
#pragma once

#include "platform/inmemory/InMemoryOsBase.h"
#include "tests/support/KvTest.h"

#include <gtest/gtest.h>

namespace kvtest {

class ContainerTest : public KvTest {
protected:
    void SetUp() override {
        KvTest::SetUp();
        kvinmemory::installCrashRecorder();
        warmUp();
        expectNothingLeft();
    }

private:
    // What the test framework and the streams make once per thread or process and keep for good.
    static void warmUp() {
        SCOPED_TRACE(::testing::Message() << "number " << 1);
        EXPECT_NO_FATAL_FAILURE(static_cast<void>(0));
    }
};

} // namespace kvtest
