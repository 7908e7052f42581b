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
        {
            // The test framework keeps what it allocates for the first trace of a thread.
            SCOPED_TRACE("before the blocks are counted");
        }
        expectNothingLeft();
    }
};

} // namespace kvtest
