// Tests records of one chunk that are deleted on several threads. The thread sanitizer reports data races.
#include "selectcontext/detail/RecordPool.h"

#include "tests/support/Threads.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace {

using kvdetail::RecordPool;
using kvtest::onThreads;
using Records = std::vector<std::unique_ptr<selected_entity>>;

constexpr std::size_t kRecords = 60; // more than the records of one chunk
constexpr int kRounds = 100;

// The records have no blocks. The reference counts of blocks would order the threads and hide data races.
class RecordPoolThreads : public kvtest::ThreadTest {
protected:
    void SetUp() override {
        ThreadTest::SetUp();
        expectNothingLeft();
    }

    static Records make(RecordPool& pool) {
        pool.expectMany(kRecords);
        Records records;
        for (std::size_t i = 0; i < kRecords; ++i)
            records.emplace_back(::new (pool.allocate()) selected_entity(kvdetail::NoBlock()));
        return records;
    }

    // Deletes every second record. Begins at the end: when a chunk is freed, the sanitizer checks only the
    // accesses to its first kilobyte.
    static void deleteHalf(Records& records, std::size_t first) {
        for (std::size_t i = kRecords - 2 + first; i < kRecords; i -= 2) {
            records[i]->gsMarker = 1;
            records[i].reset();
        }
    }
};

} // namespace

TEST_F(RecordPoolThreads, NeighboursAreDeletedOnTwoThreads) {
    for (int round = 0; round < kRounds; ++round) {
        Records records;
        {
            RecordPool pool;
            records = make(pool);
        }
        onThreads(2, [&records](std::size_t n) { deleteHalf(records, n); });
    }
}

TEST_F(RecordPoolThreads, PoolIsClosedWhileItsRecordsAreDeletedElsewhere) {
    for (int round = 0; round < kRounds; ++round) {
        RecordPool pool;
        Records records = make(pool);
        onThreads(2, [&](std::size_t n) {
            deleteHalf(records, n);
            if (n == 0)
                pool.close();
        });
    }
}
