// Runs a measurement in a process of its own. No earlier measurement has used the heap of that process.
// Memory that the measurement does not free goes away with the process. Such memory is usual: the library
// keeps removed records on purpose.
#pragma once

#include <limits>
#include <malloc.h>
#include <optional>
#include <sys/wait.h>
#include <thread>
#include <type_traits>
#include <unistd.h>

namespace kvbench {

// Starts a second thread, which only sleeps. Without it, reference counts and the allocator would be faster
// than in an application, which has several threads.
inline void startIdleThread() {
    std::thread([] {
        for (;;)
            ::pause();
    }).detach();
}

// Makes malloc keep freed memory for the next set. In a new process, malloc would give the end of the heap
// and large blocks back to the system. In an application that has run for a while, malloc does so less often:
// it raises the two limits below when large blocks are freed.
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
