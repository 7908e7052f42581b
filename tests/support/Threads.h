// Fixture and helpers of tests that start threads. The thread sanitizer reports data races in these tests.
#pragma once

#include "platform/inmemory/InMemoryOsBase.h"
#include "tests/support/KvTest.h"
#include "tests/support/NewTracking.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <thread>
#include <vector>

namespace kvtest {

// A fixture without logs and without allocation tracking. Logs and trackers lock mutexes. The locks
// would order the threads and hide data races.
//
// Invariant during a test: no log and no tracker is on.
//
// Thread safety: that of KvTest.
class ThreadTest : public KvTest {
protected:
    void SetUp() override {
        KvTest::SetUp();
        kvinmemory::setLogging(false);
        kvinmemory::trackMemory(false);
        trackNewSizes(false);
    }
};

// Runs work(n) for each n below `count`, each on its own thread. All calls start at the same time. The
// function does not order the threads after the start.
inline void onThreads(std::size_t count, const std::function<void(std::size_t)>& work) {
    std::atomic<std::size_t> missing{count};
    std::vector<std::thread> threads;
    for (std::size_t n = 0; n < count; ++n) {
        threads.emplace_back([&missing, &work, n] {
            missing.fetch_sub(1);
            while (missing.load() != 0)
                std::this_thread::yield();
            work(n);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

// Waits until a reference count is one. The reads are relaxed and do not order the threads. The library
// itself must order the work of the other owners before the work of the last owner.
inline void waitUntilOne(const std::atomic<std::uint32_t>& count) {
    while (count.load(std::memory_order_relaxed) != 1)
        std::this_thread::yield();
}

} // namespace kvtest
