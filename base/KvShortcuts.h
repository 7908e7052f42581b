// The library's shortcuts, each to be switched off for comparison: what the library does, and every result,
// stays the same without them. All code of one process has to agree on the switches.
#pragma once

// 1 or 0 for all of them; each can be set by itself as well.
#ifndef KV_SHORTCUTS
#define KV_SHORTCUTS 1
#endif

// Pages of a store are found by address and by number instead of along their chain.
#ifndef KV_SHORTCUT_PAGE_INDEX
#define KV_SHORTCUT_PAGE_INDEX KV_SHORTCUTS
#endif

// Slots of a page are counted by arithmetic or by bits instead of one by one.
#ifndef KV_SHORTCUT_OCCUPANCY
#define KV_SHORTCUT_OCCUPANCY KV_SHORTCUTS
#endif

// The epoch of stores is read by an instruction, which the thread sanitizer could not see.
#if defined(__SANITIZE_THREAD__)
#define KV_WATCHES_THREADS 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KV_WATCHES_THREADS 1
#endif
#endif
#ifndef KV_WATCHES_THREADS
#define KV_WATCHES_THREADS 0
#endif
#ifndef KV_SHORTCUT_PLAIN_EPOCH
#if defined(__x86_64__) && defined(__GNUC__)
#define KV_SHORTCUT_PLAIN_EPOCH (KV_SHORTCUTS && !KV_WATCHES_THREADS)
#else
#define KV_SHORTCUT_PLAIN_EPOCH 0
#endif
#endif

// The address sanitizer sees what is done to a record that was given back only where each has its memory to
// itself.
#if defined(__SANITIZE_ADDRESS__)
#define KV_WATCHES_ADDRESSES 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KV_WATCHES_ADDRESSES 1
#endif
#endif
#ifndef KV_WATCHES_ADDRESSES
#define KV_WATCHES_ADDRESSES 0
#endif

// Nodes of the id index come from a pool of the set's data.
#ifndef KV_SHORTCUT_NODE_POOL
#define KV_SHORTCUT_NODE_POOL KV_SHORTCUTS
#endif

// Records come from a pool of the set's data.
#ifndef KV_SHORTCUT_RECORD_POOL
#define KV_SHORTCUT_RECORD_POOL (KV_SHORTCUTS && !KV_WATCHES_ADDRESSES)
#endif

// Whole-set operations guess that the next item's id is the next one of the index.
#ifndef KV_SHORTCUT_NEXT_ID
#define KV_SHORTCUT_NEXT_ID KV_SHORTCUTS
#endif

// Ids are looked up in a hash before the index is descended; needs the node pool, whose changes it goes by.
#ifndef KV_SHORTCUT_ID_HASH
#define KV_SHORTCUT_ID_HASH KV_SHORTCUTS
#endif

// Stubs that an operation has met are remembered instead of looked up.
#ifndef KV_SHORTCUT_STUB_SET
#define KV_SHORTCUT_STUB_SET KV_SHORTCUTS
#endif

// A copy's id index is built in the order of the ids instead of entry by entry.
#ifndef KV_SHORTCUT_ORDERED_INDEX
#define KV_SHORTCUT_ORDERED_INDEX KV_SHORTCUTS
#endif

// The id index of a small copy is copied, too, instead of built.
#ifndef KV_SHORTCUT_INDEX_COPY
#define KV_SHORTCUT_INDEX_COPY KV_SHORTCUTS
#endif

// Merging looks items up in the order of the ids instead of in theirs.
#ifndef KV_SHORTCUT_BULK_APPEND
#define KV_SHORTCUT_BULK_APPEND KV_SHORTCUTS
#endif

// Large pools and tables lie in huge pages where the system gives any.
#ifndef KV_SHORTCUT_LARGE_BLOCKS
#define KV_SHORTCUT_LARGE_BLOCKS KV_SHORTCUTS
#endif

namespace kvdetail {

constexpr bool kHasPageIndex = KV_SHORTCUT_PAGE_INDEX != 0;
constexpr bool kHasOccupancy = KV_SHORTCUT_OCCUPANCY != 0;
constexpr bool kHasNodePool = KV_SHORTCUT_NODE_POOL != 0;
constexpr bool kHasRecordPool = KV_SHORTCUT_RECORD_POOL != 0;
constexpr bool kHasNextId = KV_SHORTCUT_NEXT_ID != 0;
constexpr bool kHasIdHash = KV_SHORTCUT_ID_HASH != 0;
constexpr bool kHasStubSet = KV_SHORTCUT_STUB_SET != 0;
constexpr bool kHasOrderedIndex = KV_SHORTCUT_ORDERED_INDEX != 0;
constexpr bool kHasIndexCopy = KV_SHORTCUT_INDEX_COPY != 0;
constexpr bool kHasBulkAppend = KV_SHORTCUT_BULK_APPEND != 0;
constexpr bool kHasLargeBlocks = KV_SHORTCUT_LARGE_BLOCKS != 0;

} // namespace kvdetail
