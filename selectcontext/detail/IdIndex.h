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

// Finds, adds and erases entries of `dataMap`, and makes the pool of the map's nodes. Makes a hash of the ids
// when searches have cost as much as a hash. Makes an index of a long run of one id when a look-up has walked
// far through the run. Callers may change the map by hand. So the hash and the run indexes are used only
// while the pool's generation shows that nobody else has changed the map.
//
// Invariants:
//  1. Entries of one id are neighbours, in the order in which they were added.
//  2. A hash or run index is complete before any other thread can see it. It does not change while the data
//     is shared.
//
// Thread safety: several readers of shared data may call the const functions at once. The rest belongs to the
// thread that may edit the data.
class IdIndex {
public:
    using Entry = DataMap::const_iterator;

    // A place in the run of entries of one id.
    struct Run {
        Entry entry; // if isHeld, an entry of the id; otherwise the place behind all entries of the id
        bool isHeld;
    };

    explicit IdIndex(SSetData& data);
    IdIndex(const IdIndex&) = delete;
    IdIndex& operator=(const IdIndex&) = delete;
    ~IdIndex() { dropHints(); }

    Entry begin() const noexcept { return mMap.begin(); }
    Entry end() const noexcept { return mMap.end(); }
    std::size_t size() const noexcept { return mMap.size(); }

    // Finds the id's first entry. O(1) for an id in the hash or behind all others, otherwise O(log n).
    Run find(const GxDbObjectId& id) const;

    // Does what find() does, for a removal. First compares the first and the last entry, since callers often
    // remove from one end. In an index of fewer than 1000 entries, the search does not count towards making a
    // hash. There, a hash would cost removals twice what it saves.
    Run findToRemove(const GxDbObjectId& id) const;

    // Does what find() does, for an id that does not belong before `place`. O(1) if few entries are between
    // `place` and the id, otherwise O(log n).
    Run findFrom(Entry place, const GxDbObjectId& id) const;

    // Advances to the next entry of the id. O(1).
    void next(Run& run, const GxDbObjectId& id) const {
        ++run.entry;
        run.isHeld = isOfId(run.entry, id);
    }

    // Returns the place behind all entries of the id. O(log n), or O(1) for an id behind all others.
    Entry endOf(const GxDbObjectId& id) const;

    // Returns whether the entry is the first of its id. O(1).
    bool isFirst(Entry entry) const {
        return entry == mMap.begin() || !isSame(std::prev(entry)->first, entry->first);
    }

    // Returns the index of the run that begins at `first`. Returns null if the run has no index that can find
    // the keys. O(1).
    const RunIndex* runIndexFor(const ItemKeys& keys, const Run& first) const noexcept {
        if (!mLongRuns.isInUse())
            return nullptr;
        return usable(mLongRuns.find(mMap, first.entry->first.stub(), RunIndex::keysFor(keys)), keys);
    }

    // Makes the index of the run that begins at `first`, and returns it. Returns null if the run has an index
    // for such keys already, if the index cannot find the keys, or if it cannot be made. O(entries of the
    // run), or O(entries * log(entries)) if the order of the sub ids is not that of their stubs.
    const RunIndex* makeRunIndexFor(const ItemKeys& keys, const Run& first) const noexcept;

    // Adds an entry and returns it. `place` must be the place behind all entries of the id. The slot must
    // have a record. If there is no memory, adds nothing and throws std::bad_alloc. O(1).
    Entry insert(Entry place, const GxDbObjectId& id, const Store::Slot* slot);

    // Erases the entry. Also deletes the run indexes of the id if the entry's slot has no record any more, or
    // if the record's keys have changed. O(1).
    void erase(Entry entry);

    // Gives the slot's record another path. O(1), O(log n) for an id that the run does not have.
    void changePath(const Store::Slot* slot, const KvVector<GxDbObjectId>& path);

    // Prepares for erasing all entries of the run that begins at `first`: deletes the indexes of the run.
    // O(entries of the run).
    void expectErasing(const Run& first) noexcept {
        if (mLongRuns.isInUse())
            mLongRuns.drop(first.entry->first.stub());
    }

    // Erases every entry. O(n), or O(n / 1000) if all nodes come from the data's own pool.
    void clear() noexcept;

    // Clears the index, and enters every record of the store in store order. If there is no memory, throws
    // std::bad_alloc and leaves the index partly rebuilt. O(n), or O(n log n) if the order of the ids is not
    // that of their stubs.
    void rebuild();

    // Does the same with only the first record of each id. Returns the slots of the other records, in store
    // order. If there is no memory, changes nothing and throws std::bad_alloc.
    std::vector<Store::Slot*> rebuildOfFirsts();

    // Prepares for erasing many entries: deletes the hash, whose updates would cost more than the hash saves.
    void expectErasures() noexcept { dropHash(); }

    // Deletes the hash and the run indexes. Later look-ups make them again if that saves time.
    void dropHints() noexcept;

    // Prepares for looking many ids up: makes a hash if that saves time. O(1), or O(n) if it makes a hash.
    void expectSearches() const noexcept {
        if (isWorthAHash())
            makeHash();
    }

    // Returns the hash if it is up to date, otherwise null. O(1).
    const IdHash* currentHash() const noexcept {
        const IdHash* const held = mHash.load(std::memory_order_acquire);
        return held && held->isCurrent(mMap) ? held : nullptr;
    }

private:
    // Returns whether the entry is one of the id. The entry must not be before those of the id.
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
    // Number of searches that found an id since the index last made, tried to make, or deleted a hash.
    mutable std::atomic<std::uint32_t> mSearches{0};
    LongRuns mLongRuns;
};

} // namespace kvdetail
