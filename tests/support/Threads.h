// What tests that start threads share; the thread sanitizer is their judge.
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

// The books of memory and events are kept under locks, which would order the threads and so hide what is
// wrong: here they are closed.
class ThreadTest : public KvTest {
protected:
    void SetUp() override {
        KvTest::SetUp();
        kvinmemory::setLogging(false);
        kvinmemory::trackMemory(false);
        trackNewSizes(false);
    }
};

// Runs work(n) for each n below count on a thread of its own. All begin at the same moment, and nothing after
// that orders one against another.
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

// Waits until a count of owners is one. The reads are relaxed, so that it is the library's own look at the
// count that orders what the last owner does next.
inline void waitUntilOne(const std::atomic<std::uint32_t>& count) {
    while (count.load(std::memory_order_relaxed) != 1)
        std::this_thread::yield();
}

} // namespace kvtest
