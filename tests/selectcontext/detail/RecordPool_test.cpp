#include "selectcontext/detail/RecordPool.h"

#include "tests/selectcontext/support/SetTestSupport.h"
#include "tests/support/AllocationFailure.h"
#include "tests/support/NewTracking.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <set>
#include <vector>

namespace {

using kvdetail::RecordPool;
using Records = std::vector<std::unique_ptr<selected_entity>>;

// The tests destroy records and pools in different orders. SetTest expects that all chunks are freed at the
// end.
class RecordPoolTest : public kvtest::SetTest {
protected:
    static std::unique_ptr<selected_entity> make(RecordPool& pool) {
        return std::unique_ptr<selected_entity>(::new (pool.allocate()) selected_entity);
    }

    static Records make(RecordPool& pool, std::size_t count) {
        Records records;
        for (std::size_t i = 0; i < count; ++i)
            records.push_back(make(pool));
        return records;
    }
};

TEST_F(RecordPoolTest, FirstRecordsHaveTheirMemoryToThemselves) {
    RecordPool pool;
    const long before = kvtest::newCallsOfSize(sizeof(selected_entity));
    const Records records = make(pool, 16);
    EXPECT_EQ(kvtest::newCallsOfSize(sizeof(selected_entity)) - before, 16);
}

TEST_F(RecordPoolTest, RecordsDoNotOverlap) {
    RecordPool pool;
    const Records records = make(pool, 500);
    std::vector<std::uintptr_t> addresses;
    for (const auto& record : records)
        addresses.push_back(reinterpret_cast<std::uintptr_t>(record.get()));
    const std::set<std::uintptr_t> sorted(addresses.begin(), addresses.end());
    ASSERT_EQ(sorted.size(), 500u);
    std::uintptr_t end = 0;
    for (const std::uintptr_t address : sorted) {
        EXPECT_GE(address, end);
        EXPECT_EQ(address % alignof(selected_entity), 0u);
        end = address + sizeof(selected_entity);
    }
}

TEST_F(RecordPoolTest, RecordsOutliveTheirPool) {
    Records records;
    {
        RecordPool pool;
        records = make(pool, 200);
    }
    for (const auto& record : records)
        EXPECT_EQ(record->gsMarker, -1);
}

TEST_F(RecordPoolTest, DeletedRecordsLeaveTheirNeighboursAlone) {
    RecordPool pool;
    Records records = make(pool, 300);
    for (std::size_t i = 0; i < records.size(); ++i)
        records[i]->gsMarker = static_cast<long>(i);
    for (std::size_t i = 0; i < records.size(); i += 2)
        records[i].reset();
    const Records more = make(pool, 100);
    for (std::size_t i = 1; i < records.size(); i += 2)
        EXPECT_EQ(records[i]->gsMarker, static_cast<long>(i));
}

TEST_F(RecordPoolTest, MemoryOfADeletedRecordIsNotHandedOutWhileTheChunkLives) {
    RecordPool pool;
    const Records first = make(pool, 20);
    std::unique_ptr<selected_entity> gone = make(pool);
    const selected_entity* const address = gone.get();
    gone.reset();
    const Records next = make(pool, 200);
    for (const auto& record : next)
        EXPECT_NE(record.get(), address);
}

TEST_F(RecordPoolTest, DestroyerTakesRecordsOfAllKinds) {
    RecordPool pool;
    RecordPool other;
    Records records = make(pool, 120);
    Records others = make(other, 120);
    RecordPool::Destroyer destroyer;
    for (std::size_t i = 0; i < records.size(); ++i) {
        destroyer.destroy(records[i].release());
        if (i % 3 == 0)
            destroyer.destroy(others[i].release());
    }
    destroyer.destroy(nullptr);
    destroyer.destroy(new selected_entity);
}

TEST_F(RecordPoolTest, ClosedPoolStartsAnew) {
    RecordPool pool;
    Records records = make(pool, 90);
    pool.close();
    records.clear();
    const long before = kvtest::newCallsOfSize(sizeof(selected_entity));
    const Records again = make(pool, 16);
    EXPECT_EQ(kvtest::newCallsOfSize(sizeof(selected_entity)) - before, 16);
}

TEST_F(RecordPoolTest, RecordsMadeByNewAreDeletedAlike) {
    const std::unique_ptr<selected_entity> plain(new selected_entity);
    const std::unique_ptr<selected_entity> quiet(new (std::nothrow) selected_entity);
    EXPECT_NE(plain, quiet);
}

TEST_F(RecordPoolTest, PoolThatCannotGrowIsAsItWas) {
    kvtest::forEachAllocationFailure([](kvtest::FailurePoint& point) {
        RecordPool pool;
        Records records;
        records.reserve(201);
        const kvtest::Outcome outcome = point.run([&] {
            while (records.size() < 200)
                records.push_back(make(pool));
        });
        EXPECT_EQ(outcome.failed, outcome.injected);
        records.push_back(make(pool));
        EXPECT_EQ(records.back()->gsMarker, -1);
    });
}

} // namespace
