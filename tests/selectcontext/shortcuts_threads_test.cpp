// Handles on different threads look items up in the data that they share while what makes that faster is
// still being made; what is wrong with that shows under the thread sanitizer.
#include "tests/selectcontext/SetTestSupport.h"

#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/support/NewTracking.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

namespace {

using kvtest::appendIds;
using kvtest::edit;
using kvtest::id;

constexpr unsigned long kCount = 300;
constexpr int kRounds = 50;

class ShortcutsThreads : public kvtest::KvTest {
protected:
    // The books of memory and events are kept under locks, which would order the threads and so hide what is
    // wrong.
    void SetUp() override {
        KvTest::SetUp();
        kvinmemory::setLogging(false);
        kvinmemory::trackMemory(false);
        kvtest::trackNewSizes(false);
    }
};

// Runs work(n) on two threads that start at the same moment.
void onTwoThreads(const std::function<void(std::size_t)>& work) {
    std::atomic<int> missing{2};
    std::vector<std::thread> threads;
    for (std::size_t n = 0; n < 2; ++n) {
        threads.emplace_back([&, n] {
            missing.fetch_sub(1);
            while (missing.load() != 0)
                std::this_thread::yield();
            work(n);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

std::size_t countFound(const GxapSelectSet& set) {
    std::size_t found = 0;
    for (unsigned long n = 1; n <= kCount + 20; ++n)
        found += set.findInMap(id(n)) != set.sharedData->dataMap.end() ? 1u : 0u;
    return found;
}

} // namespace

TEST_F(ShortcutsThreads, SharersLookUpAtTheSameTime) {
    for (int round = 0; round < kRounds; ++round) {
        GxapSelectSet source;
        appendIds(source, 1, kCount);
        const GxapSelectSet handles[] = {source, source};
        onTwoThreads([&](std::size_t n) { EXPECT_EQ(countFound(handles[n]), kCount); });
        EXPECT_EQ(countFound(source), kCount);
    }
}

TEST_F(ShortcutsThreads, SharersAreComparedAtTheSameTime) {
    for (int round = 0; round < kRounds; ++round) {
        GxapSelectSet source;
        GxapSelectSet backwards;
        appendIds(source, 1, kCount);
        for (unsigned long n = kCount; n > 0; --n)
            edit(backwards).append(id(n), GxDbObjectId());
        const GxapSelectSet handles[] = {source, source};
        onTwoThreads([&](std::size_t n) {
            const GxapSelectSet other(backwards);
            EXPECT_TRUE(handles[n].contains(&other));
            EXPECT_TRUE(other.contains(&handles[n]));
        });
    }
}

TEST_F(ShortcutsThreads, OneSharerEditsItsCopyWhileTheOtherLooksUp) {
    for (int round = 0; round < kRounds; ++round) {
        auto reader = std::make_unique<GxapSelectSet>();
        appendIds(*reader, 1, kCount);
        GxapSelectSet writer(*reader);
        onTwoThreads([&](std::size_t n) {
            if (n == 0) {
                EXPECT_EQ(countFound(*reader), kCount);
                reader.reset();
            } else {
                EXPECT_EQ(countFound(writer), kCount);
                edit(writer).append(id(kCount + 1), GxDbObjectId());
                EXPECT_EQ(countFound(writer), kCount + 1);
            }
        });
        EXPECT_EQ(writer.sharedData->entityCount, kCount + 1);
    }
}
