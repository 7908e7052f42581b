// libKvOsBase: memory, exceptions, the crash recorder and the lock.
//
// An application that uses the selection-set library provides everything that is declared here.
#pragma once

#include "platform/KvSeamExport.h"

#include <cstddef>

// Defined in base/KvVector.h; this library only provides the one empty block.
struct KvVectorBlock;

extern "C" {

// Memory for whatever crosses library boundaries: vector blocks, delegated element storage, elastic blocks,
// entity infos and the sets of the named list. bytes: any value. Answers memory aligned for every scalar
// type, or null when there is none; never throws. May be called on any thread.
KV_SEAM_API void* _kvMalloc(std::size_t bytes) noexcept;

// Gives back what _kvMalloc answered, once. Null is fine. May be called on any thread.
KV_SEAM_API void _kvFree(void* memory) noexcept;
}

// The block that every empty vector of every element type shares. Whoever provides it holds one reference to
// it, so its count never falls to zero, and it is constant-initialised, since static vectors are built before
// main(). It has lengths 0, grow length 8 and no storage, and nobody writes any of that, only the atomic
// count. It may be null: a vector without a block is an empty vector too.
KV_SEAM_API extern KvVectorBlock* gpEmptyVectorData;

// What the library throws is thrown as a pointer to an object made with `new`. Whoever catches it owns it: it
// is deleted through this class once it has been dealt with.
class KV_SEAM_API KvException {
public:
    KvException() = default;
    KvException(const KvException&) = delete;
    KvException& operator=(const KvException&) = delete;
    virtual ~KvException();
};

// A status number. The file name is kept as it was passed, not copied: pass a literal.
class KV_SEAM_API KvErrorStatus : public KvException {
public:
    KvErrorStatus(int status, const wchar_t* file, int line);
    ~KvErrorStatus() override;

    int status() const noexcept;
    const wchar_t* file() const noexcept;
    int line() const noexcept;

private:
    const wchar_t* mFile;
    int mStatus;
    int mLine;
};

// A message for a developer. File name and message are kept as they were passed, not copied: pass literals.
class KV_SEAM_API KvExceptionWithMsg : public KvException {
public:
    KvExceptionWithMsg(const wchar_t* file, int line, const wchar_t* message);
    ~KvExceptionWithMsg() override;

    const wchar_t* file() const noexcept;
    int line() const noexcept;
    const wchar_t* message() const noexcept;

private:
    const wchar_t* mFile;
    const wchar_t* mMessage;
    int mLine;
};

// Is shown every exception right before it is thrown, on the thread that throws it. The exception stays the
// catcher's: an implementation takes notes, keeps no pointer that it would follow later, deletes nothing and
// throws nothing.
class KV_SEAM_API IKvCrashRecorder {
public:
    virtual void recordException(KvException* exception) = 0;

protected:
    ~IKvCrashRecorder() = default;
};

// The recorder to show exceptions to, or null when there is none. It stays the application's and is to live
// for as long as this function answers it. May be called on any thread.
KV_SEAM_API IKvCrashRecorder* gxapGetCrashRecorder();

// A lock for code that shares data between threads. A thread that holds it may take it again and then gives
// it back as often. The library constructs and destroys one and never takes it itself.
class KV_SEAM_API KvLocker {
public:
    KvLocker();
    KvLocker(const KvLocker&) = delete;
    KvLocker& operator=(const KvLocker&) = delete;
    ~KvLocker();

    void lock();
    void unlock();

private:
    void* mLock;
};
