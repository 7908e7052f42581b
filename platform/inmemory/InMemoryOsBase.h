// Switches and logs of the in-memory libKvOsBase.
//
// All switches are off after loading and after resetAll() (InMemoryDatabase.h). _kvMalloc is then as fast as
// malloc, and nothing is logged.
//
// Thread safety: every function except resetOsBase() may be called on any thread. The counts are exact once
// the threads that made the counted calls have been joined.
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
//  1. The memory comes from malloc, never from `new` or _kvMalloc. So the platform's own data changes no
//     allocation count, and no injected failure affects that data.
//  2. All allocators are equal.
//
// Thread safety: an allocator has no state. Any thread may use it.
template <class T>
struct MallocAllocator {
    // What containers ask of an allocator.
    using value_type = T;

    // Makes an allocator.
    MallocAllocator() noexcept = default;

    // Makes an allocator for values of another type.
    template <class U>
    MallocAllocator(const MallocAllocator<U>&) noexcept {}

    // Returns memory for n values. Throws std::bad_alloc if there is none.
    T* allocate(std::size_t n) {
        if (n > std::numeric_limits<std::size_t>::max() / sizeof(T))
            throw std::bad_alloc();
        void* memory = std::malloc(n * sizeof(T));
        if (memory == nullptr)
            throw std::bad_alloc();
        return static_cast<T*>(memory);
    }
    // Frees memory of allocate(). Does nothing for null.
    void deallocate(T* memory, std::size_t) noexcept { std::free(memory); }
};

// Returns true.
template <class T, class U>
bool operator==(const MallocAllocator<T>&, const MallocAllocator<U>&) noexcept {
    return true;
}

// Returns false.
template <class T, class U>
bool operator!=(const MallocAllocator<T>&, const MallocAllocator<U>&) noexcept {
    return false;
}

// A vector of the platform's own data.
template <class T>
using MallocVector = std::vector<T, MallocAllocator<T>>;

// Older names of MallocAllocator and MallocVector, for existing code.
template <class T>
using BookAllocator = MallocAllocator<T>;
template <class T>
using BookVector = MallocVector<T>;

// ---- The order of events

// Turns the logs of all four libraries on or off. A log that is turned off keeps its events.
KV_SEAM_API void setLogging(bool on) noexcept;
KV_SEAM_API bool isLogging() noexcept;

// Returns the next number of the sequence that orders the events of all logs.
KV_SEAM_API std::uint64_t nextSequence() noexcept;

// ---- Memory

// Turns the allocation tracker on or off, and sets its counts to 0. The tracker counts every block and checks
// every call of _kvFree. If the pointer is not a live block, the call counts as a double free or a foreign
// free, and frees nothing. The tracker does not know blocks that were allocated before it was turned on. So
// turn it on before the first allocation that you want to check.
KV_SEAM_API void trackMemory(bool on);
KV_SEAM_API bool isTrackingMemory() noexcept;

// Return the counts since the last trackMemory(). A call of _kvMalloc that fails counts as a call, but not as
// a block.
KV_SEAM_API long mallocCalls();
KV_SEAM_API long mallocCallsOfSize(std::size_t bytes);
KV_SEAM_API long freeCalls(); // does not count calls with null
KV_SEAM_API long liveBlocks();
KV_SEAM_API long liveBlocksOfSize(std::size_t bytes);
KV_SEAM_API long liveBytes();
KV_SEAM_API long foreignFrees();
KV_SEAM_API long doubleFrees();

// Returns whether `memory` is the start of a live block that was allocated while tracking was on.
KV_SEAM_API bool isLiveBlock(const void* memory);

// How long failMalloc() works.
enum class FailureMode {
    Once,      // one call fails
    FromThenOn // that call and all later ones fail
};

// Makes the nth call of _kvMalloc from now on return null. If `nth` is 1, the next call fails. In the mode
// FromThenOn, all later calls fail, too. failMalloc() works with and without tracking.
KV_SEAM_API void failMalloc(long nth, FailureMode mode) noexcept;

// Ends the effect of failMalloc(). failedMallocs() still returns the number of failures.
KV_SEAM_API void allowMalloc() noexcept;

// Returns the number of injected failures since the last failMalloc().
KV_SEAM_API long failedMallocs() noexcept;

// ---- The crash recorder

// The class of a recorded exception.
enum class ExceptionKind {
    Status,  // KvErrorStatus
    Message, // KvExceptionWithMsg
    Other    // any other class
};

// One exception that the platform's recorder has seen.
struct RecordedException {
    std::uint64_t sequence;       // from nextSequence()
    const KvException* exception; // for comparisons only: the handler may have deleted the object
    ExceptionKind kind;           // the class
    int status;                   // Status
    const wchar_t* message;       // Message
    const wchar_t* file;          // Status, Message
    int line;                     // Status, Message
};

// Installs the platform's recorder, which logs every exception.
KV_SEAM_API void installCrashRecorder() noexcept;

// Installs the caller's recorder. Null removes the recorder.
KV_SEAM_API void installCrashRecorder(IKvCrashRecorder* recorder) noexcept;

// Returns whether the platform's recorder is installed.
KV_SEAM_API bool isRecordingExceptions() noexcept;

// Returns the exceptions that the platform's recorder has logged, oldest first. setLogging() has no effect on
// them.
KV_SEAM_API MallocVector<RecordedException> recordedExceptions();

// ---- The lock

// One logged call of KvLocker::lock() or unlock().
struct LockCall {
    std::uint64_t sequence; // from nextSequence()
    const KvLocker* locker; // for comparisons only: the lock may be gone
    bool isLock;            // false: an unlock
};

// Returns the calls of lock and unlock that were made while logging was on, oldest first.
KV_SEAM_API MallocVector<LockCall> lockCalls();

// Turns the switches of this library off and empties its logs. nextSequence() starts again at 1.
// gpEmptyVectorData points to the empty block again. The `refCount` of the empty block does not change. No
// other thread may construct a vector during the call.
KV_SEAM_API void resetOsBase();

} // namespace kvinmemory
