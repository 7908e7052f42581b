// RecordTracker: finds the records of the library that are not deleted.
#pragma once

#include "selectcontext/selected_entity.h"

#include <cstddef>
#include <functional>
#include <set>
#include <unordered_set>
#include <vector>

namespace kvtest {

// Removing an item leaves its record to the caller. An edit of shared data first copies the data; the record
// that it then removes is a copy, whose address no caller has. A test finds such records through the tracker
// and deletes them.
//
// The tracker sees malloc, posix_memalign and free, from which the operators new and delete of the tests take
// their memory. Its test is registered with TRACKS_RECORDS.
//
// Invariants:
//  1. `mBlocks` holds live blocks of a record's size that were allocated while the tracker was recording.
//     Such a block is a record, or the data of a set, which has the same size.
//  2. `mChunks` holds the live blocks of a chunk's size that were allocated since the tracker was made. A
//     chunk contains records of a pool; which of them are live is read from the chunk.
//  3. `mTaken` holds the records that were live at the last call of takeNew(), without those whose block or
//     chunk was freed since. A pool uses each cell of a chunk once, so no other record has the address of a
//     deleted one.
//
// Thread safety: none. One tracker may exist at a time, and meanwhile one thread may allocate.
class RecordTracker {
public:
    // Whether it records from the beginning or only while a Recording lives.
    enum class Start { kRecording, kPaused };
    explicit RecordTracker(Start start = Start::kRecording);
    RecordTracker(const RecordTracker&) = delete;
    RecordTracker& operator=(const RecordTracker&) = delete;
    ~RecordTracker();

    // The tracker that exists.
    static RecordTracker& current();

    // Switches recording on or off while it lives. Code that allocates other blocks of a record's size runs
    // while recording is off.
    class Recording {
    public:
        Recording(RecordTracker& tracker, bool on) noexcept;
        Recording(const Recording&) = delete;
        Recording& operator=(const Recording&) = delete;
        ~Recording();

    private:
        RecordTracker& mTracker;
        const bool mBefore;
    };

    // Forgets a block that holds no record. Does nothing for a block that the tracker does not know.
    void ignore(const void* block);

    // The live records in ascending order of their addresses. O(n log n).
    std::vector<selected_entity*> live();

    // O(chunks).
    std::size_t liveCount() const;

    // O(log chunks).
    bool isLive(const void* record) const;

    // The live records that have a block of their own.
    std::size_t blockCount() const { return mBlocks.size(); }

    // The live records that were made since the last call, in ascending order of their addresses. O(n log n).
    std::vector<selected_entity*> takeNew();

    // Calls the function once, at the allocation of the next record with a block of its own. An edit of
    // shared data allocates records while it copies; the function can act as another owner of the data at
    // that moment.
    void atNextRecord(std::function<void()> call);

    // What the wrappers of malloc, posix_memalign and free report.
    void allocated(void* memory, std::size_t bytes);
    void freed(const void* memory);

private:
    // std::bad_alloc when there is no memory.
    static void* allocateUntracked(std::size_t bytes);
    static void freeUntracked(void* memory) noexcept;

    // The tracker's own memory is not tracked.
    template <class T>
    struct UntrackedAllocator {
        using value_type = T;

        UntrackedAllocator() noexcept = default;
        template <class U>
        UntrackedAllocator(const UntrackedAllocator<U>&) noexcept {}

        T* allocate(std::size_t n) { return static_cast<T*>(allocateUntracked(n * sizeof(T))); }
        void deallocate(T* memory, std::size_t) noexcept { freeUntracked(memory); }

        friend bool operator==(const UntrackedAllocator&, const UntrackedAllocator&) noexcept { return true; }
        friend bool operator!=(const UntrackedAllocator&, const UntrackedAllocator&) noexcept {
            return false;
        }
    };
    using Addresses = std::unordered_set<const void*, std::hash<const void*>, std::equal_to<>,
                                         UntrackedAllocator<const void*>>;
    using OrderedAddresses = std::set<const void*, std::less<>, UntrackedAllocator<const void*>>;

    template <class Visit>
    void forEachLive(Visit visit) const;

    bool mRecords;
    Addresses mBlocks;
    OrderedAddresses mChunks;
    Addresses mTaken;
    std::function<void()> mAtNextRecord;
};

} // namespace kvtest
