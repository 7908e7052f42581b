// What a set's data keeps beside its named fields, to be faster.
#pragma once

#include "base/KvShortcuts.h"
#include "selectcontext/GxapSelectSet.h"
#include "selectcontext/IdHash.h"
#include "selectcontext/OwnedNodePool.h"
#include "selectcontext/RecordPool.h"

#include <atomic>
#include <cstdint>
#include <memory>

namespace kvdetail {

// Null where the shortcut is off.
inline OwnedNodePool makeNodePool() {
    return OwnedNodePool(kHasNodePool ? new KvNodePool : nullptr);
}

// The pools that index and records come from, and the hash of ids.
//
// Invariants:
//  1. The pools are used by the thread that may edit the data, while no other handle shares it.
//  2. A hash that is there was complete before any thread could see it, and does not change while the data is
//     shared.
//
// Thread safety: hashFor() and noteDescent() may be called by all readers of shared data at once; the rest
// belongs to the editing thread.
struct SetShortcuts {
    static SetShortcuts& of(const GxapSelectSet::SSetData& data) { return *data.mShortcuts; }

    SetShortcuts() = default;
    SetShortcuts(const SetShortcuts&) = delete;
    SetShortcuts& operator=(const SetShortcuts&) = delete;
    ~SetShortcuts() { dropHash(); }

    // The hash to look an id up in, or null: there is none, or the index was changed behind it. O(1).
    const IdHash* hashFor(const GxapSelectSet::SSetData& data) const noexcept {
        const IdHash* const held = hash.load(std::memory_order_acquire);
        return held && held->isCurrent(data.dataMap) ? held : nullptr;
    }

    // An id was found by descending the index. Once that has cost as much as a hash of the index, one is
    // made. Ids that are not there do not count: they have to be looked for in the index anyway. O(1), O(n)
    // where it makes a hash.
    void noteDescent(const GxapSelectSet::SSetData& data) const noexcept {
        constexpr std::size_t kEntriesPerLookup = 16; // hashed in the time of one descent
        if (!isWorthAHash(data))
            return;
        const std::uint32_t count = descents.load(std::memory_order_relaxed) + 1;
        descents.store(count, std::memory_order_relaxed);
        if (count >= data.dataMap.size() / kEntriesPerLookup)
            makeHash(data);
    }

    // Many ids are going to be looked up. O(1), O(n) where it makes a hash.
    void expectLookups(const GxapSelectSet::SSetData& data) const noexcept {
        if (isWorthAHash(data))
            makeHash(data);
    }

    // The hash to be told of an edit, or null. One that has fallen behind is dropped.
    IdHash* hashToEdit(const GxapSelectSet::SSetData& data) noexcept {
        IdHash* const held = hash.load(std::memory_order_relaxed);
        if (!held || held->isCurrent(data.dataMap))
            return held;
        dropHash();
        return nullptr;
    }

    void dropHash() noexcept {
        delete hash.exchange(nullptr, std::memory_order_relaxed);
        descents.store(0, std::memory_order_relaxed);
    }

    OwnedNodePool nodes = makeNodePool();
    RecordPool records;
    mutable std::atomic<IdHash*> hash{nullptr};
    mutable std::atomic<std::uint32_t> descents{0};

private:
    bool isWorthAHash(const GxapSelectSet::SSetData& data) const noexcept {
        constexpr std::size_t kFewestEntries = 48; // below, a descent is as fast
        // An index that a caller has put in need not have a pool, whose changes the hash goes by, or have it
        // for itself: nodes that move within a pool are no changes of it.
        const KvNodePool* const pool = data.dataMap.get_allocator().pool();
        return kHasIdHash && pool && pool->live() == data.dataMap.size() &&
               data.dataMap.size() >= kFewestEntries;
    }

    // Readers of shared data may be here at once; the first to be done gives its hash. An old one that the
    // index has left behind stays until an edit drops it, for somebody may be reading it; until then the
    // index is descended.
    void makeHash(const GxapSelectSet::SSetData& data) const noexcept {
        descents.store(0, std::memory_order_relaxed); // where none can be made, the next try waits as long
        if (hash.load(std::memory_order_relaxed))
            return;
        std::unique_ptr<IdHash> fresh = IdHash::build(data.dataMap);
        IdHash* none = nullptr;
        if (fresh && hash.compare_exchange_strong(none, fresh.get(), std::memory_order_acq_rel))
            fresh.release();
    }
};

} // namespace kvdetail
