// RecordPool: allocates the records of one set's data.
#pragma once

#include "base/detail/Shortcuts.h"
#include "selectcontext/selected_entity.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

namespace kvdetail {

// Hands out records from chunks of 50, one after the other. It never reuses memory. A record may be deleted
// at any time on any thread, even after its set was destroyed. The first records of a set, and records
// outside any set, come from operator new one by one.
//
// Invariants:
//  1. A record in a chunk is at an odd multiple of 8, and the word before it is the address of its chunk. A
//     record from operator new is at a multiple of 16. So bit 3 of a record's address is set exactly if the
//     record is in a chunk.
//  2. A chunk's `owners` is the number of its records that are allocated or not handed out yet. `owners` is
//     one higher while the pool hands out records from the chunk.
//  3. The word before a record is null before the record is handed out and after it is deleted.
//  4. A chunk lives until it has no owners. Chunks are small, since a single record that nobody deletes keeps
//     its whole chunk allocated.
//
// Thread safety: only the thread that may edit the set's data may call the other functions. Any thread may
// call deallocate().
class RecordPool {
    struct Chunk;

public:
    RecordPool() = default;
    RecordPool(const RecordPool&) = delete;
    RecordPool& operator=(const RecordPool&) = delete;
    ~RecordPool() { close(); }

    // Returns memory for one record. Throws std::bad_alloc if there is no memory. O(1).
    void* allocate() {
        if (!kHasRecordPool || mSingles < kFewestRecords) {
            void* const record = selected_entity::operator new(sizeof(selected_entity));
            ++mSingles;
            return record;
        }
        if (!mChunk || mUsed == kCells)
            open();
        Cell* const cell = mChunk->cells + mUsed++;
        cell->chunk = mChunk;
        return cell->record;
    }

    // Makes the pool as it was when it was constructed. Records that are still allocated stay valid. O(1).
    void close() noexcept {
        if (mChunk)
            disown(mChunk, kCells - mUsed + 1);
        mChunk = nullptr;
        mSingles = 0;
    }

    // Tells the pool how many records will be allocated. If there are more than kFewestRecords, all of them
    // will come from chunks.
    void expectMany(std::uint32_t records) noexcept {
        if (records > kFewestRecords)
            mSingles = kFewestRecords;
    }

    // Allocates memory at a multiple of 16, since some systems' operator new aligns only to 8. Throws
    // std::bad_alloc if there is no memory.
    static void* allocateAligned(std::size_t bytes) {
        if constexpr (kNewIsAligned)
            return ::operator new(bytes);
        else
            return ::operator new(bytes, kAlignment);
    }

    static void deallocate(void* record) noexcept {
        if (Chunk* const chunk = takeFromChunk(record))
            disown(chunk, 1);
        else
            deallocateAligned(record);
    }

    // Destroys records one after the other. For successive records of one chunk, changes the chunk's `owners`
    // by a single atomic operation.
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
    static constexpr std::uint32_t kFewestRecords = 16; // the first records of a set come from operator new
    static constexpr std::uint32_t kCells = 50;         // a chunk is 4 KB
    static constexpr std::size_t kTagBit = 8;
    static constexpr std::align_val_t kAlignment{2 * kTagBit};
    static constexpr bool kNewIsAligned = __STDCPP_DEFAULT_NEW_ALIGNMENT__ >= 2 * kTagBit;

    struct alignas(2 * kTagBit) Cell {
        Chunk* chunk;
        unsigned char record[sizeof(selected_entity)];
    };
    static_assert(offsetof(Cell, record) == kTagBit && alignof(selected_entity) <= kTagBit,
                  "the address of a record tells where its memory comes from");

    struct Chunk {
        std::atomic<std::uint32_t> owners;
        Cell cells[kCells];
    };

    // Returns whether the record is in a chunk. Returns false for null.
    static bool isInChunk(const void* record) noexcept {
        return kHasRecordPool && (reinterpret_cast<std::uintptr_t>(record) & kTagBit) != 0;
    }

    // Marks the record as deleted and returns its chunk. Returns null for a record that is in no chunk.
    static Chunk* takeFromChunk(void* record) noexcept {
        if (!isInChunk(record))
            return nullptr;
        void* const address = static_cast<unsigned char*>(record) - offsetof(Cell, record);
        auto* const cell = static_cast<Cell*>(address);
        return std::exchange(cell->chunk, nullptr);
    }

    static void disown(Chunk* chunk, std::uint32_t count) noexcept {
        if (chunk->owners.fetch_sub(count, std::memory_order_acq_rel) == count)
            deallocateAligned(chunk);
    }

    static void deallocateAligned(void* memory) noexcept {
        if constexpr (kNewIsAligned)
            ::operator delete(memory);
        else
            ::operator delete(memory, kAlignment);
    }

    void open() {
        void* const memory = allocateAligned(sizeof(Chunk));
        if (mChunk)
            disown(mChunk, 1);
        mChunk = static_cast<Chunk*>(memory);
        new (&mChunk->owners) std::atomic<std::uint32_t>(kCells + 1);
        for (Cell& cell : mChunk->cells)
            cell.chunk = nullptr;
        mUsed = 0;
    }

    Chunk* mChunk = nullptr;    // the chunk that records are taken from
    std::uint32_t mUsed = 0;    // number of cells of mChunk that were handed out
    std::uint32_t mSingles = 0; // records taken from operator new; expectMany() sets it to kFewestRecords
};

} // namespace kvdetail
