#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/support/Ids.h"
#include "tests/support/KvTest.h"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

using namespace kvinmemory;
using kvtest::subentPath;

using InMemoryThreads = kvtest::KvTest;

constexpr int kRounds = 300;

// Runs the work on four threads at the same time.
template <class Work>
void onThreads(Work work) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back(work);
    for (std::thread& thread : threads)
        thread.join();
}

TEST_F(InMemoryThreads, ObjectsAreOpenedAndClosedSideBySide) {
    Database database;
    const GxDbObjectId id = database.addEntity();
    onThreads([id] {
        for (int i = 0; i < kRounds; ++i) {
            GxDbEntity* entity = nullptr;
            gxdbOpenObject(entity, id, GxDb::kForRead, false);
            entity->close();
        }
    });
    EXPECT_EQ(database.openCount(id), 0);
    EXPECT_EQ(openObjects(), 0);
    EXPECT_EQ(databaseEvents(DatabaseCall::Close).size(), 4u * kRounds);
}

TEST_F(InMemoryThreads, DatabasesComeAndGoWhileOthersAreRead) {
    Database database;
    const GxDbObjectId id = database.addEntity();
    onThreads([id] {
        for (int i = 0; i < 20; ++i) {
            Database passing(100);
            EXPECT_TRUE(passing.addEntity().isValid());
            EXPECT_TRUE(id.isValid());
        }
    });
}

TEST_F(InMemoryThreads, PathsAreCopiedSideBySide) {
    const GxDbFullSubentPath path = subentPath({1, 2, 3});
    onThreads([&path] {
        for (int i = 0; i < kRounds; ++i) {
            const GxDbFullSubentPath copy = path;
            EXPECT_TRUE(copy == path);
        }
    });
    EXPECT_EQ(livePaths(), 1);
}

TEST_F(InMemoryThreads, IdsThatWereMadeEqualAreComparedSideBySide) {
    makeEqual(kvtest::id(1), kvtest::id(2));
    onThreads([] {
        for (int i = 0; i < kRounds; ++i)
            EXPECT_EQ(kvtest::id(1), kvtest::id(2));
    });
}

TEST_F(InMemoryThreads, ComparisonsAreCountedSideBySide) {
    countIdComparisons(true);
    onThreads([] {
        for (int i = 0; i < kRounds; ++i) {
            EXPECT_FALSE(kvtest::id(1) == kvtest::id(2));
            EXPECT_TRUE(kvtest::id(1) < kvtest::id(2));
        }
    });
    EXPECT_EQ(idEqualityCalls(), 4 * kRounds);
    EXPECT_EQ(idOrderCalls(), 4 * kRounds);
}

TEST_F(InMemoryThreads, EntriesOfALogHaveAscendingNumbersOfTheirOwn) {
    const GxGeMatrix3d matrix;
    onThreads([&matrix] {
        for (int i = 0; i < kRounds; ++i)
            EXPECT_TRUE(matrix.isEqualTo(matrix));
    });
    const auto comparisons = matrixComparisons();
    ASSERT_EQ(comparisons.size(), 4u * kRounds);
    for (std::size_t i = 1; i < comparisons.size(); ++i)
        EXPECT_LT(comparisons[i - 1].sequence, comparisons[i].sequence);
}

TEST_F(InMemoryThreads, OneCallOfManyFails) {
    failMalloc(2 * kRounds, FailureMode::Once);
    onThreads([] {
        for (int i = 0; i < kRounds; ++i)
            _kvFree(_kvMalloc(8));
    });
    EXPECT_EQ(failedMallocs(), 1);
    EXPECT_EQ(liveBlocks(), 0);
}

} // namespace
