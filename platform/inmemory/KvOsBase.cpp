// The in-memory libKvOsBase.
#include "platform/KvOsBase.h"

#include "base/KvVector.h"
#include "platform/inmemory/BlockBooks.h"
#include "platform/inmemory/Countdown.h"
#include "platform/inmemory/EventLog.h"
#include "platform/inmemory/InMemoryOsBase.h"

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <new>

// ---- The empty block

namespace {

constexpr std::int32_t kGrowLength = 8;

KvVectorBlock gEmptyBlock{1, 0, 0, kGrowLength, nullptr};

} // namespace

KvVectorBlock* gpEmptyVectorData = &gEmptyBlock;

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

// What a call has to look after beside malloc; nothing most of the time.
enum Watch : unsigned { kNothing = 0, kTracking = 1, kFailing = 2 };

std::atomic<unsigned> gWatch{kNothing};
std::atomic<bool> gFailFromThenOn{false};
std::atomic<long> gFailedMallocs{0};
Countdown gMallocCountdown;
BlockBooks gBlocks;

bool isOn(Watch watch) noexcept {
    return (gWatch.load(std::memory_order_relaxed) & watch) != 0;
}

void turn(Watch watch, bool on) noexcept {
    if (on)
        gWatch.fetch_or(watch);
    else
        gWatch.fetch_and(~unsigned{watch});
}

bool failsOnDemand() noexcept {
    if (!isOn(kFailing))
        return false;
    const long beyond = gMallocCountdown.count();
    const bool fails = beyond == 0 || (beyond > 0 && gFailFromThenOn.load());
    if (fails)
        ++gFailedMallocs;
    return fails;
}

// Both out of line, so that memory comes and goes at the speed of malloc as long as nobody watches.
[[gnu::noinline, gnu::cold]] void* watchedMalloc(std::size_t bytes) {
    const bool tracked = isOn(kTracking);
    if (tracked)
        gBlocks.countCall(bytes);
    if (failsOnDemand())
        return nullptr;
    void* memory = std::malloc(bytes);
    if (tracked && memory != nullptr)
        gBlocks.enter(memory, bytes);
    return memory;
}

[[gnu::noinline, gnu::cold]] void trackedFree(void* memory) {
    if (memory == nullptr || gBlocks.strike(memory))
        std::free(memory);
}

} // namespace

void trackMemory(bool on) {
    gBlocks.clear();
    turn(kTracking, on);
}

bool isTrackingMemory() noexcept {
    return isOn(kTracking);
}

long mallocCalls() {
    return gBlocks.counts().calls;
}

long mallocCallsOfSize(std::size_t bytes) {
    return gBlocks.callsOfSize(bytes);
}

long freeCalls() {
    return gBlocks.counts().frees;
}

long liveBlocks() {
    return gBlocks.counts().liveBlocks;
}

long liveBlocksOfSize(std::size_t bytes) {
    return gBlocks.liveBlocksOfSize(bytes);
}

long liveBytes() {
    return gBlocks.counts().liveBytes;
}

long foreignFrees() {
    return gBlocks.counts().foreignFrees;
}

long doubleFrees() {
    return gBlocks.counts().doubleFrees;
}

bool isLiveBlock(const void* memory) {
    return gBlocks.isLive(memory);
}

void failMalloc(long nth, FailureMode mode) noexcept {
    gFailedMallocs.store(0);
    gFailFromThenOn.store(mode == FailureMode::FromThenOn);
    gMallocCountdown.arm(nth);
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
    if (gWatch.load(std::memory_order_relaxed) == kNothing)
        return std::malloc(bytes);
    return watchedMalloc(bytes);
}

void _kvFree(void* memory) noexcept {
    using namespace kvinmemory;
    if (isOn(kTracking))
        return trackedFree(memory);
    std::free(memory);
}

// ---- Exceptions

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

// ---- The crash recorder

namespace kvinmemory {

namespace {

RecordedException noted(const KvException* exception) {
    if (const auto* status = dynamic_cast<const KvErrorStatus*>(exception))
        return {0,       exception,      ExceptionKind::Status, status->status(),
                nullptr, status->file(), status->line()};
    if (const auto* message = dynamic_cast<const KvExceptionWithMsg*>(exception))
        return {
            0, exception, ExceptionKind::Message, 0, message->message(), message->file(), message->line()};
    return {0, exception, ExceptionKind::Other, 0, nullptr, nullptr, 0};
}

class NotingRecorder : public IKvCrashRecorder {
public:
    virtual ~NotingRecorder() = default;

    void recordException(KvException* exception) override { mNotes.write(noted(exception)); }

    EventLog<RecordedException>& notes() noexcept { return mNotes; }

private:
    EventLog<RecordedException> mNotes;
};

NotingRecorder gNotingRecorder;
std::atomic<IKvCrashRecorder*> gRecorder{nullptr};

} // namespace

void installCrashRecorder() noexcept {
    gRecorder.store(&gNotingRecorder);
}

void installCrashRecorder(IKvCrashRecorder* recorder) noexcept {
    gRecorder.store(recorder);
}

bool isRecordingExceptions() noexcept {
    return gRecorder.load() == &gNotingRecorder;
}

BookVector<RecordedException> recordedExceptions() {
    return gNotingRecorder.notes().entries();
}

} // namespace kvinmemory

IKvCrashRecorder* gxapGetCrashRecorder() {
    return kvinmemory::gRecorder.load();
}

// ---- The lock

namespace kvinmemory {

namespace {

EventLog<LockCall> gLockCalls;

std::recursive_mutex& mutexOf(void* lock) noexcept {
    return *static_cast<std::recursive_mutex*>(lock);
}

} // namespace

BookVector<LockCall> lockCalls() {
    return gLockCalls.entries();
}

} // namespace kvinmemory

KvLocker::KvLocker()
    : mLock(new (kvinmemory::BookAllocator<std::recursive_mutex>().allocate(1)) std::recursive_mutex) {}

KvLocker::~KvLocker() {
    std::recursive_mutex& mutex = kvinmemory::mutexOf(mLock);
    mutex.~recursive_mutex();
    kvinmemory::BookAllocator<std::recursive_mutex>().deallocate(&mutex, 1);
}

void KvLocker::lock() {
    kvinmemory::mutexOf(mLock).lock();
    if (kvinmemory::isLogging())
        kvinmemory::gLockCalls.write({0, this, true});
}

void KvLocker::unlock() {
    if (kvinmemory::isLogging())
        kvinmemory::gLockCalls.write({0, this, false});
    kvinmemory::mutexOf(mLock).unlock();
}

// ---- Putting everything back

namespace kvinmemory {

void resetOsBase() {
    setLogging(false);
    gSequence.store(0);
    trackMemory(false);
    allowMalloc();
    gFailedMallocs.store(0);
    installCrashRecorder(nullptr);
    gNotingRecorder.notes().clear();
    gLockCalls.clear();
    gpEmptyVectorData = &gEmptyBlock;
}

} // namespace kvinmemory
