// The library's optimisations that can be switched off. Every result is the same without them.
#pragma once

#include "base/detail/Sanitizers.h"

#include <cstddef>

// Switches all optimisations on (1) or off (0). A program and its library must use the same value: see
// selectcontext/detail/BuiltWith.h.
#ifndef KV_SHORTCUTS
#define KV_SHORTCUTS 1
#endif

// Each optimisation also has a switch of its own. scripts/bench --ablation measures its effect.

// Finds the pages of a store by address or by position without walking their chain.
#ifndef KV_SHORTCUT_PAGE_INDEX
#define KV_SHORTCUT_PAGE_INDEX KV_SHORTCUTS
#endif

// Counts occupied slots by arithmetic or in a bitmap, instead of one by one.
#ifndef KV_SHORTCUT_OCCUPANCY_BITMAP
#define KV_SHORTCUT_OCCUPANCY_BITMAP KV_SHORTCUTS
#endif

// Takes the nodes of the id index from a pool, which belongs to the set's data.
#ifndef KV_SHORTCUT_NODE_POOL
#define KV_SHORTCUT_NODE_POOL KV_SHORTCUTS
#endif

// Takes records from a pool, which belongs to the set's data. Off under the address sanitizer: the sanitizer
// sees an access to a deleted record only if every record is allocated on its own.
#ifndef KV_SHORTCUT_RECORD_POOL
#define KV_SHORTCUT_RECORD_POOL (KV_SHORTCUTS && !KV_ADDRESS_SANITIZER)
#endif

// Whole-set operations compare the next entry of the id index before they search the index.
#ifndef KV_SHORTCUT_NEXT_ID
#define KV_SHORTCUT_NEXT_ID KV_SHORTCUTS
#endif

// Looks ids up in a hash before it searches the index. Needs the node pool: the pool's generation shows
// whether the index has changed. Off with libc++, whose maps reuse their nodes without calling the allocator.
#ifndef KV_SHORTCUT_ID_HASH
#ifdef _LIBCPP_VERSION
#define KV_SHORTCUT_ID_HASH 0
#else
#define KV_SHORTCUT_ID_HASH KV_SHORTCUTS
#endif
#endif

// Hashes the items of an id that has many items. Needs the node pool, as the hash of ids does.
#ifndef KV_SHORTCUT_RUN_INDEX
#define KV_SHORTCUT_RUN_INDEX KV_SHORTCUT_ID_HASH
#endif

// Whole-set operations sort ids, and then walk through the index once.
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
