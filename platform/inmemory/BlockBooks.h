// Which blocks of _kvMalloc are live, and what was freed wrongly.
#pragma once

#include "platform/inmemory/BookMap.h"

#include <cstddef>
#include <mutex>

namespace kvinmemory {

class BlockBooks {
public:
    void clear();

    void countCall(std::size_t bytes);
    void enter(void* memory, std::size_t bytes);

    // Counts a free and answers whether the block is really to be given back: it was live until now.
    bool strike(void* memory);

    bool isLive(const void* memory) const;

    struct Counts {
        long calls = 0;
        long frees = 0;
        long liveBlocks = 0;
        long liveBytes = 0;
        long foreignFrees = 0;
        long doubleFrees = 0;
    };
    Counts counts() const;
    long callsOfSize(std::size_t bytes) const;
    long liveBlocksOfSize(std::size_t bytes) const;

private:
    struct Block {
        std::size_t bytes;
        bool live;
    };
    struct PerSize {
        long calls = 0;
        long live = 0;
    };

    PerSize perSize(std::size_t bytes) const;

    mutable std::mutex mMutex;
    BookMap<const void*, Block>
        mBlocks; // freed ones stay, until their address comes back, to tell a second free
    BookMap<std::size_t, PerSize> mSizes;
    Counts mCounts;
};

} // namespace kvinmemory
