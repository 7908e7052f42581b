// IdIndex: the id index of a set's data, and the only code that touches its map.
#pragma once

#include "base/detail/NodePool.h"
#include "base/detail/Same.h"
#include "base/detail/Shortcuts.h"
#include "selectcontext/GxapSelectSet.h"
#include "selectcontext/detail/IdHash.h"
#include "selectcontext/detail/LongRuns.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <vector>

namespace kvdetail {

using SSetData = GxapSelectSet::SSetData;
using DataMap = SSetData::DataMap;
using Store = SSetData::Store;

// An index entry's value is the address of the record's slot.
inline unsigned long slotAddress(const Store::Slot* slot) noexcept {
    return reinterpret_cast<unsigned long>(slot);
}

inline Store::Slot* slotAt(unsigned long address) noexcept {
    return reinterpret_cast<Store::Slot*>(address);
}

// Finds, adds and erases the entries of `dataMap`, and supplies the pool of its nodes. Keeps a hash of the
// ids once the searches have cost as much as building one, and an index of every long run of one id in which
// an item was looked for. Callers may change the map by hand: hash and run indexes are used only while the
// pool's generation shows that the map is as the index left it.
//
// Invariants:
//  1. Entries of one id are neighbours, in the order in which they were added.
//  2. A hash or run index that is there was complete before any other thread could see it. It does not change
//     while the data is shared.
//
// Thread safety: readers of shared data may find at once. The rest belongs to the thread that may edit the
// data.
class IdIndex {
public:
    using Entry = DataMap::const_iterator;

    // A place in the run of entries of one id.
    struct Run {
        Entry entry; // held: an entry of the id; else the place behind all entries of the id
        bool isHeld;
    };

    explicit IdIndex(SSetData& data);
    IdIndex(const IdIndex&) = delete;
    IdIndex& operator=(const IdIndex&) = delete;
    ~IdIndex() { dropHints(); }

    Entry begin() const noexcept { return mMap.begin(); }
    Entry end() const noexcept { return mMap.end(); }
    std::size_t size() const noexcept { return mMap.size(); }

    // Finds the id's first entry. O(1) for an id in the hash or behind all others, else O(log n).
    Run find(const GxDbObjectId& id) const;

    // The same for a removal. It compares the first and the last entry before it searches: callers often
    // remove from one end. In a small index it does not count towards making a hash, which would cost
    // removals twice what it saves.
    Run findToRemove(const GxDbObjectId& id) const;

    // As find(), for an id that does not belong before `place`. O(1) if few entries lie between.
    Run findFrom(Entry place, const GxDbObjectId& id) const;

    // Advances to the next entry of the id. O(1).
    void next(Run& run, const GxDbObjectId& id) const {
        ++run.entry;
        run.isHeld = isOfId(run.entry, id);
    }

    // Returns the place behind all entries of the id. O(log n), O(1) for an id behind all others.
    Entry endOf(const GxDbObjectId& id) const;

    // Returns whether the entry is the first of its id. O(1).
    bool isFirst(Entry entry) const {
        return entry == mMap.begin() || !isSame(std::prev(entry)->first, entry->first);
    }

    // Returns the index of the run that begins at `first`; null if the run has none that can find the keys.
    // O(1).
    const RunIndex* runIndexFor(const ItemKeys& keys, const Run& first) const noexcept {
        if (!mLongRuns.isInUse())
            return nullptr;
        return usable(mLongRuns.find(mMap, first.entry->first.stub(), RunIndex::keysFor(keys)), keys);
    }

    // The same, and makes the index if the run has none. O(entries of the run).
    const RunIndex* makeRunIndexFor(const ItemKeys& keys, const Run& first) const noexcept;

    // Adds an entry at the place behind all entries of the id, and returns it. The slot holds a record. All
    // or, with std::bad_alloc, nothing. O(1).
    Entry insert(Entry place, const GxDbObjectId& id, const Store::Slot* slot);

    // Erases the entry. Its slot must still hold the record, unless a caller has changed the slot by hand.
    // O(1).
    void erase(Entry entry);

    // Gives the slot's record another path. O(1), O(log n) for an id that the run does not have.
    void changePath(const Store::Slot* slot, const KvVector<GxDbObjectId>& path);

    // Prepares for erasing all entries of the run. O(entries of the run).
    void expectErasing(const Run& first) noexcept {
        if (mLongRuns.isInUse())
            mLongRuns.drop(first.entry->first.stub());
    }

    // Erases every entry. O(n), O(n / 1000) where all nodes come from the data's own pool.
    void clear() noexcept;

    // Clears the index, and enters every record of the store in store order. Out of memory leaves it partly
    // rebuilt. O(n), O(n log n) for ids in an order of their own.
    void rebuild();

    // The same with the first record of each id only; returns the slots of the other records, in store order.
    // All or, with std::bad_alloc, nothing.
    std::vector<Store::Slot*> rebuildOfFirsts();

    // Prepares for erasing many entries: deletes the hash, which would cost more to keep up than it saves.
    void expectErasures() noexcept { dropHash(); }

    // Deletes the hash and the run indexes. They are made again where they pay.
    void dropHints() noexcept;

    // Prepares for looking many ids up. O(1), O(n) where it makes a hash.
    void expectSearches() const noexcept {
        if (isWorthAHash())
            makeHash();
    }

    // Returns the hash to look ids up in, or null. O(1).
    const IdHash* currentHash() const noexcept {
        const IdHash* const held = mHash.load(std::memory_order_acquire);
        return held && held->isCurrent(mMap) ? held : nullptr;
    }

private:
    // Given that the entry is not before those of the id.
    bool isOfId(Entry entry, const GxDbObjectId& id) const {
        return entry != mMap.end() && (entry->first.stub() == id.stub() || !(id < entry->first));
    }

    static const RunIndex* usable(const RunIndex* run, const ItemKeys& keys) noexcept {
        return run && run->canFind(keys) ? run : nullptr;
    }

    // Compares the end of the index first, where ids that come in ascending order belong.
    Run search(const GxDbObjectId& id) const {
        if (mMap.empty() || mMap.rbegin()->first < id)
            return {mMap.end(), false};
        const Entry entry = mMap.lower_bound(id);
        return {entry, entry != mMap.end() && isSame(entry->first, id)};
    }

    void noteSearch() const noexcept;
    bool isWorthAHash() const noexcept;
    void makeHash() const noexcept;
    IdHash* hashToUpdate() noexcept;
    void dropHash() noexcept;

    SSetData& mData;
    DataMap& mMap;
    OwnedNodePool mNodes;
    mutable std::atomic<IdHash*> mHash{nullptr};
    // Those that found an id since the last hash was made or tried.
    mutable std::atomic<std::uint32_t> mSearches{0};
    LongRuns mLongRuns;
};

} // namespace kvdetail
