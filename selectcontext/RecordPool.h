// RecordPool: memory for the records of one set's data.
#pragma once

#include "base/KvShortcuts.h"
#include "selectcontext/selected_entity.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

namespace kvdetail {

// Records are taken from small chunks, one behind the other, and memory is never handed out twice. Anybody
// may delete a record at any time on any thread, also when its set is gone: removal leaves records to whoever
// has their address. The first few records of a set, and records outside any set, come from operator new one
// by one.
//
// Invariants:
//  1. A record in a chunk lies at an odd multiple of 8, with the address of its chunk in the word in front of
//     it. A record from operator new lies at a multiple of 16. So the address tells the two apart.
//  2. A chunk's `owners` is the number of its records that were not deleted, plus one for each that was not
//     handed out, plus one for the pool while it hands out from it.
//  3. The word in front of a record that was not handed out, or was deleted, is null.
//  4. A chunk lives until its last owner is gone. Chunks are small: one record that is left unreleased holds
//     only its neighbours' memory back.
//
// Thread safety: handing out belongs to the data's thread; giving back is for any thread.
class RecordPool {
    struct Chunk;

public:
    RecordPool() = default;
    RecordPool(const RecordPool&) = delete;
    RecordPool& operator=(const RecordPool&) = delete;
    ~RecordPool() { close(); }

    // O(1). std::bad_alloc when there is no memory.
    void* allocate() {
        if (!kHasRecordPool || mAlone < kFewestRecords) {
            void* const record = selected_entity::operator new(sizeof(selected_entity));
            ++mAlone;
            return record;
        }
        if (!mChunk || mUsed == kCells)
            open();
        Cell* const cell = mChunk->cells + mUsed++;
        cell->chunk = mChunk;
        return cell->record;
    }

    // Later records are taken from fresh memory, as those of a new set. O(1).
    void close() noexcept {
        if (mChunk)
            disown(mChunk, kCells - mUsed + 1);
        mChunk = nullptr;
        mAlone = 0;
    }

    // A copy of many records takes them from chunks from the first one on.
    void expectMany(std::uint32_t records) noexcept {
        if (records > kFewestRecords)
            mAlone = kFewestRecords;
    }

    static void deallocate(void* record) noexcept {
        if (Chunk* const chunk = takeFromChunk(record))
            disown(chunk, 1);
        else
            ::operator delete(record);
    }

    // For whoever watches memory: calls visit(record) for the records that exist in the chunk at this
    // address.
    static constexpr std::size_t kChunkBytes = 4016;
    template <class Visit>
    static void forEachOfChunk(void* memory, Visit visit) {
        auto* const chunk = static_cast<Chunk*>(memory);
        for (Cell& cell : chunk->cells) {
            if (cell.chunk == chunk)
                visit(reinterpret_cast<selected_entity*>(cell.record));
        }
    }

    // Destroys records one after the other, and counts those that are neighbours down at once.
    class Destroyer {
    public:
        Destroyer() = default;
        Destroyer(const Destroyer&) = delete;
        Destroyer& operator=(const Destroyer&) = delete;
        ~Destroyer() { flush(); }

        void destroy(selected_entity* record) noexcept {
            if (!isInChunk(record)) {
                delete record;
                return;
            }
            record->~selected_entity();
            Chunk* const chunk = takeFromChunk(record);
            if (chunk != mChunk)
                flush();
            mChunk = chunk;
            ++mCount;
        }

    private:
        void flush() noexcept {
            if (mChunk)
                disown(mChunk, mCount);
            mChunk = nullptr;
            mCount = 0;
        }

        Chunk* mChunk = nullptr;
        std::uint32_t mCount = 0;
    };

private:
    static constexpr std::uint32_t kFewestRecords = 16; // a set of up to so many takes no chunk
    static constexpr std::uint32_t kCells = 50;         // a chunk is 4 KB
    static constexpr std::size_t kTellingBit = 8;

    struct alignas(2 * kTellingBit) Cell {
        Chunk* chunk;
        unsigned char record[sizeof(selected_entity)];
    };
    static_assert(offsetof(Cell, record) == kTellingBit && alignof(selected_entity) <= kTellingBit &&
                      __STDCPP_DEFAULT_NEW_ALIGNMENT__ >= 2 * kTellingBit,
                  "the address of a record tells where its memory comes from");

    struct Chunk {
        std::atomic<std::uint32_t> owners;
        Cell cells[kCells];
    };

    static_assert(sizeof(Chunk) == kChunkBytes);

    // False for a record that has its memory to itself, and for null.
    static bool isInChunk(const void* record) noexcept {
        return kHasRecordPool && (reinterpret_cast<std::uintptr_t>(record) & kTellingBit) != 0;
    }

    // Strikes a record out, and returns its chunk; null for a record that is in none.
    static Chunk* takeFromChunk(void* record) noexcept {
        if (!isInChunk(record))
            return nullptr;
        auto* const cell =
            reinterpret_cast<Cell*>(static_cast<unsigned char*>(record) - offsetof(Cell, record));
        return std::exchange(cell->chunk, nullptr);
    }

    static void disown(Chunk* chunk, std::uint32_t count) noexcept {
        if (chunk->owners.fetch_sub(count, std::memory_order_acq_rel) == count)
            ::operator delete(chunk);
    }

    void open() {
        void* const memory = ::operator new(sizeof(Chunk));
        if (mChunk)
            disown(mChunk, 1);
        mChunk = static_cast<Chunk*>(memory);
        new (&mChunk->owners) std::atomic<std::uint32_t>(kCells + 1);
        for (Cell& cell : mChunk->cells)
            cell.chunk = nullptr;
        mUsed = 0;
    }

    Chunk* mChunk = nullptr;  // the one that records are taken from
    std::uint32_t mUsed = 0;  // of its cells
    std::uint32_t mAlone = 0; // records from operator new since the pool was made or closed
};

} // namespace kvdetail
