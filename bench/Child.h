// Runs a measurement in a process of its own. The process has a heap that no other measurement has used. What
// a measurement does not free, such as the removed records that the library keeps on purpose, ends with the
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

// Starts a second thread, since applications have several. In a process with only one thread, reference
// counts and the allocator are faster than in an application.
inline void startIdleThread() {
    std::thread([] {
        for (;;)
            ::pause();
    }).detach();
}

// Keeps freed memory in the heap, so that the next set can reuse it. An application that has run for a while
// does so, too. In a new process, the end of the heap would go back to the system with every set, and so
// would large blocks. malloc raises its limit for large blocks when such blocks are freed. This function sets
// the limit to its maximum.
inline void keepFreedMemory() {
    constexpr int kLargestInHeap = 32 << 20;
    mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
    mallopt(M_MMAP_THRESHOLD, kLargestInHeap);
}

// Runs the measurement in a child process. Returns the result of the measurement, or nothing if the process
// failed.
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
