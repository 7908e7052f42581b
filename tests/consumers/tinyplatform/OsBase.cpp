#include "TinyPlatform.h"
#include "platform/KvOsBase.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <mutex>

namespace {

// The bytes before every block of _kvMalloc. A wrong mark means that the block comes from another allocator,
// or was freed before. _kvFree() then ends the program.
struct alignas(std::max_align_t) Preamble {
    std::uint64_t mark;
};
constexpr std::uint64_t kMark = 0x54696e7942000001;

std::atomic<long> blocks{0};

} // namespace

void* _kvMalloc(std::size_t bytes) noexcept {
    if (bytes > SIZE_MAX - sizeof(Preamble))
        return nullptr;
    auto* preamble = static_cast<Preamble*>(std::malloc(sizeof(Preamble) + bytes));
    if (preamble == nullptr)
        return nullptr;
    preamble->mark = kMark;
    ++blocks;
    return preamble + 1;
}

void _kvFree(void* memory) noexcept {
    if (memory == nullptr)
        return;
    Preamble* preamble = static_cast<Preamble*>(memory) - 1;
    if (preamble->mark != kMark)
        std::abort();
    preamble->mark = 0;
    --blocks;
    std::free(preamble);
}

long tinyplatform::blocksInUse() {
    return blocks;
}

KvVectorBlock* gpEmptyVectorData = nullptr;

KvException::~KvException() = default;

KvErrorStatus::KvErrorStatus(int status, const wchar_t* file, int line)
    : mFile(file), mStatus(status), mLine(line) {}
KvErrorStatus::~KvErrorStatus() = default;
int KvErrorStatus::status() const noexcept {
    return mStatus;
}
const wchar_t* KvErrorStatus::file() const noexcept {
    return mFile;
}
int KvErrorStatus::line() const noexcept {
    return mLine;
}

KvExceptionWithMsg::KvExceptionWithMsg(const wchar_t* file, int line, const wchar_t* message)
    : mFile(file), mMessage(message), mLine(line) {}
KvExceptionWithMsg::~KvExceptionWithMsg() = default;
const wchar_t* KvExceptionWithMsg::file() const noexcept {
    return mFile;
}
int KvExceptionWithMsg::line() const noexcept {
    return mLine;
}
const wchar_t* KvExceptionWithMsg::message() const noexcept {
    return mMessage;
}

IKvCrashRecorder* gxapGetCrashRecorder() {
    return nullptr;
}

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
