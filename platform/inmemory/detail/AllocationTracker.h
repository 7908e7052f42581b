// AllocationTracker: records the blocks of _kvMalloc, to detect leaks and wrong frees.
#pragma once

#include "platform/inmemory/detail/MallocContainers.h"

#include <cstddef>
#include <mutex>

namespace kvinmemory::detail {

// Records allocations and frees, in total and by block size.
//
// Invariants:
//  1. A block is live from recordAllocation() to recordFree().
//  2. mBlocks keeps a freed block until a new allocation gets the same address. So a second free of the block
//     counts as a double free, not as a foreign free.
//  3. mCounts and mSizes are the sums over all events since reset().
//
// Thread safety: every function may be called on any thread. One mutex guards all members.
class AllocationTracker {
public:
    struct Counts {
        long calls = 0; // calls of _kvMalloc, including failed calls
        long frees = 0; // calls of _kvFree, including wrong calls
        long liveBlocks = 0;
        long liveBytes = 0;
        long foreignFrees = 0; // frees of pointers to no known block
        long doubleFrees = 0;  // frees of blocks that were freed before
    };

    // Forgets all blocks and counts.
    void reset();

    void recordCall(std::size_t bytes);
    void recordAllocation(const void* memory, std::size_t bytes);

    // Returns whether the block was live. If the block was not live, the caller must not pass `memory` to
    // free().
    bool recordFree(const void* memory);

    bool isLive(const void* memory) const;

    Counts counts() const;
    long callsOfSize(std::size_t bytes) const;
    long liveBlocksOfSize(std::size_t bytes) const;

private:
    struct Block {
        std::size_t bytes;
        bool live;
    };
    struct SizeCounts {
        long calls = 0;
        long live = 0;
    };

    SizeCounts countsOfSize(std::size_t bytes) const;

    mutable std::mutex mMutex;
    MallocMap<const void*, Block> mBlocks;
    MallocMap<std::size_t, SizeCounts> mSizes;
    Counts mCounts;
};

} // namespace kvinmemory::detail
