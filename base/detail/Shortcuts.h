// The library's shortcuts. What the library does, and every result, is the same without them.
#pragma once

#include "base/detail/Sanitizers.h"

#include <cstddef>

// 1 or 0 for all of them. A program and the library that it links have to agree: see KvSelectContextExport.h.
#ifndef KV_SHORTCUTS
#define KV_SHORTCUTS 1
#endif

// Each can be set by itself, to measure what it is worth: scripts/bench --ablation.

// Pages of a store are found by address and by number instead of along their chain.
#ifndef KV_SHORTCUT_PAGE_INDEX
#define KV_SHORTCUT_PAGE_INDEX KV_SHORTCUTS
#endif

// Occupied slots are counted by arithmetic or in a bitmap instead of one by one.
#ifndef KV_SHORTCUT_OCCUPANCY_BITMAP
#define KV_SHORTCUT_OCCUPANCY_BITMAP KV_SHORTCUTS
#endif

// Nodes of the id index come from a pool of the set's data.
#ifndef KV_SHORTCUT_NODE_POOL
#define KV_SHORTCUT_NODE_POOL KV_SHORTCUTS
#endif

// Records come from a pool of the set's data. Without it under the address sanitizer, which sees what is done
// to a deleted record only where each record has its memory to itself.
#ifndef KV_SHORTCUT_RECORD_POOL
#define KV_SHORTCUT_RECORD_POOL (KV_SHORTCUTS && !KV_ADDRESS_SANITIZER)
#endif

// Whole-set operations try the next entry of the id index before they search it.
#ifndef KV_SHORTCUT_NEXT_ID
#define KV_SHORTCUT_NEXT_ID KV_SHORTCUTS
#endif

// Ids are looked up in a hash before the index is searched. Needs the node pool, whose generation shows that
// the index has changed. Not with libc++, whose maps fill their nodes anew without a call to the allocator.
#ifndef KV_SHORTCUT_ID_HASH
#ifdef _LIBCPP_VERSION
#define KV_SHORTCUT_ID_HASH 0
#else
#define KV_SHORTCUT_ID_HASH KV_SHORTCUTS
#endif
#endif

// Items of one id are hashed where they are many. Needs the node pool, as the hash of ids does.
#ifndef KV_SHORTCUT_RUN_INDEX
#define KV_SHORTCUT_RUN_INDEX KV_SHORTCUT_ID_HASH
#endif

// Whole-set operations sort ids and meet the index in its own order.
#ifndef KV_SHORTCUT_ID_BATCH
#define KV_SHORTCUT_ID_BATCH KV_SHORTCUTS
#endif

namespace kvdetail {

constexpr bool kHasPageIndex = KV_SHORTCUT_PAGE_INDEX != 0;
constexpr bool kHasOccupancyBitmap = KV_SHORTCUT_OCCUPANCY_BITMAP != 0;
constexpr bool kHasNodePool = KV_SHORTCUT_NODE_POOL != 0;
constexpr bool kHasRecordPool = KV_SHORTCUT_RECORD_POOL != 0;
constexpr bool kHasNextId = KV_SHORTCUT_NEXT_ID != 0;
constexpr bool kHasIdHash = KV_SHORTCUT_ID_HASH != 0;
constexpr bool kHasRunIndex = KV_SHORTCUT_RUN_INDEX != 0;
constexpr bool kHasIdBatch = KV_SHORTCUT_ID_BATCH != 0;

} // namespace kvdetail
