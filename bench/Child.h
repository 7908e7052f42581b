// Runs a measurement in a process of its own: its heap is one that no other measurement has used, and
// whatever it leaves behind, such as the records that the library leaves unreleased on purpose, goes with the
// process.
#pragma once

#include <limits>
#include <malloc.h>
#include <optional>
#include <sys/wait.h>
#include <thread>
#include <type_traits>
#include <unistd.h>

namespace kvbench {

// An application that selects has other threads. Only beside one do reference counts and the allocator work
// as they do there: both take short cuts in a process that has started none.
inline void startIdleThread() {
    std::thread([] {
        for (;;)
            ::pause();
    }).detach();
}

// An application has run for a while: what is freed stays in its heap, and the next set is made of it. In a
// young process the end of the heap would go back to the system with every set, and every larger block, up to
// a size that grows as such blocks are freed and here is what it grows to.
inline void keepFreedMemory() {
    constexpr int kLargestInHeap = 32 << 20;
    mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
    mallopt(M_MMAP_THRESHOLD, kLargestInHeap);
}

// What `measurement` returns, or nothing when its process died.
template <class Measurement>
auto inChild(Measurement measurement) -> std::optional<decltype(measurement())> {
    using Result = decltype(measurement());
    static_assert(std::is_trivially_copyable_v<Result>);

    int ends[2];
    if (::pipe(ends) != 0)
        return std::nullopt;
    const pid_t child = ::fork();
    if (child == 0) {
        startIdleThread();
        keepFreedMemory();
        const Result result = measurement();
        const bool written = ::write(ends[1], &result, sizeof result) == sizeof result;
        ::_exit(written ? 0 : 1);
    }
    ::close(ends[1]);
    Result result;
    const bool isRead = child > 0 && ::read(ends[0], &result, sizeof result) == sizeof result;
    ::close(ends[0]);
    int status = 0;
    const bool isDone = child > 0 && ::waitpid(child, &status, 0) == child && status == 0;
    return isRead && isDone ? std::optional<Result>(result) : std::nullopt;
}

} // namespace kvbench
