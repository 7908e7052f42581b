// The fixture of the tests of containers. A test leaves nothing allocated. The crash recorder is installed,
// so that expected errors are checked there too.
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
    // The test framework and the streams allocate storage once per thread or process and keep it.
    static void warmUp() {
        SCOPED_TRACE(::testing::Message() << "number " << 1);
        EXPECT_NO_FATAL_FAILURE(static_cast<void>(0));
    }
};

} // namespace kvtest
