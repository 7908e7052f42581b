#include "selectcontext/detail/RunIndex.h"
#include "selectcontext/detail/IdBatch.h"
#include "selectcontext/detail/SetData.h"

#include <new>
#include <utility>

namespace kvdetail {
namespace {

// Mixes `part` into a hash. Every bit of `part` affects the upper half of the result, from which keyOf()
// takes the key.
std::uint64_t mixed(std::uint64_t hash, std::uint64_t part) noexcept {
    const std::uint64_t product = fibonacciHash(hash ^ part);
    return product ^ (product >> 32);
}

// Returns the key in mChains of a hash and a marker. The last bit is always 1, since a HashTable has no key
// 0.
std::uint32_t keyOf(std::uint64_t hash, long marker) noexcept {
    return static_cast<std::uint32_t>(mixed(hash, static_cast<std::uint64_t>(marker)) >> 32) | 1;
}

} // namespace

RunIndex::RunIndex(Entry first, Keys keys, std::size_t items)
    : mMainStub(first->first.stub()), mLast(first), mKeys(keys) {
    mItems.reserve(items);
}

std::unique_ptr<RunIndex> RunIndex::build(const DataMap& map, Entry first, const Store& store,
                                          Keys keys) noexcept try {
    Entry last = first;
    std::vector<Entry> entries;
    std::vector<const selected_entity*> records;
    for (Entry entry = first; entry != map.end() && isSame(entry->first, first->first); last = entry++) {
        if (entry->first.stub() != first->first.stub())
            return nullptr;
        const selected_entity* const record = recordAt(store, entry->second);
        if (!record)
            continue;
        entries.push_back(entry);
        records.push_back(record);
    }
    std::unique_ptr<RunIndex> run(new RunIndex(first, keys, records.size()));
    run->mLast = last;
    run->addSubIds(records);
    for (std::size_t i = 0; i < records.size(); ++i)
        run->add(entries[i], *records[i]);
    return run;
} catch (const std::bad_alloc&) {
    return nullptr;
}

// Adds the sub ids of the records to mIds in ascending order, so that each id belongs at the end of mIds. If
// the order of the ids is not that of their stubs, adds nothing: addIds() then adds each id with the first
// item that has the id.
void RunIndex::addSubIds(const std::vector<const selected_entity*>& records) {
    IdBatch batch;
    batch.reserve(records.size());
    for (const selected_entity* record : records)
        batch.add(record->subEntId, 0);
    if (!batch.sort())
        return;
    for (const IdBatch::Item* item = batch.begin(); item != batch.end(); item = batch.endOfId(item))
        mIds.add(item->id());
}

bool RunIndex::noteAdded(Entry entry, const selected_entity& record) noexcept try {
    mLast = entry;
    if (entry->first.stub() != mMainStub)
        return false;
    add(entry, record);
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

// An erased item leaves its chain, but stays in mItems. Its ids stay in mIds, even if no other item has them.
// They are freed with the index.
bool RunIndex::noteErasing(const DataMap& map, Entry entry, const selected_entity* record) noexcept {
    if (!record || unlink(*record, [entry](const Item& item) { return item.entry == entry; }) == kNone)
        return false;
    ++mErased;
    const std::size_t left = mItems.size() - mErased;
    if (left < kFewestItems / 2 || left < mErased)
        return false;
    if (mLast != entry)
        return true;
    if (entry == map.begin())
        return false;
    mLast = std::prev(entry);
    return mLast->first.stub() == mMainStub;
}

bool RunIndex::noteChangingPath(unsigned long address, const selected_entity& record,
                                const KvVector<GxDbObjectId>& path) noexcept try {
    if (mKeys == Keys::kMarker)
        return true;
    const Number number =
        unlink(record, [address](const Item& item) { return item.entry->second == address; });
    if (number == kNone)
        return false;
    link(number, keyOf(addIds(record.subEntId, path), record.gsMarker));
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

auto RunIndex::addIds(const GxDbObjectId& subId, const KvVector<GxDbObjectId>& path) -> Hash {
    return *hashOf(subId, &path, [this](const GxDbObjectId& id) { return std::optional(mIds.add(id)); });
}

void RunIndex::add(Entry entry, const selected_entity& record) {
    const Hash hash = addIds(record.subEntId, record.nestedEntFullPath);
    if (mItems.size() >= kNone)
        throw std::bad_alloc();
    const auto number = static_cast<Number>(mItems.size());
    mItems.push_back({entry});
    noteMarker(record.gsMarker);
    link(number, keyOf(hash, record.gsMarker));
}

// Puts the item into the chain of `key`, which is in the order of the run. Most often, the item becomes the
// last of its chain.
void RunIndex::link(Number number, std::uint32_t key) {
    mItems[number].next = kNone;
    const auto [chain, isNew] = mChains.insert(key, {number, number});
    if (isNew)
        return;
    if (chain->last < number) {
        mItems[chain->last].next = number;
        chain->last = number;
        return;
    }
    Number* place = &chain->first;
    while (*place < number)
        place = &mItems[*place].next;
    mItems[number].next = std::exchange(*place, number);
}

void RunIndex::noteMarker(long marker) noexcept {
    long* const last = mMarkers.data() + mMarkerCount;
    if (mHasManyMarkers || std::find(mMarkers.data(), last, marker) != last)
        return;
    if (mMarkerCount == kMostMarkers)
        mHasManyMarkers = true;
    else
        mMarkers[mMarkerCount++] = marker;
}

template <class IsItem>
auto RunIndex::unlink(const selected_entity& record, IsItem isItem) noexcept -> Number {
    const KvVector<GxDbObjectId>* const path = &record.nestedEntFullPath;
    const Number number = unlink(keyOf(hashOfStubs(record.subEntId, path), record.gsMarker), isItem);
    if (number != kNone)
        return number;
    const std::optional<Hash> equals = hashOfEquals(record.subEntId, path);
    return equals ? unlink(keyOf(*equals, record.gsMarker), isItem) : kNone;
}

// Most often, isItem() accepts the first item of the chain, since remove() takes the first item with equal
// keys.
template <class IsItem>
auto RunIndex::unlink(std::uint32_t key, IsItem isItem) noexcept -> Number {
    Chain* const chain = mChains.find(key);
    if (!chain)
        return kNone;
    Number before = kNone;
    Number number = chain->first;
    while (number != kNone && !isItem(mItems[number]))
        before = std::exchange(number, mItems[number].next);
    if (number == kNone)
        return kNone;
    const Number after = mItems[number].next;
    if (before == kNone && after == kNone) {
        mChains.erase(key);
        return number;
    }
    (before == kNone ? chain->first : mItems[before].next) = after;
    if (after == kNone)
        chain->last = before;
    return number;
}

// Returns a hash of the stubs that stubOf() returns for the sub id and for each id of the path. Returns
// nothing if stubOf() returns nothing for an id. Leaves out the path if mKeys is Keys::kMarker.
template <class Stub>
auto RunIndex::hashOf(const GxDbObjectId& subId, const KvVector<GxDbObjectId>* path, Stub stubOf) const
    -> std::optional<Hash> {
    const auto add = [&stubOf](Hash& hash, const GxDbObjectId& id) {
        const std::optional<const GxDbStub*> stub = stubOf(id);
        hash = mixed(hash, stub ? reinterpret_cast<std::uint64_t>(*stub) : 0);
        return stub.has_value();
    };
    Hash hash = 0;
    if (!add(hash, subId))
        return std::nullopt;
    const int length = mKeys == Keys::kMarkerAndPath ? path->logicalLength() : 0;
    for (int i = 0; i < length; ++i) {
        if (!add(hash, path->at(i)))
            return std::nullopt;
    }
    return hash;
}

auto RunIndex::hashOfStubs(const GxDbObjectId& subId, const KvVector<GxDbObjectId>* path) const -> Hash {
    return *hashOf(subId, path,
                   [](const GxDbObjectId& id) { return std::optional<const GxDbStub*>(id.stub()); });
}

auto RunIndex::hashOfEquals(const GxDbObjectId& subId, const KvVector<GxDbObjectId>* path) const
    -> std::optional<Hash> {
    return hashOf(subId, path, [this](const GxDbObjectId& id) { return mIds.find(id); });
}

auto RunIndex::chainsOf(const ItemKeys& keys, Hash hash) const -> Chains {
    Chains chains;
    forEachMarker(keys, [&](long marker) {
        if (const Chain* const chain = mChains.find(keyOf(hash, marker)))
            chains.add(chain->first);
    });
    return chains;
}

// Calls visit(marker) for each marker that items may have and that matches the marker in `keys`.
template <class Visit>
void RunIndex::forEachMarker(const ItemKeys& keys, Visit visit) const {
    if (!mHasManyMarkers) {
        for (std::size_t i = 0; i < mMarkerCount; ++i) {
            if (isMarkerWanted(mMarkers[i], keys))
                visit(mMarkers[i]);
        }
    } else if (keys.markers == Markers::kEqual && isGsMarkEqual(keys.gsMarker, 0)) {
        visit(0);
        visit(-1);
    } else {
        visit(keys.gsMarker);
    }
}

auto RunIndex::Chains::next(const std::vector<Item>& items) noexcept -> Number {
    Number& least = *std::min_element(mHeads.data(), mHeads.data() + mCount);
    least = items[least].next;
    return first();
}

} // namespace kvdetail
