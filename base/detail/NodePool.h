// NodePool: allocates the nodes of one container.
#pragma once

#include "base/detail/Sanitizers.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>
#if KV_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

namespace kvdetail {

// Code that is compiled with the address sanitizer poisons each node that it frees, and does not reuse the
// node. Other code reuses the nodes that it frees. Both kinds of code can free nodes of the same pool. So a
// sanitized program works with a library that is not sanitized.
#if KV_ADDRESS_SANITIZER
constexpr bool kReusesNodes = false;
inline void poison(void* node, std::size_t bytes) noexcept {
    ASAN_POISON_MEMORY_REGION(node, bytes);
}
#else
constexpr bool kReusesNodes = true;
inline void poison(void* /*node*/, std::size_t /*bytes*/) noexcept {}
#endif

// Allocates nodes of one size, that of the first request, from chunks. Chunks grow with the number of nodes.
// New nodes of a chunk are contiguous. Freed nodes are kept in a free list and reused first. A request of
// another size, or for more than kLargestNode bytes, is passed on to operator new.
//
// Invariants:
//  1. live() is the number of allocated nodes.
//  2. generation() rises when a value is constructed or destroyed in a node, and when a node is extracted
//     from its container. An unchanged generation means that the container has gained and lost no value. It
//     also means that no node was given a new value, or extracted and inserted again.
//  3. The pool lives until it has neither owners nor allocated nodes. Every container that takes nodes from
//     the pool is an owner, and so is the maker of the pool.
//
// Thread safety: addOwner() and release() may be called on any thread. Any number of threads may call live()
// and generation() at once, while no thread changes the container. Only the thread that may change the
// container may call the other functions.
class NodePool {
public:
    NodePool() = default;
    NodePool(const NodePool&) = delete;
    NodePool& operator=(const NodePool&) = delete;

    // Add an owner, and remove one. The maker of the pool is the first owner. release() deletes a pool that
    // has neither owners nor allocated nodes left.
    void addOwner() noexcept { mOwners.fetch_add(1, std::memory_order_relaxed); }
    void release() noexcept {
        if (mOwners.fetch_sub(1, std::memory_order_acq_rel) == 1 && mLive == 0)
            delete this;
    }

    // Raises generation(). The caller must call this when a value is constructed or destroyed in a node, and
    // when a node is extracted.
    void noteChanged() noexcept { ++mGeneration; }

    std::size_t bytes() const noexcept { return mChunkBytes; } // of all chunks
    std::size_t live() const noexcept { return mLive; }
    std::uint64_t generation() const noexcept { return mGeneration; }

    // Returns memory of this size: a node, or memory from operator new for another size than that of the
    // nodes. O(1). Throws std::bad_alloc if there is no memory.
    void* allocate(std::size_t bytes) {
        if (mNodeBytes == 0 && bytes <= kLargestNode)
            mNodeBytes = rounded(bytes);
        if (!isNode(bytes))
            return ::operator new(bytes);
        void* const node = mFreeList ? takeFreed() : takeFresh();
        ++mLive;
        return node;
    }

    // Frees memory that allocate() returned. Deletes the pool if it has neither owners nor nodes left. O(1).
    void deallocate(void* memory, std::size_t bytes) noexcept {
        if (!isNode(bytes)) {
            ::operator delete(memory);
            return;
        }
        if (kReusesNodes)
            mFreeList = new (memory) FreeNode{mFreeList};
        else
            poison(memory, mNodeBytes);
        --mLive;
        if (mLive == 0 && mOwners.load(std::memory_order_acquire) == 0)
            delete this;
    }

    // Frees all nodes at once, and removes one container from the owners. The destructor of that container
    // must never run. All allocated nodes must belong to that container. O(chunks).
    void reclaimAbandoned() noexcept {
        freeChunks();
        mFreeList = nullptr;
        mNext = nullptr;
        mEnd = nullptr;
        mChunkBytes = 0;
        mLive = 0;
        ++mGeneration;
        release();
    }

private:
    struct FreeNode {
        FreeNode* next;
    };
    struct alignas(alignof(std::max_align_t)) Chunk {
        Chunk* next;
    };

    static constexpr std::size_t kAlignment = alignof(std::max_align_t);
    static constexpr std::size_t kLargestNode = 4096;
    static constexpr std::size_t kFewestNodes = 8;
    static constexpr std::size_t kMostNodes = 1024;

    static std::uint32_t rounded(std::size_t nodeBytes) noexcept {
        const std::size_t units = (nodeBytes + kAlignment - 1) / kAlignment;
        return static_cast<std::uint32_t>(std::max<std::size_t>(units, 1) * kAlignment);
    }

    bool isNode(std::size_t bytes) const noexcept {
        return bytes <= kLargestNode && rounded(bytes) == mNodeBytes;
    }

    ~NodePool() { freeChunks(); }

    void* takeFreed() noexcept {
        FreeNode* const node = mFreeList;
        mFreeList = node->next;
        return node;
    }

    void* takeFresh() {
        if (mNext == mEnd)
            addChunk();
        unsigned char* const node = mNext;
        mNext += mNodeBytes;
        return node;
    }

    // Adds a chunk with room for as many nodes as the other chunks together, but for at most kMostNodes.
    // Passes copies of the constants, not references. A reference makes a constant a unique symbol of an
    // unoptimised plug-in, and the loader never unloads such a plug-in.
    void addChunk() {
        const std::size_t nodes =
            std::clamp(mChunkBytes / mNodeBytes, std::size_t{kFewestNodes}, std::size_t{kMostNodes});
        const std::size_t bytes = sizeof(Chunk) + nodes * mNodeBytes;
        auto* const memory = static_cast<unsigned char*>(::operator new(bytes));
        mChunks = new (memory) Chunk{mChunks};
        mChunkBytes += bytes;
        mNext = memory + sizeof(Chunk);
        mEnd = memory + bytes;
    }

    void freeChunks() noexcept {
        while (mChunks)
            ::operator delete(std::exchange(mChunks, mChunks->next));
    }

    FreeNode* mFreeList = nullptr;
    unsigned char* mNext = nullptr; // the part of the newest chunk that was never allocated
    unsigned char* mEnd = nullptr;
    Chunk* mChunks = nullptr;
    std::size_t mLive = 0;
    std::uint64_t mGeneration = 0;
    std::size_t mChunkBytes = 0; // bytes of all chunks
    std::uint32_t mNodeBytes = 0;
    std::atomic<std::uint32_t> mOwners{1};
};

// Removes one owner of a pool.
struct NodePoolReleaser {
    void operator()(NodePool* pool) const noexcept { pool->release(); }
};
using OwnedNodePool = std::unique_ptr<NodePool, NodePoolReleaser>;

} // namespace kvdetail
