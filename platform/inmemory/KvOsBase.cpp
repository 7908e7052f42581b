// The in-memory libKvOsBase: defines what KvOsBase.h declares, and the switches and logs. The exceptions are
// in platform/plain/KvException.cpp.
#include "platform/KvOsBase.h"

#include "base/KvVector.h"
#include "platform/inmemory/InMemoryOsBase.h"
#include "platform/inmemory/detail/AllocationTracker.h"
#include "platform/inmemory/detail/EventLog.h"
#include "platform/inmemory/detail/NthCallTrigger.h"

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <new>

// ---- The empty block

namespace kvinmemory {

namespace {

constexpr std::int32_t kGrowLength = 8;

KvVectorBlock gEmptyBlock{1, 0, 0, kGrowLength, nullptr};

} // namespace

} // namespace kvinmemory

KvVectorBlock* gpEmptyVectorData = &kvinmemory::gEmptyBlock;

// ---- The order of events

namespace kvinmemory {

namespace {

std::atomic<bool> gLogging{false};
std::atomic<std::uint64_t> gSequence{0};

} // namespace

void setLogging(bool on) noexcept {
    gLogging.store(on);
}

bool isLogging() noexcept {
    return gLogging.load(std::memory_order_relaxed);
}

std::uint64_t nextSequence() noexcept {
    return ++gSequence;
}

} // namespace kvinmemory

// ---- Memory

namespace kvinmemory {

namespace {

// The bits of gMemorySwitches. Usually none is set.
enum MemorySwitch : unsigned { kTracking = 1, kFailing = 2 };

std::atomic<unsigned> gMemorySwitches{0};
std::atomic<bool> gFailFromThenOn{false};
std::atomic<long> gFailedMallocs{0};
detail::NthCallTrigger gMallocFailure;
detail::AllocationTracker gAllocations;

bool isOn(MemorySwitch which) noexcept {
    return (gMemorySwitches.load(std::memory_order_relaxed) & which) != 0;
}

void turn(MemorySwitch which, bool on) noexcept {
    if (on)
        gMemorySwitches.fetch_or(which);
    else
        gMemorySwitches.fetch_and(~unsigned{which});
}

// Counts one call of _kvMalloc. Returns whether the call must fail.
bool injectsFailure() noexcept {
    if (!isOn(kFailing))
        return false;
    const long distance = gMallocFailure.countCall();
    const bool fails = distance == 0 || (distance > 0 && gFailFromThenOn.load());
    if (fails)
        ++gFailedMallocs;
    return fails;
}

// These two functions are not inlined. So with all switches off, _kvMalloc and _kvFree cost as much as malloc
// and free.
[[gnu::noinline, gnu::cold]] void* switchedMalloc(std::size_t bytes) {
    const bool tracked = isOn(kTracking);
    if (tracked)
        gAllocations.recordCall(bytes);
    if (injectsFailure())
        return nullptr;
    void* memory = std::malloc(bytes);
    if (tracked && memory != nullptr)
        gAllocations.recordAllocation(memory, bytes);
    return memory;
}

[[gnu::noinline, gnu::cold]] void trackedFree(void* memory) {
    if (memory == nullptr || gAllocations.recordFree(memory))
        std::free(memory);
}

} // namespace

void trackMemory(bool on) {
    gAllocations.reset();
    turn(kTracking, on);
}

bool isTrackingMemory() noexcept {
    return isOn(kTracking);
}

long mallocCalls() {
    return gAllocations.counts().calls;
}

long mallocCallsOfSize(std::size_t bytes) {
    return gAllocations.callsOfSize(bytes);
}

long freeCalls() {
    return gAllocations.counts().frees;
}

long liveBlocks() {
    return gAllocations.counts().liveBlocks;
}

long liveBlocksOfSize(std::size_t bytes) {
    return gAllocations.liveBlocksOfSize(bytes);
}

long liveBytes() {
    return gAllocations.counts().liveBytes;
}

long foreignFrees() {
    return gAllocations.counts().foreignFrees;
}

long doubleFrees() {
    return gAllocations.counts().doubleFrees;
}

bool isLiveBlock(const void* memory) {
    return gAllocations.isLive(memory);
}

void failMalloc(long nth, FailureMode mode) noexcept {
    gFailedMallocs.store(0);
    gFailFromThenOn.store(mode == FailureMode::FromThenOn);
    gMallocFailure.arm(nth);
    turn(kFailing, true);
}

void allowMalloc() noexcept {
    turn(kFailing, false);
}

long failedMallocs() noexcept {
    return gFailedMallocs.load();
}

} // namespace kvinmemory

void* _kvMalloc(std::size_t bytes) noexcept {
    using namespace kvinmemory;
    if (gMemorySwitches.load(std::memory_order_relaxed) == 0)
        return std::malloc(bytes);
    return switchedMalloc(bytes);
}

void _kvFree(void* memory) noexcept {
    using namespace kvinmemory;
    if (isOn(kTracking))
        return trackedFree(memory);
    std::free(memory);
}

// ---- The crash recorder

namespace kvinmemory {

namespace {

RecordedException describe(const KvException* exception) {
    if (const auto* status = dynamic_cast<const KvErrorStatus*>(exception))
        return {0,       exception,      ExceptionKind::Status, status->status(),
                nullptr, status->file(), status->line()};
    if (const auto* message = dynamic_cast<const KvExceptionWithMsg*>(exception))
        return {
            0, exception, ExceptionKind::Message, 0, message->message(), message->file(), message->line()};
    return {0, exception, ExceptionKind::Other, 0, nullptr, nullptr, 0};
}

// A crash recorder that logs every exception.
//
// Invariant: the log has a description of each exception. The pointer serves only for comparisons.
//
// Thread safety: every function may be called on any thread.
class LoggingRecorder : public IKvCrashRecorder {
public:
    virtual ~LoggingRecorder() = default;

    void recordException(KvException* exception) override { mLog.append(describe(exception)); }

    detail::EventLog<RecordedException>& log() noexcept { return mLog; }

private:
    detail::EventLog<RecordedException> mLog;
};

LoggingRecorder gLoggingRecorder;
std::atomic<IKvCrashRecorder*> gRecorder{nullptr};

} // namespace

void installCrashRecorder() noexcept {
    gRecorder.store(&gLoggingRecorder);
}

void installCrashRecorder(IKvCrashRecorder* recorder) noexcept {
    gRecorder.store(recorder);
}

bool isRecordingExceptions() noexcept {
    return gRecorder.load() == &gLoggingRecorder;
}

MallocVector<RecordedException> recordedExceptions() {
    return gLoggingRecorder.log().events();
}

} // namespace kvinmemory

IKvCrashRecorder* gxapGetCrashRecorder() {
    return kvinmemory::gRecorder.load();
}

// ---- The lock

namespace kvinmemory {

namespace {

detail::EventLog<LockCall> gLockCalls;

std::recursive_mutex& mutexOf(void* lock) noexcept {
    return *static_cast<std::recursive_mutex*>(lock);
}

} // namespace

MallocVector<LockCall> lockCalls() {
    return gLockCalls.events();
}

} // namespace kvinmemory

KvLocker::KvLocker()
    : mLock(new (kvinmemory::MallocAllocator<std::recursive_mutex>().allocate(1)) std::recursive_mutex) {}

KvLocker::~KvLocker() {
    std::recursive_mutex& mutex = kvinmemory::mutexOf(mLock);
    mutex.~recursive_mutex();
    kvinmemory::MallocAllocator<std::recursive_mutex>().deallocate(&mutex, 1);
}

void KvLocker::lock() {
    kvinmemory::mutexOf(mLock).lock();
    if (kvinmemory::isLogging())
        kvinmemory::gLockCalls.append({0, this, true});
}

void KvLocker::unlock() {
    if (kvinmemory::isLogging())
        kvinmemory::gLockCalls.append({0, this, false});
    kvinmemory::mutexOf(mLock).unlock();
}

// ---- Reset

namespace kvinmemory {

void resetOsBase() {
    setLogging(false);
    gSequence.store(0);
    trackMemory(false);
    allowMalloc();
    gFailedMallocs.store(0);
    installCrashRecorder(nullptr);
    gLoggingRecorder.log().clear();
    gLockCalls.clear();
    gpEmptyVectorData = &gEmptyBlock;
}

} // namespace kvinmemory
