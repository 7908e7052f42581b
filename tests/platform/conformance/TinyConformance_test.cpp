#include "tests/consumers/tinyplatform/TinyPlatform.h"
#include "tests/platform/conformance/SeamConformance.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

// The tiny platform knows every number but 0, and opens none.
TEST(TinyConformance, EveryPromiseHolds) {
    GxDbStub wall{1};
    GxDbStub door{2};
    GxDbStub sameDoor{2};
    kvconformance::Subject subject;
    subject.others = {GxDbObjectId(&wall), GxDbObjectId(&door)};
    subject.twins = {{GxDbObjectId(&door), GxDbObjectId(&sameDoor)}};
    const long blocksBefore = tinyplatform::blocksInUse();
    const kvconformance::Report report = kvconformance::check(subject);
    EXPECT_THAT(report.broken, testing::IsEmpty());
    EXPECT_EQ(tinyplatform::blocksInUse(), blocksBefore);
}

} // namespace
