// The fixture of the tests of containers. A test fails if it leaves memory allocated. The crash recorder is
// installed, so tests of errors also check that the errors are recorded.
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
    // Makes the test framework and the streams allocate the storage that they keep per thread or process.
    static void warmUp() {
        SCOPED_TRACE(::testing::Message() << "number " << 1);
        EXPECT_NO_FATAL_FAILURE(static_cast<void>(0));
    }
};

} // namespace kvtest
