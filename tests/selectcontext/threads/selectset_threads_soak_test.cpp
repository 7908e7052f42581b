// Eight workers use sets that share data: each on a thread of its own, and then all on one thread. They must
// read the same. The thread sanitizer reports data races.
//
// The environment variable KV_THREAD_OPERATIONS sets the number of operations of all workers together, and
// KV_THREAD_SEED selects others.
#include "tests/selectcontext/threads/Worker.h"
#include "tests/support/Threads.h"

#include <gtest/gtest.h>

#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

namespace {

using kvsoak::kWorkerCount;
using kvsoak::Network;
using kvsoak::Source;
using kvsoak::Worker;

#ifndef __has_feature
#define __has_feature(feature) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || __has_feature(address_sanitizer) ||     \
    __has_feature(thread_sanitizer) || !defined(NDEBUG)
constexpr std::uint64_t kOperations = 80000;
#else
constexpr std::uint64_t kOperations = 400000;
#endif

constexpr int kOperationsPerParcel = 250;

std::uint64_t fromEnvironment(const char* name, std::uint64_t otherwise) {
    const char* const text = std::getenv(name);
    return text && *text ? std::strtoull(text, nullptr, 0) : otherwise;
}

struct Result {
    std::uint64_t checksum = 0;
    long mistakes = 0;
};

// The workers of one run.
class Team {
public:
    Team(std::uint64_t seed, std::uint64_t operations, bool hasTwins)
        : mRounds(operations / (kWorkerCount * kOperationsPerParcel)), mSource(seed, hasTwins) {
        for (std::size_t n = 0; n < kWorkerCount; ++n)
            mWorkers.push_back(std::make_unique<Worker>(n, seed, mSource, mNetwork));
    }

    Result runOnThreads() {
        kvtest::onThreads(kWorkerCount, [this](std::size_t n) {
            for (std::uint64_t round = 0; round < mRounds; ++round) {
                mWorkers[n]->send();
                mWorkers[n]->work(kOperationsPerParcel);
            }
            mWorkers[n]->finish();
        });
        return result();
    }

    Result runOnOneThread() {
        for (std::uint64_t round = 0; round < mRounds; ++round) {
            for (const auto& worker : mWorkers)
                worker->send();
            for (const auto& worker : mWorkers)
                worker->work(kOperationsPerParcel);
        }
        for (const auto& worker : mWorkers)
            worker->finish();
        return result();
    }

private:
    Result result() const {
        Result all;
        for (const auto& worker : mWorkers) {
            all.checksum = all.checksum * 31 + worker->checksum();
            all.mistakes += worker->mistakes();
        }
        return all;
    }

    const std::uint64_t mRounds;
    const Source mSource;
    Network mNetwork;
    std::vector<std::unique_ptr<Worker>> mWorkers;
};

class SelectSetThreads : public kvtest::ThreadTest {
protected:
    void SetUp() override {
        ThreadTest::SetUp();
        expectNothingLeft();
    }
    void TearDown() override {
        GxapSelectSetListManager::destroy();
        ThreadTest::TearDown();
    }
};

// Returns the checksum.
std::uint64_t expectSameOnOneThread(std::uint64_t operations, bool hasTwins) {
    const std::uint64_t seed = fromEnvironment("KV_THREAD_SEED", 1);
    const Result onEight = Team(seed, operations, hasTwins).runOnThreads();
    const Result onOne = Team(seed, operations, hasTwins).runOnOneThread();
    EXPECT_EQ(onEight.checksum, onOne.checksum);
    EXPECT_EQ(onEight.mistakes, 0);
    EXPECT_EQ(onOne.mistakes, 0);
    return onEight.checksum;
}

TEST_F(SelectSetThreads, ReadOnEightThreadsWhatTheyReadOnOne) {
    const std::uint64_t checksum =
        expectSameOnOneThread(fromEnvironment("KV_THREAD_OPERATIONS", kOperations), false);
    std::printf("checksum: %016" PRIx64 "\n", checksum);
}

TEST_F(SelectSetThreads, ReadTheSameAlsoIfSubIdsHaveSeveralStubs) {
    expectSameOnOneThread(fromEnvironment("KV_THREAD_OPERATIONS", kOperations) / 10, true);
}

} // namespace
