// libKvOsBase: memory, exceptions, the crash recorder and the lock.
//
// The application provides everything that this header declares.
#pragma once

#include "platform/KvSeamExport.h"

#include <cstddef>

// The block of a vector. base/KvVector.h defines this structure. libKvOsBase defines at most one such block:
// the empty block below.
struct KvVectorBlock;

extern "C" {

// Allocates memory that one library may allocate and another may free, such as the blocks of vectors. `bytes`
// may be any value. The memory is aligned for every scalar type. Returns null if there is no memory. Never
// throws. Any thread may call this function.
KV_SEAM_API void* _kvMalloc(std::size_t bytes) noexcept;

// Frees memory of _kvMalloc. The caller must free each block only once. Does nothing for null. Any thread may
// call this function.
KV_SEAM_API void _kvFree(void* memory) noexcept;
}

// The block that all empty vectors of all element types share.
//
// Invariants:
//  1. The application owns one reference to the block, so `refCount` never falls to 0.
//  2. gpEmptyVectorData is initialised at compile time. Static vectors may use it before main().
//  3. The block has lengths 0, grow length 8 and no storage. Only its `refCount` changes.
//
// gpEmptyVectorData may be null. An empty vector then has no block.
KV_SEAM_API extern KvVectorBlock* gpEmptyVectorData;

// Base class of the library's exceptions. The library throws a pointer to an object made with `new`.
//
// Invariant: the handler that catches the pointer owns the object and deletes it through this class.
//
// Thread safety: an exception belongs to the thread that throws it.
class KV_SEAM_API KvException {
public:
    // Makes an exception without a text.
    KvException() = default;
    KvException(const KvException&) = delete;
    KvException& operator=(const KvException&) = delete;
    // Called by the handler that catches the exception.
    virtual ~KvException();
};

// An exception that carries a status number.
//
// Invariants:
//  1. The object does not change after its construction.
//  2. The file name is the pointer that was passed, not a copy. Callers pass a literal.
//
// Thread safety: as KvException.
class KV_SEAM_API KvErrorStatus : public KvException {
public:
    // Keeps the pointer `file`. `file` must live as long as the exception.
    KvErrorStatus(int status, const wchar_t* file, int line);

    // Called by the handler that catches the exception.
    ~KvErrorStatus() override;

    // Return what the constructor was given.
    int status() const noexcept;
    const wchar_t* file() const noexcept;
    int line() const noexcept;

private:
    const wchar_t* mFile;
    int mStatus;
    int mLine;
};

// An exception that carries a message for a developer.
//
// Invariants:
//  1. The object does not change after its construction.
//  2. File name and message are the pointers that were passed, not copies. Callers pass literals.
//
// Thread safety: as KvException.
class KV_SEAM_API KvExceptionWithMsg : public KvException {
public:
    // Keeps the pointers. File name and message must live as long as the exception.
    KvExceptionWithMsg(const wchar_t* file, int line, const wchar_t* message);

    // Called by the handler that catches the exception.
    ~KvExceptionWithMsg() override;

    // Return what the constructor was given.
    const wchar_t* file() const noexcept;
    int line() const noexcept;
    const wchar_t* message() const noexcept;

private:
    const wchar_t* mFile;
    const wchar_t* mMessage;
    int mLine;
};

// An observer of exceptions. The library calls recordException() right before it throws an exception.
//
// Invariants of an implementation:
//  1. It does not delete the exception. The code that catches the exception owns it.
//  2. It does not dereference the pointer to the exception after recordException() has returned.
//  3. It throws nothing. If it does, its exception is thrown instead of the one that it was shown.
//  4. It does not use the set, iterator or container whose operation throws. That object may be in the middle
//     of a change.
//
// Thread safety: the library calls recordException() on the thread that throws, which may be any thread.
class KV_SEAM_API IKvCrashRecorder {
public:
    // Sees an exception that is about to be thrown. The pointer is never null.
    virtual void recordException(KvException* exception) = 0;

protected:
    // Only the application destroys its recorder, by its own type.
    ~IKvCrashRecorder() = default;
};

// Returns the recorder that observes exceptions, or null. The application owns the recorder, and keeps it
// alive while this function returns it. Any thread may call this function.
KV_SEAM_API IKvCrashRecorder* gxapGetCrashRecorder();

// A recursive lock for code that shares data between threads. The library constructs and destroys one lock,
// but never locks it.
//
// Invariants:
//  1. At most one thread owns the lock.
//  2. The owner may call lock() again, and must call unlock() as often as lock().
//
// Thread safety: any thread may call lock() and unlock(). Only one thread may construct or destroy the lock.
class KV_SEAM_API KvLocker {
public:
    // Makes a lock that no thread owns.
    KvLocker();
    KvLocker(const KvLocker&) = delete;
    KvLocker& operator=(const KvLocker&) = delete;

    // No thread may own the lock.
    ~KvLocker();

    // lock() waits until the calling thread owns the lock. unlock() ends one call of lock().
    void lock();
    void unlock();

private:
    void* mLock;
};
