// KvNodePool: memory for the nodes of one container.
#pragma once

#include "base/KvLargeBlocks.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#if KV_WATCHES_ADDRESSES
#include <sanitizer/asan_interface.h>
#endif

namespace kvdetail {

// Under the address sanitizer, a node that was given back is fenced, and never handed out a second time. That
// goes by the code that gives it back, so that a program under the sanitizer gets on with a library that is
// not.
#if KV_WATCHES_ADDRESSES
constexpr bool kReusesNodes = false;
inline void fence(void* node, std::size_t bytes) noexcept {
    ASAN_POISON_MEMORY_REGION(node, bytes);
}
#else
constexpr bool kReusesNodes = true;
inline void fence(void* /*node*/, std::size_t /*bytes*/) noexcept {}
#endif

} // namespace kvdetail

// Hands out memory of one size, that of the first request, from chunks that grow with the number of nodes;
// nodes that are asked for one after the other lie one after the other. A request of another size, or for
// more than a node can be, goes to operator new.
//
// Invariants:
//  1. live() is the number of nodes that are out.
//  2. changes() rises with every node that is handed out, given back or taken out of its container. Equal
//     values mean that the container has neither gained nor lost a node, nor had one taken out and put back.
//  3. The pool lives until it has neither owners nor nodes that are out. Every container that takes nodes
//     from it is an owner: one that was swapped away may still give nodes back, and ask for new ones. Whoever
//     knows the pool by its address is one, too.
//
// Thread safety: owners may come and go on any thread; the rest belongs to the container's thread.
class KvNodePool {
public:
    KvNodePool() = default;
    KvNodePool(const KvNodePool&) = delete;
    KvNodePool& operator=(const KvNodePool&) = delete;

    // One owner more, one less. Whoever makes the pool is the first.
    void addOwner() noexcept { mOwners.fetch_add(1, std::memory_order_relaxed); }
    void release() noexcept {
        if (mOwners.fetch_sub(1, std::memory_order_acq_rel) == 1 && mLive == 0)
            delete this;
    }

    // A node is taken out of its container, to be put back or given back by whoever has it.
    void noteTakenOut() noexcept { ++mChanges; }

    std::size_t live() const noexcept { return mLive; }
    std::uint64_t changes() const noexcept { return mChanges; }

    // O(1). std::bad_alloc when there is no memory.
    void* allocate(std::size_t bytes) {
        if (mNodeBytes == 0 && bytes <= kLargestNode)
            mNodeBytes = rounded(bytes);
        if (!isNode(bytes))
            return ::operator new(bytes);
        void* const node = mFree ? takeFreed() : takeFresh();
        ++mLive;
        ++mChanges;
        return node;
    }

    // O(1).
    void deallocate(void* memory, std::size_t bytes) noexcept {
        if (!isNode(bytes)) {
            ::operator delete(memory);
            return;
        }
        if (kvdetail::kReusesNodes)
            mFree = new (memory) FreeNode{mFree};
        else
            kvdetail::fence(memory, mNodeBytes);
        --mLive;
        ++mChanges;
        if (mLive == 0 && mOwners.load(std::memory_order_acquire) == 0)
            delete this;
    }

    // Takes every node back at once; the container has to forget its nodes without giving them back.
    // O(chunks).
    void reclaimAll() noexcept {
        freeChunks();
        mFree = nullptr;
        mNext = nullptr;
        mEnd = nullptr;
        mChunkBytes = 0;
        mLive = 0;
        ++mChanges;
    }

private:
    struct FreeNode {
        FreeNode* next;
    };
    struct alignas(alignof(std::max_align_t)) Chunk {
        Chunk* next;
        bool isLarge;
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

    ~KvNodePool() { freeChunks(); }

    void* takeFreed() noexcept {
        FreeNode* const node = mFree;
        mFree = node->next;
        return node;
    }

    void* takeFresh() {
        if (mNext == mEnd)
            addChunk();
        unsigned char* const node = mNext;
        mNext += mNodeBytes;
        return node;
    }

    // A chunk doubles the pool, up to kMostNodes nodes. A pool of more than a huge page grows by half, in
    // whole huge pages, or by kMostNodes nodes where no such block is to be had.
    void addChunk() {
        if (kvdetail::kHasLargeBlocks && mChunkBytes > kvdetail::kHugePageBytes && addLargeChunk())
            return;
        const std::size_t bytes = nextSmallBytes();
        enter(::operator new(bytes), bytes, false);
    }

    bool addLargeChunk() noexcept try {
        const std::size_t bytes = nextLargeBytes();
        enter(kvdetail::allocateLarge(bytes), bytes, true);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }

    void enter(void* memory, std::size_t bytes, bool isLarge) noexcept {
        mChunks = new (memory) Chunk{mChunks, isLarge};
        mChunkBytes += bytes;
        mNext = static_cast<unsigned char*>(memory) + sizeof(Chunk);
        mEnd = mNext + (bytes - sizeof(Chunk)) / mNodeBytes * mNodeBytes;
    }

    std::size_t nextSmallBytes() const noexcept {
        const std::size_t nodes = std::clamp(mChunkBytes / mNodeBytes, kFewestNodes, kMostNodes);
        return sizeof(Chunk) + nodes * mNodeBytes;
    }

    std::size_t nextLargeBytes() const noexcept {
        const std::size_t pages = mChunkBytes / kvdetail::kHugePageBytes / 2;
        return std::max<std::size_t>(pages, 1) * kvdetail::kHugePageBytes;
    }

    void freeChunks() noexcept {
        while (mChunks) {
            Chunk* const chunk = mChunks;
            mChunks = chunk->next;
            if (chunk->isLarge)
                kvdetail::deallocateLarge(chunk);
            else
                ::operator delete(chunk);
        }
    }

    FreeNode* mFree = nullptr;
    unsigned char* mNext = nullptr; // the part of the newest chunk that was never handed out
    unsigned char* mEnd = nullptr;
    Chunk* mChunks = nullptr;
    std::size_t mLive = 0;
    std::uint64_t mChanges = 0;
    std::size_t mChunkBytes = 0; // of all chunks
    std::uint32_t mNodeBytes = 0;
    std::atomic<std::uint32_t> mOwners{1};
};
