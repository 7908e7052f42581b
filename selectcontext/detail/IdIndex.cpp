#include "selectcontext/detail/IdIndex.h"
#include "selectcontext/detail/IdBatch.h"
#include "selectcontext/detail/SetData.h"

#include <algorithm>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace kvdetail {
namespace {

OwnedNodePool makeNodePool() {
    return OwnedNodePool(kHasNodePool ? new NodePool : nullptr);
}

// Calls visit(slot) for every record of the store, in store order.
template <class Visit>
void forEachRecordSlot(const Store& store, Visit visit) {
    forEachOccupied(store, [&visit](Store::Slot* slot) {
        if (slot->value)
            visit(slot);
    });
}

// Collects the ids of the records in `slots`, each with the slot's number in `slots`. Sorts the ids. Returns
// false if the ids cannot be sorted in the order of the index, or if there is no memory.
bool collectIds(const std::vector<Store::Slot*>& slots, IdBatch& batch) noexcept try {
    if (!kHasIdBatch)
        return false;
    batch.reserve(slots.size());
    for (std::size_t i = 0; i < slots.size(); ++i)
        batch.add(slots[i]->value->mainEntId, i);
    return batch.sort();
} catch (const std::bad_alloc&) {
    return false;
}

// Collects the ids of all records of a store, each with the address of the record's slot. Sorts the ids.
// Returns false if the ids cannot be sorted in the order of the index, or if there is no memory.
bool collectIds(const Store& store, IdBatch& batch) noexcept try {
    if (!kHasIdBatch)
        return false;
    batch.reserve(store.usedSlots());
    forEachRecordSlot(
        store, [&batch](const Store::Slot* slot) { batch.add(slot->value->mainEntId, slotAddress(slot)); });
    return batch.sort();
} catch (const std::bad_alloc&) {
    return false;
}

// An index that becomes empty keeps its memory if it has at most this much.
constexpr std::size_t kMostIdleBytes = 1 << 16;

// Adds an entry, unless the map has an entry of the id. Returns whether the entry was added.
bool enterFirst(DataMap& map, const GxDbObjectId& id, const Store::Slot* slot) {
    const auto place = map.lower_bound(id);
    if (place != map.end() && (place->first.stub() == id.stub() || !(id < place->first)))
        return false;
    map.emplace_hint(place, id, slotAddress(slot));
    return true;
}

} // namespace

IdIndex::IdIndex(SSetData& data) : mData(data), mNodes(makeNodePool()) {
    map() = DataMap(DataMap::allocator_type(mNodes.get()));
}

// Tries the hash first. search() then compares the last id first.
IdIndex::Run IdIndex::find(const GxDbObjectId& id) const {
    if (const IdHash* const hash = currentHash()) {
        const Entry entry = hash->find(map(), id);
        if (entry != map().end())
            return {entry, true};
    }
    const Run run = search(id);
    if (run.isHeld)
        noteSearch();
    return run;
}

IdIndex::Run IdIndex::findToRemove(const GxDbObjectId& id) const {
    if (map().empty())
        return {map().end(), false};
    if (isSame(map().begin()->first, id))
        return {map().begin(), true};
    const Entry last = std::prev(map().end());
    if (isSame(last->first, id) && isFirst(last))
        return {last, true};
    constexpr std::size_t kFewestEntriesToHash = 1000;
    return currentHash() || map().size() >= kFewestEntriesToHash ? find(id) : search(id);
}

IdIndex::Run IdIndex::findFrom(Entry place, const GxDbObjectId& id) const {
    constexpr unsigned kMostSteps = 8; // eight steps take about as long as a search
    for (unsigned steps = 0; place != map().end() && place->first < id; ++place) {
        if (++steps > kMostSteps) {
            place = map().lower_bound(id);
            break;
        }
    }
    return {place, place != map().end() && isSame(place->first, id)};
}

IdIndex::Entry IdIndex::endOf(const GxDbObjectId& id) const {
    return map().empty() || !(id < map().rbegin()->first) ? map().end() : map().upper_bound(id);
}

IdIndex::Entry IdIndex::insert(Entry place, const GxDbObjectId& id, const Store::Slot* slot) {
    IdHash* const hash = hashToUpdate();
    const bool hasRuns = mLongRuns.prepareEdit(map());
    const Entry added = map().emplace_hint(place, id, slotAddress(slot));
    if (hash && hash->noteAdded(map(), added))
        hash->follow(map());
    else if (hash)
        dropHash();
    if (hasRuns) {
        mLongRuns.noteAdded(map(), added, *slot->value);
        mLongRuns.follow(map());
    }
    return added;
}

// Extracts the entry, since map::erase() would also look for the next entry.
void IdIndex::erase(Entry entry) {
    IdHash* const hash = hashToUpdate();
    const bool hasRuns = mLongRuns.prepareEdit(map());
    if (hash)
        hash->noteErasing(map(), entry);
    if (hasRuns)
        mLongRuns.noteErasing(map(), entry, recordAt(*mData.entities, entry->second));
    map().extract(entry);
    if (map().empty() && mNodes && mNodes->bytes() > kMostIdleBytes) {
        clear();
        return;
    }
    if (hash && hash->isSparse())
        dropHash();
    else if (hash)
        hash->follow(map());
    if (hasRuns)
        mLongRuns.follow(map());
}

void IdIndex::changePath(const Store::Slot* slot, const KvVector<GxDbObjectId>& path) {
    if (mLongRuns.prepareEdit(map()))
        mLongRuns.noteChangingPath(slotAddress(slot), *slot->value, path);
    slot->value->nestedEntFullPath = path;
}

const RunIndex* IdIndex::makeRunIndexFor(const ItemKeys& keys, const Run& first) const noexcept {
    const RunIndex::Keys wanted = RunIndex::keysFor(keys);
    if (!kHasRunIndex || !mData.entities || !mLongRuns.canAdd(map()) ||
        mLongRuns.find(map(), first.entry->first.stub(), wanted))
        return nullptr;
    return usable(mLongRuns.add(map(), RunIndex::build(map(), first.entry, *mData.entities, wanted)), keys);
}

// Frees all nodes at once if mNodes has exactly the nodes of the map. Otherwise clears the map node by node.
// Freeing all at once reads no node, which saves a cache miss for most nodes. The map is moved into raw
// storage, and its destructor never runs there. Entries need no destructor, so nothing is lost.
void IdIndex::clear() noexcept {
    static_assert(std::is_trivially_destructible_v<DataMap::value_type>, "nodes are abandoned");
    dropHints();
    NodePool* const pool = map().get_allocator().pool();
    if (!pool || pool != mNodes.get() || pool->live() != map().size()) {
        map().clear();
        return;
    }
    alignas(DataMap) unsigned char abandoned[sizeof(DataMap)];
    new (abandoned) DataMap(std::move(map()));
    map().clear(); // a moved-from map may have any entries
    pool->reclaimAbandoned();
}

void IdIndex::rebuild() {
    clear();
    if (!mData.entities)
        return;
    IdBatch batch;
    if (collectIds(*mData.entities, batch)) {
        for (const IdBatch::Item& item : batch)
            map().emplace_hint(map().end(), item.id(), item.value);
        return;
    }
    forEachRecordSlot(*mData.entities, [this](const Store::Slot* slot) {
        map().emplace(slot->value->mainEntId, slotAddress(slot));
    });
}

// Builds a new map with a pool of its own. Clears the old map only when nothing can fail any more.
std::vector<Store::Slot*> IdIndex::rebuildOfFirsts() {
    OwnedNodePool nodes = makeNodePool();
    DataMap firsts{DataMap::allocator_type(nodes.get())};
    std::vector<Store::Slot*> slots;
    slots.reserve(mData.entities->usedSlots());
    forEachRecordSlot(*mData.entities, [&slots](Store::Slot* slot) { slots.push_back(slot); });
    IdBatch batch;
    if (collectIds(slots, batch)) {
        for (const IdBatch::Item* item = batch.begin(); item != batch.end(); item = batch.endOfId(item))
            firsts.emplace_hint(firsts.end(), item->id(),
                                slotAddress(std::exchange(slots[item->value], nullptr)));
    } else {
        for (Store::Slot*& slot : slots) {
            if (enterFirst(firsts, slot->value->mainEntId, slot))
                slot = nullptr;
        }
    }
    slots.erase(std::remove(slots.begin(), slots.end(), nullptr), slots.end());
    clear();
    map().swap(firsts);
    mNodes.swap(nodes);
    return slots;
}

// Counts a search that found an id. When searches have cost about as much as making a hash, each further
// search adds a part to the hash. Failed searches do not count, since a hash does not save them: an
// id that the hash lacks is searched for in the map as well.
void IdIndex::noteSearch() const noexcept {
    constexpr std::size_t kEntriesPerSearch = 16; // hashing 16 entries takes as long as one search
    if (!isWorthAHash())
        return;
    const std::uint32_t count = mSearches.load(std::memory_order_relaxed) + 1;
    mSearches.store(count, std::memory_order_relaxed);
    if (count >= map().size() / kEntriesPerSearch)
        continueHash();
}

void IdIndex::expectSearches() const noexcept {
    if (isWorthAHash())
        while (continueHash()) {}
}

// Returns whether a hash would save time, and the pool's generation shows every change of the map. A caller
// may have replaced the map by a map that has no pool, or that shares its pool with another map. The
// generation does not show the changes of such a map.
bool IdIndex::isWorthAHash() const noexcept {
    constexpr std::size_t kFewestEntries = 48; // with fewer entries, a search is as fast
    return kHasIdHash && map().size() >= kFewestEntries && MapVersion::canFollow(map());
}

// Adds a part to the hash, which is published when it is complete. Returns whether more is to be added. Does
// not replace a hash that is out of date, since another reader may be using it. The next edit deletes that
// hash.
//
// Several readers of shared data may call this at once. A reader takes the partial hash out of mPartial, and
// puts it back afterwards. A reader that finds mPartial empty begins another hash. If a reader cannot put its
// hash back since there is another one, it deletes its own.
bool IdIndex::continueHash() const noexcept try {
    if (mHash.load(std::memory_order_relaxed))
        return false;
    std::unique_ptr<IdHash> hash(mPartial.exchange(nullptr, std::memory_order_acquire));
    if (!hash || !hash->isCurrent(map()))
        hash = std::make_unique<IdHash>(map());
    if (!hash->addSome(map())) {
        mSearches.store(0, std::memory_order_relaxed);
        return false;
    }
    const bool isComplete = hash->isComplete(map());
    IdHash* none = nullptr;
    if ((isComplete ? mHash : mPartial).compare_exchange_strong(none, hash.get(), std::memory_order_acq_rel))
        hash.release();
    return !isComplete;
} catch (const std::bad_alloc&) {
    mSearches.store(0, std::memory_order_relaxed);
    return false;
}

// Returns the hash that an edit must update: mHash or, if that is null, mPartial. Deletes a hash that is out
// of date, and then returns null.
IdHash* IdIndex::hashToUpdate() noexcept {
    IdHash* const complete = mHash.load(std::memory_order_relaxed);
    IdHash* const held = complete ? complete : mPartial.load(std::memory_order_relaxed);
    if (!held || held->isCurrent(map()))
        return held;
    dropHash();
    return nullptr;
}

void IdIndex::dropHints() noexcept {
    dropHash();
    mLongRuns.clear();
}

void IdIndex::dropHash() noexcept {
    delete mHash.exchange(nullptr, std::memory_order_relaxed);
    delete mPartial.exchange(nullptr, std::memory_order_relaxed);
    mSearches.store(0, std::memory_order_relaxed);
}

} // namespace kvdetail
