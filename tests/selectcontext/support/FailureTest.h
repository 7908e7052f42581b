// The fixture of tests in which allocations fail.
#pragma once

#include "platform/inmemory/InMemoryOsBase.h"
#include "tests/selectcontext/support/SetTestSupport.h"
#include "tests/support/NewTracking.h"

#include <gtest/gtest.h>

namespace kvtest {

class FailureTest : public SetTest {
protected:
    // The first traces of a thread allocate memory and keep it. The constructor makes two traces, so that
    // this happens before a test counts allocations.
    FailureTest() {
        SCOPED_TRACE("making the storage");
        SCOPED_TRACE("of two traces");
    }
};

// Makes every allocation fail while the object lives.
class NoMemory {
public:
    NoMemory() {
        kvinmemory::failMalloc(1, kvinmemory::FailureMode::FromThenOn);
        failNew(1, true);
    }
    NoMemory(const NoMemory&) = delete;
    NoMemory& operator=(const NoMemory&) = delete;
    ~NoMemory() {
        allowNew();
        kvinmemory::allowMalloc();
    }
};

} // namespace kvtest
