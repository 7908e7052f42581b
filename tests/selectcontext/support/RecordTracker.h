// RecordTracker: finds the records of the library that are not deleted.
#pragma once

#include "selectcontext/selected_entity.h"

#include <cstddef>
#include <functional>
#include <set>
#include <unordered_set>
#include <vector>

namespace kvtest {

// Removing an item leaves its record to the caller. If the data is shared, an edit first copies the data, and
// then removes a copied record. The caller does not know the address of that record. A test finds such
// records through the tracker and deletes them.
//
// The tracker observes malloc, posix_memalign and free. The operators new and delete of the tests take their
// memory from these. A test that uses the tracker must be registered in CMake with TRACKS_RECORDS.
//
// Invariants:
//  1. `mBlocks` has the live blocks that were allocated while the tracker was recording, and that have the
//     size of a record. Such a block is a record, or the data of a set, which has the same size.
//  2. `mChunks` has the live blocks that were allocated since the tracker was made, and that have the size of
//     a chunk. A chunk contains records of a pool. The chunk itself tells which of its records are live.
//  3. `mTaken` has the records that were live at the last call of takeNew(), without those whose block or
//     chunk was freed since. A pool uses each cell of a chunk only once. So a new record in a chunk never has
//     the address of an older one in `mTaken`.
//
// Thread safety: none. Only one tracker may exist at a time. While it exists, only one thread may allocate.
class RecordTracker {
public:
    // Says when the tracker records: from the beginning, or only while an object of class Recording lives.
    enum class Start { kRecording, kPaused };
    explicit RecordTracker(Start start = Start::kRecording);
    RecordTracker(const RecordTracker&) = delete;
    RecordTracker& operator=(const RecordTracker&) = delete;
    ~RecordTracker();

    // Returns the tracker that exists.
    static RecordTracker& current();

    // Turns recording on or off while the object lives. Code that allocates other blocks of a record's size
    // must run while recording is off.
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

    // Forgets a block that is no record. Does nothing for a block that the tracker does not know.
    void ignore(const void* block);

    // Returns the live records, in ascending order of their addresses. O(n log n).
    std::vector<selected_entity*> live();

    // Returns the number of live records. O(chunks).
    std::size_t liveCount() const;

    // Returns whether the address is that of a live record. O(log chunks).
    bool isLive(const void* record) const;

    // Returns the number of live records that have a block of their own.
    std::size_t blockCount() const { return mBlocks.size(); }

    // Returns the live records that were made since the last call, in ascending order of their addresses. O(n
    // log n).
    std::vector<selected_entity*> takeNew();

    // Calls `call` once, when the next record that has a block of its own is allocated. An edit of shared
    // data allocates records while it copies the data. At that moment, `call` can do what another owner of
    // the data may do.
    void atNextRecord(std::function<void()> call);

    // The wrappers of malloc, posix_memalign and free call these.
    void allocated(void* memory, std::size_t bytes);
    void freed(const void* memory);

private:
    // Throws std::bad_alloc if there is no memory.
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
