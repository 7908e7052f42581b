#include "tests/selectcontext/support/RecordTracker.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <new>
#include <utility>

// The linker redirects the calls of malloc and free to these wrappers, also those in shared libraries. So the
// wrappers must be visible. The aligned operator new of the tests calls posix_memalign.
extern "C" {
void* __real_malloc(std::size_t bytes);
int __real_posix_memalign(void** memory, std::size_t alignment, std::size_t bytes);
void __real_free(void* memory);
__attribute__((visibility("default"))) void* __wrap_malloc(std::size_t bytes);
__attribute__((visibility("default"))) int __wrap_posix_memalign(void** memory, std::size_t alignment,
                                                                 std::size_t bytes);
__attribute__((visibility("default"))) void __wrap_free(void* memory);
}

namespace {

// A copy of the layout of kvdetail::RecordPool::Chunk. The word before a record is the address of the chunk
// while the record is live, and null otherwise.
struct Chunk {
    struct alignas(16) Cell {
        const Chunk* chunk;
        unsigned char record[sizeof(selected_entity)];
    };

    std::uint32_t owners;
    Cell cells[50];
};
static_assert(sizeof(Chunk) == 4016, "blocks of this size are taken for chunks");

const Chunk& chunkAt(const void* memory) {
    return *static_cast<const Chunk*>(memory);
}

bool isLive(const Chunk& chunk, const Chunk::Cell& cell) {
    return cell.chunk == &chunk;
}

selected_entity* recordAt(const void* memory) {
    return static_cast<selected_entity*>(const_cast<void*>(memory));
}

kvtest::RecordTracker* gTracker = nullptr;

} // namespace

void* __wrap_malloc(std::size_t bytes) {
    void* const memory = __real_malloc(bytes);
    if (gTracker && memory)
        gTracker->allocated(memory, bytes);
    return memory;
}

int __wrap_posix_memalign(void** memory, std::size_t alignment, std::size_t bytes) {
    const int status = __real_posix_memalign(memory, alignment, bytes);
    if (gTracker && status == 0)
        gTracker->allocated(*memory, bytes);
    return status;
}

void __wrap_free(void* memory) {
    if (gTracker && memory)
        gTracker->freed(memory);
    __real_free(memory);
}

namespace kvtest {

RecordTracker::RecordTracker(Start start) : mRecords(start == Start::kRecording) {
    if (std::exchange(gTracker, this))
        std::abort();
}

RecordTracker::~RecordTracker() {
    gTracker = nullptr;
}

RecordTracker& RecordTracker::current() {
    return *gTracker;
}

void* RecordTracker::allocateUntracked(std::size_t bytes) {
    void* const memory = __real_malloc(bytes);
    if (!memory)
        throw std::bad_alloc();
    return memory;
}

void RecordTracker::freeUntracked(void* memory) noexcept {
    __real_free(memory);
}

RecordTracker::Recording::Recording(RecordTracker& tracker, bool on) noexcept
    : mTracker(tracker), mBefore(std::exchange(tracker.mRecords, on)) {}

RecordTracker::Recording::~Recording() {
    mTracker.mRecords = mBefore;
}

void RecordTracker::ignore(const void* block) {
    mBlocks.erase(block);
}

template <class Visit>
void RecordTracker::forEachLive(Visit visit) const {
    for (const void* block : mBlocks)
        visit(recordAt(block));
    for (const void* memory : mChunks) {
        const Chunk& chunk = chunkAt(memory);
        for (const Chunk::Cell& cell : chunk.cells) {
            if (::isLive(chunk, cell))
                visit(recordAt(cell.record));
        }
    }
}

// Pauses recording, since the block of the returned vector may have the size of a record.
std::vector<selected_entity*> RecordTracker::live() {
    const Recording pause(*this, false);
    std::vector<selected_entity*> records;
    forEachLive([&records](selected_entity* record) { records.push_back(record); });
    std::sort(records.begin(), records.end());
    return records;
}

std::size_t RecordTracker::liveCount() const {
    std::size_t count = 0;
    forEachLive([&count](const selected_entity*) { ++count; });
    return count;
}

bool RecordTracker::isLive(const void* record) const {
    if (mBlocks.count(record) != 0)
        return true;
    const auto next = mChunks.upper_bound(record);
    if (next == mChunks.begin())
        return false;
    const Chunk& chunk = chunkAt(*std::prev(next));
    return std::any_of(std::begin(chunk.cells), std::end(chunk.cells), [&](const Chunk::Cell& cell) {
        return ::isLive(chunk, cell) && cell.record == record;
    });
}

std::vector<selected_entity*> RecordTracker::takeNew() {
    const Recording pause(*this, false);
    std::vector<selected_entity*> fresh;
    Addresses live;
    forEachLive([&](selected_entity* record) {
        live.insert(record);
        if (mTaken.count(record) == 0)
            fresh.push_back(record);
    });
    mTaken.swap(live);
    std::sort(fresh.begin(), fresh.end());
    return fresh;
}

void RecordTracker::atNextRecord(std::function<void()> call) {
    mAtNextRecord = std::move(call);
}

void RecordTracker::allocated(void* memory, std::size_t bytes) {
    if (bytes == sizeof(Chunk))
        mChunks.insert(memory);
    if (!mRecords || bytes != sizeof(selected_entity))
        return;
    mBlocks.insert(memory);
    if (const auto call = std::exchange(mAtNextRecord, nullptr))
        call();
}

void RecordTracker::freed(const void* memory) {
    mTaken.erase(memory);
    mBlocks.erase(memory);
    if (mChunks.erase(memory) == 0)
        return;
    for (const Chunk::Cell& cell : chunkAt(memory).cells)
        mTaken.erase(cell.record);
}

} // namespace kvtest
