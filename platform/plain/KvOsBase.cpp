// The plain libKvOsBase: memory from malloc, a recorder and a lock. The exceptions are in KvException.cpp.
#include "platform/KvOsBase.h"

#include "base/KvVector.h"
#include "platform/plain/PlainOsBase.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <mutex>

// ---- Memory

void* _kvMalloc(std::size_t bytes) noexcept {
    return std::malloc(bytes);
}

void _kvFree(void* memory) noexcept {
    std::free(memory);
}

// ---- The empty block

namespace kvplain {

namespace {

constexpr std::int32_t kGrowLength = 8;

KvVectorBlock gEmptyBlock{1, 0, 0, kGrowLength, nullptr};
std::atomic<IKvCrashRecorder*> gRecorder{nullptr};

} // namespace

} // namespace kvplain

KvVectorBlock* gpEmptyVectorData = &kvplain::gEmptyBlock;

// ---- The crash recorder

void kvplain::installCrashRecorder(IKvCrashRecorder* recorder) noexcept {
    gRecorder.store(recorder);
}

IKvCrashRecorder* gxapGetCrashRecorder() {
    return kvplain::gRecorder.load();
}

// ---- The lock

KvLocker::KvLocker() : mLock(new std::recursive_mutex) {}

KvLocker::~KvLocker() {
    delete static_cast<std::recursive_mutex*>(mLock);
}

void KvLocker::lock() {
    static_cast<std::recursive_mutex*>(mLock)->lock();
}

void KvLocker::unlock() {
    static_cast<std::recursive_mutex*>(mLock)->unlock();
}
