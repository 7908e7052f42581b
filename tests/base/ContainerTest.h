// The fixture of the tests of containers. A test fails if it leaves memory allocated. The crash recorder is
// installed. So expectStatus() and expectMessage() also check that the recorder has logged the error.
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
    // The test framework and the streams allocate memory at their first use, and keep that memory. This
    // function uses them before expectNothingLeft() counts the live blocks.
    static void warmUp() {
        SCOPED_TRACE(::testing::Message() << "number " << 1);
        EXPECT_NO_FATAL_FAILURE(static_cast<void>(0));
    }
};

} // namespace kvtest
