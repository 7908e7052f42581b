// Raises all errors of the library.
#pragma once

#include "platform/KvOsBase.h"

#include <memory>

namespace kvdetail {

// The statuses that the containers and the library raise.
constexpr int kStatusNoElement = 2;     // a vector has no element after it has grown
constexpr int kStatusOutOfMemory = 6;   // no memory for a block, storage, a page or an array
constexpr int kStatusInvalidIndex = 24; // an index outside the container, or a free slot

// Errors have no source position. The file name is always a pair of quotation marks, and callers may rely on
// that.
constexpr const wchar_t* kNoFile = L"\"\"";
constexpr int kNoLine = 0;

// Passes the exception to the crash recorder, if there is one, and throws the pointer. The catcher owns the
// exception. If the recorder throws, which it must not do, deletes the exception.
template <class Exception>
[[noreturn]] void raise(std::unique_ptr<Exception> exception) {
    if (IKvCrashRecorder* recorder = gxapGetCrashRecorder())
        recorder->recordException(exception.get());
    throw exception.release();
}

// raiseStatus() and raiseMessage() are cold and not inlined. So a function that checks for an error pays only
// for a branch that is not taken.
[[noreturn, gnu::noinline, gnu::cold]] inline void raiseStatus(int status) {
    raise(std::make_unique<KvErrorStatus>(status, kNoFile, kNoLine));
}

[[noreturn, gnu::noinline, gnu::cold]] inline void raiseMessage(const wchar_t* message) {
    raise(std::make_unique<KvExceptionWithMsg>(kNoFile, kNoLine, message));
}

} // namespace kvdetail
