#include "tests/support/KvTest.h"

#include "platform/KvGeometry.h"
#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/support/Ids.h"
#include "tests/support/Mistakes.h"
#include "tests/support/NewTracking.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace {

using namespace kvtest;

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class KvTestFixture : public KvTest {
protected:
    void SetUp() override {
        KvTest::SetUp();
        reportsAtTheEnd(); // the framework allocates when it first intercepts a failure
    }

    // Runs TearDown and returns the failures that it reports. Then runs SetUp again.
    std::vector<std::string> reportsAtTheEnd() {
        testing::TestPartResultArray results;
        {
            using Reporter = testing::ScopedFakeTestPartResultReporter;
            const Reporter reporter(Reporter::INTERCEPT_ONLY_CURRENT_THREAD, &results);
            KvTest::TearDown();
        }
        KvTest::SetUp();
        std::vector<std::string> reports;
        for (int i = 0; i < results.size(); ++i)
            reports.emplace_back(results.GetTestPartResult(i).message());
        return reports;
    }
};

TEST_F(KvTestFixture, StartsWithLogsAndTrackingOn) {
    EXPECT_TRUE(kvinmemory::isLogging());
    EXPECT_TRUE(kvinmemory::isTrackingMemory());
    EXPECT_EQ(kvinmemory::mallocCalls(), 0);
    void* block = ::operator new(7744); // called by name: compilers may omit a new-expression
    EXPECT_EQ(liveNewBlocksOfSize(7744), 1);
    ::operator delete(block);
}

TEST_F(KvTestFixture, EndsWithEverythingPutBack) {
    kvinmemory::makeEqual(id(1), id(2));
    KvTest::TearDown();
    EXPECT_FALSE(kvinmemory::isLogging());
    EXPECT_FALSE(kvinmemory::isTrackingMemory());
    EXPECT_NE(id(1), id(2));
    KvTest::SetUp();
}

TEST_F(KvTestFixture, ReportsNothingAboutACleanTest) {
    expectNothingLeft();
    _kvFree(_kvMalloc(8));
    const auto reports = reportsAtTheEnd();
    EXPECT_THAT(reports, IsEmpty());
}

TEST_F(KvTestFixture, ReportsADoubleFree) {
    void* block = _kvMalloc(8);
    _kvFree(block);
    freeByMistake(block);
    const auto reports = reportsAtTheEnd();
    EXPECT_THAT(reports, ElementsAre(HasSubstr("_kvFree twice")));
}

TEST_F(KvTestFixture, ReportsAForeignFree) {
    const auto block = std::make_unique<int>();
    freeByMistake(block.get());
    const auto reports = reportsAtTheEnd();
    EXPECT_THAT(reports, ElementsAre(HasSubstr("not of _kvMalloc")));
}

TEST_F(KvTestFixture, ReportsAWrongDelete) {
    void* block = _kvMalloc(8);
    deleteByMistake(block);
    _kvFree(block);
    const auto reports = reportsAtTheEnd();
    EXPECT_THAT(reports, ElementsAre(HasSubstr("operator delete")));
}

TEST_F(KvTestFixture, SaysNothingOfWhatIsLeftUnlessAsked) {
    GxDbFullSubentPath path;
    const auto reports = reportsAtTheEnd();
    EXPECT_THAT(reports, IsEmpty());
}

TEST_F(KvTestFixture, ReportsBlocksLeft) {
    expectNothingLeft();
    void* block = _kvMalloc(8);
    const auto reports = reportsAtTheEnd();
    EXPECT_THAT(reports, ElementsAre(HasSubstr("blocks of _kvMalloc")));
    kvinmemory::resetAll();
    _kvFree(block);
}

TEST_F(KvTestFixture, ReportsNewBlocksLeft) {
    expectNothingLeft();
    void* block = ::operator new(8);
    const auto reports = reportsAtTheEnd();
    EXPECT_THAT(reports, ElementsAre(HasSubstr("blocks of operator new")));
    ::operator delete(block);
}

TEST_F(KvTestFixture, ReportsPathsLeft) {
    expectNothingLeft();
    const GxDbFullSubentPath path;
    const auto reports = reportsAtTheEnd();
    EXPECT_THAT(reports, ElementsAre(HasSubstr("sub-entity paths")));
}

TEST_F(KvTestFixture, ReportsSharersOfTheEmptyBlockLeft) {
    expectNothingLeft();
    const KvVector<int> sharer;
    const auto reports = reportsAtTheEnd();
    EXPECT_THAT(reports, ElementsAre(HasSubstr("sharers of the empty block")));
}

TEST_F(KvTestFixture, TheFrameworksOwnTracesAreNotLeftBehind) {
    expectNothingLeft();
    SCOPED_TRACE("one");
    SCOPED_TRACE("two");
}

TEST_F(KvTestFixture, CountsMatrices) {
    EXPECT_EQ(liveNewMatrices(), 0);
    const auto matrix = std::make_unique<GxGeMatrix3d>();
    EXPECT_EQ(liveNewMatrices(), 1);
}

} // namespace
