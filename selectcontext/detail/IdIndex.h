// IdIndex: the id index of a set's data. No other code of the library touches `dataMap`.
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

// Converts between a slot and the value of its index entry. The value is the address of the slot.
inline unsigned long slotAddress(const Store::Slot* slot) noexcept {
    return reinterpret_cast<unsigned long>(slot);
}

inline Store::Slot* slotAt(unsigned long address) noexcept {
    return reinterpret_cast<Store::Slot*>(address);
}

// Finds, adds and erases entries of `dataMap`, and makes the pool of the map's nodes. Makes a hash of the ids
// when searches have cost as much as a hash, a small part with each further search. Makes a RunIndex of the
// entries of one id when a look-up has walked past RunIndex::kFewestItems of these entries. Callers may
// change the map by hand. So the hash and the run indexes are used only while the pool's generation shows
// that no caller has changed the map.
//
// Invariants:
//  1. Entries of one id are neighbours, in the order in which they were added.
//  2. A hash or run index is complete before any other thread can see it. It does not change while the data
//     is shared.
//
// Thread safety: several readers of shared data may call the const functions at once. Only the thread that
// may edit the data may call the other functions.
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

    Entry begin() const noexcept { return map().begin(); }
    Entry end() const noexcept { return map().end(); }
    std::size_t size() const noexcept { return map().size(); }

    // Returns the first entry of the id. Returns the place where the id belongs if there is no such entry.
    // O(1) for an id in the hash or behind all other ids, otherwise O(log n).
    Run find(const GxDbObjectId& id) const;

    // Does what find() does, for a removal. First compares the first and the last entry, since callers often
    // remove from one end. In an index of fewer than 1000 entries, the search does not count towards making a
    // hash: in so small an index, a hash would cost removals twice as much as it saves.
    Run findToRemove(const GxDbObjectId& id) const;

    // Does what find() does, for an id that does not belong before `place`. O(1) if few entries are between
    // `place` and the id, otherwise O(log n).
    Run findFrom(Entry place, const GxDbObjectId& id) const;

    // Advances to the next entry of the id. O(1).
    void next(Run& run, const GxDbObjectId& id) const {
        ++run.entry;
        run.isHeld = isOfId(run.entry, id);
    }

    // Returns the place behind all entries of the id. O(log n), or O(1) for an id behind all other ids.
    Entry endOf(const GxDbObjectId& id) const;

    // Returns whether the entry is the first of its id. O(1).
    bool isFirst(Entry entry) const {
        return entry == map().begin() || !isSame(std::prev(entry)->first, entry->first);
    }

    // Returns the index of the run that begins at `first`. Returns null if the run has no index that can find
    // the keys. O(1).
    const RunIndex* runIndexFor(const ItemKeys& keys, const Run& first) const noexcept {
        if (!mLongRuns.isInUse())
            return nullptr;
        return usable(mLongRuns.find(map(), first.entry->first.stub(), RunIndex::keysFor(keys)), keys);
    }

    // Makes the index of the run that begins at `first`, and returns it. Returns null if the run already has
    // an index by RunIndex::keysFor(keys), if the new index cannot find the keys, or if no index can be made.
    // O(entries of the run), or O(entries * log(entries)) if the order of the sub ids is not that of their
    // stubs.
    const RunIndex* makeRunIndexFor(const ItemKeys& keys, const Run& first) const noexcept;

    // Adds an entry and returns the new entry. `place` must be the place behind all entries of the id. The
    // slot must have a record. If there is no memory, adds nothing and throws std::bad_alloc. O(1).
    Entry insert(Entry place, const GxDbObjectId& id, const Store::Slot* slot);

    // Erases the entry. Also deletes a run index of the id if few of its items are left, or if it cannot find
    // the item: the entry's slot has no record, or a caller has changed the record's keys. O(1).
    void erase(Entry entry);

    // Gives the slot's record another path, and updates the run index. O(1), or O(log n) for an id in `path`
    // that the run index does not have.
    void changePath(const Store::Slot* slot, const KvVector<GxDbObjectId>& path);

    // Prepares for erasing all entries of the run that begins at `first`: deletes the indexes of the run.
    // O(entries of the run).
    void expectErasing(const Run& first) noexcept {
        if (mLongRuns.isInUse())
            mLongRuns.drop(first.entry->first.stub());
    }

    // Erases every entry. O(n), or O(n / 1000) if the data's own pool has all nodes of the map, and no
    // others.
    void clear() noexcept;

    // Clears the index, and adds an entry for every record of the store, in store order. If there is no
    // memory, throws std::bad_alloc and leaves the index partly rebuilt. O(n), or O(n log n) if the order of
    // the ids is not that of their stubs.
    void rebuild();

    // Clears the index, and adds an entry for the first record of each id. Returns the slots of the other
    // records, in store order. If there is no memory, changes nothing and throws std::bad_alloc.
    std::vector<Store::Slot*> rebuildOfFirsts();

    // Prepares for erasing many entries: deletes the hash, since updating the hash would cost more than the
    // hash saves.
    void expectErasures() noexcept { dropHash(); }

    // Deletes the hash and the run indexes. Later look-ups make them again if that saves time.
    void dropHints() noexcept;

    // Prepares for looking many ids up: makes a hash if that saves time. O(1), or O(n) if it makes a hash.
    void expectSearches() const noexcept;

    // Returns the hash if it is up to date, otherwise null. O(1).
    const IdHash* currentHash() const noexcept {
        const IdHash* const held = mHash.load(std::memory_order_acquire);
        return held && held->isCurrent(map()) ? held : nullptr;
    }

private:
    DataMap& map() const noexcept { return mData.dataMap; }

    // Returns whether the entry is an entry of the id. The entry must not be before the first entry of the
    // id.
    bool isOfId(Entry entry, const GxDbObjectId& id) const {
        return entry != map().end() && (entry->first.stub() == id.stub() || !(id < entry->first));
    }

    static const RunIndex* usable(const RunIndex* run, const ItemKeys& keys) noexcept {
        return run && run->canFind(keys) ? run : nullptr;
    }

    // Returns what find() returns, without using the hash. Compares the last id first, since ids that come in
    // ascending order belong behind it.
    Run search(const GxDbObjectId& id) const {
        if (map().empty() || map().rbegin()->first < id)
            return {map().end(), false};
        const Entry entry = map().lower_bound(id);
        return {entry, entry != map().end() && isSame(entry->first, id)};
    }

    void noteSearch() const noexcept;
    bool isWorthAHash() const noexcept;
    bool continueHash() const noexcept;
    IdHash* hashToUpdate() noexcept;
    void dropHash() noexcept;

    SSetData& mData;
    OwnedNodePool mNodes;
    mutable std::atomic<IdHash*> mHash{nullptr};    // complete; searches use it
    mutable std::atomic<IdHash*> mPartial{nullptr}; // a hash that is not complete yet
    // Number of searches that found an id since the index last made, failed to make, or deleted a hash.
    mutable std::atomic<std::uint32_t> mSearches{0};
    LongRuns mLongRuns;
};

} // namespace kvdetail
