// Switches and logs of the in-memory libKvOsBase.
//
// Everything is off after loading and after resetAll() (InMemoryDatabase.h): memory then comes at the speed
// of malloc and nothing is written down. All functions may be called on any thread; numbers are exact once
// the threads that do the counted work have been joined.
#pragma once

#include "platform/KvOsBase.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <new>
#include <vector>

namespace kvinmemory {

// Allocator of the platform's own data: logs, trackers and object tables.
//
// Invariants:
//  1. The memory comes from malloc, never from `new` or _kvMalloc. The platform's own data then changes no
//     count, and no injected failure hits it.
//  2. All allocators are equal.
//
// Thread safety: an allocator has no state. Any thread may use it.
template <class T>
struct MallocAllocator {
    using value_type = T;

    MallocAllocator() noexcept = default;
    template <class U>
    MallocAllocator(const MallocAllocator<U>&) noexcept {}

    T* allocate(std::size_t n) {
        if (n > std::numeric_limits<std::size_t>::max() / sizeof(T))
            throw std::bad_alloc();
        void* memory = std::malloc(n * sizeof(T));
        if (memory == nullptr)
            throw std::bad_alloc();
        return static_cast<T*>(memory);
    }
    void deallocate(T* memory, std::size_t) noexcept { std::free(memory); }
};

template <class T, class U>
bool operator==(const MallocAllocator<T>&, const MallocAllocator<U>&) noexcept {
    return true;
}

template <class T, class U>
bool operator!=(const MallocAllocator<T>&, const MallocAllocator<U>&) noexcept {
    return false;
}

template <class T>
using MallocVector = std::vector<T, MallocAllocator<T>>;

// Former names of the two, kept for existing code.
template <class T>
using BookAllocator = MallocAllocator<T>;
template <class T>
using BookVector = MallocVector<T>;

// ---- The order of events

// Turns the logs of all four libraries on or off. Turning them off keeps what they hold.
KV_SEAM_API void setLogging(bool on) noexcept;
KV_SEAM_API bool isLogging() noexcept;

// The next number of the one sequence that orders the entries of all logs.
KV_SEAM_API std::uint64_t nextSequence() noexcept;

// ---- Memory

// While tracking is on, every block is counted and every _kvFree is checked: a pointer that is not a live
// block is counted as freed twice or as foreign, and is left alone. Turning it on forgets what was counted
// before; blocks from before that moment are foreign to it, so it belongs before the work that it watches.
KV_SEAM_API void trackMemory(bool on);
KV_SEAM_API bool isTrackingMemory() noexcept;

// Since tracking was turned on. A call that fails counts as a call, not as a block.
KV_SEAM_API long mallocCalls();
KV_SEAM_API long mallocCallsOfSize(std::size_t bytes);
KV_SEAM_API long freeCalls(); // without those of null
KV_SEAM_API long liveBlocks();
KV_SEAM_API long liveBlocksOfSize(std::size_t bytes);
KV_SEAM_API long liveBytes();
KV_SEAM_API long foreignFrees();
KV_SEAM_API long doubleFrees();

// Whether memory is the start of a block that was obtained while tracking was on and has not been freed.
KV_SEAM_API bool isLiveBlock(const void* memory);

enum class FailureMode { Once, FromThenOn };

// Lets the nth call of _kvMalloc from now on (1: the next) answer null, and in the mode FromThenOn all
// further ones. Works with and without tracking.
KV_SEAM_API void failMalloc(long nth, FailureMode mode) noexcept;

// Ends that. The number of failures stays readable.
KV_SEAM_API void allowMalloc() noexcept;

// Calls that failed on demand since the last failMalloc.
KV_SEAM_API long failedMallocs() noexcept;

// ---- The crash recorder

enum class ExceptionKind { Status, Message, Other };

struct RecordedException {
    std::uint64_t sequence;
    const KvException* exception; // for comparing only: its catcher may have deleted it
    ExceptionKind kind;
    int status;             // Status
    const wchar_t* message; // Message
    const wchar_t* file;    // Status, Message
    int line;               // Status, Message
};

// Installs the recorder that takes the notes below, or one of the caller's own, or with null none.
KV_SEAM_API void installCrashRecorder() noexcept;
KV_SEAM_API void installCrashRecorder(IKvCrashRecorder* recorder) noexcept;

// Whether the recorder that takes the notes is the one that is installed.
KV_SEAM_API bool isRecordingExceptions() noexcept;

// What that recorder was shown, oldest first. Kept whether logging is on or not.
KV_SEAM_API MallocVector<RecordedException> recordedExceptions();

// ---- The lock

struct LockCall {
    std::uint64_t sequence;
    const KvLocker* locker;
    bool isLock; // else an unlock
};

// Calls of lock and unlock while logging was on, oldest first.
KV_SEAM_API MallocVector<LockCall> lockCalls();

// Puts the switches of this library back and empties its logs; the sequence starts again. The empty block is
// reinstalled in gpEmptyVectorData, its count is left alone.
KV_SEAM_API void resetOsBase();

} // namespace kvinmemory
