// The store epoch: tells an iterator whether it may have missed that a page was freed.
#pragma once

#include "base/KvBaseExport.h"
#include "base/KvShortcuts.h"

#include <atomic>
#include <cstdint>

namespace kvdetail {

// Raised whenever a page or a store is freed, anywhere in the process. A store iterator that carries the
// current value stands on a page that is still there; one that carries an older value has to look before it
// reads. Relaxed: a thread only needs to see the frees of its own stores, and those it has made or
// synchronised with.
KV_BASE_API extern std::atomic<std::uint32_t> gStoreEpoch;

// A walk asks twice for every item. Compilers take an atomic load, relaxed ones too, for a reason to read
// everything else again that they have in registers, which nearly doubles a step. The same instruction
// given by hand says that it reads the epoch alone. It is not moved over anything that raises the epoch in
// this thread or synchronises with another: both are atomic operations, or calls that may make some.
inline std::uint32_t currentStoreEpoch() noexcept {
#if KV_SHORTCUT_PLAIN_EPOCH
    std::uint32_t epoch = 0;
    asm("{movl %1, %0|mov %0, %1}" : "=r"(epoch) : "m"(gStoreEpoch));
    return epoch;
#else
    return gStoreEpoch.load(std::memory_order_relaxed);
#endif
}

inline void raiseStoreEpoch() noexcept {
    gStoreEpoch.fetch_add(1, std::memory_order_relaxed);
}

} // namespace kvdetail
