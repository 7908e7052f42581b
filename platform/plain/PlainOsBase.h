// The crash recorder of the plain libKvOsBase, which has no switches and no logs.
#pragma once

#include "platform/KvOsBase.h"

// The plain platform libraries.
namespace kvplain {

// Installs a recorder, which the caller owns and keeps alive until another one is installed. Null removes the
// recorder. Any thread may call this function.
KV_SEAM_API void installCrashRecorder(IKvCrashRecorder* recorder) noexcept;

} // namespace kvplain
